#include "JsonValueBuilder.h"

#include <gtest/gtest.h>

#include <string>

#include "Serialize.h"

namespace zedLocalUtil::jsonUtil {
namespace {

TEST(JsonValueBuilder, WritesMembersInInsertionOrder) {
  // clang-format off
  static const struct { const char* name; void (*fill)(JsonValueBuilder&); const char* want; } kCases[] = {
      {"empty object", [](JsonValueBuilder&) {}, "{}"},
      {"mixed types", [](JsonValueBuilder& b) { b.set("z", std::string("s")).set("a", -7).set("m", 0.5); }, R"({"z":"s","a":-7,"m":0.5})"},
      {"duplicate key kept", [](JsonValueBuilder& b) { b.set("k", 1).set("k", 2); }, R"({"k":1,"k":2})"},
      {"string cut at NUL", [](JsonValueBuilder& b) { b.set("s", std::string("ab\0cd", 5)); }, R"({"s":"ab"})"},
      {"string escaped", [](JsonValueBuilder& b) { b.set("s", std::string("a\"b\\c\n")); }, R"({"s":"a\"b\\c\n"})"},
      {"key from a released temporary", [](JsonValueBuilder& b) { b.set(std::string("temp").append("Key").c_str(), 1); }, R"({"tempKey":1})"},
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
