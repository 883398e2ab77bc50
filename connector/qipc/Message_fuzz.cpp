// SPDX-License-Identifier: Apache-2.0
// libFuzzer target: arbitrary bytes as one message text, as both ends decode them. Whatever
// decodes must encode and decode back to the same message.
#include "Message.h"

#include <tuple>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace ornwick::qipc;
  Message m, again;
  std::string err;
  if (decodeMessage(std::string(reinterpret_cast<const char*>(data), size), &m, &err) &&
      (!decodeMessage(encodeMessage(m), &again, &err) ||
       std::tie(again.kind, again.id, again.type, again.code, again.text, again.sync) !=
           std::tie(m.kind, m.id, m.type, m.code, m.text, m.sync)))
    __builtin_trap();
  return 0;
}
