// SPDX-License-Identifier: Apache-2.0
// QIPC framing: a 4-byte big-endian length followed by that many bytes of one
// JSON message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "QipcProtocol.h"

namespace ornwick {
namespace qipc {

// Returns the frame for `body`; false (and *out untouched) when body exceeds
// kMaxFrameSize.
bool encodeFrame(const std::string& body, std::string* out);

// Splits a byte stream into frame bodies, whatever the read sizes were.
class FrameDecoder {
 public:
  enum class Status { kNeedMore, kFrame, kError };

  // Appends received bytes. Cheap; decoding happens in next().
  void feed(const char* data, size_t size);

  // kFrame: *body holds the next frame's body. kNeedMore: wait for more bytes.
  // kError: zero-length or oversized frame; *err says which and the stream is
  // unusable.
  Status next(std::string* body, std::string* err);

  // Bytes fed but not yet returned as frames.
  size_t buffered() const { return buffer_.size() - consumed_; }

 private:
  std::string buffer_;
  size_t consumed_ = 0;
  bool failed_ = false;
};

}  // namespace qipc
}  // namespace ornwick
