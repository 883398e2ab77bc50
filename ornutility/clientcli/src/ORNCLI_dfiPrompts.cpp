// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the interactive dialogues that compose a DFI request, with the
// endpoint picked from the device cache or typed in.
#include "ORNCLI.h"

#include <algorithm>

#include "ArgHelpers.h"
#include "ORNCLIInternal.h"

namespace ornwick {
namespace ornUtility {

namespace {

constexpr const char kPowerNamespace[] = "Corva.PowerController";
constexpr const char kBrightnessNamespace[] = "Corva.BrightnessController";
constexpr const char kDeviceManagerNamespace[] = "Tessel.DeviceManager";

// How a directive menu's answer becomes a name.
enum class DirectiveAnswer {
  kFirstIfOne,  // exactly "1": names[0]; anything else: names[1]
  kNumber,      // a number (default 1): 2 or 3 picks names[1] or names[2]
  kFixed,       // always names[0]; the prompt, if any, is read and ignored
};

// The namespace table, in menu order, with each namespace's directive menu.
const struct {
  const char* nameSpace;
  const char* menu;
  const char* prompt;  // nullptr: nothing is asked
  DirectiveAnswer answer;
  const char* names[3];
} kNamespaces[] = {
    {kPowerNamespace,
     "1. TurnOn\n2. TurnOff",
     "Enter directive choice (1-2)",
     DirectiveAnswer::kFirstIfOne,
     {"TurnOn", "TurnOff", nullptr}},
    {kBrightnessNamespace,
     "1. SetBrightness\n2. AdjustBrightness",
     "Enter directive choice (1-2)",
     DirectiveAnswer::kFirstIfOne,
     {"SetBrightness", "AdjustBrightness", nullptr}},
    {"Corva.ColorController",
     "1. SetColor",
     nullptr,
     DirectiveAnswer::kFixed,
     {"SetColor", nullptr, nullptr}},
    {"Corva.ColorTemperatureController",
     "1. SetColorTemperature\n2. IncreaseColorTemperature\n3. "
     "DecreaseColorTemperature",
     "Enter directive choice (1-3)",
     DirectiveAnswer::kNumber,
     {"SetColorTemperature", "IncreaseColorTemperature", "DecreaseColorTemperature"}},
    {kDeviceManagerNamespace,
     "1. GetDevices",
     "Enter directive choice (1)",
     DirectiveAnswer::kFixed,
     {"GetDevices", nullptr, nullptr}},
};

// The namespaces to offer: the whole table without a device, else the device's
// ones in table order, with the device manager always last.
std::vector<std::string> namespaceOptions(const std::vector<std::string>& deviceNamespaces) {
  std::vector<std::string> options;
  for (const auto& entry : kNamespaces) {
    if (deviceNamespaces.empty() || std::find(deviceNamespaces.begin(), deviceNamespaces.end(),
                                              entry.nameSpace) != deviceNamespaces.end()) {
      options.emplace_back(entry.nameSpace);
    }
  }
  if (std::find(options.begin(), options.end(), kDeviceManagerNamespace) == options.end()) {
    options.emplace_back(kDeviceManagerNamespace);
  }
  return options;
}

}  // namespace

std::shared_ptr<DFIRequest> ORNCLI::promptDfiRequest() {
  auto request = std::make_shared<DFIRequest>();
  std::vector<std::string> deviceNamespaces;
  writeLine(
      "\nBuild DFI endpoint from:\n"
      "1. Local device cache (auto-fill from connected devices)\n2. "
      "Manual input");
  if (nextArgRequired("Enter choice (1-2)") == "1") {
    const std::vector<CachedDevice> devices = fetchLocalDevices();
    if (devices.empty()) {
      writeLine("Falling back to manual input");
    } else {
      int number = 0;
      const bool parsed = safeStoi(
          nextArgRequired("Select device number (1-" + std::to_string(devices.size()) + ")"),
          number, 0);
      if (!parsed || number < 1 || static_cast<size_t>(number) > devices.size()) {
        writeLine("Invalid selection, falling back to manual input");
      } else {
        const CachedDevice& device = devices[number - 1];
        request->entityId = device.entityId;
        request->endpointId = device.endpointId;
        deviceNamespaces = device.interfaces;
        writeLine("Selected device: entityId=" + device.entityId +
                  " endpointId=" + device.endpointId);
      }
    }
  }
  // Also reached by a picked device whose entity id is empty.
  if (request->entityId.empty()) {
    request->entityId = nextArgRequired("Enter entity ID");
    request->endpointId = nextArgRequired("Enter endpoint ID");
  }
  promptDfiNamespaceAndDirective(request, deviceNamespaces);
  request->payloadVersion = "3.0";
  promptDfiPayload(request);
  return request;
}

void ORNCLI::promptDfiNamespaceAndDirective(std::shared_ptr<DFIRequest> request,
                                            const std::vector<std::string>& deviceNamespaces) {
  const std::vector<std::string> options = namespaceOptions(deviceNamespaces);
  std::string menu = "\nSelect DFI namespace:";
  for (size_t i = 0; i < options.size(); ++i) {
    menu += "\n" + std::to_string(i + 1) + ". " + options[i];
  }
  writeLine(menu);
  int choice = 1;
  const bool parsed =
      safeStoi(nextArgRequired("Enter namespace choice (1-" + std::to_string(options.size()) + ")"),
               choice, 1);
  if (!parsed || choice < 1 || static_cast<size_t>(choice) > options.size()) {
    writeLine("Invalid namespace choice, defaulting to first option");
    choice = 1;
  }
  request->nameSpace = options[choice - 1];

  writeLine("\nSelect directive name:");
  for (const auto& entry : kNamespaces) {
    if (request->nameSpace != entry.nameSpace) {
      continue;
    }
    writeLine(entry.menu);
    const std::string answer = entry.prompt != nullptr ? nextArgRequired(entry.prompt) : "";
    // No directive answer is ever reported as invalid.
    switch (entry.answer) {
      case DirectiveAnswer::kFirstIfOne:
        request->name = entry.names[answer == "1" ? 0 : 1];
        break;
      case DirectiveAnswer::kNumber: {
        int number = 1;
        safeStoi(answer, number, 1);
        request->name = entry.names[number == 2 || number == 3 ? number - 1 : 0];
        break;
      }
      case DirectiveAnswer::kFixed:
        request->name = entry.names[0];
        break;
    }
    return;
  }
}

void ORNCLI::promptDfiPayload(std::shared_ptr<DFIRequest> request) {
  if (request->nameSpace == kPowerNamespace) {
    request->payload.clear();
    return;
  }
  // Deliberate: the brightness answers are pasted in unparsed, so a bad answer
  // gives a payload that is not JSON.
  if (request->nameSpace == kBrightnessNamespace) {
    if (request->name == "SetBrightness") {
      request->payload =
          "{\"brightness\": " + nextArgRequired("Enter brightness value (0-100)") + "}";
    } else {
      request->payload =
          "{\"brightnessDelta\": " + nextArgRequired("Enter brightness delta (-100 to 100)") + "}";
    }
    return;
  }
  request->payload = nextArgRequired("Enter custom payload (JSON format)");
}

}  // namespace ornUtility
}  // namespace ornwick
