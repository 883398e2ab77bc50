#include "Serialize.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace zedLocalUtil::jsonUtil {
namespace {

// Non-finite values cannot be written, so nothing is (the color set end-to-end case shows a
// body holding one dropped whole).
TEST(Serialize, DoublesAlwaysCarryAFractionOrExponent) {
  static const struct { double input; const char* want; } kCases[] = {
      {120.0, "120.0"}, {-10.0, "-10.0"}, {0.0, "0.0"}, {1e21, "1e21"}, {1e-7, "1e-7"},
      {std::numeric_limits<double>::quiet_NaN(), ""},
      {-std::numeric_limits<double>::infinity(), ""},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.want, serialize(JsonValue(c.input))) << c.input;
  }
}

}  // namespace
}  // namespace zedLocalUtil::jsonUtil
