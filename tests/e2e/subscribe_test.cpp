// orncli subscribe end to end: listen against a private ornsim, with events emitted by
// the simulator and real state changes made by a second orncli process.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "CliExpect.h"
#include "OrnTestSupport.h"

namespace {

using clitest::errorLine;
using clitest::joinArgs;
using clitest::recorded;
using clitest::RecordedRequest;
using orntest::Ornsim;
using orntest::runOrncli;

constexpr const char kPowerEvents[] = "Corva.Endpoint.Feature.Power:Property.PowerState.Change";

std::string confirmation(const std::string& entityId, int code) {
  return "{\"subscription_created\":\"" + entityId + "\",\"responseCode\":" + std::to_string(code) +
         "}\n";
}

std::string createPayload(const std::string& entityId, const std::string& nameSpace,
                          const std::string& name) {
  return R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":")" +
         entityId + R"("}},"eventTypes":[{"namespace":")" + nameSpace + R"(","name":")" + name +
         R"("}]}]})";
}

// A switchable light of the simulator's built-in home.
constexpr const char kKitchenLight[] = "light-kitchen";

TEST(Subscribe, ListenPrintsStateChangesMadeByAnotherProcess) {
  Ornsim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  const std::string device = kKitchenLight;
  ASSERT_EQ(0, runOrncli(sim.socketPath(), {"power", "turnOff", "--endpoints", device}).exitCode);

  const std::string create = device + ":" + kPowerEvents;
  orntest::LiveProcess listener(orntest::orncliPath(),
                                {"subscribe", "listen", "--create", create, "--timeout", "3"},
                                orntest::clientEnv(sim.socketPath()));
  ASSERT_TRUE(listener.started()) << listener.err();
  ASSERT_TRUE(listener.waitForErr("\n")) << listener.err();
  ASSERT_EQ(0u,
            listener.err().find("{\"subscription_created\":\"" + device + "\",\"responseCode\":"))
      << listener.err();

  const orntest::RunResult change =
      runOrncli(sim.socketPath(), {"power", "turnOn", "--endpoints", device});
  EXPECT_EQ(0, change.exitCode) << change.err;

  const orntest::RunResult listened = listener.finish();
  ASSERT_FALSE(listened.timedOut);
  EXPECT_EQ(0, listened.exitCode);
  // The first event is the change made above; its payload names the device.
  const std::string& out = listener.out();
  ASSERT_NE(std::string::npos, out.find('\n')) << out;
  const std::string line = out.substr(0, out.find('\n'));
  EXPECT_EQ(0u, line.find("{\"eventType\":21,\"payload\":{")) << line;
  EXPECT_NE(std::string::npos, line.find(device)) << line;
  rapidjson::Document doc;
  doc.Parse(line.c_str());
  EXPECT_FALSE(doc.HasParseError()) << line;
}

TEST(Subscribe, ListenPrintsOnlyStateChangeEventsRaw) {
  // Spaced out so that each event is taken before the next one replaces it.
  Ornsim sim({"--respond", "201:{}", "--emit", R"(21:200:{"a":1})", "--emit", R"(22:500:{"b":2})",
              "--emit", "21:800:", "--emit", "23:1100:{}"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  const orntest::RunResult run = runOrncli(
      sim.socketPath(), {"subscribe", "listen", "--create", "eid1:ns:n", "--timeout", "3"});
  EXPECT_EQ(0, run.exitCode);
  EXPECT_EQ("{\"eventType\":21,\"payload\":{\"a\":1}}\n{\"eventType\":21,\"payload\":\"\"}\n",
            run.out);
  EXPECT_EQ(confirmation("eid1", 201), run.err);
}

TEST(Subscribe, ListenEndsByBrokenPipeWhenItsReaderGoes) {
  // Several events, so that one is written after head has left.
  Ornsim sim({"--respond", "201:{}", "--emit", "21:200:{}", "--emit", "21:700:{}", "--emit",
              "21:1200:{}", "--emit", "21:1700:{}"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  orntest::RunOptions options;
  options.env = orntest::clientEnv(sim.socketPath());
  const orntest::RunResult run =
      orntest::runProcess("/bin/sh",
                          {"-c",
                           "{ \"$1\" subscribe listen --create e:ns:n --timeout 5 2>/dev/null; "
                           "echo \"status $?\" >&2; }"
                           " | head -n 1",
                           "sh", orntest::orncliPath()},
                          options);
  EXPECT_EQ("{\"eventType\":21,\"payload\":{}}\n", run.out);
  // The default disposition of SIGPIPE ends the listener (128 + 13), as with any tool.
  EXPECT_EQ("status 141\n", run.err);
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
  // The listening time is also the wait for each confirmation: 0 s is too short here.
  Ornsim sim({"--response-delay-ms", "1000"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  const orntest::RunResult run = runOrncli(
      sim.socketPath(),
      {"subscribe", "listen", "--create", "e:ns:n", "--create", "f:ns:n", "--timeout", "0"});
  EXPECT_EQ(2, run.exitCode);
  EXPECT_EQ("", run.out);
  EXPECT_EQ(errorLine("request_failed", "Failed to create subscription for e:ns:n"), run.err);
}

}  // namespace
