#include "RequestHandler.h"

#include <gtest/gtest.h>

#include <string>

#include "Control.h"
#include "Simulation.h"

namespace ornsim {
namespace {

std::string qfi(const std::string& path, const std::string& method, const std::string& body = "") {
  std::string q = R"({"qfi":{"path":")" + path + R"(","method":")" + method + "\"";
  if (!body.empty())
    q += R"(,"requestBody":)" + body;
  return q + R"(},"dfi":[]})";
}

std::string dfi(const std::string& ns, const std::string& name, const std::string& endpoint,
                const std::string& payload = "") {
  std::string d = R"({"dfi":[{"header":{"namespace":")" + ns + R"(","name":")" + name +
                  R"(","payloadVersion":"3.0"},"endpoint":{"entityId":"","endpointId":")" +
                  endpoint + R"(","friendlyName":""})";
  if (!payload.empty())
    d += R"(,"payload":)" + payload;
  return d + "}]}";
}

std::string repeat(const std::string& piece, size_t n) {
  std::string text;
  while (n-- > 0)
    text += piece;
  return text;
}

const char kReachable[] =
    "/v2/"
    "endpoints?filterExpression=features[name:connectivity].properties[name:"
    "reachability]"
    ".value.value=OK";

TEST(RequestHandler, AnswersEachRequestWithItsCodeAndData) {
  static const struct {
    int type;
    std::string payload;
    int code;
    const char* dataHas;    // a piece the response data must contain
    const char* dataLacks;  // a piece it must not contain ("" for none)
  } kCases[] = {
      // Device list, filters and methods.
      {1, qfi("/v2/endpoints", "GET"), 200,
       R"({"id":"plug-kettle","externallyReportedId":"ep-kettle","friendlyName":"Kettle Plug","capabilities":{"interfaces":["Corva.PowerController"]}})",
       ""},
      {1, qfi(kReachable, "GET"), 200, "\"externallyReportedId\":\"ep-kitchen\"", "light-garage"},
      {1, qfi("/v2/endpoints?filterExpression=name=x", "GET"), 400, "invalid_filter", ""},
      {1, qfi("/v2/endpoints?limit=3", "GET"), 400, "invalid_query", ""},
      {1, qfi("/v2/endpoints", "POST"), 405, "method_not_allowed", ""},
      // Feature state: entity or endpoint id, with or without "/", optional
      // body.
      {3, qfi("/v2/endpoints/light-kitchen/features/power/", "GET"), 200, "\"value\":\"ON\"", ""},
      {3, qfi("/v2/endpoints/ep-living/features/brightness", "GET"), 200, "\"value\":50", ""},
      {3,
       qfi("/v2/endpoints/ep-living/features/colorTemperature", "GET",
           R"({"latencyTolerance":"medium"})"),
       200, "\"value\":4000", ""},
      {3, qfi("/v2/endpoints/light-garage/features/connectivity", "GET"), 200, "UNREACHABLE", ""},
      {3, qfi("/v2/endpoints/plug-kettle/features/brightness", "GET"), 404, "unknown_feature", ""},
      {3, qfi("/v2/endpoints/nobody/features/power", "GET"), 404, "unknown_endpoint", ""},
      {3, qfi("/v2/endpoints/ep-living/features/power", "UNKNOWN"), 405, "method_not_allowed", ""},
      {1, qfi("/v2/endpoints/ep-living/features", "GET"), 404, "unknown_path", ""},
      // Batch directives.
      {1,
       qfi("/v2/endpoints/batch/interfaces/power/turnOn/", "POST",
           R"({"batch":[{"endpointId":"ep-bedroom"},{"endpointId":"ghost"}],"directivePayload":{}})"),
       200, R"({"endpointId":"ghost","responseCode":404)", ""},
      {1,
       qfi("/v2/endpoints/batch/interfaces/brightness/setBrightness", "POST",
           R"({"groupId":"group-lights","directivePayload":{"brightness":40}})"),
       200, R"({"endpointId":"light-garage","responseCode":503)", ""},
      {1,
       qfi("/v2/endpoints/batch/interfaces/brightness/setBrightness", "POST",
           R"({"groupId":"group-downstairs","directivePayload":{"brightness":40}})"),
       200, R"({"endpointId":"plug-kettle","responseCode":400)", ""},
      {1,
       qfi("/v2/endpoints/batch/interfaces/brightness/setBrightness", "POST",
           R"({"batch":[{"endpointId":"ep-bedroom"}],"directivePayload":{}})"),
       400, "invalid_payload", ""},
      {1,
       qfi("/v2/endpoints/batch/interfaces/power/turnOn", "POST",
           R"({"groupId":"group-nowhere","directivePayload":{}})"),
       404, "unknown_group", ""},
      {1, qfi("/v2/endpoints/batch/interfaces/power/turnOn", "POST", R"({"directivePayload":{}})"),
       400, "invalid_body", ""},
      {1, qfi("/v2/endpoints/batch/interfaces/power/toggle", "POST", R"({"batch":[]})"), 404,
       "unknown_directive", ""},
      {1, qfi("/v2/endpoints/batch/interfaces/power/turnOn", "GET"), 405, "method_not_allowed", ""},
      // DFI directives.
      {1, dfi("Corva.PowerController", "TurnOn", "ep-bedroom"), 200, "SUCCESS", ""},
      {1, dfi("Corva.BrightnessController", "SetBrightness", "ep-kettle", R"({"brightness":1})"),
       400, "unsupported_interface", ""},
      {1, dfi("Corva.BrightnessController", "Dim", "ep-kitchen"), 400, "unknown_directive", ""},
      {1, dfi("Corva.Teleporter", "Go", "ep-kitchen"), 400, "unknown_namespace", ""},
      {1, dfi("Corva.ColorController", "SetColor", "ep-kitchen", R"({"color":{"hue":1}})"), 400,
       "invalid_payload", ""},
      {1, dfi("Corva.PowerController", "TurnOn", "ghost"), 404, "unknown_endpoint", ""},
      {1, dfi("Tessel.DeviceManager", "GetDevices", ""), 200, "\"id\":\"strip-desk\"", ""},
      {3, dfi("Corva", "ReportState", "ep-desk"), 200, "\"name\":\"StateReport\"", ""},
      {1, R"({"dfi":[null]})", 400, "invalid_dfi", ""},
      {1, R"({"dfi":[{"endpoint":{}}]})", 400, "invalid_dfi", ""},
      // Several operations answer together.
      {3,
       R"({"qfi":{"path":"/v2/endpoints/ep-desk/features/power","method":"GET"},"dfi":[)" +
           dfi("Corva", "ReportState", "ep-desk").substr(8),
       200, R"({"results":[{"responseCode":200,"responseData":{"entityId":"strip-desk")", ""},
      {1, R"({"dfi":[null,)" + dfi("Corva", "ReportState", "ep-desk").substr(8), 207,
       R"("responseCode":400)", ""},
      // Malformed requests.
      {1, "{bad", 400, "invalid_json", ""},
      {1, "[1]", 400, "invalid_json", ""},
      {1, R"({"dfi":[]})", 400, "empty_request", ""},
      {1, R"({"qfi":"x","dfi":[]})", 400, "invalid_qfi", ""},
      {9, qfi("/v2/endpoints", "GET"), 400, "unknown_request_type", ""},
      // Nested past the depth bound: invalid JSON, whatever the type.
      {1, std::string(400000, '['), 400, "\"Nesting deeper than 256 levels. at offset 257\"", ""},
      {3, repeat("{\"a\":", 400000), 400, "invalid_json", ""},
      {9, std::string(400000, '['), 400, "unknown_request_type", ""},
      // The simulator's own paths.
      {1, qfi("/sim/groups/", "GET"), 200, R"({"groups":[{"id":"group-downstairs","members":[")",
       ""},
      {1, qfi("/sim/groups", "POST"), 405, "method_not_allowed", ""},
      {1, qfi("/sim/endpoints/ep-kitchen/x", "POST"), 404, "unknown_path", ""},
      {1, qfi("/sim/endpoints/ghost", "POST", R"({"reachable":true})"), 404, "unknown_endpoint",
       ""},
      {1, qfi("/sim/endpoints/ep-kitchen", "POST", R"({"reachble":true})"), 400, "invalid_body",
       ""},
      {1, qfi("/sim/endpoints/ep-kitchen", "POST", R"({"state":{"power":1}})"), 400, "invalid_body",
       ""},
      {1, qfi("/sim/endpoints/ep-kettle", "POST", R"({"state":{"brightness":1}})"), 400,
       "unsupported_interface", ""},
      {1, qfi("/sim/endpoints/ep-garage", "POST", R"({"state":{"power":true}})"), 503,
       "endpoint_unreachable", ""},
      {1, qfi("/sim/endpoints/ep-garage", "POST", R"({"reachable":true,"state":{"power":true}})"),
       200, "SUCCESS", ""},
      {1, qfi("/sim/endpoints", "POST", R"({"id":"x","externallyReportedId":"ep-desk"})"), 409,
       "device_exists", ""},
      {1, qfi("/sim/endpoints", "POST", R"({"id":"x","interfaces":["Corva.Power"]})"), 400,
       "unknown interface", ""},
      {1, qfi("/sim/endpoints/light-kitchen/remove", "POST"), 200, "SUCCESS", ""},
      {1, qfi("/sim/events", "POST", R"({"eventType":"21"})"), 400, "invalid_body", ""},
      {1, qfi("/sim/events", "POST", R"({"eventType":21,"payload":{"a":1}})"), 200, R"({"sent":0})",
       ""},
      {1, qfi("/sim/faults", "POST", R"({"fault":"next:2,silence"})"), 200,
       R"({"requests":0,"faults":["request:2,silence"]})", ""},
      {1, qfi("/sim/faults", "POST", R"({"fault":"request:2"})"), 400, "invalid_body", ""},
  };
  for (const auto& c : kCases) {
    Home home = builtinHome();
    Subscriptions subs;
    Control control(subs);
    HandlerResult r = handleRequest(home, subs, "client", c.type, c.payload, &control);
    const std::string row = c.payload.substr(0, 200);
    EXPECT_EQ(r.code, c.code) << row << "\n" << r.data;
    EXPECT_NE(r.data.find(c.dataHas), std::string::npos) << row << "\n" << r.data;
    if (*c.dataLacks != '\0') {
      EXPECT_EQ(r.data.find(c.dataLacks), std::string::npos) << row << "\n" << r.data;
    }
  }
}

TEST(RequestHandler, DirectivesChangeStateAndReportIt) {
  static const struct {
    std::string payload;
    const char* feature;  // read back from ep-kitchen afterwards
    const char* value;
    const char* eventNamespace;
  } kCases[] = {
      {dfi("Corva.PowerController", "TurnOff", "ep-kitchen"), "power", "\"OFF\"",
       "Corva.Endpoint.Feature.Power"},
      {dfi("Corva.BrightnessController", "AdjustBrightness", "light-kitchen",
           R"({"brightnessDelta":50})"),
       "brightness", "100", "Corva.Endpoint.Feature.Brightness"},
      {dfi("Corva.BrightnessController", "AdjustBrightness", "ep-kitchen",
           R"({"brightnessDelta":-95})"),
       "brightness", "0", "Corva.Endpoint.Feature.Brightness"},
      {qfi("/v2/endpoints/batch/interfaces/color/setColor/", "POST",
           R"({"batch":[{"endpointId":"ep-kitchen"}],"directivePayload":{"color":{"hue":120.0,"saturation":0.5,"brightness":0.25}}})"),
       "color", R"({"hue":120.0,"saturation":0.5,"brightness":0.25})",
       "Corva.Endpoint.Feature.Color"},
      {qfi("/v2/endpoints/batch/interfaces/colorTemperature/"
           "setColorTemperature",
           "POST",
           R"({"batch":[{"endpointId":"ep-kitchen"}],"directivePayload":{"colorTemperatureInKelvin":3500}})"),
       "colorTemperature", "3500", "Corva.Endpoint.Feature.ColorTemperature"},
      {dfi("Corva.ColorTemperatureController", "IncreaseColorTemperature", "ep-kitchen"),
       "colorTemperature", "3200", "Corva.Endpoint.Feature.ColorTemperature"},
      {dfi("Corva.ColorTemperatureController", "DecreaseColorTemperature", "ep-kitchen",
           R"({"colorTemperatureDelta":5000})"),
       "colorTemperature", "1000", "Corva.Endpoint.Feature.ColorTemperature"},
      // As if the wall switch moved.
      {qfi("/sim/endpoints/light-kitchen", "POST", R"({"state":{"brightness":5}})"), "brightness",
       "5", "Corva.Endpoint.Feature.Brightness"},
  };
  for (const auto& c : kCases) {
    Home home = builtinHome();
    Subscriptions subs;
    Control control(subs);
    HandlerResult r = handleRequest(home, subs, "client", 1, c.payload, &control);
    ASSERT_EQ(r.code, 200) << c.payload << "\n" << r.data;
    ASSERT_EQ(r.changes.size(), 1u) << c.payload;
    EXPECT_EQ(r.changes[0].entityId, "light-kitchen") << c.payload;
    EXPECT_EQ(r.changes[0].nameSpace, c.eventNamespace) << c.payload;
    EXPECT_EQ(r.changes[0].valueJson, c.value) << c.payload;
    HandlerResult get =
        handleRequest(home, subs, "client", 3,
                      qfi(std::string("/v2/endpoints/ep-kitchen/features/") + c.feature, "GET"));
    EXPECT_NE(get.data.find(std::string("\"value\":") + c.value), std::string::npos)
        << c.payload << "\n"
        << get.data;
  }
}

TEST(RequestHandler, FailedDirectivesChangeNothing) {
  Home home = builtinHome();
  Subscriptions subs;
  auto r = handleRequest(
      home, subs, "c", 1,
      qfi("/v2/endpoints/batch/interfaces/power/turnOn", "POST",
          R"({"batch":[{"endpointId":"ep-garage"},{"endpointId":"ghost"},{"endpointId":"ep-bedroom"}],"directivePayload":{}})"));
  ASSERT_EQ(r.code, 200);
  ASSERT_EQ(r.changes.size(), 1u);  // only the reachable, known bedroom light
  EXPECT_EQ(r.changes[0].endpointId, "ep-bedroom");
  EXPECT_FALSE(home.findDevice("ep-garage")->state.power);
}

const char kCreateKitchenPower[] =
    R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"ep-kitchen"}},"eventTypes":[{"namespace":"Corva.Endpoint.Feature.Power","name":"Property.PowerState.Change"}]}]})";

TEST(RequestHandler, SubscriptionsBelongToTheirClient) {
  Home home = builtinHome();
  Subscriptions subs(2);
  auto created = handleRequest(home, subs, "alice", 2, kCreateKitchenPower);
  ASSERT_EQ(created.code, 200) << created.data;
  EXPECT_NE(created.data.find("\"subscriptionId\":\"sub-1\""), std::string::npos);
  Control control(subs);
  EXPECT_EQ(handleRequest(home, subs, "bob", 1, qfi("/sim/subscriptions", "GET"), &control).data,
            R"({"clients":[{"client":"alice","subscriptions":[)" + created.data.substr(18) + "]}");
  static const struct {
    const char* client;
    std::string payload;
    int code;
    const char* data;
  } kSteps[] = {
      {"bob", R"({"operation":"get","subscriptions":[]})", 200, R"({"subscriptions":[]})"},
      // A repeat gets the existing id; one over the cap of 2 creates nothing.
      {"alice", kCreateKitchenPower, 200,
       R"({"subscriptions":[{"subscriptionId":"sub-1","entities":{"endpoint":{"type":"Endpoint","id":"ep-kitchen"}},"eventTypes":[{"namespace":"Corva.Endpoint.Feature.Power","name":"Property.PowerState.Change"}]}]})"},
      {"alice",
       R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"id":"ep-desk"}}},{"entities":{"endpoint":{"id":"ep-living"}}}]})",
       400,
       R"({"error":"too_many_subscriptions","message":"a client holds at most 2 subscriptions, listed in at most 262144 bytes"})"},
      {"alice", R"({"operation":"get","subscriptions":[]})", 200,
       R"({"subscriptions":[{"subscriptionId":"sub-1","entities":{"endpoint":{"type":"Endpoint","id":"ep-kitchen"}},"eventTypes":[{"namespace":"Corva.Endpoint.Feature.Power","name":"Property.PowerState.Change"}]}]})"},
      {"bob",
       R"({"operation":"delete","subscriptions":[{"entities":{"endpoint":{"id":"ep-kitchen"}}}]})",
       200, R"({"deleted":0})"},
      {"alice",
       R"({"operation":"delete","subscriptions":[{"entities":{"endpoint":{"id":"ep-kitchen"}}}]})",
       200, R"({"deleted":1})"},
      {"alice", R"({"operation":"get","subscriptions":[]})", 200, R"({"subscriptions":[]})"},
      {"alice", R"({"operation":"create","subscriptions":[{"entities":{},"eventTypes":[]}]})", 400,
       ""},
      {"alice",
       R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"id":"ghost"}}}]})", 404,
       ""},
      {"alice",
       R"({"operation":"create","subscriptions":[{"entities":{"endpointGroup":{"id":"nope"}}}]})",
       404, ""},
      {"alice",
       R"({"operation":"delete","subscriptions":[{"entities":{"endpoint":{"id":"ghost"}}}]})", 200,
       R"({"deleted":0})"},
      {"alice",
       R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"id":"ep-desk"}},"eventTypes":[{"name":"x"}]}]})",
       400, ""},
      {"alice", R"({"operation":"get","subscriptions":[]})", 200, R"({"subscriptions":[]})"},
      {"alice", R"({"operation":"unknown","subscriptions":[]})", 400, ""},
      {"alice", R"({"subscriptions":[]})", 400, ""},
      {"alice", R"({"operation":"get","subscriptions":{}})", 400, ""},
      {"alice",
       R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"id":"ep-desk"}},"eventTypes":[{"namespace":")" +
           std::string(300000, 'n') + R"("}]}]})",
       400, ""},
      // Repeats within one request take one place.
      {"alice",
       R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"id":"ep-desk"}}},{"entities":{"endpoint":{"id":"ep-desk"}}},{"entities":{"endpoint":{"id":"ep-desk"}}}]})",
       200, ""},
  };
  for (const auto& s : kSteps) {
    auto r = handleRequest(home, subs, s.client, 2, s.payload);
    EXPECT_EQ(r.code, s.code) << s.payload << "\n" << r.data;
    if (*s.data != '\0') {
      EXPECT_EQ(r.data, s.data) << s.payload;
    }
  }
}

TEST(Subscriptions, MatchEndpointGroupAndEventType) {
  StateChange kitchenPower{"light-kitchen", "ep-kitchen", "Corva.Endpoint.Feature.Power",
                           "Property.PowerState.Change", "\"ON\""};
  static const struct {
    Subscription sub;
    bool matches;
  } kCases[] = {
      {{"", "ep-kitchen", "", {}}, true},
      {{"", "light-kitchen", "", {}}, true},
      {{"", "ep-living", "", {}}, false},
      {{"", "", "group-downstairs", {}}, true},
      {{"", "", "group-nowhere", {}}, false},
      {{"", "ep-kitchen", "", {{"Corva.Endpoint.Feature.Power", ""}}}, true},
      {{"", "ep-kitchen", "", {{"Corva.Endpoint.Feature.Power", "Property.PowerState.Change"}}},
       true},
      {{"", "ep-kitchen", "", {{"Corva.Endpoint.Feature.Brightness", ""}}}, false},
      {{"", "ep-kitchen", "", {{"Corva.Endpoint.Feature.Power", "Property.Other"}}}, false},
  };
  const Home home = builtinHome();
  for (const auto& c : kCases) {
    Subscriptions subs;
    subs.add("watcher", c.sub);
    EXPECT_EQ(subs.subscribers(home, kitchenPower).count("watcher"), c.matches ? 1u : 0u)
        << c.sub.endpointId << c.sub.groupId;
  }
}

TEST(Simulation, FaultsStandInForTheServiceWhereTheyApply) {
  const std::string kBatchOn = qfi("/v2/endpoints/batch/interfaces/power/turnOn", "POST",
                                   R"({"groupId":"group-downstairs","directivePayload":{}})");
  static const struct {
    std::vector<std::string> options;
    std::string payload;  // sent twice; the second answer is checked
    bool answer;
    int code;
    int delayMs;
  } kCases[] = {
      {{"--fault", "path:/v2/endpoints,respond:503:x"},
       qfi("/v2/endpoints/?a=b", "GET"),
       true,
       503,
       0},
      {{"--fault", "path:*,respond:503:x"}, qfi("/sim/groups", "GET"), true, 200, 0},
      {{"--fault", "path:/v2/endpoints/batch/*,silence"}, kBatchOn, false, 0, 0},
      {{"--fault", "endpoint:ep-living,delay:40"}, kBatchOn, true, 200, 40},
      {{"--fault", "endpoint:light-kitchen,silence"},
       dfi("Corva", "ReportState", "ep-kitchen"),
       false,
       0,
       0},
      {{"--fault", "endpoint:ep-desk,silence"}, kBatchOn, true, 200, 0},
      {{"--fault", "request:2,respond:500:", "--respond", "201:"}, kBatchOn, true, 500, 0},
      {{"--fault", "request:1,respond:500:", "--respond", "201:"}, kBatchOn, true, 201, 0},
      {{"--fault", "request:2,delay:10", "--no-response"}, kBatchOn, false, 0, 10},
  };
  for (const auto& c : kCases) {
    std::vector<const char*> argv = {"ornsim"};
    for (const auto& a : c.options)
      argv.push_back(a.c_str());
    Options o;
    std::string err;
    ASSERT_TRUE(parseOptions(static_cast<int>(argv.size()), argv.data(), &o, &err)) << err;
    Home home = builtinHome();
    Subscriptions subs;
    Simulation sim(o, home, subs, nullptr);
    sim.serve("c", 1, c.payload);
    const Simulation::Outcome out = sim.serve("c", 1, c.payload);
    EXPECT_EQ(out.answer, c.answer) << c.options[1] << " " << c.payload;
    EXPECT_EQ(out.delayMs, c.delayMs) << c.options[1];
    if (c.answer) {
      EXPECT_EQ(out.code, c.code) << c.options[1] << "\n" << out.data;
    }
  }
}

}  // namespace
}  // namespace ornsim
