// SPDX-License-Identifier: Apache-2.0
// The connector client library against a real ornsim, and against hand-made bad services.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "OrnTestSupport.h"
#include "WireExpect.h"

namespace {

using namespace wiretest;  // the shared helpers read as this suite's own

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
  orntest::Ornsim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  // A folder the user names may be shared, like /tmp; only the default one must be ours alone.
  ASSERT_EQ(chmod(sim.dir().path().c_str(), 01777), 0);
  auto c = connectTo(sim.socketPath(), "tester");
  ASSERT_TRUE(c);
  // Stopped, the service answers only after the sync request has given up, however slow
  // the machine.
  int status = 0;
  ASSERT_EQ(kill(sim.pid(), SIGSTOP), 0);
  ASSERT_EQ(waitpid(sim.pid(), &status, WUNTRACED), sim.pid());
  c->client->setSyncRequestTimeout(std::chrono::milliseconds(20));
  EXPECT_FALSE(c->client->sendSyncRequest(request(*c->client, 1, kDevices)));
  ASSERT_EQ(kill(sim.pid(), SIGCONT), 0);
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
      [] {  // a length over the frame limit
        const uint32_t n = htonl(ornwick::qipc::kMaxFrameSize + 1);
        return std::string(reinterpret_cast<const char*>(&n), sizeof(n));
      }(),
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

// The id in a request's frame; "" when it has none.
std::string requestIdOf(const std::string& frameBody) {
  const std::string key = R"("requestId":")";
  const size_t from = frameBody.find(key);
  return from == std::string::npos
             ? ""
             : frameBody.substr(from + key.size(),
                                frameBody.find('"', from + key.size()) - from - key.size());
}

TEST(Connector, OrncliAgainstHandMadeServices) {
  // Drops each connection at once, but the fourth after registering the client and reading
  // its request, and the tenth, once the back-off has reached its cap, where it answers that
  // request: the answer, not a time limit, ends the run.
  std::string asked;  // the request's frame
  const FakeService::Play dropper = [&asked](int fd, int n) {
    if (n == 4 && handshake(fd))
      asked = readFrame(fd);
    if (n == 10 && handshake(fd) &&
        sendAll(fd, frame(R"({"kind":"response","requestId":")" + requestIdOf(asked) +
                          R"(","responseCode":200,"responseData":"{}"})")))
      readsUntilClosed(fd);
  };
  const FakeService::Play silent = [](int fd, int) {
    if (handshake(fd))
      readsUntilClosed(fd);
  };
  // The service's uid (0 for ours), ORN_QIPC_SERVICE_UID, orncli's --connect-timeout and
  // --timeout (a bound where the service ends the run, what expires where it does not), the
  // exit status, the retry delays logged (nullptr: as many as the time allows), a piece of
  // the debug trace, and whether it never registers, with the log saying why.
  // clang-format off
  const struct {
    FakeService::Play play; uid_t uid; const char *allowedUid, *seconds; int exit;
    const char *delays, *traced; bool refused;
  } kCases[] = {
      {dropper, 0, "", "10", 0, "10 20 40 10 20 40 80 160 250 ", "send register (", false},
      {silent, 99999, "", "1", 2, nullptr, "", true},
      {silent, 99999, "99999", "1", 2, "", "recv event 23", false},
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
    auto run = orntest::runProcess(
        orntest::orncliPath(), {"--connect-timeout", c.seconds, "--timeout", c.seconds, "devices"},
        env);
    EXPECT_EQ(run.exitCode, c.exit) << run.err;
    EXPECT_EQ(run.out.find("\"responseCode\":200") != std::string::npos, c.exit == 0) << run.out;
    if (c.delays) {
      EXPECT_EQ(retryDelays(run.err), c.delays) << run.err;
    }
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

}  // namespace
