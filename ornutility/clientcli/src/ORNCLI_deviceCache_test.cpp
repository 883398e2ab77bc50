// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ORNCLI.h"

namespace ornwick::ornUtility {
namespace {

// One device as "entityId|endpointId|iface,iface;", so a table row fits on a line.
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
  const std::string nested = std::string(200000, '[') + std::string(200000, ']');
  const struct {
    std::string input;
    const char* expected;
  } kCases[] = {
      // Not a device list at all.
      {"", ""},
      {"{\"results\":[{\"id\":\"a\"}]", ""},  // truncated
      {"[{\"id\":\"a\"}]", ""},               // root is not an object
      {"{}", ""},
      {"{\"results\":{\"id\":\"a\"}}", ""},                   // results is not an array
      {"\xEF\xBB\xBF{\"results\":[{\"id\":\"a\"}]}", ""},     // byte-order mark
      {"{\"results\":[" + nested + ",{\"id\":\"a\"}]}", ""},  // nested past the depth bound
      // Whole and empty devices: an object is never dropped.
      {R"({"results":[{"id":"a","externallyReportedId":"lamp-1","capabilities":)"
       R"({"interfaces":["Corva.PowerController","Corva.ColorController"]}}]})",
       "a|lamp-1|Corva.PowerController,Corva.ColorController;"},
      {R"({"results":[{}]})", "||;"},
      // Wrongly typed members are left empty, never read.
      {R"({"results":[{"id":7,"externallyReportedId":null}]})", "||;"},
      {R"({"results":[{"id":"a","capabilities":[]}]})", "a||;"},
      {R"({"results":[{"id":"a","capabilities":{"interfaces":"x"}}]})", "a||;"},
      {R"({"results":[{"id":"a","capabilities":{"interfaces":[1,"p",null,{},"q"]}}]})", "a||p,q;"},
      // Non-object elements are skipped; order is kept.
      {R"({"results":[1,"x",null,{"id":"a"},[],{"id":"b"}]})", "a||;b||;"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(describe(parseLocalDevices(c.input)), c.expected) << c.input.substr(0, 80);
  }
}

}  // namespace
}  // namespace ornwick::ornUtility
