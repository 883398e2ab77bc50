// SPDX-License-Identifier: Apache-2.0
#include "BoundedParse.h"

#include <gtest/gtest.h>

#include <string>

#include "JsonTypes.h"

namespace zedLocalUtil::jsonUtil {
namespace {

std::string objects(size_t depth) {
  std::string text;
  for (size_t i = 0; i < depth; ++i)
    text += "{\"a\":";
  return text + "1" + std::string(depth, '}');
}

// Up to the bound both forms are RapidJSON's Parse, errors, offsets and BOM
// rules included; past it they fail and leave null.
TEST(BoundedParse, IsParseUpToTheDepthBoundAndFailsPastIt) {
  const size_t n = kMaxJsonDepth;
  const struct {
    std::string text;
    bool tooDeep;
  } kCases[] = {
      {std::string(n, '[') + std::string(n, ']'), false},
      {std::string(n + 1, '[') + std::string(n + 1, ']'), true},
      {objects(n), false},
      {objects(n + 1), true},
      {std::string(400000, '['), true},
      {"[\"" + std::string(400000, '[') + "\"]", false},  // inside a string: no nesting
      {std::string(n, '[') + "1,", false},
      {"{bad", false},
      {"", false},
      {"\xEF\xBB\xBF[1]", false},
      {std::string("[1]\0[[", 6), false},
  };
  for (const auto& c : kCases) {
    const std::string& t = c.text;
    for (bool withLength : {false, true}) {
      JsonDocument got, want;
      const auto r =
          withLength ? boundedParse(&got, t.data(), t.size()) : boundedParse(&got, t.c_str());
      const std::string row = t.substr(0, 40) + (withLength ? " (length)" : "");
      if (c.tooDeep) {
        EXPECT_EQ(r.Code(), rapidjson::kParseErrorTermination) << row;
        EXPECT_TRUE(got.IsNull()) << row;
        continue;
      }
      withLength ? want.Parse(t.data(), t.size()) : want.Parse(t.c_str());
      EXPECT_EQ(r.Code(), want.GetParseError()) << row;
      EXPECT_EQ(r.Offset(), want.GetErrorOffset()) << row;
      EXPECT_TRUE(got == want) << row;
    }
  }
}

}  // namespace
}  // namespace zedLocalUtil::jsonUtil
