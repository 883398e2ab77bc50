// SPDX-License-Identifier: Apache-2.0
// libFuzzer target: arbitrary bytes as a home file, either taken whole or refused with at
// least one reason.
#include "Home.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ornsim::Home home;
  std::vector<std::string> problems;
  if (ornsim::parseHome(std::string(reinterpret_cast<const char*>(data), size), &home, &problems) !=
      problems.empty())
    __builtin_trap();
  return 0;
}
