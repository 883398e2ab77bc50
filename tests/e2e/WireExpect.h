// SPDX-License-Identifier: Apache-2.0
// Helpers shared by the suites that speak to a service directly: a library client that
// records its callbacks, and raw frames on a Unix-domain socket.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Frame.h"
#include "ORNClient.h"

namespace wiretest {

using ornwick::ornConnector::ConnectorType;
using ornwick::ornConnector::IORNEventHandler;
using ornwick::ornConnector::ORNClient;
using ornwick::ornConnector::api::ORNEvent;
using ornwick::ornConnector::api::ORNRequest;
using ornwick::ornConnector::api::ORNResponse;
using Clock = std::chrono::steady_clock;

constexpr auto kWait = std::chrono::seconds(10);

// Keeps every callback, and lets the test wait for one by predicate.
class Recorder : public IORNEventHandler {
 public:
  void onResponse(std::shared_ptr<ORNResponse> r) noexcept override { keep(responses_, *r); }
  void onEvent(std::shared_ptr<ORNEvent> e) noexcept override { keep(events_, *e); }
  // Waits until `count` events of `type` have arrived, kWait at most; returns how many have.
  size_t events(int type, size_t count = 0) {
    std::unique_lock<std::mutex> lock(mu_);
    auto n = [&] {
      return size_t(std::count_if(events_.begin(), events_.end(),
                                  [&](const ORNEvent& e) { return e.eventType == type; }));
    };
    cv_.wait_until(lock, Clock::now() + kWait, [&] { return n() >= count; });
    return n();
  }
  bool waitResponse(const std::string& id, ORNResponse* out) {
    std::unique_lock<std::mutex> lock(mu_);
    return cv_.wait_until(lock, Clock::now() + kWait, [&] {
      for (const auto& r : responses_)
        if (r.requestId == id)
          return (*out = r), true;
      return false;
    });
  }
  std::vector<ORNEvent> all() {
    std::lock_guard<std::mutex> lock(mu_);
    return events_;
  }
  // Responses so far, and how many callbacks ran on the test's own thread.
  std::pair<size_t, int> counts() {
    std::lock_guard<std::mutex> lock(mu_);
    return {responses_.size(), callerThreadCallbacks_};
  }

 private:
  template <typename T>
  void keep(std::vector<T>& list, const T& item) {
    std::lock_guard<std::mutex> lock(mu_);
    callerThreadCallbacks_ += std::this_thread::get_id() == testThread_;
    list.push_back(item);
    cv_.notify_all();
  }
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<ORNEvent> events_;
  std::vector<ORNResponse> responses_;
  const std::thread::id testThread_ = std::this_thread::get_id();
  int callerThreadCallbacks_ = 0;
};

struct Connected {
  std::shared_ptr<Recorder> handler = std::make_shared<Recorder>();
  std::unique_ptr<ORNClient> client = std::make_unique<ORNClient>();
};

// A client of the service at `socket` under `name`, initialized; registered too
// unless `registered` is false.
inline std::unique_ptr<Connected> connectTo(const std::string& socket, const std::string& name,
                                            bool registered = true) {
  setenv("ORN_QIPC_SOCKET", socket.c_str(), 1);
  auto c = std::make_unique<Connected>();
  if (!c->client->initialize(c->handler, ConnectorType::kLocalService, name) ||
      (registered && !c->handler->events(23, 1)))
    return nullptr;
  return c;
}

inline std::shared_ptr<ORNRequest> request(ORNClient& client, int type,
                                           const std::string& payload) {
  return std::make_shared<ORNRequest>(ORNRequest{client.generateRequestId(), type, payload, 0, ""});
}

const char kDevices[] = R"({"qfi":{"path":"/v2/endpoints","method":"GET"},"dfi":[]})";

// A blocking Unix-domain socket, with `path` as its address for bind/connect.
inline int unixSocket(const std::string& path, sockaddr_un* addr) {
  *addr = sockaddr_un{AF_UNIX, {}};
  strncpy(addr->sun_path, path.c_str(), sizeof(addr->sun_path) - 1);
  return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

inline std::string frame(const std::string& body) {
  std::string f;
  return ornwick::qipc::encodeFrame(body, &f) ? f : "";
}

inline std::string ask(const std::string& id, const std::string& payload = "") {
  return frame(R"({"kind":"request","requestId":")" + id + R"(","requestType":1,"payload":")" +
               payload + "\"}");
}

inline bool sendAll(int fd, const std::string& bytes) {
  return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == ssize_t(bytes.size());
}

// Reads until the peer closes; true when it did so (rather than erroring). Closing with
// our bytes still unread makes the peer's close a reset.
inline bool readsUntilClosed(int fd) {
  char buf[4096];
  ssize_t n;
  while ((n = recv(fd, buf, sizeof(buf), 0)) > 0) {
  }
  return n == 0 || errno == ECONNRESET;
}

// Reads one frame body from a blocking socket; empty on end of stream.
inline std::string readFrame(int fd) {
  uint32_t n = 0;
  if (recv(fd, &n, 4, MSG_WAITALL) != 4)
    return "";
  std::string body(ntohl(n), '\0');
  return recv(fd, body.data(), body.size(), MSG_WAITALL) == ssize_t(body.size()) ? body : "";
}

// Reads frames until the response to request `id`; false if the stream ends first.
inline bool answered(int fd, const std::string& id) {
  for (std::string f = readFrame(fd); !f.empty(); f = readFrame(fd))
    if (f.find("\"requestId\":\"" + id + "\"") != std::string::npos)
      return true;
  return false;
}

// Reads on `fd` give up after kWait, so a peer that never writes or closes fails
// the test instead of hanging it.
inline bool boundReads(int fd) {
  const timeval wait{static_cast<time_t>(std::chrono::seconds(kWait).count()), 0};
  return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait)) == 0;
}

// A raw connection to the service at `path`; -1 on failure.
inline int rawConnect(const std::string& path) {
  sockaddr_un addr;
  int fd = unixSocket(path, &addr);
  if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 && boundReads(fd))
    return fd;
  close(fd);
  return -1;
}

}  // namespace wiretest
