// SPDX-License-Identifier: Apache-2.0
// The connector client library against a real ornsim, and against hand-made bad services.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <thread>

#include "Frame.h"
#include "ORNClient.h"
#include "OrnTestSupport.h"

namespace {

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
std::unique_ptr<Connected> connectTo(const std::string& socket, const std::string& name,
                                     bool registered = true) {
  setenv("ORN_QIPC_SOCKET", socket.c_str(), 1);
  auto c = std::make_unique<Connected>();
  if (!c->client->initialize(c->handler, ConnectorType::kLocalService, name) ||
      (registered && !c->handler->events(23, 1)))
    return nullptr;
  return c;
}

std::shared_ptr<ORNRequest> request(ORNClient& client, int type, const std::string& payload) {
  return std::make_shared<ORNRequest>(ORNRequest{client.generateRequestId(), type, payload, 0, ""});
}

const char kDevices[] = R"({"qfi":{"path":"/v2/endpoints","method":"GET"},"dfi":[]})";

// A blocking Unix-domain socket, with `path` as its address for bind/connect.
int unixSocket(const std::string& path, sockaddr_un* addr) {
  *addr = sockaddr_un{AF_UNIX, {}};
  strncpy(addr->sun_path, path.c_str(), sizeof(addr->sun_path) - 1);
  return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

std::string frame(const std::string& body) {
  std::string f;
  return ornwick::qipc::encodeFrame(body, &f) ? f : "";
}

std::string ask(const std::string& id, const std::string& payload = "") {
  return frame(R"({"kind":"request","requestId":")" + id + R"(","requestType":1,"payload":")" +
               payload + "\"}");
}

bool sendAll(int fd, const std::string& bytes) {
  return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == ssize_t(bytes.size());
}

// Reads until the peer closes; true when it did so (rather than erroring). Closing with
// our bytes still unread makes the peer's close a reset.
bool readsUntilClosed(int fd) {
  char buf[4096];
  ssize_t n;
  while ((n = recv(fd, buf, sizeof(buf), 0)) > 0) {
  }
  return n == 0 || errno == ECONNRESET;
}

// Reads one frame body from a blocking socket; empty on end of stream.
std::string readFrame(int fd) {
  uint32_t n = 0;
  if (recv(fd, &n, 4, MSG_WAITALL) != 4)
    return "";
  std::string body(ntohl(n), '\0');
  return recv(fd, body.data(), body.size(), MSG_WAITALL) == ssize_t(body.size()) ? body : "";
}

// Reads frames until the response to request `id`; false if the stream ends first.
bool answered(int fd, const std::string& id) {
  for (std::string f = readFrame(fd); !f.empty(); f = readFrame(fd))
    if (f.find("\"requestId\":\"" + id + "\"") != std::string::npos)
      return true;
  return false;
}

// Reads on `fd` give up after kWait, so a peer that never writes or closes fails
// the test instead of hanging it.
bool boundReads(int fd) {
  const timeval wait{static_cast<time_t>(std::chrono::seconds(kWait).count()), 0};
  return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait)) == 0;
}

// A raw connection to the service at `path`; -1 on failure.
int rawConnect(const std::string& path) {
  sockaddr_un addr;
  int fd = unixSocket(path, &addr);
  if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 && boundReads(fd))
    return fd;
  close(fd);
  return -1;
}

const std::string kConnectedEvent =
    frame(R"({"kind":"event","eventType":20,"payload":"{\"status\":\"CONNECTED\"}"})");
const std::string kRegisteredEvent = frame(R"({"kind":"event","eventType":23,"payload":""})");

// Plays the service's handshake on `fd`; false when the client did not register.
bool handshake(int fd) {
  return sendAll(fd, kConnectedEvent) && !readFrame(fd).empty() && sendAll(fd, kRegisteredEvent);
}

// A hand-made service on a socket in a temp folder. With `play`, each connection
// it accepts (numbered from 1) is handed to `play` on a thread, or in a child
// process running as `uid` when that is not 0; without, the test accepts them.
class FakeService {
 public:
  using Play = std::function<void(int fd, int n)>;
  explicit FakeService(const Play& play = nullptr, uid_t uid = 0) {
    sockaddr_un addr;
    fd_ = unixSocket(path(), &addr);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0)
      return;
    // The credentials a client sees are taken at listen(), after dropping root.
    if (uid != 0 && (child_ = fork()) == 0) {
      if (setresuid(uid, uid, uid) != 0 || prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 ||
          listen(fd_, 8) != 0)
        _exit(1);
      serve(play);
      _exit(0);
    }
    ok_ = uid != 0 ? child_ > 0 : listen(fd_, 8) == 0;
    if (ok_ && uid == 0 && play)
      thread_ = std::thread([this, play] { serve(play); });
  }
  ~FakeService() {
    shutdown(fd_, SHUT_RDWR);  // makes a blocked accept() fail
    if (thread_.joinable())
      thread_.join();
    if (child_ > 0 && kill(child_, SIGKILL) == 0)
      waitpid(child_, nullptr, 0);
    close(fd_);
  }
  bool ok() const { return ok_; }
  std::string path() const { return dir_.file("fake.sock"); }
  // A connection whose reads give up after kWait; -1 once the service stops.
  int accept() {
    int c = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (c >= 0 && !boundReads(c))
      close(c), c = -1;
    return c;
  }

 private:
  void serve(const Play& play) {
    for (int n = 1, c; (c = accept()) >= 0; ++n, close(c))
      play(c, n);
  }
  orntest::TempDir dir_;
  int fd_ = -1;
  bool ok_ = false;
  pid_t child_ = -1;
  std::thread thread_;
};

// Throws from every callback after trying a sync request from inside it.
class RudeHandler : public IORNEventHandler {
 public:
  void onResponse(std::shared_ptr<ORNResponse>) override { throw std::runtime_error("rude"); }
  void onEvent(std::shared_ptr<ORNEvent> e) override {
    if (e->eventType == 23 && client != nullptr)
      inner.set_value(client->sendSyncRequest(request(*client, 1, kDevices)) != nullptr);
    throw std::runtime_error("rude");
  }
  ORNClient* client = nullptr;
  std::promise<bool> inner;  // whether the sync request from the callback was answered
};

TEST(Connector, HandshakeSyncRequestAndRudeHandlers) {
  orntest::Ornsim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto c = connectTo(sim.socketPath(), "tester");
  ASSERT_TRUE(c);
  auto events = c->handler->all();
  ASSERT_GE(events.size(), 2u);
  EXPECT_EQ(events[0].eventType, 20);
  EXPECT_EQ(events[1].eventType, 23);
  EXPECT_FALSE(c->client->initialize(c->handler, ConnectorType::kLocalService, "again"));
  // Ids are unique across the clients of one process too.
  EXPECT_NE(ORNClient().generateRequestId(), ORNClient().generateRequestId());
  auto req = request(*c->client, 1, kDevices);
  auto resp = c->client->sendSyncRequest(req);
  ASSERT_TRUE(resp);
  EXPECT_EQ(resp->requestId, req->requestId);
  EXPECT_EQ(resp->responseCode, 200);
  EXPECT_EQ(c->handler->counts(), std::make_pair(size_t{0}, 0));  // nor on the caller's thread
  const auto lines = sim.recordLines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], R"({"register":"tester","connectorType":1})");
  EXPECT_EQ(lines[1],
            std::string(R"({"client":"tester","sync":true,"requestId":")") + req->requestId +
                R"(","requestType":1,"payload":)" +
                R"("{\"qfi\":{\"path\":\"/v2/endpoints\",\"method\":\"GET\"},\"dfi\":[]}"})");
  // A handler that throws, and tries a sync request from the callback thread; the socket is set.
  auto handler = std::make_shared<RudeHandler>();
  ORNClient client;
  handler->client = &client;
  auto inner = handler->inner.get_future();
  ASSERT_TRUE(client.initialize(handler, ConnectorType::kLocalService, "rude"));
  ASSERT_EQ(inner.wait_until(Clock::now() + kWait), std::future_status::ready);
  EXPECT_FALSE(inner.get()) << "a sync request on the callback thread must fail at once";
  ASSERT_TRUE(client.sendAsyncRequest(request(client, 1, kDevices)));
  EXPECT_TRUE(client.sendSyncRequest(request(client, 1, kDevices)));
}

TEST(Connector, SyncRequestEndsWhenTheServiceDiesOrTheClientIsDestroyed) {
  for (bool serviceDies : {true, false}) {
    orntest::Ornsim sim({"--no-response"});
    ASSERT_TRUE(sim.ok()) << sim.error();
    auto c = connectTo(sim.socketPath(), "tester");
    ASSERT_TRUE(c);
    ORNClient* client = c->client.get();
    client->setSyncRequestTimeout(std::chrono::hours(1));  // so only the end releases it
    std::promise<bool> answered;
    auto released = answered.get_future();
    std::thread waiter([&] {
      answered.set_value(client->sendSyncRequest(request(*client, 1, kDevices)) != nullptr);
    });
    const bool sent = sim.waitForRecordLines(2);
    if (serviceDies && sent)
      kill(sim.pid(), SIGKILL);
    else
      c->client.reset();  // from another thread than the waiting one
    const auto status = released.wait_until(Clock::now() + kWait);
    if (status != std::future_status::ready)
      c->client.reset();
    waiter.join();
    ASSERT_TRUE(sent);
    ASSERT_EQ(status, std::future_status::ready) << serviceDies;
    EXPECT_FALSE(released.get()) << serviceDies;
    if (serviceDies) {
      EXPECT_TRUE(c->handler->events(22, 1));
      // Not connected any more: both kinds of send fail at once.
      EXPECT_FALSE(client->sendSyncRequest(request(*client, 1, kDevices)));
      EXPECT_FALSE(client->sendAsyncRequest(request(*client, 1, kDevices)));
    }
  }
}

TEST(Connector, TimedOutSyncRequestsAnswerNobodyLater) {
  orntest::Ornsim sim({"--response-delay-ms", "300"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  // A folder the user names may be shared, like /tmp; only the default one must be ours alone.
  ASSERT_EQ(chmod(sim.dir().path().c_str(), 01777), 0);
  auto c = connectTo(sim.socketPath(), "tester");
  ASSERT_TRUE(c);
  c->client->setSyncRequestTimeout(std::chrono::milliseconds(20));
  EXPECT_FALSE(c->client->sendSyncRequest(request(*c->client, 1, kDevices)));
  // The service answers in order, so the late sync answer comes first.
  auto async = request(*c->client, 1, kDevices);
  ASSERT_TRUE(c->client->sendAsyncRequest(async));
  ORNResponse r;
  ASSERT_TRUE(c->handler->waitResponse(async->requestId, &r));
  EXPECT_EQ(c->handler->counts().first, 1u);
  EXPECT_NE(sim.recordedRequests().back().find("\"sync\":false"), std::string::npos);
}

TEST(Connector, ServiceStartedLaterAndRestartedIsRegisteredWith) {
  orntest::TempDir dir;
  const std::string link = dir.file("service.sock");
  auto c = connectTo(link, "tester", false);
  ASSERT_TRUE(c);
  // Held until the first registration; after it, a lost service fails a send at once.
  auto early = request(*c->client, 1, kDevices);
  EXPECT_TRUE(c->client->sendAsyncRequest(early)) << "no service yet";
  for (int round = 1; round <= 2; ++round) {
    orntest::Ornsim sim;
    ASSERT_TRUE(sim.ok()) << sim.error();
    // The client retries the fixed address; a symlink lets it reach each new ornsim.
    unlink(link.c_str());
    ASSERT_EQ(symlink(sim.socketPath().c_str(), link.c_str()), 0);
    ASSERT_TRUE(c->handler->events(23, round) >= size_t(round)) << "round " << round;
    ASSERT_TRUE(sim.waitForRecordLines(round == 1 ? 2 : 1));
    EXPECT_EQ(sim.recordLines()[0], R"({"register":"tester","connectorType":1})");
    if (round == 1) {
      EXPECT_NE(sim.recordLines()[1].find(early->requestId), std::string::npos);
      ORNResponse r;
      EXPECT_TRUE(c->handler->waitResponse(early->requestId, &r));
    }
  }
  EXPECT_TRUE(c->handler->events(22, 2) >= 2u);
  EXPECT_FALSE(c->client->sendAsyncRequest(request(*c->client, 1, kDevices)));
}

// Stderr into a pipe, so that a test can wait for what the library logs; restored on
// destruction.
class StderrPipe {
 public:
  StderrPipe() {
    if (pipe2(fds_, O_CLOEXEC) == 0)
      saved_ = dup(STDERR_FILENO), dup2(fds_[1], STDERR_FILENO);
  }
  ~StderrPipe() {
    dup2(saved_, STDERR_FILENO);
    close(saved_), close(fds_[0]), close(fds_[1]);
  }
  // Waits, kWait at most, until `text` has been written.
  bool waitFor(const std::string& text) {
    const auto deadline = Clock::now() + kWait;
    while (text_.find(text) == std::string::npos) {
      pollfd p{fds_[0], POLLIN, 0};
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      char buf[4096];
      ssize_t n;
      if (left <= 0 || poll(&p, 1, int(left)) <= 0 || (n = read(fds_[0], buf, sizeof(buf))) <= 0)
        return false;
      text_.append(buf, size_t(n));
    }
    return true;
  }
  const std::string& text() const { return text_; }

 private:
  int fds_[2] = {-1, -1};
  int saved_ = -1;
  std::string text_;
};

// A request sent before the first registration waits for it, within the sync limit and in
// order; past the limit a sync call returns empty and an async request is dropped with a log
// record, and neither is sent later.
TEST(Connector, RequestsBeforeTheFirstRegistrationWaitForIt) {
  for (bool expire : {false, true}) {
    std::future<std::shared_ptr<ORNResponse>> answer;  // outlives the client, which releases it
    FakeService fake;
    ASSERT_TRUE(fake.ok());
    auto c = connectTo(fake.path(), "tester", false);
    ASSERT_TRUE(c);
    ORNClient& client = *c->client;
    client.setSyncRequestTimeout(expire ? std::chrono::milliseconds(1) : std::chrono::hours(1));
    const int fd = fake.accept();
    ASSERT_GE(fd, 0);
    auto async = request(client, 1, kDevices), sync = request(client, 1, kDevices);
    StderrPipe log;
    ASSERT_TRUE(client.sendAsyncRequest(async));
    answer = std::async(std::launch::async, [&] { return client.sendSyncRequest(sync); });
    // Past the limit, and while the service says nothing at all.
    if (expire) {
      EXPECT_FALSE(answer.get());
      EXPECT_TRUE(log.waitFor("Dropped request " + async->requestId +
                              ": the service did not register the client within 1 ms\n"))
          << log.text();
    }
    ASSERT_TRUE(handshake(fd));
    // What comes after the registration: the held requests in order, or what was sent next.
    auto later = request(client, 1, kDevices);
    if (expire) {
      ASSERT_TRUE(client.sendAsyncRequest(later));
    }
    for (const auto& r : expire ? std::vector{later} : std::vector{async, sync}) {
      EXPECT_NE(readFrame(fd).find(r->requestId), std::string::npos) << expire;
      ASSERT_TRUE(sendAll(fd, frame(R"({"kind":"response","requestId":")" + r->requestId +
                                    R"(","responseCode":200,"responseData":""})")));
    }
    ORNResponse r;
    EXPECT_TRUE(c->handler->waitResponse((expire ? later : async)->requestId, &r));
    if (!expire) {
      EXPECT_TRUE(answer.get());
    }
    close(fd);
  }
}

TEST(Connector, ClientDropsABadServiceAndReconnects) {
  static const std::string kBadBytes[] = {
      std::string("\x00\x10\x00\x01", 4),  // over the frame limit
      frame(R"({"kind":"event","payload":""})"),
      frame(R"({"kind":"request","requestId":"1","requestType":1,"payload":""})"),
      frame("{\"x\":" + std::string(400000, '[')),  // nested too deep
  };
  FakeService fake;
  ASSERT_TRUE(fake.ok());
  auto c = connectTo(fake.path(), "tester", false);
  ASSERT_TRUE(c);
  for (const auto& bytes : kBadBytes) {
    int fd = fake.accept();
    ASSERT_GE(fd, 0) << bytes.substr(4, 30);
    EXPECT_TRUE(sendAll(fd, bytes) && readsUntilClosed(fd)) << bytes.substr(4, 30);
    close(fd);
  }
  // After all that, a well-behaved service still gets the registration, once it
  // reports connected; the request sent meanwhile waits for the registration.
  int fd = fake.accept();
  ASSERT_GE(fd, 0);
  ASSERT_TRUE(sendAll(fd, frame(R"({"kind":"event","eventType":20,"payload":"{}"})")));
  ASSERT_TRUE(c->handler->events(20, 1));
  ASSERT_TRUE(c->client->sendAsyncRequest(request(*c->client, 1, kDevices)));
  ASSERT_TRUE(sendAll(fd, kConnectedEvent));
  EXPECT_EQ(readFrame(fd), R"({"kind":"register","clientName":"tester","connectorType":1})");
  ASSERT_TRUE(sendAll(fd, kRegisteredEvent));
  EXPECT_NE(readFrame(fd).find(R"({"kind":"request")"), std::string::npos);
  close(fd);
}

std::string retryDelays(const std::string& debugText) {
  std::string ms;
  const std::string key = "retrying in ";
  for (size_t at = debugText.find(key); at != std::string::npos; at = debugText.find(key, at + 1))
    ms += std::to_string(atoi(debugText.c_str() + at + key.size())) + " ";
  return ms;
}

TEST(Connector, OrncliAgainstHandMadeServices) {
  // Drops each connection at once, but the fourth after registering the client
  // and reading its request.
  const FakeService::Play dropper = [](int fd, int n) {
    if (n == 4 && handshake(fd))
      readFrame(fd);
  };
  const FakeService::Play silent = [](int fd, int) {
    if (handshake(fd))
      readsUntilClosed(fd);
  };
  // The service's uid (0 for ours), ORN_QIPC_SERVICE_UID, how the retry delays logged start,
  // a piece of the debug trace, and whether it never registers, with the log saying why.
  // clang-format off
  const struct {
    FakeService::Play play; uid_t uid; const char *allowedUid, *delays, *traced; bool refused;
  } kCases[] = {
      {dropper, 0, "", "10 20 40 10 20 40 80 160 250 ", "send register (", false},
      {silent, 99999, "", "", "", true},
      {silent, 99999, "99999", "", "recv event 23", false},
  };
  // clang-format on
  for (const auto& c : kCases) {
    if (c.uid != 0 && geteuid() != 0) {
      fprintf(stderr, "skipped a service of uid %d: needs root\n", c.uid);
      continue;
    }
    FakeService fake(c.play, c.uid);
    ASSERT_TRUE(fake.ok());
    orntest::Env env = orntest::clientEnv(fake.path());
    env["ORN_QIPC_DEBUG"] = "1";
    env["ORN_QIPC_SERVICE_UID"] = c.allowedUid;
    auto run = orntest::runProcess(orntest::orncliPath(),
                                   {"--connect-timeout", "1", "--timeout", "1", "devices"}, env);
    EXPECT_EQ(run.exitCode, 2) << run.err;
    EXPECT_EQ(retryDelays(run.err).rfind(c.delays, 0), 0u) << run.err;
    EXPECT_NE(run.err.find(c.traced), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("connection_timeout") != std::string::npos, c.refused) << run.err;
    const std::string logged =
        "Refused the service at " + fake.path() + ": peer uid 99999 is neither ours nor root";
    EXPECT_EQ(run.err.find(logged) != std::string::npos, c.refused) << run.err;
  }
}

// What the library cannot do it refuses at once and says why, and nothing else reaches the
// service: with stdin, stdout and stderr closed its descriptors stay above them, so orncli's
// answer is not written into the service socket; a socket path longer than a socket address
// fails initialize, well before the connect timeout (which outlasts the run's own limit); a
// request too large for a frame is traced.
TEST(Connector, OrncliWhereTheLibraryCannotServe) {
  const std::string body = "{\"a\":\"" + std::string(ornwick::qipc::kMaxFrameSize, 'x') + "\"}";
  // clang-format off
  const struct {
    const char* shell; bool longPath; std::string input; int exitCode; const char* traced; size_t requests;
  } kCases[] = {
      {"exec \"$0\" devices <&- >&- 2>&-", false, "", 0, "", 1},
      {"exec \"$0\" --connect-timeout 60 devices", true, "", 2, "Cannot reach the service: socket path ", 0},
      {"exec \"$0\"", false, "1\n1\n5\n/x\n\n" + body + "\n0\n", 0, "not sent: request ", 0},
  };
  // clang-format on
  for (const auto& c : kCases) {
    orntest::Ornsim sim;
    ASSERT_TRUE(sim.ok()) << sim.error();
    orntest::Env env = orntest::clientEnv(
        c.longPath ? sim.dir().file(std::string(sizeof(sockaddr_un::sun_path), 's'))
                   : sim.socketPath());
    env["ORN_QIPC_DEBUG"] = "1";
    orntest::LiveProcess cli("/bin/sh", {"-c", c.shell, orntest::orncliPath()}, env);
    cli.send(c.input);
    const auto run = cli.finish();
    EXPECT_EQ(run.exitCode, c.exitCode) << c.shell << run.err;
    EXPECT_NE(run.err.find(c.traced), std::string::npos) << run.err;
    EXPECT_EQ(sim.recordedRequests().size(), c.requests) << c.shell;
    ASSERT_EQ(sim.stop(), 0);
    const std::string log = orntest::fileText(sim.dir().file("ornsim.stderr"));
    EXPECT_EQ(log.find("error from client"), std::string::npos) << log;
  }
}

// Plays the service's side of a flood from the client's own callback: each
// event delivered puts up to two more on the wire, so once the socket holds
// more than one read's worth the client never finds it drained.
struct Flood : IORNEventHandler {
  std::atomic<int> serviceFd{-1};
  std::atomic<bool> wasFull{false};
  std::promise<void> socketFull;  // set at the first send that finds no room
  void onResponse(std::shared_ptr<ORNResponse>) noexcept override {}
  void onEvent(std::shared_ptr<ORNEvent>) noexcept override {
    static const std::string kEvent =
        frame(R"({"kind":"event","eventType":21,"payload":")" + std::string(4000, 'x') + "\"}");
    for (int i = 0; i < 2; ++i)
      if (send(serviceFd, kEvent.data(), kEvent.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
        if (!wasFull.exchange(true))
          socketFull.set_value();
        break;
      }
  }
};

TEST(Connector, FloodingServiceNeitherStarvesNorHoldsTheClient) {
  for (bool serviceReads : {true, false}) {
    FakeService fake;
    ASSERT_TRUE(fake.ok());
    setenv("ORN_QIPC_SOCKET", fake.path().c_str(), 1);
    auto client = std::make_unique<ORNClient>();
    auto flood = std::make_shared<Flood>();
    ASSERT_TRUE(client->initialize(flood, ConnectorType::kLocalService, "t"));
    const int fd = flood->serviceFd = fake.accept();
    ASSERT_GE(fd, 0);
    // Both at once, ahead of the flood that the first one starts.
    ASSERT_TRUE(sendAll(fd, kConnectedEvent + kRegisteredEvent));
    EXPECT_NE(readFrame(fd).find("register"), std::string::npos);
    ASSERT_EQ(flood->socketFull.get_future().wait_until(Clock::now() + kWait),
              std::future_status::ready);
    // A service that stops reading leaves a request bigger than the socket's buffer half written.
    auto req = request(*client, 1, serviceReads ? kDevices : std::string(900000, 'x'));
    ASSERT_TRUE(client->sendAsyncRequest(req));
    if (serviceReads) {
      EXPECT_NE(readFrame(fd).find(req->requestId), std::string::npos);
    }
    // Unsent requests are held up to 16 MiB; past that a send fails.
    int held = 0;
    while (!serviceReads && held < 40 &&
           client->sendAsyncRequest(request(*client, 1, req->payload)))
      ++held;
    EXPECT_LT(held, 40);
    // Destroyed on another thread, the client must let go by the deadline.
    std::packaged_task<void()> destroy([c = std::move(client)]() mutable { c.reset(); });
    auto done = destroy.get_future();
    std::thread(std::move(destroy)).detach();
    ASSERT_EQ(done.wait_until(Clock::now() + kWait), std::future_status::ready) << serviceReads;
    close(fd);
  }
}

TEST(Ornsim, CutsOffWhatItCannotServeButKeepsServingOthers) {
  // A 10 KB request, cut: a partly received frame of 9000 bytes.
  const std::string big = ask("big", std::string(10000, ' '));
  const std::string part = big.substr(0, 9000);
  // About a kilobyte of answer each: unread, 2000 pass a 64 KiB budget, 20000 the
  // most one client may leave unread.
  const std::string one = ask("x", R"({\"qfi\":{\"path\":\"/v2/endpoints\",\"method\":\"GET\"}})");
  std::string burst, flood;
  for (int i = 0; i < 20000; ++i)
    (i < 2000 ? burst : flood) += one;
  flood += burst;
  // A client within the limits holds `holds` with a first request while the
  // victim is served and closed; then it sends the rest of `big` and is answered.
  // `greeted`: whether the victim gets event 20 before it is closed.
  // clang-format off
  const struct {
    std::vector<std::string> args; std::string holds, victimSends; bool greeted; const char* logged;
  } kCases[] = {
      {{}, "", std::string("\xff\xff\xff\xff", 4), true, "4294967295 bytes exceeds the limit"},
      {{}, "", std::string(4, '\0'), true, "error from client : empty frame"},
      {{}, "", frame("hello"), true, "bad message JSON: Invalid value. at offset 0"},
      {{}, "", frame("[1,2,3]"), true, "message is not a JSON object"},
      {{}, "", frame(R"({"kind":"shout"})"), true, "unknown message kind \"shout\""},
      {{}, "", frame(R"({"kind":"response","requestId":"1","responseCode":1,"responseData":""})"),
       true, "unexpected message from client"},
      {{}, "", frame(std::string(400000, '[')), true, "deeper than 256 levels. at offset 257"},
      {{}, "", ask(std::string((1u << 20) - 100, 'i')), true, "fits in a frame; closing"},
      {{}, "", flood, true, "is not reading; cutting it off"},
      {{"--max-connections", "1"}, "", "", false, "refusing a client: at the connection limit (1)"},
      {{"--frame-budget", "15000"}, part, part, true, "would pass the frame budget"},
      {{"--frame-timeout-ms", "100"}, "", part, true, "stalled in the middle of a frame"},
      {{"--frame-budget", "65536"}, "", burst, true, "unsent frames would pass the frame budget"},
  };
  // clang-format on
  for (const auto& c : kCases) {
    orntest::Ornsim sim(c.args);
    ASSERT_TRUE(sim.ok()) << sim.error();
    int holder = rawConnect(sim.socketPath());
    // One write, so ornsim holds the part by the time it answers the request.
    ASSERT_TRUE(holder >= 0 && sendAll(holder, ask("first") + c.holds) &&
                answered(holder, "first"));
    int victim = rawConnect(sim.socketPath());
    ASSERT_GE(victim, 0) << c.logged;
    EXPECT_EQ(readFrame(victim).find("\"eventType\":20") != std::string::npos, c.greeted)
        << c.logged;
    sendAll(victim, c.victimSends);  // may fail part-way once ornsim has cut it off
    EXPECT_TRUE(readsUntilClosed(victim)) << c.logged;
    close(victim);
    ASSERT_TRUE(sendAll(holder, big.substr(c.holds.size()) + ask("last")));
    EXPECT_TRUE(answered(holder, "last")) << c.logged;
    close(holder);
    EXPECT_NE(orntest::fileText(sim.dir().file("ornsim.stderr")).find(c.logged), std::string::npos)
        << c.logged;
  }
}

// A request's answer follows the events it caused and comes before the next request's.
TEST(Ornsim, AnswersInOrderAfterTheEventsTheyCaused) {
  orntest::Ornsim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  const std::string inject = ask("i", R"({\"qfi\":{\"path\":\"/sim/events\",\"method\":\"POST\",)"
                                      R"(\"requestBody\":{\"eventType\":21,\"client\":\"r\"}}})");
  const std::string hello = frame(R"({"kind":"register","clientName":"r","connectorType":1})");
  const int fd = rawConnect(sim.socketPath());
  ASSERT_TRUE(fd >= 0 && sendAll(fd, hello + inject + inject));
  std::string order;
  for (int i = 0; i < 6; ++i) {  // events 20 and 23 first
    const std::string f = readFrame(fd);
    order += f.find("\"eventType\":21") != std::string::npos        ? "event "
             : f.find("\"kind\":\"response\"") != std::string::npos ? "answer "
                                                                    : "";
  }
  EXPECT_EQ(order, "event answer event answer ");
  close(fd);
}

TEST(Ornsim, WaitsForAFreeDescriptorWithOneLogLine) {
  orntest::TempDir dir;
  const std::string path = dir.file("s.sock");
  orntest::LiveProcess sim(orntest::ornsimPath(), {"--socket", path});
  ASSERT_TRUE(sim.waitForOut("ready"));
  int first = rawConnect(path);
  ASSERT_TRUE(first >= 0 && !readFrame(first).empty());
  // Limit ornsim to the descriptors it holds: accepting fails until `first` closes.
  const std::string fds = "/proc/" + std::to_string(sim.pid()) + "/fd/";
  rlimit limit{};
  ASSERT_EQ(prlimit(sim.pid(), RLIMIT_NOFILE, nullptr, &limit), 0);
  for (limit.rlim_cur = 0; std::filesystem::is_symlink(fds + std::to_string(limit.rlim_cur));)
    ++limit.rlim_cur;
  ASSERT_EQ(prlimit(sim.pid(), RLIMIT_NOFILE, &limit, nullptr), 0);
  int second = rawConnect(path);
  ASSERT_GE(second, 0);
  const std::string logged = "accept: Too many open files; retrying when a connection closes";
  ASSERT_TRUE(sim.waitForErr(logged));
  close(first);
  EXPECT_NE(readFrame(second).find("\"eventType\":20"), std::string::npos);
  close(second);
  ASSERT_EQ(kill(sim.pid(), SIGTERM), 0);
  const auto run = sim.finish();
  EXPECT_EQ(run.err.find("accept:", run.err.find(logged) + 1), std::string::npos) << run.err;
}

TEST(Ornsim, OwnsItsSocketByALock) {
  orntest::Ornsim first;
  ASSERT_TRUE(first.ok()) << first.error();
  const std::string path = first.socketPath();
  // Stopped, and its socket file gone: the path is still taken.
  ASSERT_EQ(kill(first.pid(), SIGSTOP), 0);
  ASSERT_EQ(unlink(path.c_str()), 0);
  auto second = orntest::runProcess(orntest::ornsimPath(), {"--socket", path});
  EXPECT_EQ(second.exitCode, 2);
  EXPECT_NE(second.err.find("another ornsim serves " + path + ": it holds " + path + ".lock"),
            std::string::npos)
      << second.err;
  // A socket put there by someone else outlives the first ornsim.
  sockaddr_un addr;
  int other = unixSocket(path, &addr);
  ASSERT_EQ(bind(other, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
  ASSERT_EQ(kill(first.pid(), SIGCONT), 0);
  EXPECT_EQ(first.stop(), 0);
  EXPECT_EQ(access(path.c_str(), F_OK), 0);
  close(other);
}

TEST(Ornsim, StopsCleanlyOnSignalsAndRemovesItsSocket) {
  for (int sig : {SIGTERM, SIGINT}) {
    orntest::Ornsim sim;
    ASSERT_TRUE(sim.ok()) << sim.error();
    struct stat st;
    ASSERT_EQ(stat(sim.socketPath().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u) << "only the owner may connect";
    auto c = connectTo(sim.socketPath(), "tester");
    ASSERT_TRUE(c);
    ASSERT_EQ(kill(sim.pid(), sig), 0);
    EXPECT_TRUE(c->handler->events(22, 1)) << sig;
    EXPECT_EQ(sim.stop(), 0) << sig;
    EXPECT_NE(access(sim.socketPath().c_str(), F_OK), 0) << sig;
    EXPECT_NE(access((sim.socketPath() + ".lock").c_str(), F_OK), 0) << sig;
  }
}

// A device list over the frame limit still gets an answer, an error one.
TEST(Ornsim, HomeFileTooBigForOneFrame) {
  orntest::TempDir dir;
  const std::string home = dir.file("home.json");
  std::ofstream(home) << R"({"devices":[{"id":"big","friendlyName":")" << std::string(1100000, 'n')
                      << R"("}]})";
  orntest::Ornsim sim({"--home", home});
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto c = connectTo(sim.socketPath(), "tester");
  ASSERT_TRUE(c);
  auto r = c->client->sendSyncRequest(request(*c->client, 1, kDevices));
  ASSERT_TRUE(r);
  EXPECT_EQ(r->responseCode, 500);
  EXPECT_NE(r->responseData.find("response_too_large"), std::string::npos);
}

TEST(Ornsim, SubscriptionsOutliveTheirConnectionAndGetWallSwitchChanges) {
  // The delay spares the /sim/ paths; a record that cannot be written is said once.
  orntest::Ornsim sim({"-v", "--response-delay-ms", "1", "--record", "/dev/full"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  {
    auto first = connectTo(sim.socketPath(), "owner");
    ASSERT_TRUE(first);
    auto r = first->client->sendSyncRequest(request(
        *first->client, 2,
        R"({"operation":"create","subscriptions":[{"entities":{"endpointGroup":{"id":"group-downstairs"}},"eventTypes":[{"namespace":"Corva.Endpoint.Feature.Power","name":"Property.PowerState.Change"}]}]})"));
    ASSERT_TRUE(r);
    ASSERT_EQ(r->responseCode, 200) << r->responseData;
  }
  auto later = connectTo(sim.socketPath(), "owner");
  auto actor = connectTo(sim.socketPath(), "act\xc2\x85or");
  ASSERT_TRUE(later && actor);
  // As if the kettle's switch were pressed.
  auto run =
      orntest::runOrncli(sim.socketPath(), {"qfi", "--path", "/sim/endpoints/ep-kettle", "--method",
                                            "POST", "--body", R"({"state":{"power":true}})"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  ASSERT_TRUE(later->handler->events(21, 1));
  EXPECT_EQ(
      later->handler->all().back().payload,
      R"({"entityId":"plug-kettle","endpointId":"ep-kettle","namespace":"Corva.Endpoint.Feature.Power","name":"Property.PowerState.Change","value":"ON"})");
  EXPECT_EQ(actor->handler->events(21), 0u);
  ASSERT_TRUE(actor->client->sendSyncRequest(
      request(*actor->client, 1, R"({"qfi":{"path":"/sim/groups","method":"GET"}})")));
  const std::string log = orntest::fileText(sim.dir().file("ornsim.stderr"));
  for (const char* line :
       {R"( #1 "owner" type 2 subscribe create group-downstairs -> 200 after 1 ms, events 0)",
        R"( #2 "ORNCLI-cmd" type 1 POST /sim/endpoints/ep-kettle -> 200, events 1)",
        R"( #3 "act?or" type 1 GET /sim/groups -> 200, events 0)"})
    EXPECT_NE(log.find(line), std::string::npos) << log;
  const std::string full = "cannot write to /dev/full: No space left on device";
  EXPECT_EQ(log.find(full), log.rfind(full)) << log;
  EXPECT_NE(log.find(full), std::string::npos) << log;
}

TEST(Ornsim, StateFileKeepsStateAndSubscriptionsAcrossARestart) {
  orntest::TempDir dir;
  const std::string state = dir.file("state.json");
  const std::vector<std::vector<std::string>> kRuns[] = {
      {{"power", "turnOff", "--endpoints", "ep-kitchen"},
       {"subscribe", "create", "--endpoint", "ep-kitchen", "--events", "ns:n"}},
      // The repeat answers with the restored id, so ep-desk gets sub-2.
      {{"state", "get", "--endpoint", "ep-kitchen", "--feature", "power"},
       {"subscribe", "create", "--endpoint", "ep-kitchen", "--events", "ns:n"},
       {"subscribe", "create", "--endpoint", "ep-desk", "--events", "ns:n"},
       {"subscribe", "list"}},
  };
  // Another user's link at the temporary name is replaced, never written through.
  const std::string victim = dir.file("victim");
  std::ofstream(victim) << "untouched";
  ASSERT_EQ(symlink(victim.c_str(), (state + ".tmp").c_str()), 0);
  std::string out;
  for (const auto& runs : kRuns) {
    orntest::Ornsim sim({"--state", state});
    ASSERT_TRUE(sim.ok()) << sim.error();
    for (const auto& args : runs)
      out += orntest::runOrncli(sim.socketPath(), args).out;
  }
  EXPECT_NE(out.find(R"({"value":"OFF"})"), std::string::npos) << out;
  for (const char* sub : {R"(1","entities":{"endpoint":{"type":"Endpoint","id":"ep-kitchen"}})",
                          R"(2","entities":{"endpoint":{"type":"Endpoint","id":"ep-desk"}})"})
    EXPECT_NE(out.find(std::string(R"("subscriptionId":"sub-)") + sub), std::string::npos) << out;
  EXPECT_NE(access((state + ".tmp").c_str(), F_OK), 0);
  EXPECT_EQ(orntest::fileText(victim), "untouched");
  struct stat st {};
  ASSERT_EQ(stat(state.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  // Saved devices another home lacks stay in the file, with a word on stderr.
  const std::string other = dir.file("other.json");
  std::ofstream(other) << R"({"devices":[{"id":"lamp-1"}]})";
  {
    orntest::Ornsim sim({"--home", other, "--state", state});
    ASSERT_TRUE(sim.ok()) << sim.error();
    EXPECT_NE(orntest::fileText(sim.dir().file("ornsim.stderr")).find("keeping 6 saved devices"),
              std::string::npos);
  }
  EXPECT_NE(orntest::fileText(state).find(
                R"({"id":"light-kitchen","reachable":true,"state":{"power":false)"),
            std::string::npos);
  // ornsim refuses to start: a state file another ornsim keeps; two saved subscriptions are more
  // than a client may hold here; a bad state file; files that are not regular; a bad home file; a
  // record file it cannot open.
  const std::string bad = dir.file("bad.json"), home = dir.file("home.json"),
                    record = dir.file("no/record"), fifo = dir.file("fifo"),
                    link = dir.file("link");
  std::ofstream(bad) << R"({"devices":[{"id":"light-kitchen","state":{"power":1}}]})";
  std::ofstream(home) << R"({"devices":[{"friendlyName":"x"}]})";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(symlink(state.c_str(), link.c_str()), 0);
  const std::string held = dir.file("held.json");
  orntest::Ornsim holder({"--state", held});
  ASSERT_TRUE(holder.ok()) << holder.error();
  const std::pair<std::vector<std::string>, std::string> kRefusals[] = {
      {{"--state", held},
       "another ornsim keeps its state in " + held + ": it holds " + held + ".lock"},
      {{"--state", state, "--max-subscriptions", "1"}, "too many subscriptions for \"ORNCLI-cmd\""},
      {{"--state", bad}, bad + ": devices[0].state: \"power\" must be true or false"},
      {{"--state", fifo}, fifo + ": is a FIFO, not a regular file"},
      {{"--state", dir.path()}, dir.path() + ": is a directory, not a regular file"},
      {{"--state", "/dev/zero"}, "/dev/zero: is a character device, not a regular file"},
      {{"--state", link}, link + ": is a symbolic link"},
      {{"--home", home}, "devices[0]: missing \"id\""},
      {{"--record", record}, "open " + record + ": No such file or directory"},
  };
  for (auto [args, err] : kRefusals) {
    args.insert(args.begin(), {"--socket", dir.file("s")});
    auto run = orntest::runProcess(orntest::ornsimPath(), args);
    EXPECT_EQ(run.exitCode, 2) << err;
    EXPECT_EQ(run.out, "") << err;
    EXPECT_NE(run.err.find(err), std::string::npos) << run.err;
  }
}

}  // namespace
