// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the interactive dialogues that compose a QFI request.
#include "ORNCLI.h"

#include <cstdlib>

#include "ArgHelpers.h"
#include "BatchEndpoints.h"
#include "JsonValueBuilder.h"
#include "ORNCLIInternal.h"

namespace ornwick {
namespace ornUtility {

using zedLocalUtil::jsonUtil::JsonDocBuilder;
using zedLocalUtil::jsonUtil::JsonValueBuilder;
using AnswerReader = std::function<std::string(const std::string&)>;

namespace {

// Asks for a group id or a list of endpoint ids and sets "groupId" or "batch" on the body.
void promptBatchEndpointsOrGroup(JsonDocBuilder& doc, const AnswerReader& nextArg);

// The answer reader each batch dialogue hands to promptBatchEndpointsOrGroup.
AnswerReader readerOf(ORNCLI* cli) {
  return [cli](const std::string& prompt) { return cli->nextArgRequired(prompt); };
}

// Asks for the batch target, then lets fillPayload add the directive's
// parameters, and returns the body text: the target member first,
// "directivePayload" second.
std::string promptBatchBody(const AnswerReader& nextArg,
                            const std::function<void(JsonValueBuilder&)>& fillPayload) {
  JsonDocBuilder doc;
  promptBatchEndpointsOrGroup(doc, nextArg);
  return finishDirectiveBody(doc, fillPayload);
}

// The answer as a number, or def after invalidMessage for an empty or bad one.
int promptInt(const AnswerReader& nextArg, const std::string& prompt, int def,
              const char* invalidMessage) {
  int value = def;
  if (!safeStoi(nextArg(prompt), value, def)) {
    writeLine(invalidMessage);
  }
  return value;
}

// Menu answer 3 of the power and brightness dialogues: one endpoint's feature,
// read with GET and no body.
void promptFeatureGet(const AnswerReader& nextArg, const char* feature, QFIRequest* request) {
  request->path = "/v2/endpoints/" + nextArg("Enter endpoint ID") + "/features/" + feature + "/";
  request->method = QFIRequest::GET;
  request->requestBody.clear();
}

}  // namespace

namespace {

void promptBatchEndpointsOrGroup(JsonDocBuilder& doc, const AnswerReader& nextArg) {
  writeLine(
      "\nSelect batch endpoint source:\n1. Group (via groupId)\n"
      "2. Individual endpoint IDs");
  if (nextArg("Enter batch source (1-2)") == "1") {
    doc.set("groupId", nextArg("Enter group ID"));
    return;
  }
  // Deliberate: the reader's own " : " follows the label on the same line.
  writeOut("\nEnter number of endpoints: ");
  const int count = promptInt(nextArg, "", 1, "Invalid number of endpoints, defaulting to 1");
  std::vector<std::string> ids;
  for (long long i = 1; i <= count; ++i) {
    ids.push_back(nextArg("Enter endpoint ID " + std::to_string(i)));
  }
  buildBatchEndpoints(doc, ids);
}

}  // namespace

std::shared_ptr<QFIRequest> ORNCLI::promptQfiRequest() {
  auto request = std::make_shared<QFIRequest>();
  writeLine(
      "\nSelect QFI interface:\n1. Power Control\n2. Brightness Control\n"
      "3. Color Control\n4. Color Temperature Control\n5. Custom Path");
  int choice = 1;
  if (!safeStoi(nextArgRequired("Enter interface choice (1-5)"), choice, 1)) {
    writeLine("Invalid interface choice, defaulting to Power Control");
  }
  switch (choice) {
    case 1:
      promptQfiPower(request);
      return request;
    case 2:
      promptQfiBrightness(request);
      return request;
    case 3:
      promptQfiColor(request);
      return request;
    case 4:
      promptQfiColorTemp(request);
      return request;
    case 5:
      promptQfiCustom(request);
      return request;
  }
  // Deliberate: unlike "Custom Path", the method stays unset, the body empty.
  writeLine("Invalid choice, using custom path input");
  request->path = nextArgRequired("Enter QFI path");
  return request;
}

void ORNCLI::promptQfiPower(std::shared_ptr<QFIRequest> request) {
  writeLine("\nSelect power action:\n1. Turn On\n2. Turn Off\n3. Get Power");
  const std::string action = nextArgRequired("Enter action choice (1-3)");
  if (action == "3") {
    promptFeatureGet(readerOf(this), "power", request.get());
    return;
  }
  // Deliberate: every answer but "1" means turn off, without a message.
  request->path = std::string("/v2/endpoints/batch/interfaces/power/") +
                  (action == "1" ? "turnOn/" : "turnOff/");
  request->method = QFIRequest::POST;
  request->requestBody = promptBatchBody(readerOf(this), [](JsonValueBuilder&) {});
}

void ORNCLI::promptQfiBrightness(std::shared_ptr<QFIRequest> request) {
  writeLine(
      "\nSelect brightness action:\n1. Set Brightness\n"
      "2. Adjust Brightness\n3. Get Brightness");
  const std::string action = nextArgRequired("Enter action choice (1-3)");
  if (action == "3") {
    promptFeatureGet(readerOf(this), "brightness", request.get());
    return;
  }
  const bool set = action == "1";
  // Deliberate: unlike the power paths, these end without a slash.
  request->path = std::string("/v2/endpoints/batch/interfaces/brightness/") +
                  (set ? "setBrightness" : "adjustBrightness");
  request->method = QFIRequest::POST;
  const AnswerReader reader = readerOf(this);
  request->requestBody = promptBatchBody(reader, [&](JsonValueBuilder& payload) {
    // The ranges in the prompts are advice: out-of-range numbers go out.
    if (set) {
      payload.set("brightness", promptInt(reader, "Enter brightness value (0-100)", 50,
                                          "Invalid brightness value, defaulting to 50"));
    } else {
      payload.set("brightnessDelta", promptInt(reader, "Enter brightness adjustment (-100 to 100)",
                                               0, "Invalid brightness delta, defaulting to 0"));
    }
  });
}

void ORNCLI::promptQfiColor(std::shared_ptr<QFIRequest> request) {
  request->path = "/v2/endpoints/batch/interfaces/color/setColor";
  request->method = QFIRequest::POST;
  request->requestBody = promptBatchBody(readerOf(this), [this](JsonValueBuilder& payload) {
    const std::string hue = nextArgRequired("Enter hue value (0-360)");
    const std::string saturation = nextArgRequired("Enter saturation value (0.0-1.0)");
    const std::string brightness = nextArgRequired("Enter brightness value (0.0-1.0)");
    // Deliberately lenient: strtod without end check or message.
    setColorPayload(payload, std::strtod(hue.c_str(), nullptr),
                    std::strtod(saturation.c_str(), nullptr),
                    std::strtod(brightness.c_str(), nullptr));
  });
}

void ORNCLI::promptQfiColorTemp(std::shared_ptr<QFIRequest> request) {
  request->path = "/v2/endpoints/batch/interfaces/colorTemperature/setColorTemperature";
  request->method = QFIRequest::POST;
  const AnswerReader reader = readerOf(this);
  request->requestBody = promptBatchBody(reader, [&reader](JsonValueBuilder& payload) {
    payload.set("colorTemperatureInKelvin",
                promptInt(reader, "Enter color temperature value (1000-10000 Kelvin)", 2700,
                          "Invalid color temperature, defaulting to 2700"));
  });
}

void ORNCLI::promptQfiCustom(std::shared_ptr<QFIRequest> request) {
  request->path = nextArgRequired("Enter custom QFI path");
  writeLine("Select method:\n1. GET\n2. POST");
  if (nextArgRequired("Enter method (1-2)") == "1") {
    request->method = QFIRequest::GET;
    return;
  }
  request->method = QFIRequest::POST;
  // Sent verbatim; the request serialiser decides what an invalid body becomes.
  request->requestBody = nextArgRequired("Enter custom request body (JSON format)");
}

}  // namespace ornUtility
}  // namespace ornwick
