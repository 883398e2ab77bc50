// SPDX-License-Identifier: Apache-2.0
// Directives: the operations a device accepts, by QFI path or DFI name, and
// their effect.
#pragma once

#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "Home.h"
#include "JsonText.h"
#include "Subscriptions.h"

namespace ornsim {

enum class Op {
  kTurnOn,
  kTurnOff,
  kSetBrightness,
  kAdjustBrightness,
  kSetColor,
  kSetColorTemperature,
  kIncreaseColorTemperature,
  kDecreaseColorTemperature,
};

struct OpInfo {
  Op op;
  const char* qfiInterface;  // path segment after "interfaces/"
  const char* qfiDirective;  // last path segment
  const char* nameSpace;     // DFI namespace, also the interface a device must offer
  const char* dfiName;
};

// nullptr when the pair names no operation.
const OpInfo* findQfiOp(const std::string& interface, const std::string& directive);
const OpInfo* findDfiOp(const std::string& nameSpace, const std::string& name);
// True when some operation has this DFI namespace (to tell unknown namespaces
// from names).
bool knownNamespace(const std::string& nameSpace);

struct OpArgs {
  double number = 0;
  Color color;
};

// Reads the directive payload (may be null). Returns false and sets *err when
// it lacks or mistypes what the operation needs.
bool parseOpArgs(Op op, const rapidjson::Value* payload, OpArgs* args, std::string* err);

// Applies the operation to the device and returns the reported property
// changes.
std::vector<StateChange> applyOp(Device& device, Op op, const OpArgs& args);

// Writes {"entityId":..,"endpointId":..,"name":feature,"properties":[..]};
// false when the device has no such feature (nothing written then).
bool writeFeature(JsonWriter& w, const Device& device, const std::string& feature);

// Writes {"hue":..,"saturation":..,"brightness":..}.
void writeColor(JsonWriter& w, const Color& color);

// The features a device reports: connectivity plus one per interface it offers.
std::vector<std::string> featuresOf(const Device& device);

}  // namespace ornsim
