// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the reachable devices offered by the interactive dialogues, fetched
// from the service and parsed leniently.
#include "ORNCLI.h"

#include <rapidjson/document.h>

#include "BoundedParse.h"
#include "JsonFields.h"
#include "ORNCLIInternal.h"
#include "QfiPath.h"
#include "RequestPayload.h"

namespace ornwick {
namespace ornUtility {

using ornConnector::api::RequestPayload;

namespace {

// The answer is only read, so its tree lives in a memory pool, freed at once
// rather than node by node.
using JsonValue = rapidjson::Value;

using zedLocalUtil::jsonUtil::findMember;
using zedLocalUtil::jsonUtil::getString;

CachedDevice parseDevice(const JsonValue& element) {
  CachedDevice device;
  getString(element, "id", &device.entityId);
  getString(element, "externallyReportedId", &device.endpointId);
  const JsonValue* capabilities = findMember(element, "capabilities");
  if (capabilities == nullptr || !capabilities->IsObject()) {
    return device;
  }
  const JsonValue* interfaces = findMember(*capabilities, "interfaces");
  if (interfaces == nullptr || !interfaces->IsArray()) {
    return device;
  }
  for (const JsonValue& name : interfaces->GetArray()) {
    if (name.IsString()) {
      device.interfaces.emplace_back(name.GetString(), name.GetStringLength());
    }
  }
  return device;
}

}  // namespace

std::string reachableDevicesPayload() {
  RequestPayload payload;
  payload.qfi = QFIRequest::fromPath(reachableDevicesPath(), QFIRequest::GET, "");
  return payload.toJsonString();
}

std::vector<CachedDevice> parseLocalDevices(const std::string& json) {
  std::vector<CachedDevice> devices;
  if (json.empty()) {
    return devices;
  }
  // A plain parse of the text: it ends at a NUL and a byte-order mark is an
  // error. Nesting past the bound is malformed JSON too: no devices.
  rapidjson::Document doc;
  if (zedLocalUtil::jsonUtil::boundedParse(&doc, json.c_str()).IsError() || !doc.IsObject()) {
    return devices;
  }
  const JsonValue* results = findMember(doc, "results");
  if (results == nullptr || !results->IsArray()) {
    return devices;
  }
  for (const JsonValue& element : results->GetArray()) {
    // An object is kept however little it holds; anything else is skipped.
    if (element.IsObject()) {
      devices.push_back(parseDevice(element));
    }
  }
  return devices;
}

void displayDeviceList(const std::vector<CachedDevice>& devices) {
  std::string text = "\n--- Local Connected Devices ---\n";
  for (size_t i = 0; i < devices.size(); ++i) {
    const CachedDevice& device = devices[i];
    text += std::to_string(i + 1) + ". entityId: " + device.entityId;
    if (!device.endpointId.empty()) {
      text += "  endpointId: " + device.endpointId;
    }
    if (!device.interfaces.empty()) {
      text += "  [";
      for (size_t j = 0; j < device.interfaces.size(); ++j) {
        text += (j == 0 ? "" : ", ") + device.interfaces[j];
      }
      text += "]";
    }
    text += "\n";
  }
  text += "-------------------------------\n";
  writeOut(text);
}

std::vector<CachedDevice> ORNCLI::fetchLocalDevices() {
  auto request = std::make_shared<ORNRequest>();
  request->requestType = kPayloadRequestType;
  request->payload = reachableDevicesPayload();
  writeLine("Fetching local connected devices...");
  std::shared_ptr<ORNResponse> response;
  if (interactiveClient_) {
    request->requestId = interactiveClient_->generateRequestId();
    response = interactiveClient_->sendSyncRequest(request);
  }
  if (!response || response->responseData.empty()) {
    writeLine("Failed to fetch local devices");
    return {};
  }
  std::vector<CachedDevice> devices = parseLocalDevices(response->responseData);
  if (devices.empty()) {
    writeLine("No devices found in local cache");
  } else {
    displayDeviceList(devices);
  }
  return devices;
}

}  // namespace ornUtility
}  // namespace ornwick
