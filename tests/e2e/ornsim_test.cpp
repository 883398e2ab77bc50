// SPDX-License-Identifier: Apache-2.0
// ornsim end to end: what it cuts off and keeps serving, its socket, descriptors and signals,
// its home and state files, and subscriptions.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "OrnTestSupport.h"
#include "WireExpect.h"

namespace {

using namespace wiretest;  // the shared helpers read as this suite's own

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
  // A registered client within the limits holds `holds` with a first request while
  // the victim is served and closed; then it sends the rest of `big` and is answered.
  const std::string hello = frame(R"({"kind":"register","clientName":"h","connectorType":1})");
  // A log line longer than ornsim's first formatting buffer is written whole.
  const std::string longName(600, 'n');
  const std::string longLine = "unexpected message from client " + longName + "\n";
  const std::string reply =
      frame(R"({"kind":"response","requestId":"1","responseCode":1,"responseData":""})");
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
      {{}, "", reply, true, "unexpected message from client"},
      {{}, "", frame(R"({"kind":"register","clientName":")" + longName + R"(","connectorType":1})") + reply,
       true, longLine.c_str()},
      {{}, "", frame(std::string(400000, '[')), true, "deeper than 256 levels. at offset 257"},
      {{}, "", ask(std::string(ornwick::qipc::kMaxFrameSize - 100, 'i')), true, "fits in a frame; closing"},
      {{}, "", flood, true, "is not reading; cutting it off"},
      {{"--max-connections", "1"}, "", "", false, "refusing a client: at the connection limit (1)"},
      {{"--frame-budget", "15000"}, part, part, true, "would pass the frame budget"},
      {{"--frame-timeout-ms", "100"}, "", part, true, "stalled in the middle of a frame"},
      {{"--frame-budget", "65536"}, "", burst, true, "unsent frames would pass the frame budget"},
      {{"--register-timeout-ms", "1000"}, "", "", true, "did not register within 1000 ms"},
      {{"--fault", "path:/v2/endpoints,delay:600000", "--frame-budget", "65536"}, "", burst, true,
       "delayed frames would pass the frame budget"},
  };
  // clang-format on
  for (const auto& c : kCases) {
    orntest::Ornsim sim(c.args);
    ASSERT_TRUE(sim.ok()) << sim.error();
    int holder = rawConnect(sim.socketPath());
    // One write, so ornsim holds the part by the time it answers the request.
    ASSERT_TRUE(holder >= 0 && sendAll(holder, hello + ask("first") + c.holds) &&
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

// At the connection limit the oldest unregistered or stalled connection makes room, so idle
// peers cannot keep clients out; a registered client that reads keeps its place.
TEST(Ornsim, IdlePeersMakeRoomAtTheConnectionLimit) {
  // No deadline closes a peer here: only the limit does.
  orntest::Ornsim sim({"--max-connections", "3", "--frame-timeout-ms", "600000",
                       "--register-timeout-ms", "600000"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  const std::string hello = frame(R"({"kind":"register","clientName":"r","connectorType":1})");
  const int reader = rawConnect(sim.socketPath());
  const int idle = rawConnect(sim.socketPath());
  const int stalled = rawConnect(sim.socketPath());
  ASSERT_TRUE(reader >= 0 && idle >= 0 && stalled >= 0);
  ASSERT_TRUE(sendAll(reader, hello + ask("1")) && answered(reader, "1"));
  ASSERT_TRUE(sendAll(stalled, hello + ask("2") + ask("3").substr(0, 5)) && answered(stalled, "2"));
  // orncli takes the place of the oldest peer that does not serve: idle, then stalled (older
  // than `late`, which took idle's place).
  EXPECT_EQ(orntest::runOrncli(sim.socketPath(), {"devices"}).exitCode, 0);
  EXPECT_TRUE(readsUntilClosed(idle));
  const int late = rawConnect(sim.socketPath());
  ASSERT_GE(late, 0);
  EXPECT_EQ(orntest::runOrncli(sim.socketPath(), {"devices"}).exitCode, 0);
  EXPECT_TRUE(readsUntilClosed(stalled));
  for (int fd : {reader, late})
    EXPECT_TRUE(sendAll(fd, hello + ask("4")) && answered(fd, "4"));
  for (int fd : {reader, idle, stalled, late})
    close(fd);
  EXPECT_NE(orntest::fileText(sim.dir().file("ornsim.stderr"))
                .find("closing the oldest connection that is unregistered or stalled"),
            std::string::npos);
}

// With stderr a pipe nobody reads, the traffic log and protocol-error lines never stop ornsim
// serving: what does not fit is dropped, and the count is said once stderr is read again.
TEST(Ornsim, ServesWhileNobodyReadsItsStderr) {
  orntest::TempDir dir;
  const std::string path = dir.file("s.sock");
  orntest::LiveProcess sim(orntest::ornsimPath(), {"--socket", path, "-v"});
  ASSERT_TRUE(sim.waitForOut("ready"));
  const int fd = rawConnect(path);
  ASSERT_GE(fd, 0);
  // Each request logs a line of about 100 bytes: far more than a pipe and ornsim's buffer hold.
  for (int i = 0; i < 3000; ++i) {
    ASSERT_TRUE(sendAll(fd, ask(std::to_string(i))) && answered(fd, std::to_string(i))) << i;
    if (i % 10 == 0) {
      const int bad = rawConnect(path);
      ASSERT_TRUE(bad >= 0 && sendAll(bad, frame("hello")) && readsUntilClosed(bad)) << i;
      close(bad);
    }
  }
  close(fd);
  EXPECT_TRUE(sim.waitForErr("lines of diagnostics dropped: stderr could not take them"));
  ASSERT_EQ(kill(sim.pid(), SIGTERM), 0);
  EXPECT_EQ(sim.finish().exitCode, 0);
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
  std::ofstream(home) << R"({"devices":[{"id":"big","friendlyName":")"
                      << std::string(ornwick::qipc::kMaxFrameSize + 50000, 'n') << R"("}]})";
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
