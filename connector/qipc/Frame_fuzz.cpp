// libFuzzer target: arbitrary bytes through the frame decoder and the message
// parser.
#include "Frame.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include "Message.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ornwick::qipc::FrameDecoder decoder;
  // Split the input in two feeds so partial headers and bodies get exercised
  // too.
  const size_t half = size / 2;
  decoder.feed(reinterpret_cast<const char*>(data), half);
  decoder.feed(reinterpret_cast<const char*>(data) + half, size - half);
  std::string body, err;
  while (decoder.next(&body, &err) == ornwick::qipc::FrameDecoder::Status::kFrame) {
    ornwick::qipc::Message m;
    ornwick::qipc::decodeMessage(body, &m, &err);
  }
  return 0;
}
