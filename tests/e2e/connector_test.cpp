// The connector client library against a real ornsim, and against a hand-made
// bad service.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
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
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

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
  void onResponse(std::shared_ptr<ORNResponse> r) noexcept override {
    keep([&] { responses_.push_back(*r); });
  }
  void onEvent(std::shared_ptr<ORNEvent> e) noexcept override {
    keep([&] { events_.push_back(*e); });
  }

  // Waits until `count` events of `type` have arrived.
  bool waitEvents(int type, size_t count = 1) {
    std::unique_lock<std::mutex> lock(mu_);
    return cv_.wait_until(lock, Clock::now() + kWait, [&] { return countLocked(type) >= count; });
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
  size_t eventCount(int type) {
    std::lock_guard<std::mutex> lock(mu_);
    return countLocked(type);
  }
  std::vector<ORNEvent> events() {
    std::lock_guard<std::mutex> lock(mu_);
    return events_;
  }
  size_t responseCount() {
    std::lock_guard<std::mutex> lock(mu_);
    return responses_.size();
  }
  int callerThreadCallbacks() {
    std::lock_guard<std::mutex> lock(mu_);
    return callerThreadCallbacks_;
  }

 private:
  template <typename F>
  void keep(F&& store) {
    std::lock_guard<std::mutex> lock(mu_);
    callerThreadCallbacks_ += std::this_thread::get_id() == testThread_;
    store();
    cv_.notify_all();
  }
  size_t countLocked(int type) const {
    return std::count_if(events_.begin(), events_.end(),
                         [&](const ORNEvent& e) { return e.eventType == type; });
  }
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<ORNEvent> events_;
  std::vector<ORNResponse> responses_;
  const std::thread::id testThread_ = std::this_thread::get_id();
  int callerThreadCallbacks_ = 0;
};

// Points the library at `path` for the clients this test creates.
void useSocket(const std::string& path) {
  setenv("ORN_QIPC_SOCKET", path.c_str(), 1);
}

struct Connected {
  std::shared_ptr<Recorder> handler = std::make_shared<Recorder>();
  std::unique_ptr<ORNClient> client = std::make_unique<ORNClient>();
};

// A client of `sim`, registered under `name`.
std::unique_ptr<Connected> connectTo(const std::string& socket, const std::string& name) {
  useSocket(socket);
  auto c = std::make_unique<Connected>();
  if (!c->client->initialize(c->handler, ConnectorType::kLocalService, name) ||
      !c->handler->waitEvents(23))
    return nullptr;
  return c;
}

std::shared_ptr<ORNRequest> request(ORNClient& client, int type, const std::string& payload) {
  auto r = std::make_shared<ORNRequest>();
  r->requestId = client.generateRequestId();
  r->requestType = type;
  r->payload = payload;
  return r;
}

const char kDevices[] = R"({"qfi":{"path":"/v2/endpoints","method":"GET"},"dfi":[]})";

// A blocking Unix-domain socket, with `path` as its address for bind/connect.
int unixSocket(const std::string& path, sockaddr_un* addr) {
  *addr = sockaddr_un{};
  addr->sun_family = AF_UNIX;
  strncpy(addr->sun_path, path.c_str(), sizeof(addr->sun_path) - 1);
  return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

// A listening socket in a temp folder that plays a broken service by hand.
class FakeService {
 public:
  FakeService() : path_(dir_.file("fake.sock")) {
    sockaddr_un addr;
    fd_ = unixSocket(path_, &addr);
    ok_ = fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 &&
          listen(fd_, 8) == 0;
  }
  ~FakeService() {
    if (fd_ >= 0)
      close(fd_);
  }
  bool ok() const { return ok_; }
  const std::string& path() const { return path_; }
  int accept() { return ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC); }
  // Makes a blocked accept() fail.
  void stop() { shutdown(fd_, SHUT_RDWR); }

 private:
  orntest::TempDir dir_;
  std::string path_;
  int fd_ = -1;
  bool ok_ = false;
};

// Bytes one side sends that the other must treat as a protocol error.
struct BadBytes {
  const char* name;
  std::string bytes;
};

std::string frame(const std::string& body) {
  const auto n = static_cast<uint32_t>(body.size());
  std::string f{static_cast<char>(n >> 24), static_cast<char>(n >> 16), static_cast<char>(n >> 8),
                static_cast<char>(n)};
  return f + body;
}

bool sendAll(int fd, const std::string& bytes) {
  return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

// Reads until the peer closes; true when it did so (rather than erroring).
bool readsUntilClosed(int fd) {
  char buf[4096];
  for (;;) {
    ssize_t n = recv(fd, buf, sizeof(buf), 0);
    // Closing with our bytes still unread makes the peer's close a reset.
    if (n == 0 || (n < 0 && errno == ECONNRESET))
      return true;
    if (n < 0)
      return false;
  }
}

// Reads one frame body from a blocking socket; empty on end of stream.
std::string readFrame(int fd) {
  unsigned char h[4];
  if (recv(fd, h, 4, MSG_WAITALL) != 4)
    return "";
  const size_t n = (size_t{h[0]} << 24) | (size_t{h[1]} << 16) | (size_t{h[2]} << 8) | h[3];
  std::string body(n, '\0');
  if (recv(fd, body.data(), n, MSG_WAITALL) != static_cast<ssize_t>(n))
    return "";
  return body;
}

const std::string kConnectedEvent =
    frame(R"({"kind":"event","eventType":20,"payload":"{\"status\":\"CONNECTED\"}"})");

// Plays the service's handshake on `fd`; false when the client did not register.
bool handshake(int fd) {
  return sendAll(fd, kConnectedEvent) && !readFrame(fd).empty() &&
         sendAll(fd, frame(R"({"kind":"event","eventType":23,"payload":""})"));
}

// A blocking connection whose reads give up after kWait, so a service that
// never closes fails the test instead of hanging it.
int rawConnect(const std::string& path) {
  sockaddr_un addr;
  int fd = unixSocket(path, &addr);
  const timeval wait{static_cast<time_t>(std::chrono::seconds(kWait).count()), 0};
  if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
      setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait)) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

// Reads frames until the response to request `id`; false if the stream ends first.
bool answered(int fd, const std::string& id) {
  for (std::string f = readFrame(fd); !f.empty(); f = readFrame(fd))
    if (f.find("\"requestId\":\"" + id + "\"") != std::string::npos)
      return true;
  return false;
}

std::string ask(const std::string& id, const std::string& payload = "") {
  return frame(R"({"kind":"request","requestId":")" + id + R"(","requestType":1,"payload":")" +
               payload + "\"}");
}

TEST(Connector, HandshakeThenASyncRequestAnsweredOnlyToItsCaller) {
  orntest::Ornsim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto c = connectTo(sim.socketPath(), "tester");
  ASSERT_TRUE(c);
  auto events = c->handler->events();
  ASSERT_GE(events.size(), 2u);
  EXPECT_EQ(events[0].eventType, 20);
  EXPECT_EQ(events[1].eventType, 23);
  EXPECT_FALSE(c->client->initialize(c->handler, ConnectorType::kLocalService, "again"));
  auto req = request(*c->client, 1, kDevices);
  auto resp = c->client->sendSyncRequest(req);
  ASSERT_TRUE(resp);
  EXPECT_EQ(resp->requestId, req->requestId);
  EXPECT_EQ(resp->responseCode, 200);
  EXPECT_EQ(c->handler->responseCount(), 0u);
  EXPECT_EQ(c->handler->callerThreadCallbacks(), 0);
  const auto lines = sim.recordLines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], R"({"register":"tester","connectorType":1})");
  EXPECT_EQ(lines[1],
            std::string(R"({"client":"tester","sync":true,"requestId":")") + req->requestId +
                R"(","requestType":1,"payload":)" +
                R"("{\"qfi\":{\"path\":\"/v2/endpoints\",\"method\":\"GET\"},\"dfi\":[]}"})");
}

TEST(Connector, AsyncAnswersAndEmittedEventsReachTheHandler) {
  orntest::Ornsim sim({"--respond", "418:{\"a\":1}:x", "--response-delay-ms", "20", "--emit",
                       "77:0:", "--emit", "21:30:{\"k\":\"v:w\"}"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto c = connectTo(sim.socketPath(), "tester");
  ASSERT_TRUE(c);
  auto req = request(*c->client, 2, "not json at all");
  ASSERT_TRUE(c->client->sendAsyncRequest(req));
  ORNResponse resp;
  ASSERT_TRUE(c->handler->waitResponse(req->requestId, &resp));
  EXPECT_EQ(resp.responseCode, 418);
  EXPECT_EQ(resp.responseData, "{\"a\":1}:x");
  auto requests = sim.recordedRequests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(orntest::jsonStringMember(requests[0], "payload"), "not json at all");
  EXPECT_NE(requests[0].find("\"sync\":false"), std::string::npos);
  ASSERT_TRUE(c->handler->waitEvents(21) && c->handler->waitEvents(77));
  for (const auto& e : c->handler->events()) {
    if (e.eventType == 77 || e.eventType == 21) {
      EXPECT_EQ(e.payload, e.eventType == 77 ? "" : "{\"k\":\"v:w\"}");
    }
  }
}

TEST(Connector, NoRegisterWithholdsOnlyTheRegisteredEvent) {
  orntest::Ornsim sim({"--no-register"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  useSocket(sim.socketPath());
  Connected c;
  ASSERT_TRUE(c.client->initialize(c.handler, ConnectorType::kLocalService, "tester"));
  ASSERT_TRUE(c.handler->waitEvents(20));
  ASSERT_TRUE(sim.waitForRecordLines(1));
  // The service answers in order, so a response proves no event 23 is still on
  // its way.
  ASSERT_TRUE(c.client->sendSyncRequest(request(*c.client, 1, kDevices)));
  EXPECT_EQ(c.handler->eventCount(23), 0u);
}

TEST(Connector, SyncRequestEndsWhenTheServiceDies) {
  orntest::Ornsim sim({"--no-response"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto c = connectTo(sim.socketPath(), "tester");
  ASSERT_TRUE(c);
  std::thread killer([&] {
    if (sim.waitForRecordLines(2))
      kill(sim.pid(), SIGKILL);
  });
  auto resp = c->client->sendSyncRequest(request(*c->client, 1, kDevices));
  killer.join();
  EXPECT_FALSE(resp);
  EXPECT_TRUE(c->handler->waitEvents(22));
  // Not connected any more: both kinds of send fail at once.
  EXPECT_FALSE(c->client->sendSyncRequest(request(*c->client, 1, kDevices)));
  EXPECT_FALSE(c->client->sendAsyncRequest(request(*c->client, 1, kDevices)));
}

TEST(Connector, TimedOutSyncRequestsAnswerNobodyLater) {
  orntest::Ornsim sim({"--response-delay-ms", "300"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto c = connectTo(sim.socketPath(), "tester");
  ASSERT_TRUE(c);
  c->client->setSyncRequestTimeout(std::chrono::milliseconds(20));
  EXPECT_FALSE(c->client->sendSyncRequest(request(*c->client, 1, kDevices)));
  // The service answers in order, so the late sync answer comes first.
  auto async = request(*c->client, 1, kDevices);
  ASSERT_TRUE(c->client->sendAsyncRequest(async));
  ORNResponse r;
  ASSERT_TRUE(c->handler->waitResponse(async->requestId, &r));
  EXPECT_EQ(c->handler->responseCount(), 1u);
}

TEST(Connector, DestroyingTheClientReleasesASyncRequestOnAnotherThread) {
  orntest::Ornsim sim({"--no-response"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto c = connectTo(sim.socketPath(), "tester");
  ASSERT_TRUE(c);
  ORNClient* client = c->client.get();
  std::shared_ptr<ORNResponse> resp = std::make_shared<ORNResponse>();
  std::thread waiter([&] { resp = client->sendSyncRequest(request(*client, 1, kDevices)); });
  ASSERT_TRUE(sim.waitForRecordLines(2));
  c->client.reset();
  waiter.join();
  EXPECT_FALSE(resp);
}

TEST(Connector, ServiceStartedLaterAndRestartedIsRegisteredWith) {
  orntest::TempDir dir;
  const std::string link = dir.file("service.sock");
  useSocket(link);
  Connected c;
  ASSERT_TRUE(c.client->initialize(c.handler, ConnectorType::kLocalService, "tester"));
  for (int round = 1; round <= 2; ++round) {
    orntest::Ornsim sim;
    ASSERT_TRUE(sim.ok()) << sim.error();
    // The client retries the fixed address; a symlink lets it reach each new
    // ornsim.
    unlink(link.c_str());
    ASSERT_EQ(symlink(sim.socketPath().c_str(), link.c_str()), 0);
    ASSERT_TRUE(c.handler->waitEvents(23, round)) << "round " << round;
    ASSERT_TRUE(sim.waitForRecordLines(1));
    EXPECT_EQ(sim.recordLines()[0], R"({"register":"tester","connectorType":1})");
  }
}

TEST(Connector, ServiceCutsOffBadFramesButKeepsServingOthers) {
  static const BadBytes kCases[] = {
      {"oversized length", std::string("\xff\xff\xff\xff", 4)},
      {"zero length", std::string(4, '\0')},
      {"not JSON", frame("hello")},
      {"JSON but no message", frame("[1,2,3]")},
      {"unknown kind", frame(R"({"kind":"shout"})")},
      {"client sends a response",
       frame(R"({"kind":"response","requestId":"1","responseCode":1,"responseData":""})")},
      {"no answer fits a frame", ask(std::string((1u << 20) - 100, 'i'))},
      {"nested too deep", frame(std::string(400000, '['))},
  };
  orntest::Ornsim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto good = connectTo(sim.socketPath(), "good");
  ASSERT_TRUE(good);
  // A bad request is answered, not cut off: `good` goes on being served below.
  auto bad = good->client->sendSyncRequest(request(*good->client, 9, "{"));
  ASSERT_TRUE(bad);
  EXPECT_EQ(bad->responseCode, 400);
  auto deep = good->client->sendSyncRequest(request(*good->client, 9, std::string(400000, '[')));
  ASSERT_TRUE(deep);
  EXPECT_EQ(deep->responseCode, 400);
  for (const auto& c : kCases) {
    int fd = rawConnect(sim.socketPath());
    ASSERT_GE(fd, 0) << c.name;
    EXPECT_NE(readFrame(fd).find("\"eventType\":20"), std::string::npos) << c.name;
    ASSERT_TRUE(sendAll(fd, c.bytes)) << c.name;
    EXPECT_TRUE(readsUntilClosed(fd)) << c.name;
    close(fd);
    EXPECT_TRUE(good->client->sendSyncRequest(request(*good->client, 1, kDevices))) << c.name;
  }
}

TEST(Connector, ClientDropsABadServiceAndReconnects) {
  static const BadBytes kCases[] = {
      {"oversized length", std::string("\x00\x10\x00\x01", 4)},
      {"zero length", std::string(4, '\0')},
      {"not JSON", frame("{{{")},
      {"event without type", frame(R"({"kind":"event","payload":""})")},
      {"service sends a request",
       frame(R"({"kind":"request","requestId":"1","requestType":1,"payload":""})")},
      {"nested too deep", frame("{\"x\":" + std::string(400000, '['))},
  };
  FakeService fake;
  ASSERT_TRUE(fake.ok());
  useSocket(fake.path());
  Connected c;
  ASSERT_TRUE(c.client->initialize(c.handler, ConnectorType::kLocalService, "tester"));
  for (const auto& k : kCases) {
    int fd = fake.accept();
    ASSERT_GE(fd, 0) << k.name;
    ASSERT_TRUE(sendAll(fd, k.bytes)) << k.name;
    EXPECT_TRUE(readsUntilClosed(fd)) << k.name;
    close(fd);
  }
  // After all that, a well-behaved service still gets the registration, once it
  // reports connected: the request sent meanwhile comes first.
  int fd = fake.accept();
  ASSERT_GE(fd, 0);
  ASSERT_TRUE(sendAll(fd, frame(R"({"kind":"event","eventType":20,"payload":"{}"})")));
  ASSERT_TRUE(c.handler->waitEvents(20));
  ASSERT_TRUE(c.client->sendAsyncRequest(request(*c.client, 1, kDevices)));
  EXPECT_NE(readFrame(fd).find(R"({"kind":"request")"), std::string::npos);
  ASSERT_TRUE(sendAll(fd, kConnectedEvent));
  EXPECT_EQ(readFrame(fd), R"({"kind":"register","clientName":"tester","connectorType":1})");
  close(fd);
}

TEST(Connector, SubscriptionsOutliveTheirConnectionAndSeeOthersChanges) {
  orntest::Ornsim sim;
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
  auto actor = connectTo(sim.socketPath(), "actor");
  ASSERT_TRUE(later && actor);
  const char kGet[] = R"({"operation":"get","subscriptions":[]})";
  auto mine = later->client->sendSyncRequest(request(*later->client, 2, kGet));
  auto theirs = actor->client->sendSyncRequest(request(*actor->client, 2, kGet));
  ASSERT_TRUE(mine && theirs);
  EXPECT_NE(mine->responseData.find("\"id\":\"group-downstairs\""), std::string::npos);
  EXPECT_EQ(theirs->responseData, R"({"subscriptions":[]})");
  ASSERT_TRUE(actor->client->sendSyncRequest(request(
      *actor->client, 1,
      R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOn","method":"POST","requestBody":{"batch":[{"endpointId":"ep-kettle"}],"directivePayload":{}}},"dfi":[]})")));
  ASSERT_TRUE(later->handler->waitEvents(21));
  EXPECT_EQ(
      later->handler->events().back().payload,
      R"({"entityId":"plug-kettle","endpointId":"ep-kettle","namespace":"Corva.Endpoint.Feature.Power","name":"Property.PowerState.Change","value":"ON"})");
  EXPECT_EQ(actor->handler->eventCount(21), 0u);
}

TEST(Connector, HundredClientsAtOnce) {
  orntest::Ornsim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  useSocket(sim.socketPath());
  std::vector<std::unique_ptr<Connected>> clients;
  for (int i = 0; i < 100; ++i) {
    clients.push_back(std::make_unique<Connected>());
    ASSERT_TRUE(clients.back()->client->initialize(
        clients.back()->handler, ConnectorType::kLocalService, "client-" + std::to_string(i)));
  }
  std::vector<std::string> ids;
  for (auto& c : clients) {
    ASSERT_TRUE(c->handler->waitEvents(23));
    auto req = request(*c->client, 1, kDevices);
    ids.push_back(req->requestId);
    ASSERT_TRUE(c->client->sendAsyncRequest(req));
  }
  EXPECT_EQ(std::set<std::string>(ids.begin(), ids.end()).size(), ids.size());
  for (size_t i = 0; i < clients.size(); ++i) {
    ORNResponse r;
    ASSERT_TRUE(clients[i]->handler->waitResponse(ids[i], &r)) << i;
    EXPECT_EQ(r.responseCode, 200) << i;
  }
}

TEST(Connector, ServiceCutsOffAClientThatDoesNotRead) {
  orntest::Ornsim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto good = connectTo(sim.socketPath(), "good");
  ASSERT_TRUE(good);
  int fd = rawConnect(sim.socketPath());
  ASSERT_GE(fd, 0);
  // Each answer is about a kilobyte; 20000 unread answers overflow what ornsim
  // will queue.
  std::string burst;
  const std::string one =
      frame(std::string(R"({"kind":"request","requestId":"x","requestType":1,"payload":")") +
            R"({\"qfi\":{\"path\":\"/v2/endpoints\",\"method\":\"GET\"}}"})");
  for (int i = 0; i < 20000; ++i)
    burst += one;
  sendAll(fd, burst);  // may fail part-way once ornsim has cut us off
  EXPECT_TRUE(readsUntilClosed(fd));
  close(fd);
  EXPECT_TRUE(good->client->sendSyncRequest(request(*good->client, 1, kDevices)));
}

TEST(Ornsim, ClosesConnectionsPastItsLimits) {
  // A 10 KB request, cut: a partly received frame of 9000 bytes.
  const std::string big = ask("big", std::string(10000, ' '));
  const std::string part = big.substr(0, 9000);
  // About a kilobyte of answer each: 2000 unread ones pass a 64 KiB budget.
  std::string burst;
  for (int i = 0; i < 2000; ++i)
    burst += ask("x", R"({\"qfi\":{\"path\":\"/v2/endpoints\",\"method\":\"GET\"}})");
  static const struct {
    std::vector<std::string> args;
    std::string holds;  // sent with a first request by a client within the limit
    std::string victimSends;
    bool greeted;  // whether the victim gets event 20 before it is closed
    const char* logged;
  } kCases[] = {
      {{"--max-connections", "1"}, "", "", false, "refusing a client: at the connection limit (1)"},
      {{"--frame-budget", "15000"}, part, part, true, "would pass the frame budget"},
      {{"--frame-timeout-ms", "100"}, "", part, true, "stalled in the middle of a frame"},
      {{"--frame-budget", "65536"}, "", burst, true, "unsent frames would pass the frame budget"},
  };
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
    sendAll(victim, c.victimSends);
    EXPECT_TRUE(readsUntilClosed(victim)) << c.logged;
    close(victim);
    ASSERT_TRUE(sendAll(holder, big.substr(c.holds.size()) + ask("last")));
    EXPECT_TRUE(answered(holder, "last")) << c.logged;
    close(holder);
    std::ifstream log(sim.dir().file("ornsim.stderr"));
    EXPECT_NE(std::string(std::istreambuf_iterator<char>(log), {}).find(c.logged),
              std::string::npos);
  }
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
    EXPECT_TRUE(c->handler->waitEvents(22)) << sig;
    EXPECT_EQ(sim.stop(), 0) << sig;
    EXPECT_NE(access(sim.socketPath().c_str(), F_OK), 0) << sig;
    EXPECT_NE(access((sim.socketPath() + ".lock").c_str(), F_OK), 0) << sig;
  }
}

// Throws from every callback after trying a sync request from inside it.
class RudeHandler : public IORNEventHandler {
 public:
  void onResponse(std::shared_ptr<ORNResponse>) override { throw std::runtime_error("rude"); }
  void onEvent(std::shared_ptr<ORNEvent> e) override {
    if (e->eventType == 23 && client != nullptr) {
      auto inner = client->sendSyncRequest(request(*client, 1, kDevices));
      std::lock_guard<std::mutex> lock(mu);
      innerAnswered = inner != nullptr;
      registered = true;
      cv.notify_all();
    }
    throw std::runtime_error("rude");
  }
  ORNClient* client = nullptr;
  std::mutex mu;
  std::condition_variable cv;
  bool registered = false;
  bool innerAnswered = true;
};

TEST(Connector, ThrowingAndReentrantHandlersDoNotBreakTheClient) {
  orntest::Ornsim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  useSocket(sim.socketPath());
  auto handler = std::make_shared<RudeHandler>();
  ORNClient client;
  handler->client = &client;
  ASSERT_TRUE(client.initialize(handler, ConnectorType::kLocalService, "rude"));
  {
    std::unique_lock<std::mutex> lock(handler->mu);
    ASSERT_TRUE(
        handler->cv.wait_until(lock, Clock::now() + kWait, [&] { return handler->registered; }));
    EXPECT_FALSE(handler->innerAnswered)
        << "a sync request on the callback thread must fail at once";
  }
  ASSERT_TRUE(client.sendAsyncRequest(request(client, 1, kDevices)));
  EXPECT_TRUE(client.sendSyncRequest(request(client, 1, kDevices)));
}

TEST(Ornsim, HomeFilesBadOrTooBigForOneFrame) {
  orntest::TempDir dir;
  const std::string home = dir.file("home.json");
  std::ofstream(home) << R"({"devices":[{"friendlyName":"x"}]})";
  auto bad =
      orntest::runProcess(orntest::ornsimPath(), {"--socket", dir.file("s.sock"), "--home", home});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_EQ(bad.out, "");
  EXPECT_NE(bad.err.find("devices[0]: missing \"id\""), std::string::npos) << bad.err;
  // A device list over the frame limit still gets an answer, an error one.
  std::ofstream(home, std::ios::trunc)
      << R"({"devices":[{"id":"big","friendlyName":")" << std::string(1100000, 'n') << R"("}]})";
  orntest::Ornsim sim({"--home", home});
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto c = connectTo(sim.socketPath(), "tester");
  ASSERT_TRUE(c);
  auto r = c->client->sendSyncRequest(request(*c->client, 1, kDevices));
  ASSERT_TRUE(r);
  EXPECT_EQ(r->responseCode, 500);
  EXPECT_NE(r->responseData.find("response_too_large"), std::string::npos);
}

// Plays the service's side of a flood from the client's own callback: each
// event delivered puts up to two more on the wire, so once the socket holds
// more than one read's worth the client never finds it drained.
struct Flood : IORNEventHandler {
  std::atomic<int> serviceFd{-1};
  std::promise<void> socketFull;  // set at the first send that finds no room
  std::atomic<bool> wasFull{false};
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

// Destroys the client on another thread; false when that has not returned by
// the deadline.
bool destroyedInTime(std::unique_ptr<ORNClient> client) {
  std::packaged_task<void()> destroy([c = std::move(client)]() mutable { c.reset(); });
  auto done = destroy.get_future();
  std::thread(std::move(destroy)).detach();
  return done.wait_until(Clock::now() + kWait) == std::future_status::ready;
}

TEST(Connector, FloodingServiceNeitherStarvesNorHoldsTheClient) {
  for (bool serviceReads : {true, false}) {
    FakeService fake;
    ASSERT_TRUE(fake.ok());
    useSocket(fake.path());
    auto client = std::make_unique<ORNClient>();
    auto flood = std::make_shared<Flood>();
    ASSERT_TRUE(client->initialize(flood, ConnectorType::kLocalService, "t"));
    const int fd = flood->serviceFd = fake.accept();
    ASSERT_GE(fd, 0);
    // A client that never writes fails the reads below instead of hanging them.
    const timeval deadline{std::chrono::seconds(kWait).count(), 0};
    ASSERT_EQ(setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof(deadline)), 0);
    ASSERT_TRUE(sendAll(fd, kConnectedEvent));
    EXPECT_NE(readFrame(fd).find("register"), std::string::npos);
    ASSERT_EQ(flood->socketFull.get_future().wait_until(Clock::now() + kWait),
              std::future_status::ready);
    // A service that stops reading leaves a request bigger than the socket's
    // buffer half written.
    auto req = request(*client, 1, serviceReads ? kDevices : std::string(900000, 'x'));
    ASSERT_TRUE(client->sendAsyncRequest(req));
    if (serviceReads) {
      EXPECT_NE(readFrame(fd).find(req->requestId), std::string::npos);
    }
    ASSERT_TRUE(destroyedInTime(std::move(client))) << serviceReads;
    close(fd);
  }
}

std::vector<int> retryDelays(const std::string& debugText) {
  std::vector<int> ms;
  const std::string key = "retrying in ";
  for (size_t at = debugText.find(key); at != std::string::npos; at = debugText.find(key, at + 1))
    ms.push_back(atoi(debugText.c_str() + at + key.size()));
  return ms;
}

TEST(Connector, BackOffGrowsWhileConnectionsDropAtOnceAndResetsAfterRegistering) {
  FakeService fake;
  ASSERT_TRUE(fake.ok());
  // Drops each connection at once, but the fourth after registering the client
  // and reading its request.
  std::thread dropper([&] {
    for (int n = 1, fd; (fd = fake.accept()) >= 0; ++n, close(fd))
      if (n == 4 && handshake(fd))
        readFrame(fd);
  });
  orntest::Env env = orntest::clientEnv(fake.path());
  env["ORN_QIPC_DEBUG"] = "1";
  auto run = orntest::runProcess(orntest::orncliPath(), {"--timeout", "1", "devices"}, env);
  fake.stop();
  dropper.join();
  EXPECT_EQ(run.exitCode, 2);
  auto delays = retryDelays(run.err);
  ASSERT_GE(delays.size(), 9u) << run.err;
  delays.resize(9);
  EXPECT_EQ(delays, (std::vector<int>{10, 20, 40, 10, 20, 40, 80, 160, 250})) << run.err;
}

TEST(Connector, ServiceOfAnotherUidIsRefusedUnlessConfigured) {
  if (geteuid() != 0)
    GTEST_SKIP() << "needs root to run the fake service as another uid";
  orntest::TempDir dir;
  sockaddr_un addr;
  int fd = unixSocket(dir.file("s.sock"), &addr);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
  // The credentials a client sees are taken at listen(), after dropping root.
  const pid_t child = fork();
  if (child == 0) {
    if (setresuid(65534, 65534, 65534) != 0 || prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 ||
        listen(fd, 8) != 0)
      _exit(1);
    for (int c; (c = accept(fd, nullptr, nullptr)) >= 0; close(c))
      if (handshake(c))
        readsUntilClosed(c);
    _exit(0);
  }
  close(fd);
  // Refused, the client never registers; allowed, its request goes unanswered.
  for (const char* serviceUid : {"", "65534"}) {
    orntest::Env env = orntest::clientEnv(dir.file("s.sock"));
    env["ORN_QIPC_SERVICE_UID"] = serviceUid;
    auto run = orntest::runProcess(orntest::orncliPath(),
                                   {"--connect-timeout", "1", "--timeout", "1", "devices"}, env);
    const bool refused = *serviceUid == '\0';
    EXPECT_EQ(run.err.find("connection_timeout") != std::string::npos, refused) << run.err;
    // The log record says why.
    EXPECT_EQ(run.err.find("peer uid 65534 is neither ours nor root") != std::string::npos, refused)
        << run.err;
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST(Ornsim, WallSwitchReachesListenersAndTheTrafficLog) {
  orntest::Ornsim sim({"-v"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto listener = connectTo(sim.socketPath(), "listener");
  ASSERT_TRUE(listener);
  ASSERT_TRUE(listener->client->sendSyncRequest(request(
      *listener->client, 2,
      R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"id":"ep-kitchen"}}}]})")));
  auto run = orntest::runOrncli(
      sim.socketPath(), {"qfi", "--path", "/sim/endpoints/ep-kitchen", "--method", "POST", "--body",
                         R"({"state":{"power":false}})"});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  ASSERT_TRUE(listener->handler->waitEvents(21));
  EXPECT_NE(listener->handler->events().back().payload.find(R"("value":"OFF")"), std::string::npos);
  std::ifstream log(sim.dir().file("ornsim.stderr"));
  const std::string text((std::istreambuf_iterator<char>(log)), {});
  EXPECT_NE(text.find(R"( #2 "ORNCLI-cmd" type 1 POST /sim/endpoints/ep-kitchen -> 200, events 1)"),
            std::string::npos)
      << text;
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
  std::string out;
  for (const auto& runs : kRuns) {
    orntest::Ornsim sim({"--state", state});
    ASSERT_TRUE(sim.ok()) << sim.error();
    for (const auto& args : runs)
      out += orntest::runOrncli(sim.socketPath(), args).out;
  }
  EXPECT_NE(out.find(R"({"value":"OFF"})"), std::string::npos) << out;
  EXPECT_NE(
      out.find(
          R"("subscriptionId":"sub-1","entities":{"endpoint":{"type":"Endpoint","id":"ep-kitchen"}})"),
      std::string::npos)
      << out;
  EXPECT_NE(
      out.find(
          R"("subscriptionId":"sub-2","entities":{"endpoint":{"type":"Endpoint","id":"ep-desk"}})"),
      std::string::npos)
      << out;
  EXPECT_NE(access((state + ".tmp").c_str(), F_OK), 0);
  // Two saved subscriptions are more than a client may hold here.
  auto capped = orntest::runProcess(orntest::ornsimPath(), {"--socket", dir.file("s"), "--state",
                                                            state, "--max-subscriptions", "1"});
  EXPECT_EQ(capped.exitCode, 2);
  EXPECT_NE(capped.err.find("too many subscriptions for \"ORNCLI-cmd\""), std::string::npos)
      << capped.err;
}

}  // namespace
