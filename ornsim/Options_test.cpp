// SPDX-License-Identifier: Apache-2.0
#include "Options.h"

#include <gtest/gtest.h>

#include <climits>
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
                     "--register-delay-ms", "2147483647", "--no-response", "--response-delay-ms", "7",
                     "--respond", "-1:", "--emit", "21:100:{\"x\":\"1:2\"}", "--emit", "99:0:",
                     "--fault", "path:v2/x/*,respond:503:a,b:c", "--fault", "next:2,delay:0", "--fault", "endpoint:e,delay:2147483647",
                     "--state", "st", "--register-timeout-ms", "5", "-v", "-h", "--version", "--http", "[::1]:8080"},
                    &o, &err))
      << err;
  // clang-format on
  EXPECT_EQ(o.socketPath + " " + o.homeFile + " " + o.recordFile + " " + o.stateFile,
            "/s h.json r st");
  EXPECT_TRUE(o.noRegister && o.noResponse && o.respond && o.verbose && o.help && o.version);
  EXPECT_EQ(
      std::vector<int>({o.registerDelayMs, o.responseDelayMs, o.respondCode, o.registerTimeoutMs}),
      std::vector<int>({INT_MAX, 7, -1, 5}));
  EXPECT_EQ(o.respondData, "");
  EXPECT_EQ(o.httpAddress + " " + std::to_string(o.httpPort), "::1 8080");
  std::string emits, faults;
  for (const auto& e : o.emits)
    emits += std::to_string(e.eventType) + ":" + std::to_string(e.delayMs) + ":" + e.payload + " ";
  for (const auto& f : o.faults)
    faults += faultText(f) + " ";
  EXPECT_EQ(emits, "21:100:{\"x\":\"1:2\"} 99:0: ");
  EXPECT_EQ(faults, "path:/v2/x*,respond:503:a,b:c request:2,delay:0 endpoint:e,delay:2147483647 ");
}

TEST(Options, HttpDefaultsToLoopback) {
  // clang-format off
  const struct { std::vector<std::string> args; const char* want; } kCases[] = {
      {{}, "127.0.0.1 -1"}, {{"--http", "0"}, "127.0.0.1 0"}, {{"--http", "0.0.0.0:8080"}, "0.0.0.0 8080"},
  };
  // clang-format on
  for (const auto& c : kCases) {
    Options o;
    std::string err;
    ASSERT_TRUE(parse(c.args, &o, &err)) << err;
    EXPECT_EQ(o.httpAddress + " " + std::to_string(o.httpPort), c.want);
  }
}

TEST(Options, RejectsBadCommandLines) {
  // clang-format off
  const std::vector<std::string> kCases[] = {
      {"--sock", "x"}, {"--socket"}, {"--emit", "21:5"}, {"--emit", "21:-5:x"},
      {"--emit", "x:5:y"}, {"--respond", "200"}, {"--respond", ":x"}, {"--respond", "2x:y"},
      {"--response-delay-ms", "-1"}, {"--register-delay-ms", "1s"},
      {"--register-delay-ms", "99999999999"}, {"extra"}, {"--fault", "path:/x"},
      {"--fault", "path:,silence"}, {"--fault", "request:0,silence"},
      {"--fault", "endpoint:e,delay:-1"}, {"--fault", "endpoint:e,delay:"}, {"--fault", "endpoint:e,respond:5x:"},
      {"--fault", "host:e,silence"}, {"--state"}, {"--max-connections", "0"},
      {"--frame-budget", "64M"}, {"--frame-timeout-ms", "0"}, {"--max-subscriptions", "-1"},
      {"--max-clients", "0"},
      {"--http"}, {"--http", "65536"}, {"--http", ":80"}, {"--http", "localhost:"}, {"--http", "a:-1"},
      {"--register-timeout-ms", "0"},
  };
  // clang-format on
  for (const auto& args : kCases) {
    Options o;
    std::string err;
    EXPECT_FALSE(parse(args, &o, &err)) << args[0];
    EXPECT_FALSE(err.empty()) << args[0];
  }
}

}  // namespace
}  // namespace ornsim
