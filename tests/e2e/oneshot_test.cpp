// orncli one-shot mode end to end: the real binary against a private ornsim per test,
// checking the exact output, exit status and the request that reached the service.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CliExpect.h"
#include "OrnTestSupport.h"

namespace {

using clitest::errorLine;
using clitest::joinArgs;
using clitest::recorded;
using clitest::RecordedRequest;
using clitest::responseLine;
using orntest::Ornsim;
using orntest::runOrncli;

constexpr const char kDevicesPayload[] =
    R"({"qfi":{"path":"/v2/endpoints?filterExpression=features[name:connectivity].properties[name:reachability].value.value=OK","method":"GET"},"dfi":[]})";

struct SentCase {
  std::vector<std::string> args;
  int requestType;
  const char* payload;
};

// Runs each case against sim, which answers every request with 200 and {"ok":true}.
void expectSent(const Ornsim& sim, const SentCase* cases, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const SentCase& c = cases[i];
    const size_t before = recorded(sim).size();
    const orntest::RunResult run = runOrncli(sim.socketPath(), c.args);
    const std::vector<RecordedRequest> requests = recorded(sim);
    ASSERT_EQ(before + 1, requests.size()) << joinArgs(c.args) << "\n" << run.err;
    const RecordedRequest& request = requests.back();
    EXPECT_EQ(0, run.exitCode) << joinArgs(c.args);
    EXPECT_EQ("", run.err) << joinArgs(c.args);
    EXPECT_EQ(responseLine(request.requestId, 200, R"({"ok":true})"), run.out) << joinArgs(c.args);
    EXPECT_EQ("ORNCLI-cmd", request.client) << joinArgs(c.args);
    const bool sync = std::find(c.args.begin(), c.args.end(), "--sync") != c.args.end();
    EXPECT_EQ(sync, request.sync) << joinArgs(c.args);
    EXPECT_EQ(c.requestType, request.requestType) << joinArgs(c.args);
    EXPECT_EQ(c.payload, request.payload) << joinArgs(c.args);
    EXPECT_FALSE(request.requestId.empty()) << joinArgs(c.args);
  }
}

TEST(OneShot, LightSubcommandsSendTheirRequests) {
  Ornsim sim({"--respond", R"(200:{"ok":true})"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  static const SentCase kCases[] = {
      {{"power", "turnOn", "--endpoints", "e1,e2"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOn/","method":"POST","requestBody":{"batch":[{"endpointId":"e1"},{"endpointId":"e2"}],"directivePayload":{}}},"dfi":[]})"},
      {{"power", "turnOff", "--endpoints", "a,,b,"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOff/","method":"POST","requestBody":{"batch":[{"endpointId":"a"},{"endpointId":""},{"endpointId":"b"}],"directivePayload":{}}},"dfi":[]})"},
      {{"power", "get", "--endpoint", "e1", "--endpoints", "x,y"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/e1/features/power/","method":"GET"},"dfi":[]})"},
      {{"brightness", "set", "--endpoints", "e1,e2", "--value", " 40 "},
       1,
       R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/brightness/setBrightness/","method":"POST","requestBody":{"batch":[{"endpointId":"e1"},{"endpointId":"e2"}],"directivePayload":{"brightness":40}}},"dfi":[]})"},
      {{"brightness", "set", "--endpoints", "e1", "--value", "250"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/brightness/setBrightness/","method":"POST","requestBody":{"batch":[{"endpointId":"e1"}],"directivePayload":{"brightness":250}}},"dfi":[]})"},
      {{"brightness", "adjust", "--value", "oops", "--endpoints", "e1", "--delta", "-10"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/brightness/adjustBrightness/","method":"POST","requestBody":{"batch":[{"endpointId":"e1"}],"directivePayload":{"brightnessDelta":-10}}},"dfi":[]})"},
      {{"brightness", "get", "--endpoint", "e9"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/e9/features/brightness/","method":"GET"},"dfi":[]})"},
      {{"color", "set", "--endpoints", "id1,id2", "--hue", "120", "--saturation", "0.5",
        "--brightness", "0.8"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/color/setColor/","method":"POST","requestBody":{"batch":[{"endpointId":"id1"},{"endpointId":"id2"}],"directivePayload":{"color":{"hue":120.0,"saturation":0.5,"brightness":0.8}}}},"dfi":[]})"},
      // Lenient on purpose: junk reads as 0.0, trailing junk is ignored, ranges are advice.
      {{"color", "set", "--endpoints", "id1", "--hue", "abc", "--saturation", "2x", "--brightness",
        "-1"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/color/setColor/","method":"POST","requestBody":{"batch":[{"endpointId":"id1"}],"directivePayload":{"color":{"hue":0.0,"saturation":2.0,"brightness":-1.0}}}},"dfi":[]})"},
      // A non-finite value cannot be written, so the body is dropped.
      {{"color", "set", "--endpoints", "id1", "--hue", "nan", "--saturation", "1", "--brightness",
        "1"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/color/setColor/","method":"POST"},"dfi":[]})"},
      {{"colortemp", "set", "--endpoints", "id1,id2", "--kelvin", "3500"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/colorTemperature/setColorTemperature/","method":"POST","requestBody":{"batch":[{"endpointId":"id1"},{"endpointId":"id2"}],"directivePayload":{"colorTemperatureInKelvin":3500}}},"dfi":[]})"},
      {{"colortemp", "set", "--endpoints", "id1", "--kelvin", "-50"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/colorTemperature/setColorTemperature/","method":"POST","requestBody":{"batch":[{"endpointId":"id1"}],"directivePayload":{"colorTemperatureInKelvin":-50}}},"dfi":[]})"},
  };
  expectSent(sim, kCases, sizeof(kCases) / sizeof(kCases[0]));
}

TEST(OneShot, OtherSubcommandsSendTheirRequests) {
  Ornsim sim({"--respond", R"(200:{"ok":true})"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  static const SentCase kCases[] = {
      {{"devices"}, 1, kDevicesPayload},
      {{"devices", "extra", "args"}, 1, kDevicesPayload},
      {{"state", "get", "--endpoint", "id1", "--feature", "power"},
       3,
       R"({"qfi":{"path":"/v2/endpoints/id1/features/power/","method":"GET"},"dfi":[]})"},
      {{"state", "get", "--endpoint", "id1", "--feature", "brightness", "--latency", "medium"},
       3,
       R"({"qfi":{"path":"/v2/endpoints/id1/features/brightness/","method":"GET","requestBody":{"latencyTolerance":"medium"}},"dfi":[]})"},
      {{"state", "report", "--entity", "eid1", "--endpoint", "epid1", "--friendly-name",
        "My Light"},
       3,
       R"({"dfi":[{"header":{"namespace":"Corva","name":"ReportState","payloadVersion":"3"},"endpoint":{"entityId":"eid1","endpointId":"epid1","friendlyName":"My Light"},"payload":{}}]})"},
      {{"dfi", "--entity", "eid1", "--endpoint", "epid1", "--namespace", "Corva.PowerController",
        "--name", "TurnOn"},
       1,
       R"({"dfi":[{"header":{"namespace":"Corva.PowerController","name":"TurnOn","payloadVersion":"3.0"},"endpoint":{"entityId":"eid1","endpointId":"epid1","friendlyName":""},"payload":{}}]})"},
      {{"dfi", "--entity", "e", "--endpoint", "p", "--namespace", "Corva.BrightnessController",
        "--name", "SetBrightness", "--payload", R"({"brightness":[1,2]})"},
       1,
       R"({"dfi":[{"header":{"namespace":"Corva.BrightnessController","name":"SetBrightness","payloadVersion":"3.0"},"endpoint":{"entityId":"e","endpointId":"p","friendlyName":""},"payload":{"brightness":[1,2]}}]})"},
      // Not validated on purpose: the unparseable directive goes out as null.
      {{"dfi", "--entity", "e", "--endpoint", "p", "--namespace", "n", "--name", "x", "--payload",
        "{bad"},
       1,
       R"({"dfi":[null]})"},
      {{"dfi", "--entity", "e", "--endpoint", "p", "--namespace", "n", "--name", "x", "--payload",
        std::string(65000, '[') + std::string(65000, ']')},
       1,
       R"({"dfi":[null]})"},
      {{"qfi", "--path", "/v2/endpoints/id1/features/power/", "--method", "GET"},
       1,
       R"({"qfi":{"path":"/v2/endpoints/id1/features/power/","method":"GET","requestBody":{}},"dfi":[]})"},
      {{"qfi", "--path", "/v2/endpoints", "--method", "get", "--body", R"({"a":[true]})"},
       1,
       R"({"qfi":{"path":"/v2/endpoints","method":"UNKNOWN","requestBody":{"a":[true]}},"dfi":[]})"},
      {{"subscribe", "list"}, 2, R"({"operation":"get","subscriptions":[]})"},
      {{"subscribe", "create", "--endpoint", "eid1", "--events",
        "Corva.Endpoint.Feature.Power:Property.PowerState.Change,bad,ns:a:b"},
       2,
       R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"eid1"}},"eventTypes":[{"namespace":"Corva.Endpoint.Feature.Power","name":"Property.PowerState.Change"},{"namespace":"ns","name":"a:b"}]}]})"},
      {{"subscribe", "delete", "--endpoint", "eid1", "--events", ":x"},
       2,
       R"({"operation":"delete","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"eid1"}},"eventTypes":[{"namespace":"","name":"x"}]}]})"},
  };
  expectSent(sim, kCases, sizeof(kCases) / sizeof(kCases[0]));
}

TEST(OneShot, GlobalFlagsAreFoundAnywhere) {
  Ornsim sim({"--respond", R"(200:{"ok":true})"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  static const SentCase kCases[] = {
      {{"--sync", "devices"}, 1, kDevicesPayload},
      {{"devices", "--sync"}, 1, kDevicesPayload},
      {{"--help", "devices"}, 1, kDevicesPayload},
      {{"-x", "devices"}, 1, kDevicesPayload},
      {{"--timeout", "5", "--connect-timeout", "5", "devices"}, 1, kDevicesPayload},
      {{"--sync", "--timeout", "0", "subscribe", "list"},
       2,
       R"({"operation":"get","subscriptions":[]})"},
  };
  expectSent(sim, kCases, sizeof(kCases) / sizeof(kCases[0]));
}

TEST(OneShot, ResponseIsPrintedRawWhateverItsCode) {
  static const struct {
    const char* respond;
    int code;
    const char* data;
  } kCases[] = {
      {"200:", 200, R"("")"},
      {R"(404:{"error":"no such endpoint"})", 404, R"({"error":"no such endpoint"})"},
      {"500:not json: at all", 500, "not json: at all"},
  };
  for (const auto& c : kCases) {
    Ornsim sim({"--respond", c.respond});
    ASSERT_TRUE(sim.ok()) << sim.error();
    const orntest::RunResult run = runOrncli(sim.socketPath(), {"devices"});
    const std::vector<RecordedRequest> requests = recorded(sim);
    ASSERT_FALSE(requests.empty()) << c.respond;
    EXPECT_EQ(0, run.exitCode) << c.respond;
    EXPECT_EQ("", run.err) << c.respond;
    EXPECT_EQ(responseLine(requests.back().requestId, c.code, c.data), run.out) << c.respond;
  }
}

struct OutputCase {
  std::vector<std::string> args;
  int exitCode;
  std::string out;
  std::string err;
};

void expectOutput(const std::string& socketPath, const std::vector<OutputCase>& cases) {
  for (const OutputCase& c : cases) {
    const orntest::RunResult run = runOrncli(socketPath, c.args);
    EXPECT_EQ(c.exitCode, run.exitCode) << joinArgs(c.args);
    EXPECT_EQ(c.out, run.out) << joinArgs(c.args);
    EXPECT_EQ(c.err, run.err) << joinArgs(c.args);
  }
}

TEST(OneShot, UsageWithoutConnecting) {
  // Nothing listens here: any attempt to connect would end in connection_timeout.
  orntest::TempDir nowhere;
  const std::string socketPath = nowhere.file("none.sock");
  const orntest::RunResult help = runOrncli(socketPath, {"--help"});
  EXPECT_EQ(0, help.exitCode);
  EXPECT_EQ("", help.err);
  const std::string& usage = help.out;
  EXPECT_EQ(0u, usage.find("ORNCLI - Ornwick Command Line Interface\n\nUSAGE:\n"));
  const std::string tail =
      "\n  Subscribe listen:  One JSON object per line on stdout for each event\n"
      "    {\"eventType\":N,\"payload\":\"...\"}\n\n";
  ASSERT_GE(usage.size(), tail.size());
  EXPECT_EQ(tail, usage.substr(usage.size() - tail.size()));
  EXPECT_EQ(std::string::npos, usage.find(" \n")) << "no line has trailing blanks";
  EXPECT_EQ(std::string::npos, usage.find("\n\n\n"));
  EXPECT_NE(std::string::npos,
            usage.find("    {\"error\":\"response_timeout\",\"message\":\"No response received "
                       "within Ns\"}\n"));
  EXPECT_NE(std::string::npos,
            usage.find("  --connect-timeout <sec> QIPC connection + registration timeout, "
                       "default 10\n"));
  expectOutput(socketPath, {
                               {{"--sync"}, 1, usage, ""},
                               {{"--timeout", "5"}, 1, usage, ""},
                               {{"--timeout"}, 1, usage, ""},
                               {{"--sync", "--connect-timeout"}, 1, usage, ""},
                               {{"-x", "--help", "--", "-"}, 1, usage, ""},
                               // "devices" is taken as the timeout's value, and warned about.
                               {{"--timeout", "devices"}, 1, clitest::kStoiWarning + usage, ""},
                           });
}

std::string timedOut(const std::string& seconds) {
  return errorLine("connection_timeout", "QIPC registration timed out after " + seconds + "s");
}

TEST(OneShot, NoServiceTimesOutBeforeTheSubcommandIsRead) {
  orntest::TempDir nowhere;
  expectOutput(nowhere.file("none.sock"),
               {
                   {{"--connect-timeout", "1", "devices"}, 2, "", timedOut("1")},
                   {{"--connect-timeout", "1", "bogus"}, 2, "", timedOut("1")},
                   {{"devices", "--help", "--connect-timeout", "1"}, 2, "", timedOut("1")},
                   {{"--connect-timeout", "1", ""}, 2, "", timedOut("1")},
                   {{"--connect-timeout", "0", "--sync", "power"}, 2, "", timedOut("0")},
                   {{"--connect-timeout", "-3", "state"}, 2, "", timedOut("-3")},
               });
}

TEST(OneShot, UnregisteredClientTimesOut) {
  Ornsim sim({"--no-register"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  expectOutput(sim.socketPath(), {{{"--connect-timeout", "1", "devices"}, 2, "", timedOut("1")}});
  EXPECT_TRUE(sim.recordedRequests().empty());
}

TEST(OneShot, HelpAndArgumentErrorsAfterConnecting) {
  Ornsim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  const std::string powerUsage =
      "Usage: orncli power <turnOn|turnOff|get> [options]\n"
      "  --endpoints <id1,id2>  (turnOn/turnOff)\n"
      "  --endpoint <id>        (get)\n";
  const std::string colorUsage =
      "Usage: orncli color set [options]\n"
      "  --endpoints <id1,id2>\n"
      "  --hue <0-360>\n"
      "  --saturation <0.0-1.0>\n"
      "  --brightness <0.0-1.0>\n";
  const std::string stateUsage =
      "Usage: orncli state <get|report> [options]\n"
      "  get:    --endpoint <id> --feature <name> [--latency HIGH|LOW]\n"
      "  report: --entity <id> --endpoint <id> --friendly-name <name>\n";
  const std::string subscribeUsage =
      "Usage: orncli subscribe <create|delete|list|listen> [options]\n"
      "  create/delete:\n"
      "    --endpoint <entityId>       Endpoint entity ID\n"
      "    --events <ns1:name1,...>     Comma-separated namespace:eventName pairs\n"
      "  list: (no additional options)\n"
      "  listen:\n"
      "    --create <eid:ns:name>      Create subscription and listen (repeatable)\n"
      "    --timeout <seconds>         Listen timeout (required)\n";
  const auto missing = [](const std::string& message) {
    return errorLine("missing_argument", message);
  };
  const auto invalid = [](const std::string& message) {
    return errorLine("invalid_argument", message);
  };
  expectOutput(
      sim.socketPath(),
      {
          {{"bogus"},
           1,
           "",
           errorLine("unknown_command", "Unknown subcommand: bogus. Run orncli --help for usage.")},
          {{""},
           1,
           "",
           errorLine("unknown_command", "Unknown subcommand: . Run orncli --help for usage.")},
          {{"devices", "--help"},
           0,
           "Usage: orncli devices\n  List reachable devices from local cache.\n",
           ""},
          {{"power"}, 1, powerUsage, ""},
          {{"power", "turnOn", "--help"}, 0, powerUsage, ""},
          {{"power", "TurnOn", "--endpoints", "e1"},
           1,
           "",
           invalid("Unknown power action: TurnOn. Use turnOn, turnOff, or get")},
          {{"power", "get", "--endpoints", "e1"},
           1,
           "",
           missing("--endpoint is required for power get")},
          {{"power", "turnOn", "--endpoint", "e1"},
           1,
           "",
           missing("--endpoints is required for power turnOn")},
          {{"power", "turnOff", "--endpoints", ""},
           1,
           "",
           missing("--endpoints is required for power turnOff")},
          {{"brightness"},
           1,
           "Usage: orncli brightness <set|adjust|get> [options]\n"
           "  --endpoints <id1,id2>  (set/adjust)\n"
           "  --endpoint <id>        (get)\n"
           "  --value <0-100>        (set)\n"
           "  --delta <-100 to 100>  (adjust)\n",
           ""},
          {{"brightness", "dim"}, 1, "", invalid("Unknown brightness action: dim")},
          {{"brightness", "get"}, 1, "", missing("--endpoint is required for brightness get")},
          {{"brightness", "set", "--value", "x"},
           1,
           "",
           missing("--endpoints is required for brightness set")},
          {{"brightness", "set", "--endpoints", "e1", "--delta", "5"},
           1,
           "",
           missing("--value is required for brightness set")},
          {{"brightness", "adjust", "--endpoints", "e1", "--value", "5"},
           1,
           "",
           missing("--delta is required for brightness adjust")},
          {{"brightness", "set", "--endpoints", "e1", "--value", "4O"},
           1,
           clitest::kStoiWarning,
           invalid("Invalid brightness value: 4O")},
          {{"brightness", "set", "--endpoints", "e1", "--value", "  "},
           1,
           "",
           invalid("Invalid brightness value:   ")},
          {{"brightness", "adjust", "--endpoints", "e1", "--delta", "-1.5"},
           1,
           clitest::kStoiWarning,
           invalid("Invalid brightness delta: -1.5")},
          {{"color"}, 1, colorUsage, ""},
          {{"color", "set", "--help"}, 0, colorUsage, ""},
          {{"color", "SET"}, 1, "", invalid("Unknown color action: SET. Use set")},
          {{"color", "set", "--brightness", "1"}, 1, "", missing("--endpoints is required")},
          {{"color", "set", "--endpoints", "e1"}, 1, "", missing("--hue is required")},
          {{"color", "set", "--endpoints", "e1", "--hue", "1"},
           1,
           "",
           missing("--saturation is required")},
          {{"color", "set", "--endpoints", "e1", "--hue", "1", "--saturation", "1"},
           1,
           "",
           missing("--brightness is required")},
          {{"colortemp"},
           1,
           "Usage: orncli colortemp set [options]\n  --endpoints <id1,id2>\n  --kelvin "
           "<1000-10000>\n",
           ""},
          {{"colortemp", "get"}, 1, "", invalid("Unknown colortemp action: get. Use set")},
          {{"colortemp", "set", "--kelvin", "3000"}, 1, "", missing("--endpoints is required")},
          {{"colortemp", "set", "--endpoints", "e1", "--kelvin", ""},
           1,
           "",
           missing("--kelvin is required")},
          {{"colortemp", "set", "--endpoints", "e1", "--kelvin", "3500x"},
           1,
           clitest::kStoiWarning,
           invalid("Invalid kelvin value: 3500x")},
          {{"state"}, 1, stateUsage, ""},
          {{"state", "report", "--help"}, 0, stateUsage, ""},
          {{"state", "GET"}, 1, "", invalid("Unknown state action: GET. Use get or report")},
          {{"state", "get"}, 1, "", missing("--endpoint is required for state get")},
          {{"state", "get", "--endpoint", "e1"},
           1,
           "",
           missing("--feature is required for state get")},
          {{"state", "report"}, 1, "", missing("--entity is required for state report")},
          {{"state", "report", "--entity", "a"},
           1,
           "",
           missing("--endpoint is required for state report")},
          {{"state", "report", "--entity", "a", "--endpoint", "b"},
           1,
           "",
           missing("--friendly-name is required for state report")},
          {{"dfi"}, 1, "", missing("--entity is required")},
          {{"dfi", "--help"},
           0,
           "Usage: orncli dfi [options]\n"
           "  --entity <id>       Entity ID (required)\n"
           "  --endpoint <id>     Endpoint ID (required)\n"
           "  --namespace <ns>    DFI namespace (required)\n"
           "  --name <directive>  Directive name (required)\n"
           "  --payload <json>    JSON payload (optional)\n",
           ""},
          {{"dfi", "--entity", "a"}, 1, "", missing("--endpoint is required")},
          {{"dfi", "--entity", "a", "--endpoint", "b"}, 1, "", missing("--namespace is required")},
          {{"dfi", "--entity", "a", "--endpoint", "b", "--namespace", "c"},
           1,
           "",
           missing("--name is required")},
          {{"qfi"}, 1, "", missing("--path is required")},
          {{"qfi", "--help"},
           0,
           "Usage: orncli qfi [options]\n"
           "  --path <path>       QFI path (required)\n"
           "  --method <GET|POST> HTTP method (required)\n"
           "  --body <json>       Request body for POST (optional)\n",
           ""},
          {{"qfi", "--path", "/v2/endpoints"}, 1, "", missing("--method is required")},
          {{"subscribe"}, 1, subscribeUsage, ""},
          {{"subscribe", "list", "--help"}, 0, subscribeUsage, ""},
          {{"subscribe", "Create"}, 1, "", invalid("Unknown subscribe action: Create")},
          {{"subscribe", "create"}, 1, "", missing("--endpoint is required")},
          {{"subscribe", "delete", "--endpoint", "e1"}, 1, "", missing("--events is required")},
          {{"subscribe", "create", "--endpoint", "e1", "--events", "nocolon,,"},
           1,
           "",
           invalid("Invalid --events format. Use ns1:name1,ns2:name2")},
      });
  EXPECT_TRUE(sim.recordedRequests().empty()) << "no case may send a request";
}

TEST(OneShot, MissingResponseIsRequestFailed) {
  Ornsim sim({"--no-response"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  const auto failed = [](const std::string& message) {
    return errorLine("request_failed", message);
  };
  // A zero response timeout gives up as soon as the request is handed over.
  expectOutput(sim.socketPath(),
               {
                   {{"--timeout", "1", "devices"}, 2, "", failed("Failed to send devices request")},
                   {{"--timeout", "0", "power", "get", "--endpoint", "e"},
                    2,
                    "",
                    failed("Failed to send power get request")},
                   {{"--timeout", "0", "power", "turnOff", "--endpoints", "e"},
                    2,
                    "",
                    failed("Failed to send power turnOff request")},
                   {{"--timeout", "0", "brightness", "get", "--endpoint", "e"},
                    2,
                    "",
                    failed("Failed to send brightness get request")},
                   {{"--timeout", "0", "brightness", "adjust", "--endpoints", "e", "--delta", "1"},
                    2,
                    "",
                    failed("Failed to send brightness adjust request")},
                   {{"--timeout", "0", "color", "set", "--endpoints", "e", "--hue", "1",
                     "--saturation", "1", "--brightness", "1"},
                    2,
                    "",
                    failed("Failed to send color set request")},
                   {{"--timeout", "0", "colortemp", "set", "--endpoints", "e", "--kelvin", "2000"},
                    2,
                    "",
                    failed("Failed to send colortemp set request")},
                   {{"--timeout", "0", "state", "get", "--endpoint", "e", "--feature", "power"},
                    2,
                    "",
                    failed("Failed to send state get request")},
                   {{"--timeout", "0", "state", "report", "--entity", "a", "--endpoint", "b",
                     "--friendly-name", "c"},
                    2,
                    "",
                    failed("Failed to send state report request")},
                   {{"--timeout", "0", "dfi", "--entity", "a", "--endpoint", "b", "--namespace",
                     "c", "--name", "d"},
                    2,
                    "",
                    failed("Failed to send DFI request")},
                   {{"--timeout", "0", "qfi", "--path", "/x", "--method", "POST"},
                    2,
                    "",
                    failed("Failed to send QFI request")},
                   {{"--timeout", "0", "subscribe", "list"},
                    2,
                    "",
                    failed("Failed to send subscribe list request")},
                   {{"--timeout", "0", "subscribe", "delete", "--endpoint", "e", "--events", "a:b"},
                    2,
                    "",
                    failed("Failed to send subscribe delete request")},
               });
}

TEST(OneShot, BadTimeoutValuesWarnAndKeepTheDefault) {
  Ornsim sim({"--respond", "200:{}"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  static const std::vector<std::string> kArgs[] = {
      {"--timeout", "abc", "devices"},
      {"--connect-timeout", "1s", "devices"},
  };
  for (const auto& args : kArgs) {
    const orntest::RunResult run = runOrncli(sim.socketPath(), args);
    const std::vector<RecordedRequest> requests = recorded(sim);
    ASSERT_FALSE(requests.empty()) << joinArgs(args);
    EXPECT_EQ(0, run.exitCode) << joinArgs(args);
    EXPECT_EQ(
        std::string(clitest::kStoiWarning) + responseLine(requests.back().requestId, 200, "{}"),
        run.out)
        << joinArgs(args);
  }
}

}  // namespace
