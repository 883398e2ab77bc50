// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the light subcommands power, brightness, color and colortemp, each a batch
// directive (or a feature read) over QFI.
#include "ORNCLI.h"

#include <cstdlib>

#include "ArgHelpers.h"
#include "BatchEndpoints.h"
#include "JsonValueBuilder.h"
#include "ORNCLIInternal.h"
#include "QfiPath.h"
#include "Serialize.h"

namespace ornwick {
namespace ornUtility {

namespace {

using ornConnector::api::QfiPath;
using zedLocalUtil::jsonUtil::JsonDocBuilder;
using zedLocalUtil::jsonUtil::JsonValueBuilder;

constexpr const char kPowerUsage[] =
    "Usage: orncli power <turnOn|turnOff|get> [options]\n"
    "  --endpoints <id1,id2>  (turnOn/turnOff)\n"
    "  --endpoint <id>        (get)";
constexpr const char kBrightnessUsage[] =
    "Usage: orncli brightness <set|adjust|get> [options]\n"
    "  --endpoints <id1,id2>  (set/adjust)\n"
    "  --endpoint <id>        (get)\n"
    "  --value <0-100>        (set)\n"
    "  --delta <-100 to 100>  (adjust)";
constexpr const char kColorUsage[] =
    "Usage: orncli color set [options]\n"
    "  --endpoints <id1,id2>\n"
    "  --hue <0-360>\n"
    "  --saturation <0.0-1.0>\n"
    "  --brightness <0.0-1.0>";
constexpr const char kColorTempUsage[] =
    "Usage: orncli colortemp set [options]\n"
    "  --endpoints <id1,id2>\n"
    "  --kelvin <1000-10000>";

// {"batch":[...],"directivePayload":{...}} with the payload's members set by fill.
std::string batchBody(const std::vector<std::string>& endpointIds,
                      const std::function<void(JsonValueBuilder&)>& fill) {
  JsonDocBuilder doc;
  buildBatchEndpoints(doc, endpointIds);
  return finishDirectiveBody(doc, fill);
}

const std::string& firstOrEmpty(const std::vector<std::string>& ids) {
  static const std::string kNone;
  return ids.empty() ? kNone : ids.front();
}

std::shared_ptr<ORNRequest> featureGetRequest(ORNClient* client, const std::string& endpointId,
                                              const char* feature) {
  auto builder = newRequestBuilder(client, kPayloadRequestType);
  builder.addQfi(QfiPath::endpointFeature(endpointId, feature).toString(), QFIRequest::GET, "");
  return builder.build();
}

std::shared_ptr<ORNRequest> batchRequest(ORNClient* client, const char* interfaceName,
                                         const char* directive, const std::string& body) {
  auto builder = newRequestBuilder(client, kPayloadRequestType);
  builder.addQfi(QfiPath::batchDirective(interfaceName, directive).toString(), QFIRequest::POST,
                 body);
  return builder.build();
}

}  // namespace

std::string finishDirectiveBody(JsonDocBuilder& body,
                                const std::function<void(JsonValueBuilder&)>& fill) {
  JsonValueBuilder payload(body.allocator());
  fill(payload);
  body.set("directivePayload", payload);
  return zedLocalUtil::jsonUtil::serialize(body.root());
}

void setColorPayload(JsonValueBuilder& payload, double hue, double saturation, double brightness) {
  JsonValueBuilder color(payload.allocator());
  color.set("hue", hue).set("saturation", saturation).set("brightness", brightness);
  payload.set("color", color);
}

int ORNCLI::handlePower(int argc, char** argv, bool sync, int timeoutSeconds) {
  if (argc < 1 || hasFlag(argc, argv, "--help")) {
    return printHelp(kPowerUsage, argc < 1 ? 1 : 0);
  }
  const std::string action = argv[0];
  if (action != "turnOn" && action != "turnOff" && action != "get") {
    return printError("invalid_argument",
                      "Unknown power action: " + action + ". Use turnOn, turnOff, or get", 1);
  }
  if (action == "get") {
    const std::string endpoint = findFlag(argc, argv, "--endpoint");
    if (endpoint.empty()) {
      return printError("missing_argument", "--endpoint is required for power get", 1);
    }
    return finishRequest(*this,
                         sendAndWait(buildPowerRequest(action, {endpoint}), timeoutSeconds, sync),
                         "Failed to send power get request");
  }
  const std::string endpoints = findFlag(argc, argv, "--endpoints");
  if (endpoints.empty()) {
    return printError("missing_argument", "--endpoints is required for power " + action, 1);
  }
  return finishRequest(
      *this, sendAndWait(buildPowerRequest(action, splitByComma(endpoints)), timeoutSeconds, sync),
      "Failed to send power " + action + " request");
}

std::shared_ptr<ORNRequest> ORNCLI::buildPowerRequest(const std::string& action,
                                                      const std::vector<std::string>& endpointIds) {
  if (action == "get") {
    return featureGetRequest(client_.get(), firstOrEmpty(endpointIds), "power");
  }
  const char* directive = action == "turnOn" ? "turnOn" : "turnOff";
  return batchRequest(client_.get(), "power", directive,
                      batchBody(endpointIds, [](JsonValueBuilder&) {}));
}

int ORNCLI::handleBrightness(int argc, char** argv, bool sync, int timeoutSeconds) {
  if (argc < 1 || hasFlag(argc, argv, "--help")) {
    return printHelp(kBrightnessUsage, argc < 1 ? 1 : 0);
  }
  const std::string action = argv[0];
  if (action != "set" && action != "adjust" && action != "get") {
    // Deliberate: unlike power, no list of the valid actions.
    return printError("invalid_argument", "Unknown brightness action: " + action, 1);
  }
  if (action == "get") {
    const std::string endpoint = findFlag(argc, argv, "--endpoint");
    if (endpoint.empty()) {
      return printError("missing_argument", "--endpoint is required for brightness get", 1);
    }
    return finishRequest(
        *this, sendAndWait(buildBrightnessRequest(action, {endpoint}, 0), timeoutSeconds, sync),
        "Failed to send brightness get request");
  }
  const std::string endpoints = findFlag(argc, argv, "--endpoints");
  if (endpoints.empty()) {
    return printError("missing_argument", "--endpoints is required for brightness " + action, 1);
  }
  const bool set = action == "set";
  const char* option = set ? "--value" : "--delta";
  const std::string text = findFlag(argc, argv, option);
  if (text.empty()) {
    return printError("missing_argument",
                      std::string(option) + " is required for brightness " + action, 1);
  }
  // Deliberate: the documented ranges are not enforced; the service judges the value.
  int number = 0;
  if (!safeStoi(text, number, 0)) {
    return printError(
        "invalid_argument",
        std::string(set ? "Invalid brightness value: " : "Invalid brightness delta: ") + text, 1);
  }
  return finishRequest(*this,
                       sendAndWait(buildBrightnessRequest(action, splitByComma(endpoints), number),
                                   timeoutSeconds, sync),
                       "Failed to send brightness " + action + " request");
}

std::shared_ptr<ORNRequest> ORNCLI::buildBrightnessRequest(
    const std::string& action, const std::vector<std::string>& endpointIds, int number) {
  if (action == "get") {
    return featureGetRequest(client_.get(), firstOrEmpty(endpointIds), "brightness");
  }
  const bool set = action == "set";
  const std::string body = batchBody(endpointIds, [set, number](JsonValueBuilder& payload) {
    payload.set(set ? "brightness" : "brightnessDelta", number);
  });
  return batchRequest(client_.get(), "brightness", set ? "setBrightness" : "adjustBrightness",
                      body);
}

int ORNCLI::handleColor(int argc, char** argv, bool sync, int timeoutSeconds) {
  if (argc < 1 || hasFlag(argc, argv, "--help")) {
    return printHelp(kColorUsage, argc < 1 ? 1 : 0);
  }
  const std::string action = argv[0];
  if (action != "set") {
    return printError("invalid_argument", "Unknown color action: " + action + ". Use set", 1);
  }
  const RequiredOptions options =
      findRequired(argc, argv, {"--endpoints", "--hue", "--saturation", "--brightness"});
  if (options.missing) {
    return printError("missing_argument", std::string(options.missing) + " is required", 1);
  }
  const std::vector<std::string>& values = options.values;
  // Deliberate: lenient strtod, so junk reads as 0.0 and ranges are only advice.
  const double hue = std::strtod(values[1].c_str(), nullptr);
  const double saturation = std::strtod(values[2].c_str(), nullptr);
  const double brightness = std::strtod(values[3].c_str(), nullptr);
  return finishRequest(
      *this,
      sendAndWait(buildColorRequest(splitByComma(values[0]), hue, saturation, brightness),
                  timeoutSeconds, sync),
      "Failed to send color set request");
}

std::shared_ptr<ORNRequest> ORNCLI::buildColorRequest(const std::vector<std::string>& endpointIds,
                                                      double hue, double saturation,
                                                      double brightness) {
  const std::string body = batchBody(endpointIds, [&](JsonValueBuilder& payload) {
    setColorPayload(payload, hue, saturation, brightness);
  });
  return batchRequest(client_.get(), "color", "setColor", body);
}

int ORNCLI::handleColorTemp(int argc, char** argv, bool sync, int timeoutSeconds) {
  if (argc < 1 || hasFlag(argc, argv, "--help")) {
    return printHelp(kColorTempUsage, argc < 1 ? 1 : 0);
  }
  const std::string action = argv[0];
  if (action != "set") {
    return printError("invalid_argument", "Unknown colortemp action: " + action + ". Use set", 1);
  }
  const RequiredOptions options = findRequired(argc, argv, {"--endpoints", "--kelvin"});
  if (options.missing) {
    return printError("missing_argument", std::string(options.missing) + " is required", 1);
  }
  const std::string& endpoints = options.values[0];
  const std::string& kelvinText = options.values[1];
  // Deliberate: strict integer, unlike color's strtod, but no range check.
  int kelvin = 2700;
  if (!safeStoi(kelvinText, kelvin, 0)) {
    return printError("invalid_argument", "Invalid kelvin value: " + kelvinText, 1);
  }
  return finishRequest(
      *this,
      sendAndWait(buildColorTempRequest(splitByComma(endpoints), kelvin), timeoutSeconds, sync),
      "Failed to send colortemp set request");
}

std::shared_ptr<ORNRequest> ORNCLI::buildColorTempRequest(
    const std::vector<std::string>& endpointIds, int kelvin) {
  const std::string body = batchBody(endpointIds, [kelvin](JsonValueBuilder& payload) {
    payload.set("colorTemperatureInKelvin", kelvin);
  });
  return batchRequest(client_.get(), "colorTemperature", "setColorTemperature", body);
}

}  // namespace ornUtility
}  // namespace ornwick
