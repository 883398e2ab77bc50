// SPDX-License-Identifier: Apache-2.0
// Session: reading frames against the budget and deadline, queueing and
// writing answers and events, closing.
#include "Session.h"

#include <cstdio>
#include <utility>

#include "Diagnostics.h"
#include "JsonText.h"
#include "Socket.h"

namespace ornsim {
namespace {

using ornwick::qipc::encodeFrame;
using ornwick::qipc::encodeMessage;
using ornwick::qipc::FrameDecoder;
using ornwick::qipc::Message;
using ornwick::qipc::MessageKind;

// Bytes queued for a client that is not reading; past this it is cut off.
constexpr size_t kMaxUnsentPerClient = 8 * size_t{ornwick::qipc::kMaxFrameSize};
static_assert(kMaxUnsentPerClient >= ornwick::qipc::kMaxFrameSize + ornwick::qipc::kFrameHeaderSize,
              "a client that reads must be able to receive the largest frame");

}  // namespace

Message eventMessage(int type, const std::string& payload) {
  Message m;
  m.kind = MessageKind::kEvent;
  m.type = type;
  m.text = payload;
  return m;
}

Session::Session(asio::io_context& io, const Owner& owner, const Limits& limits, uint64_t order,
                 asio::local::stream_protocol::socket socket)
    : io_(io),
      owner_(owner),
      frameTimeoutMs_(limits.frameTimeoutMs),
      registerTimeoutMs_(limits.registerTimeoutMs),
      order_(order),
      socket_(std::move(socket)),
      partialFrame_(limits.partialFrames),
      frameTimer_(io),
      unsentFrames_(limits.unsentFrames, kMaxUnsentPerClient),
      delayedFrames_(limits.unsentFrames),
      registerTimer_(io) {}

void Session::start() {
  std::string err;
  if (!ornwick::qipc::peerAllowed(socket_.native_handle(), &err)) {
    diag("ornsim: refusing client: %s\n", err.c_str());
    close();
    return;
  }
  send(eventMessage(ornwick::qipc::kConnectionStatusEvent, "{\"status\":\"CONNECTED\"}"));
  registerTimer_.expires_after(std::chrono::milliseconds(registerTimeoutMs_));
  registerTimer_.async_wait([self = shared_from_this()](const asio::error_code& ec) {
    if (ec || self->closed_ || self->registered_)
      return;
    diag("ornsim: a client did not register within %d ms; closing the connection\n",
         self->registerTimeoutMs_);
    self->close();
  });
  read();
}

void Session::markRegistered(const std::string& name) {
  name_ = name;
  registered_ = true;
  registerTimer_.cancel();
}

bool Session::send(const Message& m) {
  std::string frame;
  return !closed_ && frameFor(m, &frame) && queue(std::move(frame));
}

bool Session::frameFor(const Message& m, std::string* frame) {
  if (encodeFrame(encodeMessage(m), frame))
    return true;
  diag("ornsim: a message to %s is over the frame limit\n", name_.c_str());
  if (m.kind != MessageKind::kResponse)
    return false;
  // The waiting request still gets an answer, just not the oversized one.
  Message tooLarge = m;
  tooLarge.code = 500;
  tooLarge.text = errorJson("response_too_large", "the answer exceeds the frame limit");
  if (encodeFrame(encodeMessage(tooLarge), frame))
    return true;
  // The request id alone fills a frame: no answer can ever reach that request.
  diag("ornsim: no answer to client %s fits in a frame; closing the connection\n", name_.c_str());
  close();
  return false;
}

bool Session::queue(std::string frame) {
  const ByteClaim::Room room = unsentFrames_.grow(frame.size());
  if (room != ByteClaim::Room::kFits) {
    diag(room == ByteClaim::Room::kOverOwnLimit
             ? "ornsim: client %s is not reading; cutting it off\n"
             : "ornsim: unsent frames would pass the frame budget; cutting off client %s\n",
         name_.c_str());
    close();
    return false;
  }
  outbox_.push_back(std::move(frame));
  if (outbox_.size() == 1)
    write();
  return true;
}

void Session::sendLater(int delayMs, const Message& m) {
  if (delayMs <= 0) {
    send(m);
    return;
  }
  std::string frame;
  if (closed_ || !frameFor(m, &frame))
    return;
  if (delayedFrames_.grow(frame.size()) != ByteClaim::Room::kFits) {
    diag("ornsim: delayed frames would pass the frame budget; cutting off client %s\n",
         name_.c_str());
    close();
    return;
  }
  auto it = delayed_.emplace(delayed_.end(), io_);
  it->frame = std::move(frame);
  it->timer.expires_after(std::chrono::milliseconds(delayMs));
  it->timer.async_wait([self = shared_from_this(), it](const asio::error_code& ec) {
    // close() has dropped every delayed frame, `it` included.
    if (ec || self->closed_)
      return;
    std::string due = std::move(it->frame);
    self->delayedFrames_.shrink(due.size());
    self->delayed_.erase(it);
    self->queue(std::move(due));
  });
}

void Session::close() {
  if (closed_)
    return;
  auto self = shared_from_this();  // the owner may hold the last reference
  closed_ = true;
  partialFrame_.release();
  unsentFrames_.release();
  delayedFrames_.release();
  delayed_.clear();  // their waits complete as cancelled
  asio::error_code ignored;
  socket_.close(ignored);
  frameTimer_.cancel();
  registerTimer_.cancel();
  owner_.closed(*this);
}

void Session::read() {
  socket_.async_read_some(asio::buffer(buf_),
                          [self = shared_from_this()](const asio::error_code& ec, size_t n) {
                            if (ec) {
                              self->close();
                              return;
                            }
                            self->decoder_.feed(self->buf_, n);
                            if (self->drain() && self->holdPartialFrame())
                              self->read();
                          });
}

bool Session::holdPartialFrame() {
  if (!claimPartialFrame())
    return false;
  if (decoder_.buffered() == 0)
    idle();
  else if (!timingFrame_ || frames_ != framesAtTimer_)
    timeFrame();
  return true;
}

bool Session::claimPartialFrame() {
  if (partialFrame_.resize(decoder_.buffered()) == ByteClaim::Room::kFits)
    return true;
  diag("ornsim: partly received frames would pass the frame budget; closing client %s\n",
       name_.c_str());
  close();
  return false;
}

void Session::timeFrame() {
  timingFrame_ = true;
  framesAtTimer_ = frames_;
  frameTimer_.expires_after(std::chrono::milliseconds(frameTimeoutMs_));
  frameTimer_.async_wait([self = shared_from_this()](const asio::error_code& ec) {
    // A wait that had fired before a later frame moved the deadline still
    // completes without an error; the expiry tells.
    if (ec || self->closed_ || !self->timingFrame_ ||
        self->frameTimer_.expiry() > std::chrono::steady_clock::now())
      return;
    diag("ornsim: client %s stalled in the middle of a frame; closing the connection\n",
         self->name_.c_str());
    self->close();
  });
}

void Session::idle() {
  timingFrame_ = false;
  frameTimer_.cancel();
  if (bigFrame_) {
    // The decoder keeps the capacity a big frame needed; an idle connection
    // should not. Swapping, unlike assigning, really frees it.
    FrameDecoder fresh;
    std::swap(decoder_, fresh);
    bigFrame_ = false;
  }
}

bool Session::drain() {
  std::string body, err;
  for (;;) {
    auto status = decoder_.next(&body, &err);
    if (status == FrameDecoder::Status::kNeedMore)
      return !closed_;
    ++frames_;
    bigFrame_ = bigFrame_ || body.size() > sizeof(buf_);
    Message m;
    if (status == FrameDecoder::Status::kError || !ornwick::qipc::decodeMessage(body, &m, &err)) {
      diag("ornsim: protocol error from client %s: %s\n", name_.c_str(), err.c_str());
      close();
      return false;
    }
    if (!owner_.handle(*this, m)) {
      diag("ornsim: unexpected message from client %s\n", name_.c_str());
      close();
      return false;
    }
    if (closed_)
      return false;
  }
}

void Session::write() {
  asio::async_write(socket_, asio::buffer(outbox_.front()),
                    [self = shared_from_this()](const asio::error_code& ec, size_t) {
                      // close() has already given back what was queued.
                      if (ec || self->closed_) {
                        self->close();
                        return;
                      }
                      self->unsentFrames_.shrink(self->outbox_.front().size());
                      self->outbox_.pop_front();
                      if (!self->outbox_.empty())
                        self->write();
                    });
}

}  // namespace ornsim
