// SPDX-License-Identifier: Apache-2.0
// ORNClient: the QIPC connection, handshake and request dispatch, run by one
// I/O thread.
#include "ORNClient.h"

#include <android/log.h>
#include <errno.h>
#include <linux/random.h>
#include <poll.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "BoundedParse.h"
#include "Frame.h"
#include "Message.h"
#include "Socket.h"

namespace ornwick {
namespace ornConnector {
namespace {

using Clock = std::chrono::steady_clock;
using qipc::Message;
using qipc::MessageKind;

constexpr std::chrono::milliseconds kFirstBackoff{10};
constexpr std::chrono::milliseconds kMaxBackoff{250};
// A connection that ends sooner, unregistered, counts as a failed attempt: the
// back-off goes on growing instead of starting again from kFirstBackoff.
constexpr std::chrono::seconds kLastingConnection{2};
// Bytes read per wake-up at most, so that under a flood of events the queued
// writes and a stop request still get their turn.
constexpr size_t kMaxReadPerWake = 64u << 10;
constexpr char kLogTag[] = "ORNConnector";
// Requests queued but not yet written; beyond this the service is not reading
// and we refuse.
constexpr size_t kMaxOutbox = 16u << 20;

// The client whose I/O thread this is, so a callback's own sync request can be
// refused.
thread_local const void* tlsIoThreadOf = nullptr;

struct SyncWait {
  bool done = false;
  std::shared_ptr<api::ORNResponse> response;
};

// Only a connection-status event whose payload says so counts: the service may
// send other statuses on the same event type.
bool reportsConnected(const std::string& payload) {
  rapidjson::Document doc;
  if (zedLocalUtil::jsonUtil::boundedParse(&doc, payload.data(), payload.size()).IsError() ||
      !doc.IsObject())
    return false;
  auto status = doc.FindMember("status");
  return status != doc.MemberEnd() && status->value.IsString() &&
         std::string(status->value.GetString(), status->value.GetStringLength()) == "CONNECTED";
}

const char* kindName(MessageKind kind) {
  switch (kind) {
    case MessageKind::kEvent:
      return "event";
    case MessageKind::kRegister:
      return "register";
    case MessageKind::kRequest:
      return "request";
    case MessageKind::kResponse:
      return "response";
  }
  return "?";
}

}  // namespace

class ORNClient::Impl {
 public:
  Impl();
  ~Impl() { stop(); }

  bool start(std::shared_ptr<IORNEventHandler> handler, ConnectorType type,
             const std::string& name);
  void stop();
  std::shared_ptr<api::ORNResponse> sendSync(const api::ORNRequest& request);
  bool sendAsync(const api::ORNRequest& request);
  std::string nextId();
  void setSyncTimeout(std::chrono::milliseconds timeout) {
    std::lock_guard<std::mutex> lock(mu_);
    syncTimeout_ = timeout;
  }

 private:
  void run();
  // Waits up to `timeout` for a wake-up; returns false when stopping.
  bool pause(std::chrono::milliseconds timeout);
  void onConnected(int fd);
  // Tells why in the debug trace; `lost` is the system error or a protocol
  // error, empty when the service closed.
  void closeConnection(const std::string& lost);
  // A service that is there but not trusted: logged once per reason.
  void refuse(const std::string& why);
  void trace(const char* format, ...) __attribute__((format(printf, 2, 3)));
  bool readAvailable(std::string* lost);
  bool writeAvailable();
  // Writes the outbox until the socket would block; false on a broken
  // connection. REQUIRES: mu_ held.
  bool flushLocked();
  bool dispatch(const std::string& body, std::string* err);
  // Appends a message to the outbox. REQUIRES: mu_ held.
  bool enqueueLocked(const Message& m);
  void wake();
  void deliverEvent(int type, const std::string& payload);

  std::shared_ptr<IORNEventHandler> handler_;
  ConnectorType type_ = ConnectorType::kUnknown;
  std::string name_;
  std::string path_;
  // Only the default path must sit in an owner-only folder; a path the user
  // names may be in a sticky shared one.
  bool ownerOnly_ = true;
  uid_t serviceUid_ = qipc::kNoUid;
  // ORN_QIPC_DEBUG=1: a trace of the connection on stderr.
  bool debug_ = false;
  int wakeFd_ = -1;
  std::thread io_;

  // Written by the I/O thread under mu_; others read it under mu_.
  int fd_ = -1;
  // Touched by the I/O thread only.
  qipc::FrameDecoder decoder_;
  bool registerSent_ = false;
  // The service registered us on this connection: after it, the back-off
  // starts again.
  bool registered_ = false;
  Clock::time_point connectedAt_;
  std::string lastRefusal_;

  std::mutex mu_;
  std::condition_variable syncCv_;
  bool stopping_ = false;
  bool connected_ = false;
  std::string outbox_;
  std::map<std::string, std::shared_ptr<SyncWait>> pending_;
  // Sync requests that gave up waiting: their late answers are dropped, not
  // passed to onResponse. Forgotten with the connection that carried them.
  std::set<std::string> abandoned_;
  std::chrono::milliseconds syncTimeout_ = kSyncRequestTimeout;

  std::atomic<uint64_t> counter_{0};
  uint64_t salt_ = 0;
};

bool ORNClient::Impl::start(std::shared_ptr<IORNEventHandler> handler, ConnectorType type,
                            const std::string& name) {
  if (!handler || io_.joinable())
    return false;
  handler_ = std::move(handler);
  type_ = type;
  name_ = name;
  path_ = qipc::socketPath();
  ownerOnly_ = path_ == qipc::defaultSocketPath();
  serviceUid_ = qipc::configuredServiceUid();
  const char* debug = std::getenv("ORN_QIPC_DEBUG");
  debug_ = debug != nullptr && std::string(debug) == "1";
  trace("socket %s", path_.c_str());
  wakeFd_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (wakeFd_ < 0)
    return false;
  try {
    io_ = std::thread([this] { run(); });
  } catch (const std::exception&) {
    close(wakeFd_);
    wakeFd_ = -1;
    return false;
  }
  return true;
}

void ORNClient::Impl::stop() {
  {
    std::unique_lock<std::mutex> lock(mu_);
    stopping_ = true;
    syncCv_.notify_all();
    // A sync request still waiting on another thread must leave before the
    // lock and condition it waits on are destroyed.
    syncCv_.wait(lock, [&] { return pending_.empty(); });
  }
  if (io_.joinable()) {
    wake();
    io_.join();
  }
  if (wakeFd_ >= 0) {
    close(wakeFd_);
    wakeFd_ = -1;
  }
}

void ORNClient::Impl::wake() {
  uint64_t one = 1;
  // A full counter still wakes the reader, so a failed write needs no handling.
  ssize_t n = write(wakeFd_, &one, sizeof(one));
  (void)n;
}

bool ORNClient::Impl::pause(std::chrono::milliseconds timeout) {
  pollfd p{wakeFd_, POLLIN, 0};
  poll(&p, 1, static_cast<int>(timeout.count()));
  uint64_t drained;
  ssize_t n = read(wakeFd_, &drained, sizeof(drained));
  (void)n;
  std::lock_guard<std::mutex> lock(mu_);
  return !stopping_;
}

void ORNClient::Impl::run() {
  tlsIoThreadOf = this;
  std::chrono::milliseconds backoff = kFirstBackoff;
  for (;;) {
    {
      std::lock_guard<std::mutex> lock(mu_);
      if (stopping_)
        break;
    }
    if (fd_ < 0) {
      std::string err;
      int fd = -1;
      const qipc::ServiceCheck check =
          qipc::connectService(path_, ownerOnly_, serviceUid_, &fd, &err);
      if (check != qipc::ServiceCheck::kOk) {
        // A refused service is treated like none: keep retrying.
        if (check == qipc::ServiceCheck::kRefused)
          refuse(err);
        trace("%s; retrying in %lld ms", err.c_str(), static_cast<long long>(backoff.count()));
        if (!pause(backoff))
          break;
        backoff = std::min(backoff * 2, kMaxBackoff);
        continue;
      }
      lastRefusal_.clear();
      onConnected(fd);
    }
    bool wantWrite;
    {
      std::lock_guard<std::mutex> lock(mu_);
      wantWrite = !outbox_.empty();
    }
    pollfd fds[2] = {{wakeFd_, POLLIN, 0},
                     {fd_, static_cast<short>(POLLIN | (wantWrite ? POLLOUT : 0)), 0}};
    if (poll(fds, 2, -1) < 0) {
      if (errno == EINTR)
        continue;
      break;
    }
    if (fds[0].revents & POLLIN) {
      uint64_t drained;
      ssize_t n = read(wakeFd_, &drained, sizeof(drained));
      (void)n;
    }
    // Both directions get their turn on every wake-up, each bounded.
    bool alive = true;
    std::string lost;
    if (fds[1].revents & (POLLIN | POLLHUP | POLLERR))
      alive = readAvailable(&lost);
    if (alive && (fds[1].revents & POLLOUT))
      alive = writeAvailable();
    if (!alive) {
      if (registered_ || Clock::now() - connectedAt_ >= kLastingConnection)
        backoff = kFirstBackoff;
      closeConnection(lost);
      trace("retrying in %lld ms", static_cast<long long>(backoff.count()));
      if (!pause(backoff))
        break;
      backoff = std::min(backoff * 2, kMaxBackoff);
    }
  }
  if (fd_ >= 0)
    closeConnection("");
}

void ORNClient::Impl::refuse(const std::string& why) {
  if (why == lastRefusal_)
    return;
  lastRefusal_ = why;
  __android_log_print(ANDROID_LOG_WARN, kLogTag, "Refused the service at %s: %s", path_.c_str(),
                      why.c_str());
}

void ORNClient::Impl::trace(const char* format, ...) {
  if (!debug_)
    return;
  char line[512];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof(line), format, args);
  va_end(args);
  // One call per line, so lines from two threads do not mix.
  fprintf(stderr, "ornqipc: %s\n", line);
}

void ORNClient::Impl::onConnected(int fd) {
  decoder_ = qipc::FrameDecoder();
  registerSent_ = false;
  registered_ = false;
  connectedAt_ = Clock::now();
  trace("connected to %s", path_.c_str());
  std::lock_guard<std::mutex> lock(mu_);
  fd_ = fd;
  connected_ = true;
  outbox_.clear();
}

void ORNClient::Impl::closeConnection(const std::string& lost) {
  trace("disconnected: %s", lost.empty() ? "closed" : lost.c_str());
  {
    std::lock_guard<std::mutex> lock(mu_);
    close(fd_);
    fd_ = -1;
    connected_ = false;
    outbox_.clear();
    abandoned_.clear();
    for (auto& entry : pending_)
      entry.second->done = true;
    syncCv_.notify_all();
  }
  bool stopping;
  {
    std::lock_guard<std::mutex> lock(mu_);
    stopping = stopping_;
  }
  // Nobody is listening any more once the client is being destroyed.
  if (!stopping)
    deliverEvent(api::kServerDisconnected, "{\"status\":\"DISCONNECTED\"}");
}

bool ORNClient::Impl::readAvailable(std::string* lost) {
  char buf[16384];
  for (size_t total = 0; total < kMaxReadPerWake;) {
    ssize_t n = recv(fd_, buf, sizeof(buf), MSG_DONTWAIT);
    if (n == 0)
      return false;
    if (n < 0) {
      if (errno == EINTR)
        continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK)
        return true;
      *lost = std::string("recv: ") + strerror(errno);
      return false;
    }
    total += static_cast<size_t>(n);
    decoder_.feed(buf, static_cast<size_t>(n));
    std::string body;
    for (;;) {
      auto status = decoder_.next(&body, lost);
      if (status == qipc::FrameDecoder::Status::kNeedMore)
        break;
      if (status == qipc::FrameDecoder::Status::kError || !dispatch(body, lost))
        return false;
    }
    if (static_cast<size_t>(n) < sizeof(buf))
      return true;
  }
  return true;  // the rest waits for the next wake-up
}

bool ORNClient::Impl::writeAvailable() {
  std::lock_guard<std::mutex> lock(mu_);
  return flushLocked();
}

bool ORNClient::Impl::flushLocked() {
  while (!outbox_.empty()) {
    ssize_t n = send(fd_, outbox_.data(), outbox_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0) {
      if (errno == EINTR)
        continue;
      return errno == EAGAIN || errno == EWOULDBLOCK;
    }
    outbox_.erase(0, static_cast<size_t>(n));
  }
  return true;
}

bool ORNClient::Impl::dispatch(const std::string& body, std::string* err) {
  Message m;
  if (!qipc::decodeMessage(body, &m, err))
    return false;
  if (m.kind == MessageKind::kResponse)
    trace("recv response %d (%zu bytes)", m.code, body.size());
  else
    trace("recv %s %d (%zu bytes)", kindName(m.kind), m.type, body.size());
  switch (m.kind) {
    case MessageKind::kEvent:
      if (m.type == api::kClientRegistered)
        registered_ = true;
      if (m.type == api::kServerConnectionStatus && !registerSent_ && reportsConnected(m.text)) {
        Message reg;
        reg.kind = MessageKind::kRegister;
        reg.type = static_cast<int>(type_);
        reg.text = name_;
        std::lock_guard<std::mutex> lock(mu_);
        registerSent_ = enqueueLocked(reg);
      }
      deliverEvent(m.type, m.text);
      return true;
    case MessageKind::kResponse: {
      {
        std::lock_guard<std::mutex> lock(mu_);
        auto it = pending_.find(m.id);
        if (it != pending_.end()) {
          auto response = std::make_shared<api::ORNResponse>();
          response->requestId = m.id;
          response->responseCode = m.code;
          response->responseData = std::move(m.text);
          it->second->response = std::move(response);
          it->second->done = true;
          syncCv_.notify_all();
          return true;
        }
        if (abandoned_.erase(m.id) != 0)
          return true;
      }
      auto response = std::make_shared<api::ORNResponse>();
      response->requestId = m.id;
      response->responseCode = m.code;
      response->responseData = std::move(m.text);
      try {
        handler_->onResponse(std::move(response));
      } catch (...) {
        // Deliberately swallowed: a throwing handler must not take the
        // connection down.
      }
      return true;
    }
    case MessageKind::kRegister:
    case MessageKind::kRequest:
      break;
  }
  *err = std::string("the service sent a ") + kindName(m.kind) + " message";
  return false;  // the service never sends client messages
}

void ORNClient::Impl::deliverEvent(int type, const std::string& payload) {
  auto event = std::make_shared<api::ORNEvent>();
  event->eventType = type;
  event->payload = payload;
  try {
    handler_->onEvent(std::move(event));
  } catch (...) {
    // Deliberately swallowed, as for responses.
  }
}

bool ORNClient::Impl::enqueueLocked(const Message& m) {
  std::string frame;
  if (!qipc::encodeFrame(qipc::encodeMessage(m), &frame) ||
      outbox_.size() + frame.size() > kMaxOutbox)
    return false;
  trace("send %s (%zu bytes)", kindName(m.kind), frame.size() - 4);
  const bool idle = outbox_.empty();
  outbox_ += frame;
  // With nothing queued ahead, the caller writes it at once; the I/O thread
  // is woken only for what the socket would not take, or to find the error.
  // On the I/O thread itself the loop looks at the outbox before it polls.
  if (idle)
    flushLocked();
  if (!outbox_.empty() && tlsIoThreadOf != this)
    wake();
  return true;
}

std::shared_ptr<api::ORNResponse> ORNClient::Impl::sendSync(const api::ORNRequest& request) {
  // Waiting on the I/O thread itself could never see the answer.
  if (tlsIoThreadOf == this)
    return nullptr;
  Message m;
  m.kind = MessageKind::kRequest;
  m.id = request.requestId;
  m.type = request.requestType;
  m.text = request.payload;
  m.sync = true;
  auto wait = std::make_shared<SyncWait>();
  std::unique_lock<std::mutex> lock(mu_);
  if (!connected_ || pending_.count(m.id) != 0 || !enqueueLocked(m))
    return nullptr;
  pending_[m.id] = wait;
  syncCv_.wait_until(lock, Clock::now() + syncTimeout_, [&] { return wait->done || stopping_; });
  pending_.erase(m.id);
  if (!wait->done && connected_)
    abandoned_.insert(m.id);
  // stop() may be waiting for the last sync request to leave.
  syncCv_.notify_all();
  return wait->response;
}

bool ORNClient::Impl::sendAsync(const api::ORNRequest& request) {
  Message m;
  m.kind = MessageKind::kRequest;
  m.id = request.requestId;
  m.type = request.requestType;
  m.text = request.payload;
  std::lock_guard<std::mutex> lock(mu_);
  return connected_ && enqueueLocked(m);
}

ORNClient::Impl::Impl() {
  // Pid alone repeats across reboots and containers; a random salt keeps ids
  // apart anyway. The system call, not std::random_device, whose set-up costs
  // about as much as a round trip to the service; where the call is refused,
  // the clock still varies the salt.
  salt_ = static_cast<uint64_t>(Clock::now().time_since_epoch().count());
  uint64_t random = 0;
  if (syscall(SYS_getrandom, &random, sizeof(random), GRND_NONBLOCK) ==
      static_cast<long>(sizeof(random)))
    salt_ ^= random;
}

std::string ORNClient::Impl::nextId() {
  char buf[64];
  snprintf(buf, sizeof(buf), "%ld-%08x-%llu", static_cast<long>(getpid()),
           static_cast<unsigned>(salt_ & 0xffffffffu), static_cast<unsigned long long>(++counter_));
  return buf;
}

ORNClient::ORNClient() : impl_(new Impl) {}

ORNClient::~ORNClient() = default;

bool ORNClient::initialize(std::shared_ptr<IORNEventHandler> handler, ConnectorType type,
                           const std::string& clientName) {
  return impl_->start(std::move(handler), type, clientName);
}

// The by-value shared_ptr parameters are the platform library's signatures.
std::shared_ptr<api::ORNResponse> ORNClient::sendSyncRequest(
    // NOLINTNEXTLINE(performance-unnecessary-value-param)
    std::shared_ptr<api::ORNRequest> request) {
  if (!request)
    return nullptr;
  return impl_->sendSync(*request);
}

bool ORNClient::sendAsyncRequest(
    // NOLINTNEXTLINE(performance-unnecessary-value-param)
    std::shared_ptr<api::ORNRequest> request) {
  return request && impl_->sendAsync(*request);
}

std::string ORNClient::generateRequestId() {
  return impl_->nextId();
}

void ORNClient::setSyncRequestTimeout(std::chrono::milliseconds timeout) {
  impl_->setSyncTimeout(timeout);
}

}  // namespace ornConnector
}  // namespace ornwick
