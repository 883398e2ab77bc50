// SPDX-License-Identifier: Apache-2.0
// orncli one-shot mode end to end: each row runs the real binary against a private ornsim and
// compares stdout, stderr, the exit status and the requests that reached the service.
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "CliExpect.h"
#include "OrnTestSupport.h"
#include "WireExpect.h"

namespace {

using clitest::splitArgs;

struct Case {
  const char* args;  // orncli's command line, split by clitest::splitArgs
  const char* sent;  // the requests recorded, one line each (clitest::Sent); nullptr: unchecked
  int exit = 0;
  const char* out = "<OK>";  // stdout; <OK> is the line of the served response
  const char* err = "";      // stderr; a line "key: message" stands for the error line
  const char* sim = "";      // ornsim's options ("": serve {"ok":true}); "none": no ornsim
};

// The error lines orncli writes for "key: message" lines of text.
std::string errorLines(const std::string& text) {
  std::string lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    const size_t colon = line.find(": ");
    lines += line[0] == '{' ? line + "\n"
                            : "{\"error\":\"" + line.substr(0, colon) + "\",\"message\":\"" +
                                  line.substr(colon + 2) + "\"}\n";
  }
  return lines;
}

// The usage text, byte for byte, as `orncli --help` prints it without connecting anywhere.
const std::string& usage() {
  static const std::string text = clitest::golden("usage.txt");
  return text;
}

void run(const std::vector<Case>& cases) {
  orntest::TempDir nowhere;
  std::map<std::string, std::unique_ptr<orntest::Ornsim>> sims;
  for (const Case& c : cases) {
    const bool none = std::string(c.sim) == "none";
    std::unique_ptr<orntest::Ornsim>& sim = sims[none ? "" : c.sim];
    if (!sim) {
      sim = std::make_unique<orntest::Ornsim>(
          splitArgs(*c.sim && !none ? c.sim : R"(--respond 200:{"ok":true})"));
      ASSERT_TRUE(sim->ok()) << sim->error();
    }
    const size_t before = clitest::sent(*sim).size();
    const orntest::RunResult r =
        orntest::runOrncli(none ? nowhere.file("none.sock") : sim->socketPath(), splitArgs(c.args));
    const std::vector<clitest::Sent> requests = clitest::sent(*sim);
    std::string sent, id;
    for (size_t i = before; i < requests.size(); ++i) {
      EXPECT_EQ("ORNCLI-cmd", requests[i].client) << c.args;
      EXPECT_NE("", requests[i].id) << c.args;
      sent += (i > before ? "\n" : "") + requests[i].line;
      id = requests[i].id;
    }
    const std::string out = clitest::expand(
        c.out,
        {{"<OK>", "{\"requestId\":\"<ID>\",\"responseCode\":200,\"responseData\":{\"ok\":true}}\n"},
         {"<ID>", id},
         {"<WARN>", clitest::kWarning},
         {"<USAGE>", usage()}});
    EXPECT_EQ(c.exit, r.exitCode) << c.args;
    EXPECT_EQ(out, r.out) << c.args << ": stdout differs at "
                          << clitest::firstDifference(out, r.out);
    EXPECT_EQ(errorLines(c.err), r.err) << c.args;
    if (c.sent) {
      EXPECT_EQ(c.sent, sent) << c.args;
    }
  }
}

// clang-format off
TEST(OneShot, UsageAndConnection) {
  // Every byte of the usage text is fixed: golden/usage.txt holds them all.
  ASSERT_EQ(0u, usage().find("ORNCLI - Ornwick Command Line Interface\n\nUSAGE:\n"))
      << "golden/usage.txt is missing or not the usage text";
  const char* timedOut = "connection_timeout: QIPC registration timed out after 1s";
  run({
      {"--help", "", 0, "<USAGE>", "", "none"},
      {"--sync", "", 1, "<USAGE>", "", "none"},
      {"--timeout 5", "", 1, "<USAGE>", "", "none"},
      {"--timeout", "", 1, "<USAGE>", "", "none"},
      {"--sync --connect-timeout", "", 1, "<USAGE>", "", "none"},
      {"-x --help -- -", "", 1, "<USAGE>", "", "none"},
      // "devices" is taken as the timeout's value, and warned about.
      {"--timeout devices", "", 1, "<WARN><USAGE>", "", "none"},
      // The connection comes first, even for a typo or a request for help.
      {"--connect-timeout 1 devices", "", 2, "", timedOut, "none"},
      {"--connect-timeout 1 bogus", "", 2, "", timedOut, "none"},
      {"devices --help --connect-timeout 1", "", 2, "", timedOut, "none"},
      {"--connect-timeout 1 ''", "", 2, "", timedOut, "none"},
      {"--connect-timeout 0 --sync power", "", 2, "", "connection_timeout: QIPC registration timed out after 0s", "none"},
      {"--connect-timeout -3 state", "", 2, "", "connection_timeout: QIPC registration timed out after -3s", "none"},
      {"--connect-timeout 1 devices", "", 2, "", timedOut, "--no-register"},
      {"bogus", "", 1, "", "unknown_command: Unknown subcommand: bogus. Run orncli --help for usage."},
      {"''", "", 1, "", "unknown_command: Unknown subcommand: . Run orncli --help for usage."},
  });
}

TEST(OneShot, DevicesPowerAndBrightness) {
  const char* query = R"(1 {"qfi":{"path":"/v2/endpoints?filterExpression=features[name:connectivity].properties[name:reachability].value.value=OK","method":"GET"},"dfi":[]})";
  const std::string async = std::string("A") + query, sync = std::string("S") + query;
  const char* powerHelp = "Usage: orncli power <turnOn|turnOff|get> [options]\n  --endpoints <id1,id2>  (turnOn/turnOff)\n  --endpoint <id>        (get)\n";
  run({
      {"devices", async.c_str()},
      // Global flags are found anywhere; other dashed words before the subcommand are skipped.
      {"--sync devices", sync.c_str()},
      {"devices --sync", sync.c_str()},
      {"--help devices", async.c_str()},
      {"-x devices extra args", async.c_str()},
      {"--timeout 5 --connect-timeout 5 devices", async.c_str()},
      // Bad timeouts warn and keep the default.
      {"--timeout abc --connect-timeout 1s devices", async.c_str(), 0, "<WARN><WARN><OK>"},
      {"devices --help", "", 0, "Usage: orncli devices\n  List reachable devices from local cache.\n"},
      // The response is printed raw whatever its code; empty data is "".
      {"devices", async.c_str(), 0, "{\"requestId\":\"<ID>\",\"responseCode\":200,\"responseData\":\"\"}\n", "", "--respond 200:"},
      {"devices", async.c_str(), 0, R"({"requestId":"<ID>","responseCode":404,"responseData":{"error":"no such endpoint"}})" "\n", "", R"(--respond '404:{"error":"no such endpoint"}')"},
      {"devices", async.c_str(), 0, R"({"requestId":"<ID>","responseCode":500,"responseData":not json: at all})" "\n", "", "--respond '500:not json: at all'"},
      {"--timeout 1 devices", nullptr, 2, "", "request_failed: Failed to send devices request", "--no-response"},
      {"power turnOn --endpoints e1,e2", R"(A1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOn/","method":"POST","requestBody":{"batch":[{"endpointId":"e1"},{"endpointId":"e2"}],"directivePayload":{}}},"dfi":[]})"},
      {"power turnOff --endpoints ,a,,b,", R"(A1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOff/","method":"POST","requestBody":{"batch":[{"endpointId":""},{"endpointId":"a"},{"endpointId":""},{"endpointId":"b"}],"directivePayload":{}}},"dfi":[]})"},
      {"power get --endpoint e1 --endpoints x,y --endpoint e2", R"(A1 {"qfi":{"path":"/v2/endpoints/e1/features/power/","method":"GET"},"dfi":[]})"},
      {"power", "", 1, powerHelp},
      {"power --help", "", 0, powerHelp},
      {"power TurnOn --endpoints e1", "", 1, "", "invalid_argument: Unknown power action: TurnOn. Use turnOn, turnOff, or get"},
      {"power get --endpoints e1", "", 1, "", "missing_argument: --endpoint is required for power get"},
      {"power turnOn", "", 1, "", "missing_argument: --endpoints is required for power turnOn"},
      {"power turnOff --endpoints ''", "", 1, "", "missing_argument: --endpoints is required for power turnOff"},
      // A zero response timeout gives up as soon as the request is handed over.
      {"--timeout 0 power get --endpoint e", nullptr, 2, "", "request_failed: Failed to send power get request", "--no-response"},
      {"--timeout 0 power turnOff --endpoints e", nullptr, 2, "", "request_failed: Failed to send power turnOff request", "--no-response"},
      // Trimmed; the range is advice only, and numbers saturate at 32 bits.
      {"brightness set --endpoints e1,e2 --value ' 99999999999 '", R"(A1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/brightness/setBrightness/","method":"POST","requestBody":{"batch":[{"endpointId":"e1"},{"endpointId":"e2"}],"directivePayload":{"brightness":2147483647}}},"dfi":[]})"},
      {"brightness adjust --value oops --endpoints e1 --delta -99999999999", R"(A1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/brightness/adjustBrightness/","method":"POST","requestBody":{"batch":[{"endpointId":"e1"}],"directivePayload":{"brightnessDelta":-2147483648}}},"dfi":[]})"},
      {"brightness get --endpoint e9", R"(A1 {"qfi":{"path":"/v2/endpoints/e9/features/brightness/","method":"GET"},"dfi":[]})"},
      {"brightness", "", 1, "Usage: orncli brightness <set|adjust|get> [options]\n  --endpoints <id1,id2>  (set/adjust)\n  --endpoint <id>        (get)\n  --value <0-100>        (set)\n  --delta <-100 to 100>  (adjust)\n"},
      {"brightness dim", "", 1, "", "invalid_argument: Unknown brightness action: dim"},
      {"brightness get", "", 1, "", "missing_argument: --endpoint is required for brightness get"},
      {"brightness set --value x", "", 1, "", "missing_argument: --endpoints is required for brightness set"},
      {"brightness set --endpoints e1 --delta 5", "", 1, "", "missing_argument: --value is required for brightness set"},
      {"brightness adjust --endpoints e1 --value 5", "", 1, "", "missing_argument: --delta is required for brightness adjust"},
      {"brightness set --endpoints e1 --value 4O", "", 1, "<WARN>", "invalid_argument: Invalid brightness value: 4O"},
      {"brightness set --endpoints e1 --value '  '", "", 1, "", "invalid_argument: Invalid brightness value:   "},
      {"brightness adjust --endpoints e1 --delta -1.5", "", 1, "<WARN>", "invalid_argument: Invalid brightness delta: -1.5"},
      {"--timeout 0 brightness get --endpoint e", nullptr, 2, "", "request_failed: Failed to send brightness get request", "--no-response"},
      {"--timeout 0 brightness adjust --endpoints e --delta 1", nullptr, 2, "", "request_failed: Failed to send brightness adjust request", "--no-response"},
  });
}

TEST(OneShot, ColorStateDfiAndQfi) {
  const char* colorHelp = "Usage: orncli color set [options]\n  --endpoints <id1,id2>\n  --hue <0-360>\n  --saturation <0.0-1.0>\n  --brightness <0.0-1.0>\n";
  const char* stateHelp = "Usage: orncli state <get|report> [options]\n  get:    --endpoint <id> --feature <name> [--latency HIGH|LOW]\n  report: --entity <id> --endpoint <id> --friendly-name <name>\n";
  const std::string deep = "dfi --entity e --endpoint p --namespace n --name x --payload " + std::string(65000, '[') + std::string(65000, ']');
  run({
      {"color set --endpoints id1,id2 --hue 120 --saturation 0.5 --brightness 0.8", R"(A1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/color/setColor/","method":"POST","requestBody":{"batch":[{"endpointId":"id1"},{"endpointId":"id2"}],"directivePayload":{"color":{"hue":120.0,"saturation":0.5,"brightness":0.8}}}},"dfi":[]})"},
      // Lenient on purpose: junk reads as 0.0, trailing junk is ignored, ranges are advice.
      {"color set --endpoints id1 --hue abc --saturation 2x --brightness -1", R"(A1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/color/setColor/","method":"POST","requestBody":{"batch":[{"endpointId":"id1"}],"directivePayload":{"color":{"hue":0.0,"saturation":2.0,"brightness":-1.0}}}},"dfi":[]})"},
      // A non-finite value cannot be written, so the body is dropped.
      {"color set --endpoints id1 --hue nan --saturation 1 --brightness 1", R"(A1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/color/setColor/","method":"POST"},"dfi":[]})"},
      {"color", "", 1, colorHelp},
      {"color set --help", "", 0, colorHelp},
      {"color SET", "", 1, "", "invalid_argument: Unknown color action: SET. Use set"},
      {"color set --brightness 1", "", 1, "", "missing_argument: --endpoints is required"},
      {"color set --endpoints e1", "", 1, "", "missing_argument: --hue is required"},
      {"color set --endpoints e1 --hue 1", "", 1, "", "missing_argument: --saturation is required"},
      {"color set --endpoints e1 --hue 1 --saturation 1", "", 1, "", "missing_argument: --brightness is required"},
      {"--timeout 0 color set --endpoints e --hue 1 --saturation 1 --brightness 1", nullptr, 2, "", "request_failed: Failed to send color set request", "--no-response"},
      {"colortemp set --endpoints id1,id2 --kelvin -50", R"(A1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/colorTemperature/setColorTemperature/","method":"POST","requestBody":{"batch":[{"endpointId":"id1"},{"endpointId":"id2"}],"directivePayload":{"colorTemperatureInKelvin":-50}}},"dfi":[]})"},
      {"colortemp", "", 1, "Usage: orncli colortemp set [options]\n  --endpoints <id1,id2>\n  --kelvin <1000-10000>\n"},
      {"colortemp --help", "", 0, "Usage: orncli colortemp set [options]\n  --endpoints <id1,id2>\n  --kelvin <1000-10000>\n"},
      {"colortemp get", "", 1, "", "invalid_argument: Unknown colortemp action: get. Use set"},
      {"colortemp set --kelvin 3000", "", 1, "", "missing_argument: --endpoints is required"},
      {"colortemp set --endpoints e1 --kelvin ''", "", 1, "", "missing_argument: --kelvin is required"},
      {"colortemp set --endpoints e1 --kelvin 3500x", "", 1, "<WARN>", "invalid_argument: Invalid kelvin value: 3500x"},
      {"--timeout 0 colortemp set --endpoints e --kelvin 2000", nullptr, 2, "", "request_failed: Failed to send colortemp set request", "--no-response"},
      {"state get --endpoint id1 --feature power", R"(A3 {"qfi":{"path":"/v2/endpoints/id1/features/power/","method":"GET"},"dfi":[]})"},
      {"state get --endpoint id1 --feature brightness --latency medium", R"(A3 {"qfi":{"path":"/v2/endpoints/id1/features/brightness/","method":"GET","requestBody":{"latencyTolerance":"medium"}},"dfi":[]})"},
      {"state report --entity eid1 --endpoint epid1 --friendly-name 'My Light'", R"(A3 {"dfi":[{"header":{"namespace":"Corva","name":"ReportState","payloadVersion":"3"},"endpoint":{"entityId":"eid1","endpointId":"epid1","friendlyName":"My Light"},"payload":{}}]})"},
      {"state", "", 1, stateHelp},
      {"state --help", "", 0, stateHelp},
      {"state GET", "", 1, "", "invalid_argument: Unknown state action: GET. Use get or report"},
      {"state get", "", 1, "", "missing_argument: --endpoint is required for state get"},
      {"state get --endpoint e1", "", 1, "", "missing_argument: --feature is required for state get"},
      {"state report", "", 1, "", "missing_argument: --entity is required for state report"},
      {"state report --entity a", "", 1, "", "missing_argument: --endpoint is required for state report"},
      {"state report --entity a --endpoint b", "", 1, "", "missing_argument: --friendly-name is required for state report"},
      {"--timeout 0 state get --endpoint e --feature power", nullptr, 2, "", "request_failed: Failed to send state get request", "--no-response"},
      {"--timeout 0 state report --entity a --endpoint b --friendly-name c", nullptr, 2, "", "request_failed: Failed to send state report request", "--no-response"},
      {"dfi --entity eid1 --endpoint epid1 --namespace Corva.PowerController --name TurnOn", R"(A1 {"dfi":[{"header":{"namespace":"Corva.PowerController","name":"TurnOn","payloadVersion":"3.0"},"endpoint":{"entityId":"eid1","endpointId":"epid1","friendlyName":""},"payload":{}}]})"},
      {R"(dfi --entity e --endpoint p --namespace Corva.BrightnessController --name SetBrightness --payload {"brightness":[1,2]})", R"(A1 {"dfi":[{"header":{"namespace":"Corva.BrightnessController","name":"SetBrightness","payloadVersion":"3.0"},"endpoint":{"entityId":"e","endpointId":"p","friendlyName":""},"payload":{"brightness":[1,2]}}]})"},
      // Not validated on purpose: the unparseable directive goes out as null.
      {"dfi --entity e --endpoint p --namespace n --name x --payload {bad", R"(A1 {"dfi":[null]})"},
      {deep.c_str(), R"(A1 {"dfi":[null]})"},
      {"dfi", "", 1, "", "missing_argument: --entity is required"},
      {"dfi --help", "", 0, "Usage: orncli dfi [options]\n  --entity <id>       Entity ID (required)\n  --endpoint <id>     Endpoint ID (required)\n  --namespace <ns>    DFI namespace (required)\n  --name <directive>  Directive name (required)\n  --payload <json>    JSON payload (optional)\n"},
      {"dfi --entity a", "", 1, "", "missing_argument: --endpoint is required"},
      {"dfi --entity a --endpoint b", "", 1, "", "missing_argument: --namespace is required"},
      {"dfi --entity a --endpoint b --namespace c", "", 1, "", "missing_argument: --name is required"},
      {"--timeout 0 dfi --entity a --endpoint b --namespace c --name d", nullptr, 2, "", "request_failed: Failed to send DFI request", "--no-response"},
      {"qfi --path /v2/endpoints/id1/features/power/ --method GET", R"(A1 {"qfi":{"path":"/v2/endpoints/id1/features/power/","method":"GET","requestBody":{}},"dfi":[]})"},
      {R"(qfi --path /v2/endpoints --method get --body {"a":[true]})", R"(A1 {"qfi":{"path":"/v2/endpoints","method":"UNKNOWN","requestBody":{"a":[true]}},"dfi":[]})"},
      {"qfi", "", 1, "", "missing_argument: --path is required"},
      {"qfi --help", "", 0, "Usage: orncli qfi [options]\n  --path <path>       QFI path (required)\n  --method <GET|POST> HTTP method (required)\n  --body <json>       Request body for POST (optional)\n"},
      {"qfi --path /v2/endpoints", "", 1, "", "missing_argument: --method is required"},
      {"--timeout 0 qfi --path /x --method POST", nullptr, 2, "", "request_failed: Failed to send QFI request", "--no-response"},
  });
}

TEST(OneShot, SubscribeAndListen) {
  const char* help = "Usage: orncli subscribe <create|delete|list|listen> [options]\n  create/delete:\n    --endpoint <entityId>       Endpoint entity ID\n    --events <ns1:name1,...>     Comma-separated namespace:eventName pairs\n  list: (no additional options)\n  listen:\n    --create <eid:ns:name>      Create subscription and listen (repeatable)\n    --timeout <seconds>         Listen timeout (required)\n";
  run({
      {"subscribe list", R"(A2 {"operation":"get","subscriptions":[]})"},
      {"--sync --timeout 0 subscribe list", R"(S2 {"operation":"get","subscriptions":[]})"},
      {"subscribe create --endpoint eid1 --events Corva.Endpoint.Feature.Power:Property.PowerState.Change,bad,ns:a:b", R"(A2 {"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"eid1"}},"eventTypes":[{"namespace":"Corva.Endpoint.Feature.Power","name":"Property.PowerState.Change"},{"namespace":"ns","name":"a:b"}]}]})"},
      {"subscribe delete --endpoint eid1 --events :x", R"(A2 {"operation":"delete","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"eid1"}},"eventTypes":[{"namespace":"","name":"x"}]}]})"},
      {"subscribe", "", 1, help},
      {"subscribe --help", "", 0, help},
      {"subscribe Create", "", 1, "", "invalid_argument: Unknown subscribe action: Create"},
      {"subscribe create", "", 1, "", "missing_argument: --endpoint is required"},
      {"subscribe delete --endpoint e1", "", 1, "", "missing_argument: --events is required"},
      {"subscribe create --endpoint e1 --events nocolon,,", "", 1, "", "invalid_argument: Invalid --events format. Use ns1:name1,ns2:name2"},
      {"--timeout 0 subscribe list", nullptr, 2, "", "request_failed: Failed to send subscribe list request", "--no-response"},
      {"--timeout 0 subscribe delete --endpoint e --events a:b", nullptr, 2, "", "request_failed: Failed to send subscribe delete request", "--no-response"},
      // A zero or negative listening time ends after the confirmations; --sync because the
      // listening time is also the response timeout.
      {"--sync subscribe listen --create e1:ns:a:b --timeout 0", R"(S2 {"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"e1"}},"eventTypes":[{"namespace":"ns","name":"a:b"}]}]})", 0, "", "{\"subscription_created\":\"e1\",\"responseCode\":200}"},
      {"--sync subscribe listen --timeout -5 --create e1:n1:x --create e2:n2:y", R"(S2 {"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"e1"}},"eventTypes":[{"namespace":"n1","name":"x"}]}]})" "\n" R"(S2 {"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"e2"}},"eventTypes":[{"namespace":"n2","name":"y"}]}]})", 0, "", "{\"subscription_created\":\"e1\",\"responseCode\":200}\n{\"subscription_created\":\"e2\",\"responseCode\":200}"},
      // The first subscription stays when a later value is malformed.
      {"subscribe listen --create e1:ns:n --create bad --timeout 2", R"(A2 {"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"e1"}},"eventTypes":[{"namespace":"ns","name":"n"}]}]})", 1, "", "{\"subscription_created\":\"e1\",\"responseCode\":200}\ninvalid_argument: Invalid --create format: bad. Use entityId:namespace:eventName"},
      {"subscribe listen --timeout 5 --create", "", 1, "", "missing_argument: --create is required for subscribe listen"},
      {"subscribe listen --create e:n:x", "", 1, "", "missing_argument: --timeout is required for subscribe listen"},
      {"subscribe listen --create e:n:x --timeout", "", 1, "", "missing_argument: --timeout is required for subscribe listen"},
      // Read once as the response timeout and once as the listening time.
      {"subscribe listen --create e:n:x --timeout abc", "", 1, "<WARN><WARN>", "invalid_argument: Invalid timeout value: abc"},
      {"subscribe listen --create e::n --timeout 1", "", 1, "", "invalid_argument: Invalid --create format: e::n. Use entityId:namespace:eventName"},
      {"subscribe listen --create e:ns --timeout 1", "", 1, "", "invalid_argument: Invalid --create format: e:ns. Use entityId:namespace:eventName"},
      {"subscribe listen --create :ns:n --timeout 1", "", 1, "", "invalid_argument: Invalid --create format: :ns:n. Use entityId:namespace:eventName"},
      {"subscribe listen --create e:ns: --timeout 1", "", 1, "", "invalid_argument: Invalid --create format: e:ns:. Use entityId:namespace:eventName"},
      // The value after a --create is never skipped, so the second one is read as a value.
      {"subscribe listen --create --create e:n:x --timeout 1", "", 1, "", "invalid_argument: Invalid --create format: --create. Use entityId:namespace:eventName"},
      // The listening time also bounds each confirmation: 0 s is too short here.
      {"subscribe listen --create e:ns:n --create f:ns:n --timeout 0", nullptr, 2, "", "request_failed: Failed to create subscription for e:ns:n", "--response-delay-ms 1000"},
  });
}

// clang-format on

// Sends events to orncli's connections through ornsim's /sim/events, on a connection of its
// own, so a test sends each event once orncli has shown what it waits for.
class Injector {
 public:
  explicit Injector(const orntest::Ornsim& sim) : fd_(wiretest::rawConnect(sim.socketPath())) {
    ok_ = fd_ >= 0 && wiretest::sendAll(fd_, wiretest::frame(R"({"kind":"register",)"
                                                             R"("clientName":"injector",)"
                                                             R"("connectorType":1})"));
  }
  ~Injector() { close(fd_); }
  // Event `type` with `members` after its type; true once ornsim has answered, which it does
  // after sending the event.
  bool send(int type, const std::string& members = "") {
    std::string body = R"({"qfi":{"path":"/sim/events","method":"POST","requestBody":{"client":)"
                       R"("ORNCLI-cmd","eventType":)" +
                       std::to_string(type) + members + "}}}";
    for (size_t at = 0; (at = body.find('"', at)) != std::string::npos; at += 2)
      body.insert(at, 1, '\\');
    const std::string id = "inject" + std::to_string(++sent_);
    return ok_ && wiretest::sendAll(fd_, wiretest::ask(id, body)) && wiretest::answered(fd_, id);
  }

 private:
  int fd_;
  bool ok_ = false;
  int sent_ = 0;
};

// Only state changes (21) are printed, raw; each event is taken before the next replaces it.
TEST(OneShot, ListenPrintsOnlyStateChanges) {
  orntest::Ornsim sim(splitArgs("--respond 201:{}"));
  ASSERT_TRUE(sim.ok()) << sim.error();
  Injector events(sim);
  orntest::LiveProcess listener(orntest::orncliPath(),
                                splitArgs("subscribe listen --create eid1:ns:n --timeout 3"),
                                orntest::clientEnv(sim.socketPath()));
  const std::string first = "{\"eventType\":21,\"payload\":{\"a\":1}}\n",
                    second = "{\"eventType\":21,\"payload\":\"\"}\n";
  ASSERT_TRUE(listener.waitForErr("subscription_created"));
  ASSERT_TRUE(events.send(21, R"(,"payload":{"a":1})"));
  ASSERT_TRUE(listener.waitForOut(first));
  ASSERT_TRUE(events.send(22, R"(,"payload":{"b":2})") && events.send(21));
  ASSERT_TRUE(listener.waitForOut(second));
  ASSERT_TRUE(events.send(23, R"(,"payload":{})"));
  const orntest::RunResult r = listener.finish();
  EXPECT_EQ(0, r.exitCode);
  EXPECT_EQ(first + second, r.out);
  EXPECT_EQ("{\"subscription_created\":\"eid1\",\"responseCode\":201}\n", r.err);
  std::string sent;
  for (const clitest::Sent& request : clitest::sent(sim))
    sent += request.client == "ORNCLI-cmd" ? request.line : "";
  EXPECT_EQ(
      R"(A2 {"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"eid1"}},"eventTypes":[{"namespace":"ns","name":"n"}]}]})",
      sent);
}

TEST(OneShot, ListenEndsByBrokenPipeWhenItsReaderGoes) {
  orntest::Ornsim sim(splitArgs("--respond 201:{}"));
  ASSERT_TRUE(sim.ok()) << sim.error();
  Injector events(sim);
  // head's side of the pipe says when no one holds its reading end any more.
  const char* script =
      "{ \"$1\" subscribe listen --create e:ns:n --timeout 5; echo \"status $?\" >&2; } |"
      " { head -n 1; exec <&-; echo 'head left' >&2; }";
  orntest::LiveProcess sh("/bin/sh", {"-c", script, "sh", orntest::orncliPath()},
                          orntest::clientEnv(sim.socketPath()));
  ASSERT_TRUE(sh.waitForErr("subscription_created"));
  ASSERT_TRUE(events.send(21, R"(,"payload":{})"));
  ASSERT_TRUE(sh.waitForErr("head left"));
  ASSERT_TRUE(events.send(21, R"(,"payload":{})"));
  const orntest::RunResult r = sh.finish();
  EXPECT_EQ("{\"eventType\":21,\"payload\":{}}\n", r.out);
  // The default disposition of SIGPIPE ends the listener (128 + 13), as with any tool.
  EXPECT_EQ("{\"subscription_created\":\"e\",\"responseCode\":201}\nhead left\nstatus 141\n",
            r.err);
}

}  // namespace
