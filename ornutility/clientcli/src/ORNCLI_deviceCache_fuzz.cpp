// SPDX-License-Identifier: Apache-2.0
// libFuzzer target: arbitrary bytes as the service's device list, as the dialogues read it.
#include "ORNCLI.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ornwick::ornUtility::parseLocalDevices(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
