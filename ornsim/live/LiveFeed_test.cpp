// SPDX-License-Identifier: Apache-2.0
#include "LiveFeed.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

namespace ornsim {
namespace {

struct Fixture {
  Home home = builtinHome();
  Subscriptions subs;
  std::vector<Fault> faults;
  std::vector<std::string> clients{"app", "app"};
  int changes = 0;
  LiveFeed feed{{home, subs, [this]() -> const std::vector<Fault>& { return faults; },
                 [this] { return clients; }},
                [this] { ++changes; }};

  rapidjson::Document update(LiveFeed::Cursor* cursor) {
    feed.refresh();
    rapidjson::Document doc;
    const std::string text = feed.update(cursor);
    doc.Parse(text.empty() ? "null" : text.c_str());
    return doc;
  }
  std::string payload = R"({"qfi":{"path":"/v2/endpoints","method":"GET"},"dfi":[]})";
  void serve(int n) {
    Simulation::Outcome out;
    out.number = n;
    out.code = 200;
    out.data = "{}";
    feed.served("app", 1, payload, out, 0);
  }
};

TEST(LiveFeed, SendsEachViewerWhatItHasNotSeen) {
  Fixture f;
  LiveFeed::Cursor a, b;
  auto first = f.update(&a);
  ASSERT_TRUE(first.IsObject());
  EXPECT_EQ(first["state"]["devices"].Size(), f.home.devices.size());
  EXPECT_EQ(first["state"]["clients"][0]["connections"].GetInt(), 2);
  EXPECT_TRUE(f.update(&a).IsNull());  // nothing new

  f.serve(1);
  f.feed.sent("app", 21, "{\"x\":1}", 2);
  EXPECT_EQ(f.changes, 2);
  auto second = f.update(&a);
  EXPECT_FALSE(second.HasMember("state"));  // unchanged: not sent again
  ASSERT_EQ(second["traffic"].Size(), 1u);
  EXPECT_NE(std::string(second["traffic"][0]["line"].GetString())
                .find("#1 \"app\" type 1 GET /v2/endpoints -> 200, events 0"),
            std::string::npos);
  EXPECT_NE(std::string(second["events"][0].GetString())
                .find(" event 21 to app (2 connections): {\"x\":1}"),
            std::string::npos);

  // The filter's keys: the client and every id the request names.
  f.payload =
      R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOn/","method":"POST",)"
      R"("requestBody":{"batch":[{"endpointId":"ep-desk"},{"endpointId":"ep-kettle"}]}},"dfi":[]})";
  f.serve(2);
  auto fourth = f.update(&a);
  ASSERT_TRUE(fourth.IsObject());
  EXPECT_STREQ(fourth["traffic"][0]["keys"].GetString(), "\"app\" ep-desk ep-kettle");
  f.payload = R"({"qfi":{"path":"/v2/endpoints","method":"GET"},"dfi":[]})";

  // A state change reaches both; the late viewer gets only the last kLines.
  f.home.devices[0].state.power = !f.home.devices[0].state.power;
  for (int n = 3; n < 2 + static_cast<int>(LiveFeed::kLines) + 5; ++n)
    f.serve(n);
  auto third = f.update(&a);
  EXPECT_TRUE(third.HasMember("state"));
  ASSERT_EQ(third["traffic"].Size(), LiveFeed::kLinesPerUpdate);
  EXPECT_EQ(third["trafficSkipped"].GetInt(), 304 - static_cast<int>(LiveFeed::kLinesPerUpdate));
  EXPECT_NE(std::string(third["traffic"][LiveFeed::kLinesPerUpdate - 1]["line"].GetString())
                .find("#306 "),
            std::string::npos);
  auto late = f.update(&b);
  EXPECT_EQ(late["traffic"].Size(), LiveFeed::kLines);
  EXPECT_EQ(late["trafficSkipped"].GetInt(), 0);
  EXPECT_EQ(late["events"].Size(), 1u);
}

}  // namespace
}  // namespace ornsim
