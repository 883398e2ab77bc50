// SPDX-License-Identifier: Apache-2.0
// Session: one client connection of ornsim: framing in and out, the frame
// deadline, and its bytes in the server's budgets. What a message means is the
// owner's business (Server).
#pragma once

#include <asio.hpp>
#include <cstdint>
#include <deque>
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
  // What a session needs from the server that accepted it.
  class Owner {
   public:
    // Acts on a complete message from `session`; false when the message is not
    // one a client may send.
    virtual bool handle(Session& session, ornwick::qipc::Message& m) = 0;
    // The session has closed and given back its bytes; drop it.
    virtual void closed(Session& session) = 0;

   protected:
    ~Owner() = default;
  };

  // The budgets all sessions share, and the frame deadline.
  struct Limits {
    ByteBudget& partialFrames;  // frames partly received
    ByteBudget& unsentFrames;   // frames queued but not yet written
    int frameTimeoutMs;
  };

  Session(asio::io_context& io, Owner& owner, const Limits& limits,
          asio::local::stream_protocol::socket socket);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Checks the peer, greets it with the connection-status event and reads.
  void start();

  // Queues m; false when it was not queued because the session is closed, the
  // message cannot be framed, or the client was cut off for it.
  bool send(const ornwick::qipc::Message& m);
  // send() after delayMs.
  void sendLater(int delayMs, const ornwick::qipc::Message& m);

  void markRegistered(const std::string& name) {
    name_ = name;
    registered_ = true;
  }
  bool registered() const { return registered_; }
  const std::string& name() const { return name_; }

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
  void write();

  asio::io_context& io_;
  Owner& owner_;
  const int frameTimeoutMs_;
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
  std::string name_;
  bool registered_ = false;
  bool closed_ = false;
};

}  // namespace ornsim
