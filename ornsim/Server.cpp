// Server: accepting clients, the handshake, fault injection and per-client
// framing.
#include "Server.h"

#include <sys/stat.h>
#include <unistd.h>

#include <deque>

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

// Bytes queued for a client that is not reading; past this it is cut off.
constexpr size_t kMaxPendingBytes = 8u << 20;

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
      : server_(server), socket_(std::move(socket)) {}

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
    if (!ornwick::qipc::encodeFrame(ornwick::qipc::encodeMessage(m), &frame)) {
      fprintf(stderr, "ornsim: a message to %s is over the frame limit\n", name_.c_str());
      if (m.kind != MessageKind::kResponse)
        return;
      // The waiting request still gets an answer, just not the oversized one.
      Message tooLarge = m;
      tooLarge.code = 500;
      tooLarge.text = errorJson("response_too_large", "the answer exceeds the frame limit");
      encodeFrame(encodeMessage(tooLarge), &frame);
    }
    if (pendingBytes_ + frame.size() > kMaxPendingBytes) {
      fprintf(stderr, "ornsim: client %s is not reading; cutting it off\n", name_.c_str());
      close();
      return;
    }
    pendingBytes_ += frame.size();
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
    closed_ = true;
    asio::error_code ignored;
    socket_.close(ignored);
    server_.sessions_.erase(shared_from_this());
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
                              if (self->drain())
                                self->read();
                            });
  }

  // Handles every complete frame; false when the connection was closed.
  bool drain() {
    std::string body, err;
    for (;;) {
      auto status = decoder_.next(&body, &err);
      if (status == ornwick::qipc::FrameDecoder::Status::kNeedMore)
        return !closed_;
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
      if (!o.noRegister)
        sendLater(o.registerDelayMs, event(kClientRegisteredEvent, registeredPayload(name_)));
      for (const auto& e : o.emits)
        sendLater(e.delayMs, event(e.eventType, e.payload));
      return true;
    }
    if (m.kind != MessageKind::kRequest)
      return false;
    server_.record(requestRecord(name_, m));
    Simulation::Outcome out = server_.simulation_.serve(name_, m.type, m.text);
    int events = out.eventsSent;
    for (const auto& change : out.changes)
      events += server_.publish(change);
    server_.simulation_.log(name_, m.type, out, events);
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
                        if (ec) {
                          self->close();
                          return;
                        }
                        self->pendingBytes_ -= self->outbox_.front().size();
                        self->outbox_.pop_front();
                        if (!self->outbox_.empty())
                          self->write();
                      });
  }

  Server& server_;
  asio::local::stream_protocol::socket socket_;
  char buf_[16384];
  ornwick::qipc::FrameDecoder decoder_;
  std::deque<std::string> outbox_;
  size_t pendingBytes_ = 0;
  std::string name_;
  bool registered_ = false;
  bool closed_ = false;
};

Server::Server(asio::io_context& io, const Options& options, Home home)
    : io_(io),
      options_(options),
      home_(std::move(home)),
      simulation_(options, home_, subscriptions_,
                  [this](const std::string& client, int type, const std::string& payload) {
                    return sendEvent(client, type, payload);
                  }),
      acceptor_(io),
      acceptRetry_(io) {}

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
  if (!options_.recordFile.empty()) {
    record_ = fopen(options_.recordFile.c_str(), "a");
    if (record_ == nullptr) {
      *err = "open " + options_.recordFile + ": " + strerror(errno);
      return false;
    }
  }
  if (!simulation_.start(err))
    return false;
  // A socket file left by a dead ornsim is replaced; a live one is not.
  struct stat st;
  if (lstat(path.c_str(), &st) == 0 && S_ISSOCK(st.st_mode)) {
    std::string ignored;
    int fd = ornwick::qipc::connectUnix(path, &ignored);
    if (fd >= 0) {
      ::close(fd);
      *err = "another service is listening on " + path;
      return false;
    }
    unlink(path.c_str());
  }
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
  path_ = path;
  accept();
  return true;
}

void Server::shutdown() {
  asio::error_code ignored;
  acceptor_.close(ignored);
  acceptRetry_.cancel();
  while (!sessions_.empty())
    (*sessions_.begin())->close();
  if (!path_.empty()) {
    unlink(path_.c_str());
    path_.clear();
  }
}

void Server::accept() {
  acceptor_.async_accept(
      [this](const asio::error_code& ec, asio::local::stream_protocol::socket socket) {
        if (ec == asio::error::operation_aborted)
          return;
        if (ec) {
          // Out of descriptors and the like: retrying at once would spin; back off
          // briefly.
          fprintf(stderr, "ornsim: accept: %s\n", ec.message().c_str());
          acceptRetry_.expires_after(std::chrono::milliseconds(100));
          acceptRetry_.async_wait([this](const asio::error_code& waited) {
            if (!waited)
              accept();
          });
          return;
        }
        auto session = std::make_shared<Session>(*this, std::move(socket));
        sessions_.insert(session);
        session->start();
        accept();
      });
}

void Server::record(const std::string& line) {
  if (record_ == nullptr)
    return;
  fputs(line.c_str(), record_);
  fputc('\n', record_);
  fflush(record_);
}

int Server::publish(const StateChange& change) {
  const std::set<std::string> clients = subscriptions_.subscribers(home_, change);
  if (clients.empty())
    return 0;
  Message m = event(kStateChangeEvent, stateChangePayload(change));
  // Copy: a send may cut a slow client off and erase it from sessions_.
  const auto sessions = sessions_;
  int sent = 0;
  for (const auto& s : sessions)
    if (s->registered() && clients.count(s->name()) != 0)
      sent += (s->send(m), 1);
  return sent;
}

int Server::sendEvent(const std::string& client, int type, const std::string& payload) {
  const Message m = event(type, payload);
  const auto sessions = sessions_;
  int sent = 0;
  for (const auto& s : sessions)
    if (s->registered() && (client.empty() || s->name() == client))
      sent += (s->send(m), 1);
  return sent;
}

}  // namespace ornsim
