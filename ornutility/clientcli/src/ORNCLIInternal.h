// SPDX-License-Identifier: Apache-2.0
// Helpers shared by the ORNCLI_*.cpp files only; not part of the tool's
// interface.
#pragma once

#include <android/log.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "JsonDocBuilder.h"
#include "ORNCLI.h"
#include "ORNRequestBuilder.h"
#include "QfiPath.h"

namespace ornwick {
namespace ornUtility {

constexpr const char* kLogTag = "ORNUtility:ORNCLI";
// Log records name these fixed source paths, whichever file the code lives in.
constexpr const char* kCliSourcePath = "ornutility/clientcli/src/ORNCLI";
constexpr const char* kHandlersSourcePath = "ornutility/clientcli/src/ORNCLIEventHandlers";

// The reachable-devices query of the devices subcommand and the device cache.
constexpr const char* kReachableFilterKey = "filterExpression";
constexpr const char* kReachableFilterValue =
    "features[name:connectivity].properties[name:reachability].value.value=OK";

// The connector type both modes register with. Written as its number, so the
// tool builds against any connector library whatever it names the enumerator.
constexpr ornConnector::ConnectorType kConnectorType = static_cast<ornConnector::ConnectorType>(1);

// Client identities given to ORNClient::initialize.
constexpr const char* kOneShotClientName = "ORNCLI-cmd";
constexpr const char* kInteractiveClientName = "ORNCLI";

// Write text to stdout (stderr) in one piece and flush, so that output printed
// meanwhile by the connector's threads cannot land inside it. Plain stdio rather
// than iostreams: the streams' locale set-up alone costs a one-shot run half a
// MiB of touched pages (ORNCLI_input.cpp).
void writeOut(const std::string& text);
void writeErr(const std::string& text);
// writeOut of text and a newline.
void writeLine(const std::string& text);

// The RequestPayload text of the reachable-devices query, as the devices
// subcommand sends it (ORNCLI_deviceCache.cpp).
std::string reachableDevicesPayload();

// The protocol numbers the tool's own code needs. Written here rather than
// taken from the connector's protocol header: the tool builds against the
// platform's library too, which does not ship that header (a test checks they
// agree with it).
// Request types of the envelope: RequestPayload text, raw subscription text,
// state.
constexpr int32_t kPayloadRequestType = 1;
constexpr int32_t kSubscriptionRequestType = 2;
constexpr int32_t kStateRequestType = 3;
// Event types the tool waits for or prints.
constexpr int kStateChangeEvent = 21;
constexpr int kClientRegisteredEvent = 23;

// A builder with a fresh request id from client (none without a client) and the
// type.
ornConnector::api::ORNRequestBuilder newRequestBuilder(ORNClient* client, int32_t requestType);

// Sets "directivePayload", filled by fill, as the body's last member and
// returns the body's text ("" when it cannot be written).
std::string finishDirectiveBody(
    zedLocalUtil::jsonUtil::JsonDocBuilder& body,
    const std::function<void(zedLocalUtil::jsonUtil::JsonValueBuilder&)>& fill);

// Sets the "color" object of a directive payload: hue, saturation, brightness as doubles
// (ORNCLI_lights.cpp).
void setColorPayload(zedLocalUtil::jsonUtil::JsonValueBuilder& payload, double hue,
                     double saturation, double brightness);

// The reachable-devices query path, as the devices subcommand and the device cache send it
// (ORNCLI_devices.cpp).
ornConnector::api::QfiPath reachableDevicesPath();

// The values of required options, looked up all first, and the first one left
// empty (nullptr when every option was given).
struct RequiredOptions {
  std::vector<std::string> values;
  const char* missing = nullptr;
};
RequiredOptions findRequired(int argc, char** argv, std::initializer_list<const char*> names);

// Writes a subcommand's help text and a newline on stdout; returns code.
int printHelp(const char* text, int code);

// The end of every one-shot handler: prints the response and returns 0, or
// reports "request_failed" with the failure message and returns 2.
int finishRequest(ORNCLI& cli, const std::shared_ptr<ORNResponse>& response,
                  const std::string& failure);

}  // namespace ornUtility
}  // namespace ornwick

// An error record in the tool's fixed format: "{#<line>:<path>}Err :
// <message>".
#define ORNCLI_LOG_ERROR(path, fmt, ...)                                                       \
  __android_log_print(ANDROID_LOG_ERROR, ::ornwick::ornUtility::kLogTag, "{#%d:%s}Err : " fmt, \
                      __LINE__, path, ##__VA_ARGS__)
