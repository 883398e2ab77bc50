#include "JsonValueBuilder.h"

#include <gtest/gtest.h>

#include <string>

#include "JsonDocBuilder.h"
#include "Serialize.h"

namespace zedLocalUtil {
namespace jsonUtil {
namespace {

TEST(JsonValueBuilder, WritesMembersInInsertionOrder) {
  static const struct {
    const char* name;
    void (*fill)(JsonValueBuilder&);
    const char* want;
  } kCases[] = {
      {"empty object", [](JsonValueBuilder&) {}, "{}"},
      {"mixed types",
       [](JsonValueBuilder& b) { b.set("z", std::string("s")).set("a", -7).set("m", 0.5); },
       R"({"z":"s","a":-7,"m":0.5})"},
      {"duplicate key kept", [](JsonValueBuilder& b) { b.set("k", 1).set("k", 2); },
       R"({"k":1,"k":2})"},
      {"string cut at NUL", [](JsonValueBuilder& b) { b.set("s", std::string("ab\0cd", 5)); },
       R"({"s":"ab"})"},
      {"string escaped", [](JsonValueBuilder& b) { b.set("s", std::string("a\"b\\c\n")); },
       R"({"s":"a\"b\\c\n"})"},
      {"key from a released temporary",
       [](JsonValueBuilder& b) { b.set(std::string("temp").append("Key").c_str(), 1); },
       R"({"tempKey":1})"},
  };
  for (const auto& c : kCases) {
    JsonDocument doc;
    JsonValueBuilder b(doc.GetAllocator());
    c.fill(b);
    EXPECT_EQ(c.want, serialize(b.value())) << c.name;
  }
}

TEST(JsonValueBuilder, HandingOnMovesAndLeavesNull) {
  JsonDocument doc;
  JsonValueBuilder root(doc.GetAllocator());
  JsonValueBuilder list(doc.GetAllocator(), true);
  EXPECT_EQ("[]", serialize(list.value()));

  JsonValueBuilder item(doc.GetAllocator());
  item.set("id", std::string("e1"));
  list.add(item);
  EXPECT_TRUE(item.value().IsNull());

  JsonValue raw(rapidjson::kArrayType);
  raw.PushBack(1, doc.GetAllocator());
  root.set("list", list).set("raw", raw);
  EXPECT_TRUE(list.value().IsNull());
  EXPECT_TRUE(raw.IsNull());
  EXPECT_EQ(R"({"list":[{"id":"e1"}],"raw":[1]})", serialize(root.value()));
}

TEST(JsonDocBuilder, SetsAppendToTheRoot) {
  JsonDocBuilder doc;
  EXPECT_EQ("{}", serialize(doc.root()));

  JsonValueBuilder payload(doc.allocator());
  payload.set("brightness", 40);
  doc.set("a", std::string("x")).set("directivePayload", payload).set("a", std::string("y"));
  EXPECT_TRUE(payload.value().IsNull());
  EXPECT_EQ(R"({"a":"x","directivePayload":{"brightness":40},"a":"y"})", serialize(doc.root()));

  doc.withHelper([](JsonValueBuilder& b) { b.set("n", 1.5); });
  EXPECT_EQ(R"({"a":"x","directivePayload":{"brightness":40},"a":"y","n":1.5})",
            serialize(doc.root()));
}

}  // namespace
}  // namespace jsonUtil
}  // namespace zedLocalUtil
