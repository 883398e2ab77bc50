// SPDX-License-Identifier: Apache-2.0
// libFuzzer target: arbitrary bytes, fed in two halves so partial headers and bodies occur,
// through the frame decoder and the message parser.
#include "Frame.h"

#include "Message.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace ornwick::qipc;
  FrameDecoder decoder;
  decoder.feed(reinterpret_cast<const char*>(data), size / 2);
  decoder.feed(reinterpret_cast<const char*>(data) + size / 2, size - size / 2);
  std::string body, err;
  while (decoder.next(&body, &err) == FrameDecoder::Status::kFrame) {
    Message m;
    decodeMessage(body, &m, &err);
  }
  return 0;
}
