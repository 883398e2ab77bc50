// SPDX-License-Identifier: Apache-2.0
#include "RequestHandler.h"

#include <gtest/gtest.h>

#include <string>

#include "Control.h"
#include "RequestHandlerInternal.h"
#include "Simulation.h"
#include "StateFile.h"

namespace ornsim {
namespace {
// clang-format off

std::string qfi(const std::string& path, const std::string& method, const std::string& body = "") {
  return R"({"qfi":{"path":")" + path + R"(","method":")" + method + "\"" +
         (body.empty() ? "" : R"(,"requestBody":)" + body) + R"(},"dfi":[]})";
}

// A POST to the simulator's own path /sim/<path>.
std::string sim(const std::string& path, const std::string& body = "") { return qfi("/sim/" + path, "POST", body); }

// A batch directive of the power, brightness... interface.
std::string batch(const std::string& directive, const std::string& body) {
  return qfi("/v2/endpoints/batch/interfaces/" + directive, "POST", body);
}

std::string dfi(const std::string& ns, const std::string& name, const std::string& endpoint,
                const std::string& payload = "") {
  return R"({"dfi":[{"header":{"namespace":")" + ns + R"(","name":")" + name +
         R"(","payloadVersion":"3.0"},"endpoint":{"entityId":"","endpointId":")" + endpoint +
         R"(","friendlyName":""})" + (payload.empty() ? "" : R"(,"payload":)" + payload) + "}]}";
}

// The one element of dfi()'s "dfi" array.
std::string dfiElement(const std::string& ns, const std::string& name, const std::string& endpoint) {
  const std::string text = dfi(ns, name, endpoint);
  return text.substr(8, text.size() - 10);
}

std::string repeat(const std::string& piece, size_t n) {
  std::string text;
  while (n-- > 0)
    text += piece;
  return text;
}

std::string feature(const std::string& endpoint, const std::string& name) {
  return qfi("/v2/endpoints/" + endpoint + "/features/" + name, "GET");
}

TEST(RequestHandler, AnswersEachRequestWithItsCodeAndData) {
  const std::string reportDesk = dfi("Corva", "ReportState", "ep-desk").substr(8);
  const std::string reachable = "/v2/endpoints?filterExpression=features[name:connectivity]"
                                ".properties[name:reachability].value.value=";
  const struct {
    int type; std::string payload; int code;
    const char *dataHas, *dataLacks = "";  // pieces the response data must and must not contain
  } kCases[] = {
      // Device list, filters and methods.
      {1, qfi("/v2/endpoints", "GET"), 200, R"({"id":"plug-kettle","externallyReportedId":"ep-kettle","friendlyName":"Kettle Plug","capabilities":{"interfaces":["Corva.PowerController"]}})"},
      {1, qfi(reachable + "OK", "GET"), 200, "\"externallyReportedId\":\"ep-kitchen\"", "light-garage"},
      {1, qfi(reachable + "UNREACHABLE", "GET"), 200, "\"id\":\"light-garage\"", "ep-kitchen"},
      {1, qfi(reachable + "MAYBE", "GET"), 400, "reachability is OK or UNREACHABLE, not MAYBE"},
      {1, qfi("/v2/endpoints?filterExpression=name=x", "GET"), 400, "invalid_filter"},
      {1, qfi("/v2/endpoints?limit=3", "GET"), 400, "invalid_query"},
      {1, qfi("/v2/endpoints", "POST"), 405, "method_not_allowed"},
      // Feature state: entity or endpoint id, with or without "/", optional body.
      {3, feature("light-kitchen", "power/"), 200, "\"value\":\"ON\""},
      {3, feature("ep-living", "brightness"), 200, "\"value\":50"},
      {3, qfi("/v2/endpoints/ep-living/features/colorTemperature", "GET", R"({"latencyTolerance":"medium"})"), 200, "\"value\":4000"},
      {3, feature("light-garage", "connectivity"), 200, "UNREACHABLE"},
      {3, feature("ep-garage", "power"), 503, R"({"error":"endpoint_unreachable","message":"ep-garage is unreachable"})"},
      {3, feature("ep-garage", "color"), 404, "unknown_feature"},
      {3, dfi("Corva", "ReportState", "ep-garage"), 200, R"("properties":[{"name":"reachability","value":{"value":"UNREACHABLE"}}]},{"entityId":"light-garage","endpointId":"ep-garage","name":"power")"},
      {3, feature("plug-kettle", "brightness"), 404, "unknown_feature"},
      {3, feature("nobody", "power"), 404, "unknown_endpoint"},
      {3, qfi("/v2/endpoints/ep-living/features/power", "UNKNOWN"), 405, "method_not_allowed"},
      {1, qfi("/v2/endpoints/ep-living/features", "GET"), 404, "unknown_path"},
      {1, qfi("/", "GET"), 404, "unknown_path"},
      // Batch directives.
      {1, batch("power/turnOn/", R"({"batch":[{"endpointId":"ep-bedroom"},{"endpointId":"ghost"}],"directivePayload":{}})"), 200, R"({"endpointId":"ghost","responseCode":404)"},
      {1, batch("brightness/setBrightness", R"({"groupId":"group-lights","directivePayload":{"brightness":40}})"), 200, R"({"endpointId":"light-garage","responseCode":503)"},
      {1, batch("brightness/setBrightness", R"({"groupId":"group-downstairs","directivePayload":{"brightness":40}})"), 200, R"({"endpointId":"plug-kettle","responseCode":400)"},
      {1, batch("brightness/setBrightness", R"({"batch":[{"endpointId":"ep-bedroom"}],"directivePayload":{}})"), 400, "invalid_payload"},
      {1, batch("power/turnOn", R"({"groupId":"group-nowhere","directivePayload":{}})"), 404, "unknown_group"},
      {1, batch("power/turnOn", R"({"directivePayload":{}})"), 400, "invalid_body"},
      {1, batch("power/toggle", R"({"batch":[]})"), 404, "no directive toggle for power"},
      {1, qfi("/v2/endpoints/batch/interfaces/power/turnOn", "GET"), 405, "method_not_allowed"},
      // Results past a frame: the changes are made and a summary says so.
      {1, batch("power/turnOn", R"({"batch":[)" + repeat(R"({"endpointId":"ep-kitchen"},)", 16000) + R"({"endpointId":"ep-kitchen"}]})"), 200, R"({"summary":{"endpoints":16001,"succeeded":16001,"failed":0},"failures":[],"failuresNotListed":0})"},
      {1, batch("power/turnOn", R"({"batch":[)" + repeat(R"({"endpointId":"ghost"},)", 16000) + R"({"endpointId":"ep-kitchen"}]})"), 200, R"({"summary":{"endpoints":16001,"succeeded":1,"failed":16000},"failures":[{"endpointId":"ghost","responseCode":404,)"},
      {1, R"({"dfi":[)" + repeat(dfiElement("Corva.PowerController", "TurnOn", "ep-kitchen") + ",", 16000) + "null]}", 207, R"({"summary":{"operations":16001,"succeeded":16000,"failed":1},"failures":[{"index":16000,"responseCode":400,)"},
      // DFI directives.
      {1, dfi("Corva.PowerController", "TurnOn", "ep-bedroom"), 200, "SUCCESS"},
      {1, dfi("Corva.BrightnessController", "SetBrightness", "ep-kettle", R"({"brightness":1})"), 400, "unsupported_interface"},
      {1, dfi("Corva.BrightnessController", "Dim", "ep-kitchen"), 400, "unknown_directive"},
      {1, dfi("Corva.Teleporter", "Go", "ep-kitchen"), 400, "unknown_namespace"},
      {1, dfi("Corva.ColorController", "SetColor", "ep-kitchen", R"({"color":{"hue":1}})"), 400, "invalid_payload"},
      {1, dfi("Corva.PowerController", "TurnOn", "ghost"), 404, "unknown_endpoint"},
      {1, dfi("Tessel.DeviceManager", "GetDevices", ""), 200, "\"id\":\"strip-desk\""},
      {3, dfi("Corva", "ReportState", "ep-desk"), 200, "\"name\":\"StateReport\""},
      {1, R"({"dfi":[null]})", 400, "invalid_dfi"},
      {1, R"({"dfi":[{"endpoint":{}}]})", 400, "invalid_dfi"},
      // Several operations answer together.
      {3, R"({"qfi":{"path":"/v2/endpoints/ep-desk/features/power","method":"GET"},"dfi":[)" + reportDesk, 200, R"({"results":[{"responseCode":200,"responseData":{"entityId":"strip-desk")"},
      {1, R"({"dfi":[null,)" + reportDesk, 207, R"("responseCode":400)"},
      // Malformed requests, and nesting past the depth bound: invalid JSON, whatever the type.
      {1, "{bad", 400, "invalid_json"},
      {1, "[1]", 400, "invalid_json"},
      {1, R"({"dfi":[]})", 400, "empty_request"},
      {1, R"({"qfi":"x","dfi":[]})", 400, "invalid_qfi"},
      {9, qfi("/v2/endpoints", "GET"), 400, "unknown_request_type"},
      {1, std::string(400000, '['), 400, "\"Nesting deeper than 256 levels. at offset 257\""},
      {3, repeat("{\"a\":", 400000), 400, "invalid_json"},
      {9, std::string(400000, '['), 400, "unknown_request_type"},
      // The simulator's own paths.
      {1, qfi("/sim/groups/", "GET"), 200, R"({"groups":[{"id":"group-downstairs","members":[")"},
      {1, sim("groups"), 405, "method_not_allowed"},
      {1, sim("endpoints/ep-kitchen/x"), 404, "unknown_path"},
      {1, sim("endpoints/ghost", R"({"reachable":true})"), 404, "unknown_endpoint"},
      {1, sim("endpoints/ep-kitchen", R"({"reachble":true})"), 400, "invalid_body"},
      {1, sim("endpoints/ep-kitchen", R"({"state":{"power":1}})"), 400, "invalid_body"},
      {1, sim("endpoints/ep-kettle", R"({"state":{"brightness":1}})"), 400, "unsupported_interface"},
      {1, sim("endpoints/ep-garage", R"({"state":{"power":true}})"), 503, "endpoint_unreachable"},
      {1, sim("endpoints/ep-garage", R"({"reachable":true,"state":{"power":true}})"), 200, "SUCCESS"},
      {1, sim("endpoints", R"({"id":"x","externallyReportedId":"ep-desk"})"), 409, "device_exists"},
      {1, sim("endpoints", R"({"id":"x","interfaces":["Corva.Power"]})"), 400, "unknown interface"},
      {1, sim("endpoints/light-kitchen/remove"), 200, "SUCCESS"},
      {1, sim("endpoints", R"({"id":"x","friendlyName":"bell\u0007"})"), 400, R"({"error":"invalid_body","message":"device: \"friendlyName\" must be UTF-8 text without control characters"})"},
      {1, sim("events", R"({"eventType":"21"})"), 400, "invalid_body"},
      {1, sim("events", R"({"eventType":21,"payload":{"a":1},"client":"bob"})"), 200, R"({"sent":0})"},
      {1, sim("faults", R"({"fault":"next:2,silence"})"), 200, R"({"requests":0,"added":"request:2,silence","count":1})"},
      {1, sim("faults", R"({"fault":"request:2"})"), 400, "invalid_body"},
      {1, sim("faults", R"({"fault":"request:2,respond:200:)" + std::string(1000000, 'x') + "\"}"), 400, "too_many_faults"},
  };
  for (const auto& c : kCases) {
    Home home = builtinHome(); Subscriptions subs; Control control(subs);
    HandlerResult r = handleRequest(home, subs, "client", c.type, c.payload, &control);
    const std::string row = c.payload.substr(0, 200) + "\n" + r.data;
    EXPECT_EQ(r.code, c.code) << row;
    // A bare error key stands for the whole "error" member.
    const bool key = std::string(c.dataHas).find_first_not_of("abcdefghijklmnopqrstuvwxyz_") == std::string::npos;
    EXPECT_NE(r.data.find(key ? std::string(R"("error":")") + c.dataHas + '"' : c.dataHas), std::string::npos) << row;
    EXPECT_EQ(r.data.find(c.dataLacks), *c.dataLacks ? std::string::npos : 0) << row;
  }
}

TEST(RequestHandler, DirectivesChangeStateAndReportIt) {
  const std::string kCt = "Corva.ColorTemperatureController";
  const struct {
    std::string payload;
    const char *endpoint, *feature, *value;  // the one device changed, its feature read back afterwards
    const char* eventNamespace;  // after "Corva.Endpoint.Feature."
  } kCases[] = {
      {dfi("Corva.PowerController", "TurnOff", "ep-kitchen"), "ep-kitchen", "power", "\"OFF\"", "Power"},
      {dfi("Corva.BrightnessController", "AdjustBrightness", "light-kitchen", R"({"brightnessDelta":50})"), "ep-kitchen", "brightness", "100", "Brightness"},
      {dfi("Corva.BrightnessController", "AdjustBrightness", "ep-kitchen", R"({"brightnessDelta":-95})"), "ep-kitchen", "brightness", "0", "Brightness"},
      {batch("color/setColor/", R"({"batch":[{"endpointId":"ep-kitchen"}],"directivePayload":{"color":{"hue":120.0,"saturation":0.5,"brightness":0.25}}})"), "ep-kitchen", "color", R"({"hue":120.0,"saturation":0.5,"brightness":0.25})", "Color"},
      {batch("colorTemperature/setColorTemperature", R"({"batch":[{"endpointId":"ep-kitchen"}],"directivePayload":{"colorTemperatureInKelvin":3500}})"), "ep-kitchen", "colorTemperature", "3500", "ColorTemperature"},
      {dfi(kCt, "IncreaseColorTemperature", "ep-kitchen"), "ep-kitchen", "colorTemperature", "3200", "ColorTemperature"},
      {dfi(kCt, "DecreaseColorTemperature", "ep-kitchen", R"({"colorTemperatureDelta":5000})"), "ep-kitchen", "colorTemperature", "1000", "ColorTemperature"},
      // As if the wall switch moved.
      {sim("endpoints/light-kitchen", R"({"state":{"brightness":5}})"), "ep-kitchen", "brightness", "5", "Brightness"},
      // Only the reachable, known device of a batch changes.
      {batch("power/turnOn", R"({"batch":[{"endpointId":"ep-garage"},{"endpointId":"ghost"},{"endpointId":"ep-bedroom"}],"directivePayload":{}})"), "ep-bedroom", "power", "\"ON\"", "Power"},
  };
  for (const auto& c : kCases) {
    Home home = builtinHome(); Subscriptions subs; Control control(subs);
    HandlerResult r = handleRequest(home, subs, "client", 1, c.payload, &control);
    ASSERT_EQ(r.code, 200) << c.payload << "\n" << r.data;
    ASSERT_EQ(r.changes.size(), 1u) << c.payload;
    EXPECT_EQ(r.changes[0].endpointId, c.endpoint) << c.payload;
    EXPECT_EQ(r.changes[0].nameSpace, std::string("Corva.Endpoint.Feature.") + c.eventNamespace);
    EXPECT_EQ(r.changes[0].valueJson, c.value) << c.payload;
    HandlerResult get = handleRequest(home, subs, "client", 3, feature(c.endpoint, c.feature));
    EXPECT_NE(get.data.find(std::string("\"value\":") + c.value), std::string::npos) << get.data;
  }
}

// A subscriptions request: `operation` on the given list.
std::string subOp(const std::string& operation, const std::string& list = "[]") {
  return R"({"operation":")" + operation + R"(","subscriptions":)" + list + "}";
}

// A list entry for an endpoint, with the given event types.
std::string onEndpoint(const std::string& id, const std::string& eventTypes = "") {
  return R"({"entities":{"endpoint":{"id":")" + id + "\"}}" +
         (eventTypes.empty() ? "" : R"(,"eventTypes":)" + eventTypes) + "}";
}

TEST(RequestHandler, SubscriptionsBelongToTheirClient) {
  const std::string kPower =
      R"([{"namespace":"Corva.Endpoint.Feature.Power","name":"Property.PowerState.Change"}])";
  const std::string kBrightness =
      R"([{"namespace":"Corva.Endpoint.Feature.Brightness","name":"Property.Brightness.Change"}])";
  const std::string kKitchen = R"({"subscriptionId":"sub-1","entities":{"endpoint":{"type":"Endpoint","id":"ep-kitchen"}},"eventTypes":)" + kPower + "}";
  Home home = builtinHome();
  Subscriptions list(2, 2);
  auto created = handleRequest(home, list, "alice", 2, subOp("create", "[" + onEndpoint("ep-kitchen", kPower) + "]"));
  ASSERT_EQ(created.data, R"({"subscriptions":[)" + kKitchen + "]}");
  Control control(list);
  EXPECT_EQ(handleRequest(home, list, "bob", 1, qfi("/sim/subscriptions", "GET"), &control).data,
            R"({"clients":[{"client":"alice","subscriptions":[)" + kKitchen + "]}]}");
  // A namespace that brings a client's listing of one ep-desk subscription to exactly the cap,
  // measured on the listing of a one-byte namespace (the answer less `{"subscriptions":` and `}`).
  Subscriptions probe(2);
  const std::string atCap(kMaxListingBytes + 1 - (handleRequest(home, probe, "p", 2, subOp("create", "[" + onEndpoint("ep-desk", R"([{"namespace":"n"}])") + "]")).data.size() - 18), 'n');
  const struct {
    const char* client; std::string payload; int code;
    std::string data;  // "" for any
  } kSteps[] = {
      {"bob", subOp("get"), 200, R"({"subscriptions":[]})"},
      {"bob", subOp("create", R"([{"entities":{"endpointGroup":{"id":"group-downstairs"}}}])"), 200, R"({"subscriptions":[{"subscriptionId":"sub-2","entities":{"endpointGroup":{"id":"group-downstairs"}},"eventTypes":[]}]})"},
      // A repeat gets the existing id; one over the cap of 2 creates nothing.
      {"alice", subOp("create", "[" + onEndpoint("ep-kitchen", kPower) + "]"), 200, R"({"subscriptions":[)" + kKitchen + "]}"},
      {"alice", subOp("create", "[" + onEndpoint("ep-desk") + "," + onEndpoint("ep-living") + "]"), 400, R"({"error":"too_many_subscriptions","message":"a client holds at most 2 subscriptions, listed in at most )" + std::to_string(kMaxListingBytes) + R"( bytes"})"},
      {"alice", subOp("get"), 200, R"({"subscriptions":[)" + kKitchen + "]}"},
      {"bob", subOp("delete", "[" + onEndpoint("ep-kitchen") + "]"), 200, R"({"deleted":0})"},
      {"alice", subOp("delete", "[" + onEndpoint("ep-kitchen") + "]"), 200, R"({"deleted":1})"},
      {"alice", subOp("get"), 200, R"({"subscriptions":[]})"},
      {"alice", subOp("create", R"([{"entities":{},"eventTypes":[]}])"), 400, ""},
      {"alice", subOp("create", "[" + onEndpoint("ghost") + "]"), 404, ""},
      {"alice", subOp("create", R"([{"entities":{"endpointGroup":{"id":"nope"}}}])"), 404, ""},
      {"alice", subOp("delete", "[" + onEndpoint("ghost") + "]"), 200, R"({"deleted":0})"},
      {"alice", subOp("create", "[" + onEndpoint("ep-desk", R"([{"name":"x"}])") + "]"), 400, ""},
      {"alice", subOp("create", "[" + onEndpoint("ep-desk", R"([{"namespace":")" + std::string(kMaxListingBytes + 1, 'n') + "\"}]") + "]"), 400, ""},
      {"alice", subOp("get"), 200, R"({"subscriptions":[]})"},
      {"alice", subOp("unknown"), 400, ""},
      {"alice", R"({"subscriptions":[]})", 400, ""},
      {"alice", subOp("get", "{}"), 400, ""},
      // Repeats within one request take one place, but the answer lists each.
      {"alice", subOp("create", "[" + repeat(onEndpoint("ep-desk") + ",", 12000) + onEndpoint("ep-living") + "]"), 400, R"({"error":"answer_too_large","message":"the answer would list 12001 subscriptions, more than fit in one frame; nothing was created"})"},
      {"alice", subOp("create", "[" + repeat(onEndpoint("ep-desk") + ",", 2) + onEndpoint("ep-desk") + "]"), 200, ""},
      // Two names hold subscriptions, the cap; a name with none left is freed.
      {"carol", subOp("create", "[" + onEndpoint("ep-desk") + "]"), 400, R"({"error":"too_many_clients","message":"subscriptions are kept for at most 2 client names at once (--max-clients); nothing was created"})"},
      {"bob", subOp("delete", R"([{"entities":{"endpointGroup":{"id":"group-downstairs"}},"eventTypes":[]}])"), 200, R"({"deleted":1})"},
      {"carol", subOp("create", "[" + onEndpoint("ep-kitchen", kPower) + "," + onEndpoint("ep-kitchen", kBrightness) + "]"), 200, ""},
      // A delete takes away only the event types it lists.
      {"carol", subOp("delete", "[" + onEndpoint("ep-kitchen", kPower) + "]"), 200, R"({"deleted":1})"},
      {"carol", subOp("get"), 200, R"({"subscriptions":[{"subscriptionId":"sub-5","entities":{"endpoint":{"type":"Endpoint","id":"ep-kitchen"}},"eventTypes":)" + kBrightness + "}]}"},
      {"alice", subOp("delete", "[" + onEndpoint("ep-desk", kPower) + "]"), 200, R"({"deleted":0})"},
      {"carol", subOp("create", "[" + onEndpoint("ep-kitchen", kPower.substr(0, kPower.size() - 1) + "," + kBrightness.substr(1)) + "]"), 200, ""},
      {"carol", subOp("delete", "[" + onEndpoint("ep-kitchen", R"([{"namespace":"Corva.Endpoint.Feature.Power"}])") + "]"), 200, R"({"deleted":1})"},
      {"carol", subOp("get"), 200, R"({"subscriptions":[{"subscriptionId":"sub-5","entities":{"endpoint":{"type":"Endpoint","id":"ep-kitchen"}},"eventTypes":)" + kBrightness + "}]}"},
      {"carol", subOp("delete", "[" + onEndpoint("ep-kitchen") + "]"), 200, R"({"deleted":1})"},
      {"carol", subOp("get"), 200, R"({"subscriptions":[]})"},
      // A listing of exactly the cap is taken, one byte more is not.
      {"carol", subOp("create", "[" + onEndpoint("ep-desk", R"([{"namespace":")" + atCap + "n\"}]") + "]"), 400, ""},
      {"carol", subOp("create", "[" + onEndpoint("ep-desk", R"([{"namespace":")" + atCap + "\"}]") + "]"), 200, ""},
      {"carol", subOp("delete", "[" + onEndpoint("ep-desk") + "]"), 200, R"({"deleted":1})"},
  };
  for (const auto& s : kSteps) {
    auto r = handleRequest(home, list, s.client, 2, s.payload);
    EXPECT_EQ(r.code, s.code) << s.payload.substr(0, 200) << "\n" << r.data;
    if (!s.data.empty()) {
      EXPECT_EQ(r.data, s.data) << s.payload;
    }
  }
  EXPECT_EQ(list.clients(), 1u);  // alice; carol's name went with her last subscription
}

TEST(Subscriptions, MatchEndpointGroupAndEventType) {
  const StateChange kitchenPower{"light-kitchen", "ep-kitchen", "Corva.Endpoint.Feature.Power",
                                 "Property.PowerState.Change", "\"ON\""};
  const std::string kPower = "Corva.Endpoint.Feature.Power";
  const struct { Subscription sub; bool matches; } kCases[] = {
      {{"", "ep-kitchen", "", {}}, true},
      {{"", "light-kitchen", "", {}}, true},
      {{"", "ep-living", "", {}}, false},
      {{"", "", "group-downstairs", {}}, true},
      {{"", "", "group-nowhere", {}}, false},
      {{"", "ep-kitchen", "", {{kPower, ""}}}, true},
      {{"", "ep-kitchen", "", {{kPower, "Property.PowerState.Change"}}}, true},
      {{"", "ep-kitchen", "", {{"Corva.Endpoint.Feature.Brightness", ""}}}, false},
      {{"", "ep-kitchen", "", {{kPower, "Property.Other"}}}, false},
  };
  const Home home = builtinHome();
  for (const auto& c : kCases) {
    Subscriptions subs;
    subs.add("watcher", c.sub);
    EXPECT_EQ(subs.subscribers(home, kitchenPower).count("watcher"), c.matches ? 1u : 0u)
        << c.sub.endpointId << c.sub.groupId;
  }
}

TEST(RequestHandler, LookupsFollowDevicesAddedAndRemoved) {
  Home home = builtinHome(); Subscriptions subs; Control control(subs);
  const std::string kOn = batch("power/turnOn", R"({"groupId":"group-downstairs","directivePayload":{}})");
  ASSERT_EQ(handleRequest(home, subs, "w", 2, subOp("create", R"([{"entities":{"endpointGroup":{"id":"group-downstairs"}}}])")).code, 200);
  const struct {
    int type; std::string payload;
    std::string data;   // the whole answer
    size_t subscribed;  // of the changes it made, how many reach "w"
  } kSteps[] = {
      {1, sim("endpoints/light-kitchen/remove"), R"({"status":"SUCCESS"})", 0},
      {3, feature("ep-living", "power"), R"({"entityId":"light-living","endpointId":"ep-living","name":"power","properties":[{"name":"powerState","value":{"value":"OFF"}}]})", 0},
      {1, kOn, R"({"results":[{"endpointId":"light-living","responseCode":200,"responseData":{"status":"SUCCESS"}},{"endpointId":"plug-kettle","responseCode":200,"responseData":{"status":"SUCCESS"}}]})", 2},
      {1, sim("endpoints", R"({"id":"lamp-9","externallyReportedId":"ep-lamp-9","interfaces":["Corva.PowerController"]})"), R"({"status":"SUCCESS"})", 0},
      {1, dfi("Corva.PowerController", "TurnOn", "lamp-9"), R"({"status":"SUCCESS"})", 0},
      {3, feature("ep-desk", "power"), R"({"entityId":"strip-desk","endpointId":"ep-desk","name":"power","properties":[{"name":"powerState","value":{"value":"ON"}}]})", 0},
      {1, sim("endpoints/plug-kettle/remove"), R"({"status":"SUCCESS"})", 0},
      {1, kOn, R"({"results":[{"endpointId":"light-living","responseCode":200,"responseData":{"status":"SUCCESS"}}]})", 1},
  };
  for (const auto& s : kSteps) {
    const HandlerResult r = handleRequest(home, subs, "c", s.type, s.payload, &control);
    EXPECT_EQ(r.data, s.data) << s.payload;
    size_t reached = 0;
    for (const auto& c : r.changes)
      reached += subs.subscribers(home, c).count("w");
    EXPECT_EQ(reached, s.subscribed) << s.payload;
  }
}

TEST(StateFile, SavedTextIsCheckedAndIdsCountOnFromIt) {
  const struct {
    std::string text;
    std::string outcome;  // the first problem, or the id a create gets next
  } kCases[] = {
      {R"({"clients":[{"client":"c","subscriptions":[{"subscriptionId":"sub-2147483647","entities":{"endpoint":{"id":"ep-desk"}}}]}]})", "sub-2147483648"},
      {R"({"clients":[{"client":"c","subscriptions":[{"subscriptionId":"sub-18446744073709551615","entities":{"endpoint":{"id":"ep-desk"}}}]}]})", "sub-1"},
      {R"({"clients":[{"client":"c","subscriptions":[{"subscriptionId":"sub-x9","entities":{"endpoint":{"id":"ep-desk"}}}]}]})", "sub-1"},
      {R"({"clients":[{"client":"c","subscriptions":[{"subscriptionId":"sub-+5","entities":{"endpoint":{"id":"ep-desk"}}}]}]})", "sub-1"},
      {R"({"clients":[{"client":"c","subscriptions":[{"subscriptionId":"sub-007","entities":{"endpoint":{"id":"ep-desk"}}}]}]})", "sub-8"},
      {R"({"clients":[{"client":"c","subscriptions":[{"subscriptionId":"sub-9007199254740991","entities":{"endpoint":{"id":"ep-desk"}}}]}]})", "sub-9007199254740992"},
      {R"({"devices":[{"id":"lamp\u0085"}]})", R"(devices[0]: "id" must be UTF-8 text without control characters)"},
      {"{\"clients\":[{\"client\":\"\xff\",\"subscriptions\":[]}]}", R"(clients[0]: "client" must be UTF-8 text without control characters)"},
  };
  for (const auto& c : kCases) {
    Home home = builtinHome(); Subscriptions subs; std::vector<std::string> problems;
    if (!applyState(c.text, &home, &subs, &problems)) {
      EXPECT_EQ(problems.at(0), c.outcome) << c.text;
      continue;
    }
    const HandlerResult r = handleRequest(home, subs, "d", 2, subOp("create", "[" + onEndpoint("ep-kitchen") + "]"));
    EXPECT_NE(r.data.find("\"" + c.outcome + "\""), std::string::npos) << c.text << "\n" << r.data;
  }
}

TEST(Simulation, FaultsStandInForTheServiceWhereTheyApply) {
  const std::string kOn = batch("power/turnOn", R"({"groupId":"group-downstairs","directivePayload":{}})");
  const std::string kTwo = batch("power/turnOn", R"({"batch":[{"endpointId":"ep-kitchen"},{"endpointId":"ep-desk"}],"directivePayload":{}})");
  const struct {
    std::vector<std::string> options;
    std::string payload;  // sent twice; the second answer is checked
    bool answer; int code, delayMs;
    std::string data = "";  // a part of the answer's data
  } kCases[] = {
      {{"--fault", "path:/v2/endpoints,respond:503:x"}, qfi("/v2/endpoints/?a=b", "GET"), true, 503, 0},
      {{"--fault", "path:*,respond:503:x"}, qfi("/sim/groups", "GET"), true, 200, 0},
      {{"--fault", "path:/v2/endpoints/batch/*,silence"}, kOn, false, 0, 0},
      {{"--fault", "endpoint:ep-living,delay:40"}, kOn, true, 200, 40},
      {{"--fault", "endpoint:light-kitchen,silence"}, dfi("Corva", "ReportState", "ep-kitchen"), false, 0, 0},
      {{"--fault", "endpoint:ep-desk,silence"}, kOn, true, 200, 0},
      {{"--fault", "request:2,respond:500:", "--respond", "201:"}, kOn, true, 500, 0},
      {{"--fault", "request:1,respond:500:", "--respond", "201:"}, kOn, true, 201, 0},
      {{"--fault", "request:2,delay:10", "--no-response"}, kOn, false, 0, 10},
      {{"--fault", "request:2,respond:502:", "--fault", "path:/v2/endpoints/batch/*,respond:501:"}, kOn, true, 502, 0},
      {{"--fault", "path:/v2/endpoints/batch/*,respond:501:", "--fault", "request:2,respond:502:"}, kOn, true, 501, 0},
      // endpoint: answers for its entry of a batch; the other entries are served.
      {{"--fault", R"(endpoint:ep-living,respond:503:{"error":"x"})"}, kOn, true, 200, 0,
       R"("light-kitchen","responseCode":200,"responseData":{"status":"SUCCESS"}},{"endpointId":"light-living","responseCode":503,"responseData":{"error":"x"}},{"endpointId":"plug-kettle","responseCode":200)"},
      {{"--fault", "endpoint:light-kitchen,respond:404:gone"}, kTwo, true, 200, 0,
       R"([{"endpointId":"ep-kitchen","responseCode":404,"responseData":"gone"},{"endpointId":"ep-desk","responseCode":200)"},
      {{"--fault", "endpoint:ep-desk,respond:503:x", "--respond", "201:y"}, kTwo, true, 201, 0, "y"},
      // Whole requests: naming:, the group a batch names, a request about one device.
      {{"--fault", "naming:ep-living,respond:503:x"}, kOn, true, 503, 0, "x"},
      {{"--fault", "endpoint:group-downstairs,respond:503:x"}, kOn, true, 503, 0, "x"},
      {{"--fault", "endpoint:ep-kitchen,respond:503:x"}, qfi("/v2/endpoints/light-kitchen/features/power", "GET"), true, 503, 0, "x"},
  };
  for (const auto& c : kCases) {
    std::vector<const char*> argv = {"ornsim"};
    for (const auto& a : c.options)
      argv.push_back(a.c_str());
    Options o; std::string err;
    ASSERT_TRUE(parseOptions(static_cast<int>(argv.size()), argv.data(), &o, &err)) << err;
    Home home = builtinHome(); Subscriptions subs;
    Simulation sim(o, home, subs, nullptr);
    sim.serve("c", 1, c.payload);
    const Simulation::Outcome out = sim.serve("c", 1, c.payload);
    EXPECT_EQ(out.answer, c.answer) << c.options[1] << " " << c.payload;
    EXPECT_EQ(out.delayMs, c.delayMs) << c.options[1];
    // In these rows the service itself answers 200 at once.
    EXPECT_EQ(out.fault, !c.answer || c.code != 200 || c.delayMs > 0) << c.options[1];
    if (c.answer) {
      EXPECT_EQ(out.code, c.code) << c.options[1] << "\n" << out.data;
      EXPECT_NE(out.data.find(c.data), std::string::npos) << c.options[1] << "\n" << out.data;
    }
  }
}

// clang-format on
}  // namespace
}  // namespace ornsim
