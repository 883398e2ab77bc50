#include "ArgHelpers.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace ornwick {
namespace ornUtility {
namespace {

// Keeps the strings alive and offers them as an argument vector.
class Args {
 public:
  explicit Args(std::vector<std::string> args) : args_(std::move(args)) {
    for (auto& a : args_)
      ptrs_.push_back(&a[0]);
    ptrs_.push_back(nullptr);
  }
  int argc() const { return static_cast<int>(args_.size()); }
  char** argv() { return ptrs_.data(); }

 private:
  std::vector<std::string> args_;
  std::vector<char*> ptrs_;
};

std::string join(const std::vector<std::string>& v) {
  std::string out;
  for (const auto& s : v)
    out += "[" + s + "]";
  return out;
}

TEST(ArgHelpers, FindFlags) {
  static const struct {
    std::vector<std::string> args;
    const char* first;  // findFlag
    bool present;       // hasFlag
    const char* all;    // findAllFlags, joined
  } kCases[] = {
      {{}, "", false, ""},
      {{"--value"}, "", true, ""},
      {{"--value", "--delta"}, "--delta", true, "[--delta]"},
      {{"--value", "1", "x", "--value", "2"}, "1", true, "[1][2]"},
      {{"x", "--value"}, "", true, ""},
      {{"--value", "--value", "v"}, "--value", true, "[--value][v]"},
      {{"--value", "", "--value", "3"}, "", true, "[][3]"},
      {{"--Value", "1", "--value2", "2", "-value", "3"}, "", false, ""},
  };
  for (const auto& c : kCases) {
    Args a(c.args);
    std::string row = join(c.args);
    EXPECT_EQ(c.first, findFlag(a.argc(), a.argv(), "--value")) << row;
    EXPECT_EQ(c.present, hasFlag(a.argc(), a.argv(), "--value")) << row;
    EXPECT_EQ(c.all, join(findAllFlags(a.argc(), a.argv(), "--value"))) << row;
  }
}

TEST(ArgHelpers, SplitByCommaKeepsLeadingButNotTrailingEmpties) {
  static const struct {
    const char* input;
    const char* want;
  } kCases[] = {
      {"", ""},      {"a", "[a]"}, {"a,b", "[a][b]"}, {"a,,b", "[a][][b]"},      {",a", "[][a]"},
      {"a,", "[a]"}, {",", "[]"},  {",,", "[][]"},    {" a , b ", "[ a ][ b ]"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.want, join(splitByComma(c.input))) << c.input;
  }
}

TEST(ArgHelpers, ParseEventPairsSplitsAtFirstColon) {
  static const struct {
    const char* input;
    const char* want;
  } kCases[] = {
      {"Corva.Endpoint.Feature.Power:Property.PowerState.Change,bad",
       "[Corva.Endpoint.Feature.Power|Property.PowerState.Change]"},
      {"a:b:c", "[a|b:c]"},
      {":x,x:", "[|x][x|]"},
      {"n1:e1,,n2:e2,", "[n1|e1][n2|e2]"},
      {" n : e ", "[ n | e ]"},
      {"none", ""},
      {"", ""},
  };
  for (const auto& c : kCases) {
    std::string got;
    for (const auto& p : parseEventPairs(c.input))
      got += "[" + p.first + "|" + p.second + "]";
    EXPECT_EQ(c.want, got) << c.input;
  }
}

TEST(ArgHelpers, SafeStoiTrimsAndWarns) {
  static const std::string kWarning = "Warning: Invalid characters in input, using default value\n";
  static const struct {
    std::string input;
    bool ok;
    int want;
    bool warns;
  } kCases[] = {
      {" \t\n42\r\f\v", true, 42, false},
      {"-7", true, -7, false},
      {"+15", true, 15, false},
      {"", false, -1, false},
      {" \t\n\r\f\v", false, -1, false},
      {"42abc", false, -1, true},
      {"4 2", false, -1, true},
      {"-", false, -1, true},
      {"0x10", false, -1, true},
      {"1.5", false, -1, true},
      {std::string("42\0", 3), false, -1, true},
      {"2147483647", true, INT_MAX, false},
      {"2147483648", true, INT_MAX, false},
      {"-2147483649", true, INT_MIN, false},
      {"99999999999999999999999", true, INT_MAX, false},
  };
  for (const auto& c : kCases) {
    testing::internal::CaptureStdout();
    int out = 12345;
    bool ok = safeStoi(c.input, out, -1);
    const std::string captured = testing::internal::GetCapturedStdout();
    EXPECT_EQ(c.ok, ok) << c.input;
    EXPECT_EQ(c.want, out) << c.input;
    EXPECT_EQ(c.warns ? kWarning : "", captured) << c.input;
  }
}

}  // namespace
}  // namespace ornUtility
}  // namespace ornwick
