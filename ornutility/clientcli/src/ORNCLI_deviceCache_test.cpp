#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ORNCLI.h"

namespace ornwick {
namespace ornUtility {
namespace {

// One device as "entityId|endpointId|iface,iface", so a table row fits on a
// line.
std::string describe(const std::vector<CachedDevice>& devices) {
  std::string text;
  for (const CachedDevice& d : devices) {
    text += d.entityId + "|" + d.endpointId + "|";
    for (size_t i = 0; i < d.interfaces.size(); ++i) {
      text += (i == 0 ? "" : ",") + d.interfaces[i];
    }
    text += ";";
  }
  return text;
}

TEST(DeviceCache, ParseKeepsWhatItCanAndDropsTheRest) {
  static const struct {
    const char* input;
    const char* expected;
  } kCases[] = {
      // Not a device list at all.
      {"", ""},
      {"not json", ""},
      {"{\"results\":[{\"id\":\"a\"}]", ""},  // truncated
      {"[{\"id\":\"a\"}]", ""},               // root is not an object
      {"{}", ""},
      {"{\"results\":{\"id\":\"a\"}}", ""},  // results is not an array
      {"{\"results\":\"a\"}", ""},
      {"{\"results\":[]}", ""},
      // Whole and partial devices.
      {R"({"results":[{"id":"a","externallyReportedId":"lamp-1","capabilities":)"
       R"({"interfaces":["Corva.PowerController","Corva.ColorController"]}}]})",
       "a|lamp-1|Corva.PowerController,Corva.ColorController;"},
      {R"({"results":[{"externallyReportedId":"e"}]})", "|e|;"},
      {R"({"results":[{"id":"a"}]})", "a||;"},
      {R"({"results":[{}]})", "||;"},
      // Wrongly typed members are left empty, never read.
      {R"({"results":[{"id":7,"externallyReportedId":null}]})", "||;"},
      {R"({"results":[{"id":"a","capabilities":[]}]})", "a||;"},
      {R"({"results":[{"id":"a","capabilities":{"interfaces":"x"}}]})", "a||;"},
      {R"({"results":[{"id":"a","capabilities":{}}]})", "a||;"},
      {R"({"results":[{"id":"a","capabilities":{"interfaces":[1,"p",null,{},"q"]}}]})",
       "a||p,q;"},
      // Non-object elements are skipped; order is kept.
      {R"({"results":[1,"x",null,{"id":"a"},[],{"id":"b"}]})", "a||;b||;"},
      // Extra members do not matter.
      {R"({"other":1,"results":[{"id":"a","friendlyName":"Lamp","reachable":true}]})",
       "a||;"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(describe(parseLocalDevices(c.input)), c.expected) << c.input;
  }
}

TEST(DeviceCache, DisplayShowsOnlyPresentParts) {
  static const struct {
    std::vector<CachedDevice> devices;
    const char* expected;
  } kCases[] = {
      {{},
       "\n--- Local Connected Devices ---\n-------------------------------\n"},
      {{{"abc", "lamp-1", {"power", "brightness"}},
        {"", "", {}},
        {"d", "", {"x"}}},
       "\n--- Local Connected Devices ---\n"
       "1. entityId: abc  endpointId: lamp-1  [power, brightness]\n"
       "2. entityId: \n"
       "3. entityId: d  [x]\n"
       "-------------------------------\n"},
  };
  for (const auto& c : kCases) {
    testing::internal::CaptureStdout();
    displayDeviceList(c.devices);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.expected) << c.expected;
  }
}

}  // namespace
}  // namespace ornUtility
}  // namespace ornwick
