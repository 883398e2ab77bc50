// libFuzzer target: arbitrary bytes as one message text, as both ends decode
// them. Whatever decodes must encode and decode back to the same message.
#include "Message.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using ornwick::qipc::Message;
  Message m, again;
  std::string err;
  if (!ornwick::qipc::decodeMessage(std::string(reinterpret_cast<const char*>(data), size), &m,
                                    &err))
    return 0;
  if (!ornwick::qipc::decodeMessage(ornwick::qipc::encodeMessage(m), &again, &err) ||
      again.kind != m.kind || again.id != m.id || again.type != m.type || again.code != m.code ||
      again.text != m.text || again.sync != m.sync)
    __builtin_trap();
  return 0;
}
