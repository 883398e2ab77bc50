// SPDX-License-Identifier: Apache-2.0
#include "Home.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace ornsim {
namespace {

std::string join(const std::vector<std::string>& v) {
  std::string s;
  for (const auto& p : v)
    s += p + "\n";
  return s;
}

TEST(Home, ParsesAGoodFileAndReportsAnUnreadableOne) {
  const char kText[] = R"({"devices":[
    {"id":"a","externallyReportedId":"ep-a","friendlyName":"A","reachable":false,
     "interfaces":["Corva.PowerController"],
     "state":{"power":true,"brightness":7,"color":{"hue":10,"saturation":0.5,"brightness":1},
              "colorTemperatureInKelvin":2000}},
    {"id":"b"}],
    "groups":[{"id":"g","members":["a","b"]}]})";
  Home home;
  std::vector<std::string> problems;
  ASSERT_TRUE(parseHome(kText, &home, &problems)) << join(problems);
  ASSERT_EQ(home.devices.size(), 2u);
  const Device* a = home.findDevice("ep-a");
  ASSERT_NE(a, nullptr);
  const DeviceState& s = a->state;
  EXPECT_EQ(std::tie(a->id, a->friendlyName, a->reachable, s.power, s.brightness, s.color.hue,
                     s.color.saturation, s.color.brightness, s.colorTemperatureInKelvin),
            std::make_tuple("a", "A", false, true, 7, 10.0, 0.5, 1.0, 2000));
  EXPECT_TRUE(a->offers(kPowerController) && home.findDevice("b")->reachable);
  ASSERT_NE(home.findGroup("g"), nullptr);
  EXPECT_EQ(home.findDevice(""), nullptr);
  EXPECT_FALSE(loadHome("/nonexistent/home.json", &home, &problems));
  EXPECT_EQ("cannot read /nonexistent/home.json\n", join(problems));
}

TEST(Home, CollectsEveryProblemOfABadFile) {
  static const struct {
    std::string text;
    std::vector<std::string> problems;  // each must appear, in this order
  } kCases[] = {
      // clang-format off
      {"{", {"not valid JSON: Missing a name for object member. at offset 1"}},
      {"[]", {"top level must be an object"}},
      {"{}", {"\"devices\" must be an array"}},
      {R"({"devices":[{}]})", {"devices[0]: missing \"id\""}},
      {R"({"devices":[7]})", {"devices[0]: must be an object"}},
      {R"({"devices":[{"id":1,"reachable":"yes","interfaces":"Corva.PowerController"}]})", {"devices[0]: \"id\" must be a string", "devices[0]: \"reachable\" must be true or false", "devices[0]: \"interfaces\" must be an array of strings"}},
      {R"({"devices":[{"id":"a","state":{"power":1,"brightness":101,"colorTemperatureInKelvin":5}}]})", {"devices[0].state: \"power\"", "devices[0].state: \"brightness\" must be a number from 0 to 100", "devices[0].state: \"colorTemperatureInKelvin\""}},
      {R"({"devices":[{"id":"a","state":{"color":{"hue":400,"saturation":"x"}}}]})", {"devices[0].state.color: \"hue\"", "devices[0].state.color: \"saturation\""}},
      {R"({"devices":[{"id":"a"},{"id":"b","externallyReportedId":"a"}]})", {"devices[1]: id \"a\" is used twice"}},
      {R"({"devices":[{"id":"a"}],"groups":[{"members":["a","zz"]},{"id":"g"}]})", {"groups[0]: missing \"id\"", "groups[0]: member \"zz\" is not a device", "groups[1]: \"members\" must be an array"}},
      {R"({"devices":[],"groups":{}})", {"\"groups\" must be an array"}},
      {std::string(400000, '['), {"not valid JSON: Nesting deeper than 256 levels."}},
      {R"({"devices":[{"id":"a","interfaces":["Corva.PowerController","Corva.Power"]}]})", {"devices[0].interfaces[1]: unknown interface \"Corva.Power\""}},
      {R"({"devices":[{"id":"a","state":{"brightnes":1,"color":{"hue":1,"sat":0}}}]})", {"devices[0].state: unknown key \"brightnes\"", "devices[0].state.color: unknown key \"sat\""}},
      {"{\"devices\":[{\"id\":\"a\xff\",\"friendlyName\":\"x\\u0085\"},{\"id\":\"\xc0\xaf\",\"externallyReportedId\":\"\xed\xa0\x80\"}],\"groups\":[{\"id\":\"\\u001b\",\"members\":[\"\xf4\x90\x80\x80\"]}]}", {"devices[0]: \"id\" must be UTF-8 text without control characters", "devices[0]: \"friendlyName\" must be UTF-8", "devices[1]: \"id\" must be UTF-8", "devices[1]: \"externallyReportedId\" must be UTF-8", "groups[0]: \"id\" must be UTF-8", "groups[0]: a member must be UTF-8"}},
      // clang-format on
  };
  for (const auto& c : kCases) {
    Home home = builtinHome();
    std::vector<std::string> problems;
    EXPECT_FALSE(parseHome(c.text, &home, &problems)) << c.text.substr(0, 80);
    const std::string all = join(problems);
    size_t at = 0;
    for (const auto& p : c.problems) {
      at = all.find(p, at);
      EXPECT_NE(at, std::string::npos) << c.text.substr(0, 80) << "\nwanted: " << p << "\ngot:\n"
                                       << all;
    }
    // A rejected file leaves the home as it was.
    EXPECT_EQ(home.devices.size(), builtinHome().devices.size()) << c.text.substr(0, 80);
  }
}

TEST(Home, TextIsCleanUtf8WithoutControlCharacters) {
  static const struct {
    std::string text, printable;
  } kCases[] = {
      // clang-format off
      {"Küche 💡", "Küche 💡"},
      {"a\tb\x7f", "a?b?"},
      {"c1 \xc2\x85 \xc2\x9f end", "c1 ? ? end"},
      {"cut \xe2\x82", "cut ??"},
      {"overlong \xc0\xaf, surrogate \xed\xa0\x80, past \xf4\x90\x80\x80", "overlong ??, surrogate ???, past ????"},
      // clang-format on
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(printableText(c.text), c.printable);
    EXPECT_EQ(cleanText(c.text), c.text == c.printable) << c.text;
  }
}

}  // namespace
}  // namespace ornsim
