// SPDX-License-Identifier: Apache-2.0
// Home: the simulated devices and groups, their state, and loading them from
// JSON.
#pragma once

#include <rapidjson/fwd.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace ornsim {

// Interface namespaces a device may offer.
constexpr const char* kPowerController = "Corva.PowerController";
constexpr const char* kBrightnessController = "Corva.BrightnessController";
constexpr const char* kColorController = "Corva.ColorController";
constexpr const char* kColorTemperatureController = "Corva.ColorTemperatureController";

struct Color {
  double hue = 0;
  double saturation = 0;
  double brightness = 0;
};

struct DeviceState {
  bool power = false;
  int brightness = 0;
  Color color;
  int colorTemperatureInKelvin = 0;
};

struct Device {
  std::string id;          // entity id
  std::string endpointId;  // "externallyReportedId"
  std::string friendlyName;
  bool reachable = true;
  std::vector<std::string> interfaces;
  DeviceState state;

  bool offers(const std::string& nameSpace) const;
};

struct Group {
  std::string id;
  std::vector<std::string> members;  // entity or endpoint ids
};

struct Home {
  std::vector<Device> devices;
  std::vector<Group> groups;

  // By entity id or endpoint id; nullptr when unknown. Constant time: a group
  // directive over thousands of devices looks each one up.
  Device* findDevice(const std::string& id);
  const Device* findDevice(const std::string& id) const;
  const Group* findGroup(const std::string& id) const;
  // The groups holding the device (by either of its ids); empty for none.
  const std::vector<size_t>& groupsOf(const Device& device) const;

  // Rebuilds the lookups above; whoever changes `devices` or `groups` calls it.
  void reindex();

  // Changes other than directives' (which report theirs) count here, so that a
  // saver can tell: reindex() counts one, /sim/ reachability changes too.
  uint64_t edits = 0;

 private:
  std::unordered_map<std::string, size_t> deviceAt_;  // entity and endpoint ids
  std::unordered_map<std::string, size_t> groupAt_;
  std::vector<std::vector<size_t>> groupsOf_;  // per device, parallel to `devices`
};

// Whether s is UTF-8 without control characters (C0, DEL or C1): what ids and
// names must be, so that strict decoders and one-line logs take them.
bool cleanText(const std::string& s);
// s with every control character and every byte that is not UTF-8 as '?'.
std::string printableText(const std::string& s);

// Parses a home file's text. Returns false with every problem found in
// *problems.
bool parseHome(const std::string& text, Home* home, std::vector<std::string>* problems);

// Reads one device entry, or a "state" object, as a home file writes it; each
// problem goes to *problems prefixed by `where` ("devices[2]").
void parseDevice(const rapidjson::Value& v, const std::string& where, Device* device,
                 std::vector<std::string>* problems);
void parseDeviceState(const rapidjson::Value& v, const std::string& where, DeviceState* state,
                      std::vector<std::string>* problems);

// Reads and parses a home file; problems as for parseHome, plus read errors.
bool loadHome(const std::string& path, Home* home, std::vector<std::string>* problems);

// Six devices of different capabilities (one unreachable) and two groups.
Home builtinHome();

}  // namespace ornsim
