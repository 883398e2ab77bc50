// The connector client library against a real ornsim, and against a hand-made
// bad service.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <functional>
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
    if (n == 0)
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

int rawConnect(const std::string& path) {
  sockaddr_un addr;
  int fd = unixSocket(path, &addr);
  if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
    close(fd);
    return -1;
  }
  return fd;
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
  // After all that, a well-behaved service still gets the registration.
  int fd = fake.accept();
  ASSERT_GE(fd, 0);
  ASSERT_TRUE(sendAll(fd, frame(R"({"kind":"event","eventType":20,"payload":"{}"})")));
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
      {{"state", "get", "--endpoint", "ep-kitchen", "--feature", "power"},
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
}

}  // namespace
