// SPDX-License-Identifier: Apache-2.0
// Server: accepting clients, the handshake, fault injection and per-client
// framing.
#include "Server.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <utility>

#include "Frame.h"
#include "JsonText.h"
#include "Message.h"
#include "RequestHandler.h"
#include "Socket.h"

namespace ornsim {
namespace {

using ornwick::qipc::encodeFrame;
using ornwick::qipc::encodeMessage;
using ornwick::qipc::Message;
using ornwick::qipc::MessageKind;

using Clock = std::chrono::steady_clock;

// Bytes queued for a client that is not reading; past this it is cut off.
constexpr size_t kMaxPendingBytes = 8u << 20;

// Pauses between accepts while they fail (out of descriptors, say).
constexpr std::chrono::milliseconds kFirstAcceptPause{100};
constexpr std::chrono::milliseconds kLastAcceptPause{2000};
// At the descriptor limit every accept fails, even the one right after a
// connection closed and let one in; so failures are logged by time, not by run.
constexpr std::chrono::seconds kAcceptLogEvery{60};

constexpr int kConnectionStatusEvent = 20;
constexpr int kClientRegisteredEvent = 23;
constexpr int kStateChangeEvent = 21;

std::string registrationRecord(const std::string& name, int type) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  writeMember(w, "register", name);
  w.Key("connectorType");
  w.Int(type);
  w.EndObject();
  return buf.GetString();
}

std::string requestRecord(const std::string& client, const Message& m) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  writeMember(w, "client", client);
  w.Key("sync");
  w.Bool(m.sync);
  writeMember(w, "requestId", m.id);
  w.Key("requestType");
  w.Int(m.type);
  writeMember(w, "payload", m.text);
  w.EndObject();
  return buf.GetString();
}

std::string registeredPayload(const std::string& name) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  writeMember(w, "clientName", name);
  w.Key("status");
  w.String("REGISTERED");
  w.EndObject();
  return buf.GetString();
}

// Whether the file open on fd is the one now named path.
bool isFile(int fd, const std::string& path) {
  struct stat held, named;
  return fstat(fd, &held) == 0 && lstat(path.c_str(), &named) == 0 && held.st_dev == named.st_dev &&
         held.st_ino == named.st_ino;
}

Message event(int type, const std::string& payload) {
  Message m;
  m.kind = MessageKind::kEvent;
  m.type = type;
  m.text = payload;
  return m;
}

}  // namespace

class Server::Session : public std::enable_shared_from_this<Session> {
 public:
  Session(Server& server, asio::local::stream_protocol::socket socket)
      : server_(server), socket_(std::move(socket)), frameTimer_(server.io_) {}

  void start() {
    std::string err;
    if (!ornwick::qipc::peerAllowed(socket_.native_handle(), &err)) {
      fprintf(stderr, "ornsim: refusing client: %s\n", err.c_str());
      close();
      return;
    }
    send(event(kConnectionStatusEvent, "{\"status\":\"CONNECTED\"}"));
    read();
  }

  void send(const Message& m) {
    if (closed_)
      return;
    std::string frame;
    if (!encodeFrame(encodeMessage(m), &frame)) {
      fprintf(stderr, "ornsim: a message to %s is over the frame limit\n", name_.c_str());
      if (m.kind != MessageKind::kResponse)
        return;
      // The waiting request still gets an answer, just not the oversized one.
      Message tooLarge = m;
      tooLarge.code = 500;
      tooLarge.text = errorJson("response_too_large", "the answer exceeds the frame limit");
      if (!encodeFrame(encodeMessage(tooLarge), &frame)) {
        // The request id alone fills a frame: no answer can ever reach that request.
        fprintf(stderr, "ornsim: no answer to client %s fits in a frame; closing the connection\n",
                name_.c_str());
        close();
        return;
      }
    }
    const bool clientFull = pendingBytes_ + frame.size() > kMaxPendingBytes;
    if (clientFull || server_.queuedBytes_ + frame.size() > budget()) {
      fprintf(stderr,
              clientFull
                  ? "ornsim: client %s is not reading; cutting it off\n"
                  : "ornsim: unsent frames would pass the frame budget; cutting off client %s\n",
              name_.c_str());
      close();
      return;
    }
    pendingBytes_ += frame.size();
    server_.queuedBytes_ += frame.size();
    outbox_.push_back(std::move(frame));
    if (outbox_.size() == 1)
      write();
  }

  void sendLater(int delayMs, const Message& m) {
    if (delayMs <= 0) {
      send(m);
      return;
    }
    auto timer =
        std::make_shared<asio::steady_timer>(server_.io_, std::chrono::milliseconds(delayMs));
    timer->async_wait([self = shared_from_this(), timer, m](const asio::error_code& ec) {
      if (!ec)
        self->send(m);
    });
  }

  bool registered() const { return registered_; }
  const std::string& name() const { return name_; }

  void close() {
    if (closed_)
      return;
    auto self = shared_from_this();  // the set below may hold the last reference
    closed_ = true;
    server_.partialBytes_ -= held_;
    held_ = 0;
    server_.queuedBytes_ -= pendingBytes_;
    pendingBytes_ = 0;
    asio::error_code ignored;
    socket_.close(ignored);
    frameTimer_.cancel();
    server_.sessions_.erase(self);
    server_.connectionClosed();
    if (registered_)
      server_.clientsChanged();
  }

 private:
  void read() {
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

  size_t budget() const { return static_cast<size_t>(server_.options_.frameBudget); }

  // Counts the part of a frame still arriving against the budget and starts its
  // clock; false when the connection was closed for it.
  bool holdPartialFrame() {
    const size_t now = decoder_.buffered();
    server_.partialBytes_ = server_.partialBytes_ - held_ + now;
    held_ = now;
    if (server_.partialBytes_ > budget()) {
      fprintf(stderr,
              "ornsim: partly received frames would pass the frame budget; closing client %s\n",
              name_.c_str());
      close();
      return false;
    }
    if (now == 0) {
      timingFrame_ = false;
      frameTimer_.cancel();
      if (bigFrame_) {
        // The decoder keeps the capacity a big frame needed; an idle connection
        // should not. Swapping, unlike assigning, really frees it.
        ornwick::qipc::FrameDecoder fresh;
        std::swap(decoder_, fresh);
        bigFrame_ = false;
      }
    } else if (!timingFrame_ || frames_ != framesAtTimer_) {
      timeFrame();
    }
    return true;
  }

  // Gives the frame now arriving its deadline, counted from its first byte.
  void timeFrame() {
    timingFrame_ = true;
    framesAtTimer_ = frames_;
    frameTimer_.expires_after(std::chrono::milliseconds(server_.options_.frameTimeoutMs));
    frameTimer_.async_wait([self = shared_from_this()](const asio::error_code& ec) {
      // A wait that had fired before a later frame moved the deadline still
      // completes without an error; the expiry tells.
      if (ec || self->closed_ || !self->timingFrame_ || self->frameTimer_.expiry() > Clock::now())
        return;
      fprintf(stderr,
              "ornsim: client %s stalled in the middle of a frame; closing the connection\n",
              self->name_.c_str());
      self->close();
    });
  }

  // Handles every complete frame; false when the connection was closed.
  bool drain() {
    std::string body, err;
    for (;;) {
      auto status = decoder_.next(&body, &err);
      if (status == ornwick::qipc::FrameDecoder::Status::kNeedMore)
        return !closed_;
      ++frames_;
      bigFrame_ = bigFrame_ || body.size() > sizeof(buf_);
      Message m;
      if (status == ornwick::qipc::FrameDecoder::Status::kError ||
          !ornwick::qipc::decodeMessage(body, &m, &err)) {
        fprintf(stderr, "ornsim: protocol error from client %s: %s\n", name_.c_str(), err.c_str());
        close();
        return false;
      }
      if (!handle(m)) {
        fprintf(stderr, "ornsim: unexpected message from client %s\n", name_.c_str());
        close();
        return false;
      }
      if (closed_)
        return false;
    }
  }

  bool handle(Message& m) {
    const Options& o = server_.options_;
    if (m.kind == MessageKind::kRegister) {
      name_ = m.text;
      registered_ = true;
      server_.record(registrationRecord(m.text, m.type));
      server_.clientsChanged();
      if (!o.noRegister)
        sendLater(o.registerDelayMs, event(kClientRegisteredEvent, registeredPayload(name_)));
      for (const auto& e : o.emits)
        sendLater(e.delayMs, event(e.eventType, e.payload));
      return true;
    }
    if (m.kind != MessageKind::kRequest)
      return false;
    Simulation::Outcome out = server_.serve(name_, m);
    if (!out.answer)
      return true;
    Message response;
    response.kind = MessageKind::kResponse;
    response.id = m.id;
    response.code = out.code;
    response.text = std::move(out.data);
    sendLater(out.delayMs, std::move(response));
    return true;
  }

  void write() {
    asio::async_write(socket_, asio::buffer(outbox_.front()),
                      [self = shared_from_this()](const asio::error_code& ec, size_t) {
                        // close() has already given back what was queued.
                        if (ec || self->closed_) {
                          self->close();
                          return;
                        }
                        const size_t sent = self->outbox_.front().size();
                        self->pendingBytes_ -= sent;
                        self->server_.queuedBytes_ -= sent;
                        self->outbox_.pop_front();
                        if (!self->outbox_.empty())
                          self->write();
                      });
  }

  Server& server_;
  asio::local::stream_protocol::socket socket_;
  char buf_[16384];
  ornwick::qipc::FrameDecoder decoder_;
  bool bigFrame_ = false;  // a frame larger than buf_ went through decoder_
  size_t held_ = 0;        // decoder_'s bytes as counted in the server's partialBytes_
  asio::steady_timer frameTimer_;
  bool timingFrame_ = false;
  uint64_t frames_ = 0;  // complete frames received
  uint64_t framesAtTimer_ = 0;
  std::deque<std::string> outbox_;
  size_t pendingBytes_ = 0;  // outbox_'s bytes, also counted in the server's queuedBytes_
  std::string name_;
  bool registered_ = false;
  bool closed_ = false;
};

Server::Server(asio::io_context& io, const Options& options, Home home)
    : io_(io),
      options_(options),
      home_(std::move(home)),
      subscriptions_(options.maxSubscriptions, options.maxClients),
      simulation_(
          options, home_, subscriptions_,
          [this](const std::string& client, int type, const std::string& payload) {
            return sendEvent(client, type, payload);
          },
          [this](Clock::time_point due, std::function<void()> then) {
            auto timer = std::make_shared<asio::steady_timer>(io_, due);
            timer->async_wait([timer, then = std::move(then)](const asio::error_code& ec) {
              if (!ec)
                then();
            });
          }),
      acceptor_(io),
      acceptRetry_(io),
      acceptPause_(kFirstAcceptPause) {}

Server::~Server() {
  try {
    shutdown();
  } catch (...) {
    // Nothing useful to do while being destroyed; the process is ending anyway.
  }
  if (record_ != nullptr)
    fclose(record_);
}

bool Server::start(const std::string& path, std::string* err) {
  // The lock first: a second ornsim must touch neither the socket nor the files.
  if (!lock(path, err))
    return false;
  if (!options_.recordFile.empty()) {
    record_ = fopen(options_.recordFile.c_str(), "a");
    if (record_ == nullptr) {
      *err = "open " + options_.recordFile + ": " + strerror(errno);
      return false;
    }
  }
  if (!simulation_.start(err))
    return false;
  // With the lock held, a socket file at the path was left by an ornsim that died.
  struct stat st;
  if (lstat(path.c_str(), &st) == 0 && S_ISSOCK(st.st_mode))
    unlink(path.c_str());
  asio::error_code ec;
  asio::local::stream_protocol::endpoint endpoint(path);
  acceptor_.open(endpoint.protocol(), ec);
  if (!ec) {
    // Owner-only from the moment the name exists.
    mode_t old = umask(0077);
    acceptor_.bind(endpoint, ec);
    umask(old);
  }
  if (!ec)
    acceptor_.listen(asio::socket_base::max_listen_connections, ec);
  if (ec) {
    *err = "listen " + path + ": " + ec.message();
    return false;
  }
  if (lstat(path.c_str(), &st) != 0) {
    *err = "stat " + path + ": " + strerror(errno);
    return false;
  }
  path_ = path;
  socketDev_ = st.st_dev;
  socketIno_ = st.st_ino;
  accept();
  return true;
}

bool Server::lock(const std::string& path, std::string* err) {
  lockPath_ = path + ".lock";
  // The owner removes the lock file as it exits, so a lock taken on a file that
  // is gone by then guards nothing: take it again on the file now at the path.
  for (int attempt = 0; attempt < 3; ++attempt) {
    int fd = open(lockPath_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
      *err = "open " + lockPath_ + ": " + strerror(errno);
      return false;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
      const int e = errno;
      ::close(fd);
      *err = e == EWOULDBLOCK ? "another ornsim serves " + path + ": it holds " + lockPath_
                              : "lock " + lockPath_ + ": " + strerror(e);
      return false;
    }
    if (isFile(fd, lockPath_)) {
      lockFd_ = fd;
      return true;
    }
    ::close(fd);
  }
  *err = "lock " + lockPath_ + ": the file keeps being replaced";
  return false;
}

void Server::shutdown() {
  asio::error_code ignored;
  acceptor_.close(ignored);
  acceptWaiting_ = false;
  acceptRetry_.cancel();
  while (!sessions_.empty())
    (*sessions_.begin())->close();
  simulation_.flush();
  if (!path_.empty()) {
    // Whatever has taken the path since is not ours to remove.
    struct stat st;
    if (lstat(path_.c_str(), &st) == 0 && st.st_dev == socketDev_ && st.st_ino == socketIno_)
      unlink(path_.c_str());
    path_.clear();
  }
  if (lockFd_ >= 0) {
    // Removed while still held, so a waiting ornsim sees a new file (see lock()).
    if (isFile(lockFd_, lockPath_))
      unlink(lockPath_.c_str());
    ::close(lockFd_);
    lockFd_ = -1;
  }
}

void Server::accept() {
  acceptor_.async_accept(
      [this](const asio::error_code& ec, asio::local::stream_protocol::socket socket) {
        if (ec == asio::error::operation_aborted)
          return;
        if (ec) {
          retryAcceptLater(ec);
          return;
        }
        acceptPause_ = kFirstAcceptPause;
        if (sessions_.size() >= static_cast<size_t>(options_.maxConnections)) {
          // `socket` closes as it goes out of scope.
          fprintf(stderr, "ornsim: refusing a client: at the connection limit (%d)\n",
                  options_.maxConnections);
        } else {
          auto session = std::make_shared<Session>(*this, std::move(socket));
          sessions_.insert(session);
          session->start();
        }
        accept();
      });
}

void Server::retryAcceptLater(const asio::error_code& ec) {
  // Out of descriptors and the like: retrying at once would spin, and logging
  // every retry would flood the log.
  const auto now = Clock::now();
  if (!acceptLogged_ || now - *acceptLogged_ >= kAcceptLogEvery) {
    fprintf(stderr, "ornsim: accept: %s; retrying when a connection closes or after a pause\n",
            ec.message().c_str());
    acceptLogged_ = now;
  }
  acceptWaiting_ = true;
  acceptRetry_.expires_after(acceptPause_);
  acceptPause_ = std::min(acceptPause_ * 2, kLastAcceptPause);
  acceptRetry_.async_wait([this](const asio::error_code&) {
    // Cancelled early by a closing connection; shutdown closes the acceptor first.
    if (!acceptWaiting_ || !acceptor_.is_open())
      return;
    acceptWaiting_ = false;
    accept();
  });
}

void Server::connectionClosed() {
  // A descriptor came free, so a failing accept may succeed now.
  if (acceptWaiting_)
    acceptRetry_.cancel();
}

void Server::record(const std::string& line) {
  if (record_ == nullptr)
    return;
  const bool ok =
      fputs(line.c_str(), record_) >= 0 && fputc('\n', record_) != EOF && fflush(record_) == 0;
  if (!ok && !recordFailing_)
    fprintf(stderr, "ornsim: cannot write to %s: %s; lines are lost until it can\n",
            options_.recordFile.c_str(), strerror(errno));
  if (!ok)
    clearerr(record_);
  recordFailing_ = !ok;
}

Simulation::Outcome Server::serve(const std::string& client, const Message& m) {
  record(requestRecord(client, m));
  Simulation::Outcome out = simulation_.serve(client, m.type, m.text);
  int events = out.eventsSent;
  for (const auto& change : out.changes)
    events += publish(change);
  simulation_.log(client, m.type, m.text, out, events);
  return out;
}

std::vector<std::string> Server::clients() const {
  std::vector<std::string> names;
  for (const auto& s : sessions_)
    if (s->registered())
      names.push_back(s->name());
  return names;
}

void Server::clientsChanged() {
  if (Observer* o = simulation_.observer())
    o->clientsChanged();
}

int Server::publish(const StateChange& change) {
  const std::set<std::string> clients = subscriptions_.subscribers(home_, change);
  if (clients.empty())
    return 0;
  const Message m = event(kStateChangeEvent, stateChangePayload(change));
  const int sent =
      sendToClients(m, [&](const std::string& name) { return clients.count(name) != 0; });
  if (Observer* o = simulation_.observer()) {
    std::string to;
    for (const auto& c : clients)
      to += (to.empty() ? "" : ", ") + c;
    o->sent(to, m.type, m.text, sent);
  }
  return sent;
}

int Server::sendEvent(const std::string& client, int type, const std::string& payload) {
  const int sent = sendToClients(event(type, payload), [&](const std::string& name) {
    return client.empty() || name == client;
  });
  if (Observer* o = simulation_.observer())
    o->sent(client, type, payload, sent);
  return sent;
}

int Server::sendToClients(const Message& m,
                          const std::function<bool(const std::string& client)>& wanted) {
  // Copy: a send may cut a slow client off and erase it from sessions_.
  const auto sessions = sessions_;
  int sent = 0;
  for (const auto& s : sessions)
    if (s->registered() && wanted(s->name()))
      sent += (s->send(m), 1);
  return sent;
}

}  // namespace ornsim
