#include "Serialize.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace zedLocalUtil::jsonUtil {
namespace {

TEST(Serialize, DoublesAlwaysCarryAFractionOrExponent) {
  static const struct { double input; const char* want; } kCases[] = {
      {120.0, "120.0"}, {-10.0, "-10.0"}, {0.0, "0.0"}, {1e21, "1e21"}, {1e-7, "1e-7"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.want, serialize(JsonValue(c.input))) << c.input;
  }
}

TEST(Serialize, NonFiniteGivesEmptyText) {
  static const double kCases[] = {std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity(),
                                  -std::numeric_limits<double>::infinity()};
  for (double d : kCases) {
    JsonDocument doc;
    doc.SetObject();
    doc.AddMember("ok", 1, doc.GetAllocator()).AddMember("bad", d, doc.GetAllocator());
    EXPECT_EQ("", serialize(doc)) << d;
  }
}

}  // namespace
}  // namespace zedLocalUtil::jsonUtil
