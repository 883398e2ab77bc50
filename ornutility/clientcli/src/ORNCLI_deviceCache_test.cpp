#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ORNCLI.h"

namespace ornwick {
namespace ornUtility {
namespace {

// One device as "entityId|endpointId|iface,iface;", so a row fits on a line.
std::string describe(const std::vector<CachedDevice>& devices) {
  std::string text;
  for (const CachedDevice& d : devices) {
    text += d.entityId + "|" + d.endpointId + "|";
    for (size_t i = 0; i < d.interfaces.size(); ++i)
      text += (i == 0 ? "" : ",") + d.interfaces[i];
    text += ";";
  }
  return text;
}

TEST(DeviceCache, ParseKeepsWhatItCanAndDropsTheRest) {
  static const struct {
    const char* input;
    const char* expected;
  } kCases[] = {
      // Not a device list at all: empty, truncated, not an object, no array of results.
      {"", ""},
      {R"({"results":[{"id":"a"}])", ""},
      {R"([{"id":"a"}])", ""},
      {"{}", ""},
      {R"({"results":{"id":"a"}})", ""},
      // An object is never dropped; wrongly typed members are left empty, never read.
      {R"({"results":[{}]})", "||;"},
      {R"({"results":[{"id":7,"externallyReportedId":null}]})", "||;"},
      {R"({"results":[{"id":"a","capabilities":[]}]})", "a||;"},
      {R"({"results":[{"id":"a","capabilities":{"interfaces":"x"}}]})", "a||;"},
      {R"({"results":[{"id":"a","capabilities":{"interfaces":[1,"p",null,{},"q"]}}]})", "a||p,q;"},
      // Non-object elements are skipped; order is kept.
      {R"({"results":[1,"x",null,{"id":"a"},[],{"id":"b"}]})", "a||;b||;"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(describe(parseLocalDevices(c.input)), c.expected) << c.input;
  }
}

// The answer comes from another process: nesting must not exhaust the stack, neither while
// parsing nor while freeing the tree.
TEST(DeviceCache, DeepNestingIsNoDeviceNotACrash) {
  const size_t depth = 200000;
  const std::string nested = std::string(depth, '[') + std::string(depth, ']');
  EXPECT_EQ(describe(parseLocalDevices("{\"results\":[" + nested + ",{\"id\":\"a\"}]}")), "a||;");
}

}  // namespace
}  // namespace ornUtility
}  // namespace ornwick
