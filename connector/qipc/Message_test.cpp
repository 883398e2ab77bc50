// SPDX-License-Identifier: Apache-2.0
#include "Message.h"

#include <gtest/gtest.h>

#include <tuple>

namespace ornwick::qipc {
namespace {

TEST(Message, RoundTripsEveryKind) {
  static const Message kCases[] = {
      {MessageKind::kEvent, "", 21, 0, "{\"v\":\"\\u00e9\\n\"}", false},
      {MessageKind::kEvent, "", 23, 0, "", false},
      {MessageKind::kRegister, "", 1, 0, "ORNCLI-cmd", false},
      {MessageKind::kRequest, "42-ab-1", 3, 0, "{\"qfi\":{}}", true},
      {MessageKind::kRequest, "", -7, 0, std::string("nul\0inside", 10), false},
      {MessageKind::kRequest, "r", 1, 0, std::string(400000, '['), false},  // in a string: no depth
      {MessageKind::kResponse, "r1", 0, 404, "not json", false},
  };
  for (const auto& c : kCases) {
    const std::string text = encodeMessage(c);
    Message m;
    std::string err;
    ASSERT_TRUE(decodeMessage(text, &m, &err)) << text.substr(0, 80) << ": " << err;
    EXPECT_EQ(std::tie(m.kind, m.id, m.type, m.code, m.text, m.sync),
              std::tie(c.kind, c.id, c.type, c.code, c.text, c.sync))
        << text.substr(0, 80);
  }
}

TEST(Message, DecodeRejectsMalformedMessages) {
  // clang-format off
  const std::string kCases[] = {
      "", "{", "[]", "\"event\"", R"({"eventType":20,"payload":""})", R"({"kind":7})", R"({"kind":"ping"})",
      R"({"kind":"event","eventType":"20","payload":""})", R"({"kind":"event","eventType":20})",
      R"({"kind":"event","eventType":2.5,"payload":""})", R"({"kind":"register","clientName":"x"})",
      R"({"kind":"request","requestId":1,"requestType":1,"payload":""})",
      R"({"kind":"response","requestId":"1","responseCode":200,"responseData":{}})",
      // Nested past the depth bound, even in a member nobody reads.
      std::string(400000, '['),
      R"({"kind":"event","eventType":20,"payload":"","x":)" + std::string(400000, '[') + std::string(400000, ']') + "}",
  };
  // clang-format on
  for (const std::string& text : kCases) {
    Message m;
    std::string err;
    EXPECT_FALSE(decodeMessage(text, &m, &err)) << text.substr(0, 80);
    EXPECT_NE("", err) << text.substr(0, 80);
  }
}

}  // namespace
}  // namespace ornwick::qipc
