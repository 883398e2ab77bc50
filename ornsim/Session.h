// SPDX-License-Identifier: Apache-2.0
// Session: one client connection of ornsim: framing in and out, the frame and
// registration deadlines, delayed answers, and its bytes in the server's
// budgets. What a message means is the owner's business (Server).
#pragma once

#include <asio.hpp>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <string>

#include "ByteBudget.h"
#include "Frame.h"
#include "Message.h"

namespace ornsim {

// An event message of `type` carrying `payload`.
ornwick::qipc::Message eventMessage(int type, const std::string& payload);

class Session : public std::enable_shared_from_this<Session> {
 public:
  // What a session needs from the server that accepted it. Functions rather
  // than virtual members: a sanitizer build checks each virtual call with a
  // pipe, and a session closes also when no descriptor is left.
  struct Owner {
    // Acts on a complete message from `session`; false when the message is not
    // one a client may send.
    std::function<bool(Session& session, ornwick::qipc::Message& m)> handle;
    // The session has closed and given back its bytes; drop it.
    std::function<void(Session& session)> closed;
  };

  // The budgets all sessions share, and the deadlines.
  struct Limits {
    ByteBudget& partialFrames;  // frames partly received
    ByteBudget& unsentFrames;   // frames delayed, or queued but not yet written
    int frameTimeoutMs;
    int registerTimeoutMs;
  };

  // `order` tells sessions apart by age: a smaller one was accepted earlier.
  Session(asio::io_context& io, const Owner& owner, const Limits& limits, uint64_t order,
          asio::local::stream_protocol::socket socket);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Checks the peer, greets it with the connection-status event, starts the
  // registration deadline and reads.
  void start();

  // Queues m; false when it was not queued because the session is closed, the
  // message cannot be framed, or the client was cut off for it.
  bool send(const ornwick::qipc::Message& m);
  // send() after delayMs. The frame waits counted with the unsent ones; the
  // client is cut off when it would pass their budget, and the frame goes
  // with the connection when that closes first.
  void sendLater(int delayMs, const ornwick::qipc::Message& m);

  void markRegistered(const std::string& name);
  bool registered() const { return registered_; }
  const std::string& name() const { return name_; }
  uint64_t order() const { return order_; }
  // Whether the session may be closed to make room for a new connection: it
  // has not registered, is in the middle of a frame, or has answers unread.
  bool stalled() const { return !registered_ || timingFrame_ || !outbox_.empty(); }

  // Closes the socket, gives back its bytes and tells the owner; once.
  void close();

 private:
  void read();
  // Handles every complete frame; false when the connection was closed.
  bool drain();
  // After a read: counts the frame still arriving, then times it or, when
  // none is, lets the decoder go idle. False when the connection was closed.
  bool holdPartialFrame();
  // Counts decoder_'s bytes against the budget; closes the connection and
  // returns false when they would pass it.
  bool claimPartialFrame();
  // Gives the frame now arriving its deadline, counted from its first byte.
  void timeFrame();
  // No frame is arriving: no deadline, and no capacity a big frame left.
  void idle();
  // The frame for m, or for the error answer standing in for an oversized
  // one; false when there is none (the connection is closed when no answer
  // to a request can ever fit).
  bool frameFor(const ornwick::qipc::Message& m, std::string* frame);
  // Queues a frame for writing; false when the client is cut off for it.
  bool queue(std::string frame);
  void write();

  // An answer or event waiting for its time.
  struct Delayed {
    explicit Delayed(asio::io_context& io) : timer(io) {}
    asio::steady_timer timer;
    std::string frame;
  };

  asio::io_context& io_;
  const Owner& owner_;
  const int frameTimeoutMs_;
  const int registerTimeoutMs_;
  const uint64_t order_;
  asio::local::stream_protocol::socket socket_;
  char buf_[16384];
  ornwick::qipc::FrameDecoder decoder_;
  bool bigFrame_ = false;   // a frame larger than buf_ went through decoder_
  ByteClaim partialFrame_;  // decoder_'s bytes
  asio::steady_timer frameTimer_;
  bool timingFrame_ = false;
  uint64_t frames_ = 0;  // complete frames received
  uint64_t framesAtTimer_ = 0;
  std::deque<std::string> outbox_;
  ByteClaim unsentFrames_;  // outbox_'s bytes
  std::list<Delayed> delayed_;
  ByteClaim delayedFrames_;  // delayed_'s bytes, on the unsent frames' budget
  asio::steady_timer registerTimer_;
  std::string name_;
  bool registered_ = false;
  bool closed_ = false;
};

}  // namespace ornsim
