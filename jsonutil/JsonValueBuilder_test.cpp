// SPDX-License-Identifier: Apache-2.0
#include "JsonValueBuilder.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "Serialize.h"

namespace zedLocalUtil::jsonUtil {
namespace {

// Doubles always carry a fraction or an exponent. Non-finite values cannot be written, so
// nothing is (the color set end-to-end case shows a body holding one dropped whole).
TEST(JsonValueBuilder, WritesMembersInInsertionOrder) {
  // clang-format off
  static const struct { const char* name; void (*fill)(JsonValueBuilder&); const char* want; } kCases[] = {
      {"empty object", [](JsonValueBuilder&) {}, "{}"},
      {"mixed types", [](JsonValueBuilder& b) { b.set("z", std::string("s")).set("a", -7).set("m", 0.5); }, R"({"z":"s","a":-7,"m":0.5})"},
      {"duplicate key kept", [](JsonValueBuilder& b) { b.set("k", 1).set("k", 2); }, R"({"k":1,"k":2})"},
      {"string cut at NUL", [](JsonValueBuilder& b) { b.set("s", std::string("ab\0cd", 5)); }, R"({"s":"ab"})"},
      {"string escaped", [](JsonValueBuilder& b) { b.set("s", std::string("a\"b\\c\n")); }, R"({"s":"a\"b\\c\n"})"},
      {"key from a released temporary", [](JsonValueBuilder& b) { b.set(std::string("temp").append("Key").c_str(), 1); }, R"({"tempKey":1})"},
      {"doubles", [](JsonValueBuilder& b) { b.set("a", 120.0).set("b", -10.0).set("c", 0.0).set("d", 1e21).set("e", 1e-7); }, R"({"a":120.0,"b":-10.0,"c":0.0,"d":1e21,"e":1e-7})"},
      {"NaN", [](JsonValueBuilder& b) { b.set("a", 1).set("n", std::numeric_limits<double>::quiet_NaN()); }, ""},
      {"-infinity", [](JsonValueBuilder& b) { b.set("i", -std::numeric_limits<double>::infinity()); }, ""},
      // clang-format on
  };
  for (const auto& c : kCases) {
    JsonDocument doc;
    JsonValueBuilder b(doc.GetAllocator());
    c.fill(b);
    EXPECT_EQ(c.want, serialize(b.value())) << c.name;
  }
}

}  // namespace
}  // namespace zedLocalUtil::jsonUtil
