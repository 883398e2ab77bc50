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
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <limits>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "BoundedParse.h"
#include "Frame.h"
#include "Message.h"
#include "Socket.h"
#include "SteadyCondition.h"

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
// and we refuse. Sixteen of the largest frames (docs/qipc-protocol.md gives the figure).
constexpr size_t kMaxOutbox = 16 * size_t{qipc::kMaxFrameSize};

// The client whose I/O thread this is, so a callback's own sync request can be
// refused.
thread_local const void* tlsIoThreadOf = nullptr;

struct SyncWait {
  bool done = false;
  // Still held until the first registration: a lost connection does not end it.
  bool held = false;
  std::shared_ptr<api::ORNResponse> response;
};

Message requestMessage(const api::ORNRequest& request, bool sync) {
  Message m;
  m.kind = MessageKind::kRequest;
  m.id = request.requestId;
  m.type = request.requestType;
  m.text = request.payload;
  m.sync = sync;
  return m;
}

// poll()'s timeout for an absolute deadline: -1 for none, rounded up so that
// the wake-up is never before it.
int pollTimeout(Clock::time_point deadline) {
  if (deadline == Clock::time_point::max())
    return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max()));
}

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
  // A request sent before the first registration, held until it.
  struct Held {
    std::string id;
    std::string frame;
    // Past it an asynchronous request is dropped; a synchronous one's caller
    // takes it back itself.
    Clock::time_point deadline;
    bool sync;
  };

  // The I/O thread: connect, serve the connection until it ends, wait before
  // the next attempt.
  void run();
  bool stopRequested();
  // False with the reason when there is no service, or none we trust.
  bool connect(std::string* why);
  // One round of waiting on the connection and handling what it brings; false
  // with the reason once the connection is over.
  bool serve(std::string* lost);
  // Waits `delay` unless stopped; false when stopping.
  bool pause(std::chrono::milliseconds delay);
  void drainWake();
  void onConnected(int fd);
  // Tells why in the debug trace.
  void closeConnection(const std::string& lost);
  // A service that is there but not trusted: logged once per reason.
  void refuse(const std::string& why);
  void trace(const char* format, ...) __attribute__((format(printf, 2, 3)));
  bool readAvailable(std::string* lost);
  bool writeAvailable(std::string* lost);
  // Writes the outbox until the socket would block; false with the reason on
  // a broken connection. REQUIRES: mu_ held.
  bool flushLocked(std::string* lost);
  bool dispatch(const std::string& body, std::string* err);
  // The frame of `m`, unless it is too large for one or would overfill the
  // outbox. REQUIRES: mu_ held.
  bool frameLocked(const Message& m, std::string* frame);
  // Appends a frame to the outbox and starts writing it. REQUIRES: mu_ held.
  void queueLocked(const std::string& frame, const char* what);
  // Appends a message to the outbox. REQUIRES: mu_ held.
  bool enqueueLocked(const Message& m);
  // Sends a request, or holds it until the first registration; false when it
  // can go nowhere. REQUIRES: mu_ held.
  bool submitLocked(const Message& m, Clock::time_point deadline);
  // Sends what the first registration was awaited for. REQUIRES: mu_ held.
  void releaseHeldLocked();
  // The earliest time a held asynchronous request expires. REQUIRES: mu_ held.
  Clock::time_point nextExpiryLocked() const;
  void dropExpiredHeld();
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
  // Bound to the monotonic clock, so a clock set after boot does not move the
  // sync requests' time limit.
  SteadyCondition syncCv_;
  bool stopping_ = false;
  bool connected_ = false;
  // Some connection was registered: from then on a request finds the
  // connection there or fails at once.
  bool registeredOnce_ = false;
  std::string outbox_;
  std::deque<Held> held_;
  size_t heldBytes_ = 0;
  // Every sync request still waiting, held ones included.
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
  // No retry can make such a path work: say so now rather than after every
  // caller's wait.
  std::string err;
  if (!qipc::socketPathFits(path_, &err)) {
    trace("%s", err.c_str());
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Cannot reach the service: %s", err.c_str());
    return false;
  }
  wakeFd_ = qipc::aboveStdio(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
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

void ORNClient::Impl::drainWake() {
  uint64_t drained;
  ssize_t n = read(wakeFd_, &drained, sizeof(drained));
  (void)n;
}

bool ORNClient::Impl::stopRequested() {
  std::lock_guard<std::mutex> lock(mu_);
  return stopping_;
}

void ORNClient::Impl::run() {
  tlsIoThreadOf = this;
  std::chrono::milliseconds backoff = kFirstBackoff;
  while (!stopRequested()) {
    std::string why;
    if (fd_ < 0) {
      if (connect(&why))
        continue;
      trace("%s; retrying in %lld ms", why.c_str(), static_cast<long long>(backoff.count()));
    } else {
      if (serve(&why))
        continue;
      if (registered_ || Clock::now() - connectedAt_ >= kLastingConnection)
        backoff = kFirstBackoff;
      closeConnection(why);
      trace("retrying in %lld ms", static_cast<long long>(backoff.count()));
    }
    if (!pause(backoff))
      break;
    backoff = std::min(backoff * 2, kMaxBackoff);
  }
  if (fd_ >= 0)
    closeConnection("the client stopped");
}

bool ORNClient::Impl::connect(std::string* why) {
  int fd = -1;
  const qipc::ServiceCheck check = qipc::connectService(path_, ownerOnly_, serviceUid_, &fd, why);
  // A refused service is treated like none: it is retried.
  if (check == qipc::ServiceCheck::kRefused)
    refuse(*why);
  if (check != qipc::ServiceCheck::kOk)
    return false;
  lastRefusal_.clear();
  onConnected(fd);
  return true;
}

bool ORNClient::Impl::serve(std::string* lost) {
  bool wantWrite;
  Clock::time_point expiry;
  {
    std::lock_guard<std::mutex> lock(mu_);
    wantWrite = !outbox_.empty();
    expiry = nextExpiryLocked();
  }
  pollfd fds[2] = {{wakeFd_, POLLIN, 0},
                   {fd_, static_cast<short>(POLLIN | (wantWrite ? POLLOUT : 0)), 0}};
  if (poll(fds, 2, pollTimeout(expiry)) < 0) {
    if (errno == EINTR)
      return true;
    // Nothing can be awaited on this connection any more. Ending it releases
    // the sync callers, and the usual back-off and reconnection outlast a
    // passing shortage.
    *lost = std::string("poll: ") + strerror(errno);
    return false;
  }
  if (fds[0].revents & POLLIN)
    drainWake();
  dropExpiredHeld();
  // Both directions get their turn on every wake-up, each bounded.
  if ((fds[1].revents & (POLLIN | POLLHUP | POLLERR)) && !readAvailable(lost))
    return false;
  return (fds[1].revents & POLLOUT) == 0 || writeAvailable(lost);
}

bool ORNClient::Impl::pause(std::chrono::milliseconds delay) {
  const Clock::time_point until = Clock::now() + delay;
  for (;;) {
    Clock::time_point deadline;
    {
      std::lock_guard<std::mutex> lock(mu_);
      if (stopping_)
        return false;
      deadline = std::min(until, nextExpiryLocked());
    }
    if (Clock::now() >= until)
      return true;
    pollfd p{wakeFd_, POLLIN, 0};
    if (poll(&p, 1, pollTimeout(deadline)) < 0 && errno != EINTR) {
      trace("poll: %s", strerror(errno));
      // The delay is still waited out, on the condition stop() signals.
      std::unique_lock<std::mutex> lock(mu_);
      syncCv_.wait_until(lock, deadline, [&] { return stopping_; });
    }
    drainWake();
    dropExpiredHeld();
  }
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
  trace("disconnected: %s", lost.c_str());
  bool stopping;
  {
    std::lock_guard<std::mutex> lock(mu_);
    close(fd_);
    fd_ = -1;
    connected_ = false;
    outbox_.clear();
    abandoned_.clear();
    // Held requests wait for a later connection.
    for (auto& entry : pending_)
      entry.second->done = entry.second->done || !entry.second->held;
    syncCv_.notify_all();
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
    if (n == 0) {
      *lost = "closed by the service";
      return false;
    }
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

bool ORNClient::Impl::writeAvailable(std::string* lost) {
  std::lock_guard<std::mutex> lock(mu_);
  return flushLocked(lost);
}

bool ORNClient::Impl::flushLocked(std::string* lost) {
  while (!outbox_.empty()) {
    ssize_t n = send(fd_, outbox_.data(), outbox_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0) {
      if (errno == EINTR)
        continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK)
        return true;
      *lost = std::string("send: ") + strerror(errno);
      return false;
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
    trace("recv %s %d (%zu bytes)", qipc::messageKindName(m.kind), m.type, body.size());
  switch (m.kind) {
    case MessageKind::kEvent:
      if (m.type == api::kClientRegistered) {
        registered_ = true;
        // Before the event is delivered, so that what a callback sends on it
        // goes after what was held.
        std::lock_guard<std::mutex> lock(mu_);
        releaseHeldLocked();
      }
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
      auto response = std::make_shared<api::ORNResponse>();
      response->requestId = m.id;
      response->responseCode = m.code;
      response->responseData = std::move(m.text);
      {
        std::lock_guard<std::mutex> lock(mu_);
        auto it = pending_.find(m.id);
        // A held request was never sent: no answer can be its.
        if (it != pending_.end() && !it->second->held) {
          it->second->response = std::move(response);
          it->second->done = true;
          syncCv_.notify_all();
          return true;
        }
        if (abandoned_.erase(m.id) != 0)
          return true;
      }
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
  *err = std::string("the service sent a ") + qipc::messageKindName(m.kind) + " message";
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

bool ORNClient::Impl::frameLocked(const Message& m, std::string* frame) {
  const std::string body = qipc::encodeMessage(m);
  if (!qipc::encodeFrame(body, frame)) {
    trace("not sent: %s %s of %zu bytes exceeds the frame limit of %u bytes",
          qipc::messageKindName(m.kind), m.id.c_str(), body.size(),
          static_cast<unsigned>(qipc::kMaxFrameSize));
    return false;
  }
  const size_t queued = outbox_.size() + heldBytes_;
  if (queued + frame->size() > kMaxOutbox) {
    trace("not sent: %s %s, %zu bytes already queued", qipc::messageKindName(m.kind), m.id.c_str(),
          queued);
    return false;
  }
  return true;
}

void ORNClient::Impl::queueLocked(const std::string& frame, const char* what) {
  trace("send %s (%zu bytes)", what, frame.size() - qipc::kFrameHeaderSize);
  const bool idle = outbox_.empty();
  outbox_ += frame;
  // With nothing queued ahead, the caller writes it at once; the I/O thread
  // is woken only for what the socket would not take, or to find the error.
  // On the I/O thread itself the loop looks at the outbox before it polls.
  std::string ignored;
  if (idle)
    flushLocked(&ignored);
  if (!outbox_.empty() && tlsIoThreadOf != this)
    wake();
}

bool ORNClient::Impl::enqueueLocked(const Message& m) {
  std::string frame;
  if (!frameLocked(m, &frame))
    return false;
  queueLocked(frame, qipc::messageKindName(m.kind));
  return true;
}

bool ORNClient::Impl::submitLocked(const Message& m, Clock::time_point deadline) {
  if (registeredOnce_)
    return connected_ && enqueueLocked(m);
  std::string frame;
  if (!frameLocked(m, &frame))
    return false;
  trace("hold request (%zu bytes) until registered", frame.size() - qipc::kFrameHeaderSize);
  heldBytes_ += frame.size();
  held_.push_back({m.id, std::move(frame), deadline, m.sync});
  // The I/O thread waits for the earliest expiry.
  if (!m.sync && tlsIoThreadOf != this)
    wake();
  return true;
}

void ORNClient::Impl::releaseHeldLocked() {
  registeredOnce_ = true;
  for (const Held& h : held_) {
    queueLocked(h.frame, "request");
    auto it = pending_.find(h.id);
    if (h.sync && it != pending_.end())
      it->second->held = false;
  }
  held_.clear();
  heldBytes_ = 0;
}

Clock::time_point ORNClient::Impl::nextExpiryLocked() const {
  Clock::time_point next = Clock::time_point::max();
  for (const Held& h : held_)
    if (!h.sync)
      next = std::min(next, h.deadline);
  return next;
}

void ORNClient::Impl::dropExpiredHeld() {
  std::vector<std::string> dropped;
  long long limit;
  {
    std::lock_guard<std::mutex> lock(mu_);
    const Clock::time_point now = Clock::now();
    for (auto it = held_.begin(); it != held_.end();) {
      if (it->sync || it->deadline > now) {
        ++it;
        continue;
      }
      heldBytes_ -= it->frame.size();
      dropped.push_back(std::move(it->id));
      it = held_.erase(it);
    }
    limit = static_cast<long long>(syncTimeout_.count());
  }
  for (const std::string& id : dropped) {
    trace("dropped request %s: not registered within %lld ms", id.c_str(), limit);
    __android_log_print(
        ANDROID_LOG_WARN, kLogTag,
        "Dropped request %s: the service did not register the client within %lld ms", id.c_str(),
        limit);
  }
}

std::shared_ptr<api::ORNResponse> ORNClient::Impl::sendSync(const api::ORNRequest& request) {
  // Waiting on the I/O thread itself could never see the answer.
  if (tlsIoThreadOf == this)
    return nullptr;
  const Message m = requestMessage(request, true);
  auto wait = std::make_shared<SyncWait>();
  std::unique_lock<std::mutex> lock(mu_);
  const Clock::time_point deadline = Clock::now() + syncTimeout_;
  wait->held = !registeredOnce_;
  if (pending_.count(m.id) != 0 || !submitLocked(m, deadline))
    return nullptr;
  pending_[m.id] = wait;
  syncCv_.wait_until(lock, deadline, [&] { return wait->done || stopping_; });
  pending_.erase(m.id);
  if (!wait->done && wait->held) {
    auto it = std::find_if(held_.begin(), held_.end(), [&](const Held& h) { return h.id == m.id; });
    if (it != held_.end()) {
      heldBytes_ -= it->frame.size();
      held_.erase(it);
    }
  } else if (!wait->done && connected_) {
    abandoned_.insert(m.id);
  }
  // stop() may be waiting for the last sync request to leave.
  syncCv_.notify_all();
  return wait->response;
}

bool ORNClient::Impl::sendAsync(const api::ORNRequest& request) {
  const Message m = requestMessage(request, false);
  std::lock_guard<std::mutex> lock(mu_);
  return submitLocked(m, Clock::now() + syncTimeout_);
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
