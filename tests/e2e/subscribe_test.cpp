// orncli subscribe end to end: listen against a private ornsim, with events emitted by
// the simulator and real state changes made by a second orncli process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <rapidjson/document.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "CliExpect.h"
#include "OrnTestSupport.h"

extern char** environ;

namespace {

using clitest::errorLine;
using clitest::joinArgs;
using clitest::recorded;
using clitest::RecordedRequest;
using orntest::Ornsim;
using orntest::runOrncli;
using Clock = std::chrono::steady_clock;

constexpr const char kPowerEvents[] = "Corva.Endpoint.Feature.Power:Property.PowerState.Change";

std::string confirmation(const std::string& entityId, int code) {
  return "{\"subscription_created\":\"" + entityId + "\",\"responseCode\":" +
         std::to_string(code) + "}\n";
}

// An orncli run whose output is read while it runs, so a test can act between its lines.
class RunningOrncli {
 public:
  RunningOrncli(const std::string& socketPath, const std::vector<std::string>& args) {
    int outPipe[2];
    int errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0) {
      return;
    }
    if (pipe2(errPipe, O_CLOEXEC) != 0) {
      close(outPipe[0]);
      close(outPipe[1]);
      return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);

    const std::string exe = orntest::orncliPath();
    std::vector<std::string> argStrings = {exe};
    argStrings.insert(argStrings.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& arg : argStrings) {
      argv.push_back(&arg[0]);
    }
    argv.push_back(nullptr);
    std::vector<std::string> envStrings = {"ORN_QIPC_SOCKET=" + socketPath};
    for (char** e = environ; *e; ++e) {
      if (std::string(*e).rfind("ORN_QIPC_SOCKET=", 0) != 0) {
        envStrings.push_back(*e);
      }
    }
    std::vector<char*> envp;
    for (std::string& entry : envStrings) {
      envp.push_back(&entry[0]);
    }
    envp.push_back(nullptr);

    if (posix_spawn(&pid_, exe.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) {
      pid_ = -1;
    }
    posix_spawn_file_actions_destroy(&actions);
    close(outPipe[1]);
    close(errPipe[1]);
    outFd_ = outPipe[0];
    errFd_ = errPipe[0];
  }

  ~RunningOrncli() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    closeFd(&outFd_);
    closeFd(&errFd_);
  }

  RunningOrncli(const RunningOrncli&) = delete;
  RunningOrncli& operator=(const RunningOrncli&) = delete;

  bool started() const { return pid_ > 0; }

  // Waits until stderr holds a whole line, or the deadline passes (false).
  bool waitForErrLine(Clock::time_point deadline) {
    while (err_.find('\n') == std::string::npos) {
      if (!pump(deadline)) {
        return false;
      }
    }
    return true;
  }

  // Reads both streams to their end and reaps the process; false at the deadline.
  bool finish(Clock::time_point deadline) {
    while (outFd_ >= 0 || errFd_ >= 0) {
      if (!pump(deadline)) {
        return false;
      }
    }
    int status = 0;
    if (waitpid(pid_, &status, 0) != pid_) {
      return false;
    }
    pid_ = -1;
    exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return true;
  }

  const std::string& out() const { return out_; }
  const std::string& err() const { return err_; }
  int exitCode() const { return exitCode_; }

 private:
  static void closeFd(int* fd) {
    if (*fd >= 0) {
      close(*fd);
      *fd = -1;
    }
  }

  // One poll over the open streams; false when the deadline passed or nothing is open.
  bool pump(Clock::time_point deadline) {
    pollfd fds[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0 || (outFd_ < 0 && errFd_ < 0)) {
      return false;
    }
    const int ready = poll(fds, 2, static_cast<int>(left));
    if (ready < 0) {
      return errno == EINTR;
    }
    readInto(fds[0], &outFd_, &out_);
    readInto(fds[1], &errFd_, &err_);
    return true;
  }

  static void readInto(const pollfd& p, int* fd, std::string* text) {
    if (*fd < 0 || p.revents == 0) {
      return;
    }
    char buffer[4096];
    const ssize_t n = read(*fd, buffer, sizeof buffer);
    if (n > 0) {
      text->append(buffer, static_cast<size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      closeFd(fd);
    }
  }

  pid_t pid_ = -1;
  int outFd_ = -1;
  int errFd_ = -1;
  std::string out_;
  std::string err_;
  int exitCode_ = -1;
};

std::string createPayload(const std::string& entityId, const std::string& nameSpace,
                          const std::string& name) {
  return R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":")" +
         entityId + R"("}},"eventTypes":[{"namespace":")" + nameSpace + R"(","name":")" + name +
         R"("}]}]})";
}

// The entity id of a device of the simulator's home that can be switched on and off.
std::string findPowerDevice(const Ornsim& sim) {
  const orntest::RunResult run = runOrncli(sim.socketPath(), {"devices"});
  const std::string marker = ",\"responseData\":";
  const size_t at = run.out.find(marker);
  if (run.exitCode != 0 || at == std::string::npos) {
    return "";
  }
  std::string data = run.out.substr(at + marker.size());
  data.resize(data.size() - 2);  // the closing "}\n" of the response line
  rapidjson::Document doc;
  doc.Parse(data.c_str());
  if (doc.HasParseError() || !doc.IsObject() || !doc.HasMember("results") ||
      !doc["results"].IsArray()) {
    return "";
  }
  for (const auto& device : doc["results"].GetArray()) {
    if (!device.IsObject() || !device.HasMember("id") || !device["id"].IsString() ||
        !device.HasMember("capabilities") || !device["capabilities"].IsObject()) {
      continue;
    }
    const auto& capabilities = device["capabilities"];
    if (!capabilities.HasMember("interfaces") || !capabilities["interfaces"].IsArray()) {
      continue;
    }
    for (const auto& name : capabilities["interfaces"].GetArray()) {
      if (name.IsString() && std::string(name.GetString()) == "Corva.PowerController") {
        return device["id"].GetString();
      }
    }
  }
  return "";
}

TEST(Subscribe, ListenPrintsStateChangesMadeByAnotherProcess) {
  Ornsim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  const std::string device = findPowerDevice(sim);
  ASSERT_FALSE(device.empty()) << "no switchable device in the simulator's home";
  ASSERT_EQ(0, runOrncli(sim.socketPath(), {"power", "turnOff", "--endpoints", device}).exitCode);

  const std::string create = device + ":" + kPowerEvents;
  RunningOrncli listener(sim.socketPath(),
                         {"subscribe", "listen", "--create", create, "--timeout", "3"});
  ASSERT_TRUE(listener.started());
  ASSERT_TRUE(listener.waitForErrLine(Clock::now() + std::chrono::seconds(10))) << listener.err();
  ASSERT_EQ(0u, listener.err().find("{\"subscription_created\":\"" + device + "\",\"responseCode\":"))
      << listener.err();

  const orntest::RunResult change =
      runOrncli(sim.socketPath(), {"power", "turnOn", "--endpoints", device});
  EXPECT_EQ(0, change.exitCode) << change.err;

  ASSERT_TRUE(listener.finish(Clock::now() + std::chrono::seconds(10)));
  EXPECT_EQ(0, listener.exitCode());
  ASSERT_FALSE(listener.out().empty());
  size_t start = 0;
  while (start < listener.out().size()) {
    const size_t end = listener.out().find('\n', start);
    ASSERT_NE(std::string::npos, end) << "every event line ends in a newline";
    const std::string line = listener.out().substr(start, end - start);
    start = end + 1;
    EXPECT_EQ(0u, line.find("{\"eventType\":21,\"payload\":{")) << line;
    EXPECT_NE(std::string::npos, line.find(device)) << line;
    rapidjson::Document doc;
    doc.Parse(line.c_str());
    EXPECT_FALSE(doc.HasParseError()) << line;
  }
}

TEST(Subscribe, ListenPrintsOnlyStateChangeEventsRaw) {
  // Spaced out so that each event is taken before the next one replaces it.
  Ornsim sim({"--respond", "201:{}", "--emit", R"(21:200:{"a":1})", "--emit",
              R"(22:500:{"b":2})", "--emit", "21:800:", "--emit", "23:1100:{}"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  const orntest::RunResult run = runOrncli(
      sim.socketPath(), {"subscribe", "listen", "--create", "eid1:ns:n", "--timeout", "3"});
  EXPECT_EQ(0, run.exitCode);
  EXPECT_EQ("{\"eventType\":21,\"payload\":{\"a\":1}}\n{\"eventType\":21,\"payload\":\"\"}\n",
            run.out);
  EXPECT_EQ(confirmation("eid1", 201), run.err);
}

TEST(Subscribe, ListenCreatesEachSubscriptionInOrder) {
  Ornsim sim({"--respond", "200:{\"id\":\"s1\"}"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  static const struct {
    std::vector<std::string> args;
    int exitCode;
    const char* err;
    std::vector<std::string> payloads;
  } kCases[] = {
      // A zero or negative listening time ends right after the confirmations; --sync
      // because the listen timeout is also the response timeout.
      {{"--sync", "subscribe", "listen", "--create", "e1:ns:a:b", "--timeout", "0"},
       0,
       "{\"subscription_created\":\"e1\",\"responseCode\":200}\n",
       {createPayload("e1", "ns", "a:b")}},
      {{"--sync", "subscribe", "listen", "--timeout", "-5", "--create", "e1:n1:x", "--create",
        "e2:n2:y"},
       0,
       "{\"subscription_created\":\"e1\",\"responseCode\":200}\n"
       "{\"subscription_created\":\"e2\",\"responseCode\":200}\n",
       {createPayload("e1", "n1", "x"), createPayload("e2", "n2", "y")}},
      // The first subscription stays when a later value is malformed.
      {{"subscribe", "listen", "--create", "e1:ns:n", "--create", "bad", "--timeout", "2"},
       1,
       "{\"subscription_created\":\"e1\",\"responseCode\":200}\n"
       "{\"error\":\"invalid_argument\",\"message\":\"Invalid --create format: bad. Use "
       "entityId:namespace:eventName\"}\n",
       {createPayload("e1", "ns", "n")}},
  };
  for (const auto& c : kCases) {
    const size_t before = recorded(sim).size();
    const orntest::RunResult run = runOrncli(sim.socketPath(), c.args);
    EXPECT_EQ(c.exitCode, run.exitCode) << joinArgs(c.args);
    EXPECT_EQ("", run.out) << joinArgs(c.args);
    EXPECT_EQ(c.err, run.err) << joinArgs(c.args);
    const std::vector<RecordedRequest> requests = recorded(sim);
    ASSERT_EQ(before + c.payloads.size(), requests.size()) << joinArgs(c.args);
    for (size_t i = 0; i < c.payloads.size(); ++i) {
      const RecordedRequest& request = requests[before + i];
      EXPECT_EQ(c.payloads[i], request.payload) << joinArgs(c.args);
      EXPECT_EQ(2, request.requestType) << joinArgs(c.args);
      EXPECT_EQ("ORNCLI-cmd", request.client) << joinArgs(c.args);
      EXPECT_EQ(c.args[0] == "--sync", request.sync) << joinArgs(c.args);
    }
  }
}

TEST(Subscribe, ListenArgumentErrors) {
  Ornsim sim({"--respond", "200:{}"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  const auto invalidCreate = [](const std::string& value) {
    return errorLine("invalid_argument",
                     "Invalid --create format: " + value + ". Use entityId:namespace:eventName");
  };
  static const std::string kTwoWarnings =
      std::string(clitest::kStoiWarning) + clitest::kStoiWarning;
  const struct {
    std::vector<std::string> args;
    std::string out;
    std::string err;
  } cases[] = {
      {{"subscribe", "listen", "--timeout", "5"},
       "",
       errorLine("missing_argument", "--create is required for subscribe listen")},
      {{"subscribe", "listen", "--create", "e:n:x"},
       "",
       errorLine("missing_argument", "--timeout is required for subscribe listen")},
      {{"subscribe", "listen", "--create", "e:n:x", "--timeout"},
       "",
       errorLine("missing_argument", "--timeout is required for subscribe listen")},
      // Read once as the global response timeout and once as the listening time.
      {{"subscribe", "listen", "--create", "e:n:x", "--timeout", "abc"},
       kTwoWarnings,
       errorLine("invalid_argument", "Invalid timeout value: abc")},
      {{"subscribe", "listen", "--create", "e::n", "--timeout", "1"}, "", invalidCreate("e::n")},
      {{"subscribe", "listen", "--create", "e:ns", "--timeout", "1"}, "", invalidCreate("e:ns")},
      {{"subscribe", "listen", "--create", ":ns:n", "--timeout", "1"}, "", invalidCreate(":ns:n")},
      {{"subscribe", "listen", "--create", "e:ns:", "--timeout", "1"}, "", invalidCreate("e:ns:")},
      // The value after a --create is never skipped, so the second one is read as a value.
      {{"subscribe", "listen", "--create", "--create", "e:n:x", "--timeout", "1"},
       "",
       invalidCreate("--create")},
  };
  for (const auto& c : cases) {
    const orntest::RunResult run = runOrncli(sim.socketPath(), c.args);
    EXPECT_EQ(1, run.exitCode) << joinArgs(c.args);
    EXPECT_EQ(c.out, run.out) << joinArgs(c.args);
    EXPECT_EQ(c.err, run.err) << joinArgs(c.args);
  }
  EXPECT_TRUE(sim.recordedRequests().empty());
}

TEST(Subscribe, UnconfirmedSubscriptionEndsListen) {
  Ornsim sim({"--no-response"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  const orntest::RunResult run = runOrncli(
      sim.socketPath(), {"subscribe", "listen", "--create", "e:ns:n", "--create", "f:ns:n",
                         "--timeout", "1"});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_EQ("", run.out);
  EXPECT_EQ(errorLine("request_failed", "Failed to create subscription for e:ns:n"), run.err);
}

}  // namespace
