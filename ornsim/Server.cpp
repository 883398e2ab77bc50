// SPDX-License-Identifier: Apache-2.0
// Server: the lock and the listening socket, accepting clients up to the
// connection limit, and acting on their messages: registration, requests
// (served by Simulation) and the events they cause.
#include "Server.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Diagnostics.h"
#include "JsonText.h"
#include "RequestHandler.h"

namespace ornsim {
namespace {

using ornwick::qipc::Message;
using ornwick::qipc::MessageKind;

using Clock = std::chrono::steady_clock;

// Pauses between accepts while they fail (out of descriptors, say).
constexpr std::chrono::milliseconds kFirstAcceptPause{100};
constexpr std::chrono::milliseconds kLastAcceptPause{2000};
// At the descriptor limit every accept fails, even the one right after a
// connection closed and let one in; so failures are logged by time, not by run.
constexpr std::chrono::seconds kAcceptLogEvery{60};

std::string registrationRecord(const std::string& name, int type) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  writeMember(w, "register", name);
  writeMember(w, "connectorType", type);
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
  writeMember(w, "requestType", m.type);
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

}  // namespace

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
      acceptPause_(kFirstAcceptPause),
      partialFrames_(static_cast<size_t>(options.frameBudget)),
      unsentFrames_(static_cast<size_t>(options.frameBudget)),
      sessionOwner_{[this](Session& s, Message& m) { return handle(s, m); },
                    [this](Session& s) { closed(s); }} {}

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
  acceptor_.async_accept([this](const asio::error_code& ec,
                                asio::local::stream_protocol::socket socket) {
    if (ec == asio::error::operation_aborted)
      return;
    if (ec) {
      retryAcceptLater(ec);
      return;
    }
    acceptPause_ = kFirstAcceptPause;
    if (sessions_.size() < static_cast<size_t>(options_.maxConnections) || makeRoom()) {
      const Session::Limits limits{partialFrames_, unsentFrames_, options_.frameTimeoutMs,
                                   options_.registerTimeoutMs};
      auto session =
          std::make_shared<Session>(io_, sessionOwner_, limits, ++accepted_, std::move(socket));
      sessions_.insert(session);
      session->start();
    } else {
      // `socket` closes as it goes out of scope.
      diag("ornsim: refusing a client: at the connection limit (%d)\n", options_.maxConnections);
    }
    accept();
  });
}

bool Server::makeRoom() {
  std::shared_ptr<Session> oldest;
  for (const auto& s : sessions_)
    if (s->stalled() && (!oldest || s->order() < oldest->order()))
      oldest = s;
  if (!oldest)
    return false;
  diag(
      "ornsim: at the connection limit (%d); closing the oldest connection that is unregistered "
      "or stalled (client %s) to make room\n",
      options_.maxConnections, oldest->name().c_str());
  oldest->close();
  return true;
}

void Server::retryAcceptLater(const asio::error_code& ec) {
  // Out of descriptors and the like: retrying at once would spin, and logging
  // every retry would flood the log.
  const auto now = Clock::now();
  if (!acceptLogged_ || now - *acceptLogged_ >= kAcceptLogEvery) {
    diag("ornsim: accept: %s; retrying when a connection closes or after a pause\n",
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

bool Server::handle(Session& session, Message& m) {
  if (m.kind == MessageKind::kRegister)
    registered(session, m);
  else if (m.kind == MessageKind::kRequest)
    request(session, m);
  else
    return false;
  return true;
}

void Server::registered(Session& session, const Message& m) {
  session.markRegistered(m.text);
  record(registrationRecord(m.text, m.type));
  clientsChanged();
  if (!options_.noRegister)
    session.sendLater(options_.registerDelayMs, eventMessage(ornwick::qipc::kClientRegisteredEvent,
                                                             registeredPayload(m.text)));
  for (const auto& e : options_.emits)
    session.sendLater(e.delayMs, eventMessage(e.eventType, e.payload));
}

void Server::request(Session& session, const Message& m) {
  Simulation::Outcome out = serve(session.name(), m);
  if (!out.answer)
    return;
  Message response;
  response.kind = MessageKind::kResponse;
  response.id = m.id;
  response.code = out.code;
  response.text = std::move(out.data);
  session.sendLater(out.delayMs, response);
}

void Server::closed(Session& session) {
  sessions_.erase(session.shared_from_this());
  // A descriptor came free, so a failing accept may succeed now.
  if (acceptWaiting_)
    acceptRetry_.cancel();
  if (session.registered())
    clientsChanged();
}

void Server::record(const std::string& line) {
  if (record_ == nullptr)
    return;
  const bool ok =
      fputs(line.c_str(), record_) >= 0 && fputc('\n', record_) != EOF && fflush(record_) == 0;
  if (!ok && !recordFailing_)
    diag("ornsim: cannot write to %s: %s; lines are lost until it can\n",
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
  const Message m = eventMessage(ornwick::qipc::kStateChangeEvent, stateChangePayload(change));
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
  const int sent = sendToClients(eventMessage(type, payload), [&](const std::string& name) {
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
    if (s->registered() && wanted(s->name()) && s->send(m))
      ++sent;
  return sent;
}

}  // namespace ornsim
