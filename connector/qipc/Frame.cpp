// SPDX-License-Identifier: Apache-2.0
// QIPC framing: encoder and incremental decoder.
#include "Frame.h"

namespace ornwick {
namespace qipc {

bool encodeFrame(const std::string& body, std::string* out) {
  if (body.size() > kMaxFrameSize)
    return false;
  const auto n = static_cast<uint32_t>(body.size());
  out->clear();
  out->reserve(kFrameHeaderSize + body.size());
  out->push_back(static_cast<char>((n >> 24) & 0xff));
  out->push_back(static_cast<char>((n >> 16) & 0xff));
  out->push_back(static_cast<char>((n >> 8) & 0xff));
  out->push_back(static_cast<char>(n & 0xff));
  out->append(body);
  return true;
}

void FrameDecoder::feed(const char* data, size_t size) {
  if (failed_)
    return;
  // Drop what was already handed out before growing, so the buffer stays near
  // one frame.
  if (consumed_ > 0 && consumed_ >= buffer_.size() / 2) {
    buffer_.erase(0, consumed_);
    consumed_ = 0;
  }
  buffer_.append(data, size);
}

FrameDecoder::Status FrameDecoder::next(std::string* body, std::string* err) {
  if (failed_) {
    *err = "stream already failed";
    return Status::kError;
  }
  if (buffered() < kFrameHeaderSize)
    return Status::kNeedMore;
  const auto* p = reinterpret_cast<const unsigned char*>(buffer_.data() + consumed_);
  const uint32_t n =
      (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | uint32_t{p[3]};
  if (n == 0 || n > kMaxFrameSize) {
    failed_ = true;
    buffer_.clear();
    consumed_ = 0;
    *err = n == 0 ? "empty frame" : "frame of " + std::to_string(n) + " bytes exceeds the limit";
    return Status::kError;
  }
  if (buffered() - kFrameHeaderSize < n)
    return Status::kNeedMore;
  body->assign(buffer_, consumed_ + kFrameHeaderSize, n);
  consumed_ += kFrameHeaderSize + n;
  if (consumed_ == buffer_.size()) {
    buffer_.clear();
    consumed_ = 0;
  }
  return Status::kFrame;
}

}  // namespace qipc
}  // namespace ornwick
