// SPDX-License-Identifier: Apache-2.0
// Directives: operation tables, payload checks, state changes and feature
// state.
#include "Directives.h"

#include <algorithm>
#include <cmath>

namespace ornsim {
namespace {

const OpInfo kOps[] = {
    {Op::kTurnOn, "power", "turnOn", kPowerController, "TurnOn"},
    {Op::kTurnOff, "power", "turnOff", kPowerController, "TurnOff"},
    {Op::kSetBrightness, "brightness", "setBrightness", kBrightnessController, "SetBrightness"},
    {Op::kAdjustBrightness, "brightness", "adjustBrightness", kBrightnessController,
     "AdjustBrightness"},
    {Op::kSetColor, "color", "setColor", kColorController, "SetColor"},
    {Op::kSetColorTemperature, "colorTemperature", "setColorTemperature",
     kColorTemperatureController, "SetColorTemperature"},
    {Op::kIncreaseColorTemperature, "colorTemperature", "increaseColorTemperature",
     kColorTemperatureController, "IncreaseColorTemperature"},
    {Op::kDecreaseColorTemperature, "colorTemperature", "decreaseColorTemperature",
     kColorTemperatureController, "DecreaseColorTemperature"},
};

// Feature name, interface that provides it, event namespace and event name.
struct FeatureInfo {
  const char* feature;
  const char* interface;
  const char* eventNamespace;
  const char* eventName;
};
const FeatureInfo kFeatures[] = {
    {"power", kPowerController, "Corva.Endpoint.Feature.Power", "Property.PowerState.Change"},
    {"brightness", kBrightnessController, "Corva.Endpoint.Feature.Brightness",
     "Property.Brightness.Change"},
    {"color", kColorController, "Corva.Endpoint.Feature.Color", "Property.Color.Change"},
    {"colorTemperature", kColorTemperatureController, "Corva.Endpoint.Feature.ColorTemperature",
     "Property.ColorTemperature.Change"},
};

constexpr int kMinKelvin = 1000;
constexpr int kMaxKelvin = 10000;
constexpr int kDefaultKelvinStep = 500;

bool number(const rapidjson::Value* obj, const char* key, double* out) {
  const rapidjson::Value* v = obj == nullptr ? nullptr : findMember(*obj, key);
  if (v == nullptr || !v->IsNumber())
    return false;
  *out = v->GetDouble();
  return true;
}

int clampInt(double v, int lo, int hi) {
  return static_cast<int>(std::lround(std::min<double>(hi, std::max<double>(lo, v))));
}

}  // namespace

void writeColor(JsonWriter& w, const Color& c) {
  w.StartObject();
  w.Key("hue");
  w.Double(c.hue);
  w.Key("saturation");
  w.Double(c.saturation);
  w.Key("brightness");
  w.Double(c.brightness);
  w.EndObject();
}

namespace {

// The feature's single property as name and JSON value.
void writeProperty(JsonWriter& w, const Device& d, const std::string& feature) {
  w.StartObject();
  w.Key("name");
  if (feature == "connectivity") {
    w.String("reachability");
  } else if (feature == "power") {
    w.String("powerState");
  } else if (feature == "colorTemperature") {
    w.String("colorTemperatureInKelvin");
  } else {
    writeString(w, feature);
  }
  w.Key("value");
  w.StartObject();
  w.Key("value");
  if (feature == "connectivity")
    w.String(d.reachable ? "OK" : "UNREACHABLE");
  else if (feature == "power")
    w.String(d.state.power ? "ON" : "OFF");
  else if (feature == "brightness")
    w.Int(d.state.brightness);
  else if (feature == "color")
    writeColor(w, d.state.color);
  else
    w.Int(d.state.colorTemperatureInKelvin);
  w.EndObject();
  w.EndObject();
}

StateChange change(const Device& d, const char* feature) {
  StateChange c;
  c.entityId = d.id;
  c.endpointId = d.endpointId;
  for (const auto& f : kFeatures)
    if (std::string(f.feature) == feature) {
      c.nameSpace = f.eventNamespace;
      c.name = f.eventName;
    }
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  const std::string name = feature;
  if (name == "power")
    w.String(d.state.power ? "ON" : "OFF");
  else if (name == "brightness")
    w.Int(d.state.brightness);
  else if (name == "color")
    writeColor(w, d.state.color);
  else
    w.Int(d.state.colorTemperatureInKelvin);
  c.valueJson = buf.GetString();
  return c;
}

}  // namespace

const OpInfo* findQfiOp(const std::string& interface, const std::string& directive) {
  for (const auto& op : kOps)
    if (interface == op.qfiInterface && directive == op.qfiDirective)
      return &op;
  return nullptr;
}

const OpInfo* findDfiOp(const std::string& nameSpace, const std::string& name) {
  for (const auto& op : kOps)
    if (nameSpace == op.nameSpace && name == op.dfiName)
      return &op;
  return nullptr;
}

bool knownNamespace(const std::string& nameSpace) {
  for (const auto& op : kOps)
    if (nameSpace == op.nameSpace)
      return true;
  return false;
}

bool parseOpArgs(Op op, const rapidjson::Value* payload, OpArgs* args, std::string* err) {
  switch (op) {
    case Op::kTurnOn:
    case Op::kTurnOff:
      return true;
    case Op::kSetBrightness:
      if (number(payload, "brightness", &args->number))
        return true;
      *err = "the payload needs a number \"brightness\"";
      return false;
    case Op::kAdjustBrightness:
      if (number(payload, "brightnessDelta", &args->number))
        return true;
      *err = "the payload needs a number \"brightnessDelta\"";
      return false;
    case Op::kSetColor: {
      const rapidjson::Value* c = payload == nullptr ? nullptr : findMember(*payload, "color");
      if (c != nullptr && number(c, "hue", &args->color.hue) &&
          number(c, "saturation", &args->color.saturation) &&
          number(c, "brightness", &args->color.brightness))
        return true;
      *err =
          "the payload needs \"color\" with numbers \"hue\", \"saturation\", "
          "\"brightness\"";
      return false;
    }
    case Op::kSetColorTemperature:
      if (number(payload, "colorTemperatureInKelvin", &args->number))
        return true;
      *err = "the payload needs a number \"colorTemperatureInKelvin\"";
      return false;
    case Op::kIncreaseColorTemperature:
    case Op::kDecreaseColorTemperature:
      // The step is optional; a missing one means the default step.
      if (!number(payload, "colorTemperatureDelta", &args->number))
        args->number = kDefaultKelvinStep;
      return true;
  }
  return false;
}

std::vector<StateChange> applyOp(Device& d, Op op, const OpArgs& args) {
  DeviceState& s = d.state;
  const char* feature = "power";
  switch (op) {
    case Op::kTurnOn:
    case Op::kTurnOff:
      s.power = op == Op::kTurnOn;
      break;
    case Op::kSetBrightness:
      s.brightness = clampInt(args.number, 0, 100);
      feature = "brightness";
      break;
    case Op::kAdjustBrightness:
      s.brightness = clampInt(s.brightness + args.number, 0, 100);
      feature = "brightness";
      break;
    case Op::kSetColor:
      s.color.hue = std::min(360.0, std::max(0.0, args.color.hue));
      s.color.saturation = std::min(1.0, std::max(0.0, args.color.saturation));
      s.color.brightness = std::min(1.0, std::max(0.0, args.color.brightness));
      feature = "color";
      break;
    case Op::kSetColorTemperature:
      s.colorTemperatureInKelvin = clampInt(args.number, kMinKelvin, kMaxKelvin);
      feature = "colorTemperature";
      break;
    case Op::kIncreaseColorTemperature:
    case Op::kDecreaseColorTemperature: {
      const double step = op == Op::kIncreaseColorTemperature ? args.number : -args.number;
      s.colorTemperatureInKelvin =
          clampInt(s.colorTemperatureInKelvin + step, kMinKelvin, kMaxKelvin);
      feature = "colorTemperature";
      break;
    }
  }
  // Every applied directive reports its property, changed or not, as a real hub
  // does.
  return {change(d, feature)};
}

std::vector<std::string> featuresOf(const Device& d) {
  std::vector<std::string> names = {"connectivity"};
  for (const auto& f : kFeatures)
    if (d.offers(f.interface))
      names.push_back(f.feature);
  return names;
}

bool writeFeature(JsonWriter& w, const Device& d, const std::string& feature) {
  const auto names = featuresOf(d);
  if (std::find(names.begin(), names.end(), feature) == names.end())
    return false;
  w.StartObject();
  writeMember(w, "entityId", d.id);
  writeMember(w, "endpointId", d.endpointId);
  writeMember(w, "name", feature);
  w.Key("properties");
  w.StartArray();
  writeProperty(w, d, feature);
  w.EndArray();
  w.EndObject();
  return true;
}

}  // namespace ornsim
