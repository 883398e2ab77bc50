#include "Options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ornsim {
namespace {

bool parse(const std::vector<std::string>& args, Options* o, std::string* err) {
  std::vector<const char*> argv = {"ornsim"};
  for (const auto& a : args)
    argv.push_back(a.c_str());
  return parseOptions(static_cast<int>(argv.size()), argv.data(), o, err);
}

TEST(Options, ParsesFaultInjection) {
  Options o;
  std::string err;
  // clang-format off
  ASSERT_TRUE(parse({"--socket", "/s", "--home", "h.json", "--record", "r", "--no-register",
                     "--register-delay-ms", "5", "--no-response", "--response-delay-ms", "7",
                     "--respond", "-1:", "--emit", "21:100:{\"x\":\"1:2\"}", "--emit", "99:0:",
                     "--fault", "path:v2/x/*,respond:503:a,b:c", "--fault", "next:2,delay:0",
                     "--state", "st", "-v", "-h", "--version"},
                    &o, &err))
      << err;
  // clang-format on
  EXPECT_EQ(o.socketPath, "/s");
  EXPECT_EQ(o.homeFile, "h.json");
  EXPECT_EQ(o.recordFile, "r");
  EXPECT_TRUE(o.noRegister);
  EXPECT_EQ(o.registerDelayMs, 5);
  EXPECT_TRUE(o.noResponse);
  EXPECT_EQ(o.responseDelayMs, 7);
  EXPECT_TRUE(o.respond);
  EXPECT_EQ(o.respondCode, -1);
  EXPECT_EQ(o.respondData, "");
  ASSERT_EQ(o.emits.size(), 2u);
  EXPECT_EQ(o.emits[0].eventType, 21);
  EXPECT_EQ(o.emits[0].delayMs, 100);
  EXPECT_EQ(o.emits[0].payload, "{\"x\":\"1:2\"}");
  EXPECT_EQ(o.emits[1].payload, "");
  ASSERT_EQ(o.faults.size(), 2u);
  EXPECT_EQ(faultText(o.faults[0]), "path:/v2/x*,respond:503:a,b:c");
  EXPECT_EQ(faultText(o.faults[1]), "request:2,delay:0");
  EXPECT_EQ(o.stateFile, "st");
  EXPECT_TRUE(o.verbose && o.help && o.version);
}

TEST(Options, RejectsBadCommandLines) {
  static const struct {
    std::vector<std::string> args;
  } kCases[] = {
      {{"--sock", "x"}},
      {{"--socket"}},
      {{"--emit", "21:5"}},
      {{"--emit", "21:-5:x"}},
      {{"--emit", "x:5:y"}},
      {{"--respond", "200"}},
      {{"--respond", ":x"}},
      {{"--respond", "2x:y"}},
      {{"--response-delay-ms", "-1"}},
      {{"--register-delay-ms", "1s"}},
      {{"--register-delay-ms", "99999999999"}},
      {{"extra"}},
      {{"--fault", "path:/x"}},
      {{"--fault", "path:,silence"}},
      {{"--fault", "request:0,silence"}},
      {{"--fault", "endpoint:e,delay:-1"}},
      {{"--fault", "endpoint:e,respond:5x:"}},
      {{"--fault", "host:e,silence"}},
      {{"--state"}},
      {{"--max-connections", "0"}},
      {{"--frame-budget", "64M"}},
      {{"--frame-timeout-ms", "0"}},
      {{"--max-subscriptions", "-1"}},
  };
  for (const auto& c : kCases) {
    Options o;
    std::string err;
    EXPECT_FALSE(parse(c.args, &o, &err)) << c.args[0];
    EXPECT_FALSE(err.empty()) << c.args[0];
  }
}

}  // namespace
}  // namespace ornsim
