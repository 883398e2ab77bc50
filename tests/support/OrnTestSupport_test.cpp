// The process runner underlies every end-to-end verdict, so its own edges are pinned here.
#include "OrnTestSupport.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace orntest {
namespace {

TEST(RunProcess, CapturesStreamsExitCodeAndStdin) {
  static const struct {
    const char* script;
    const char* input;
    int exitCode;
    const char* out;
    const char* err;
  } kCases[] = {
      {"cat; echo done >&2; exit 3", "line1\nline2", 3, "line1\nline2", "done\n"},
      {"read a; read b; echo \"[$a][$b]\"", "x\ny", 0, "[x][y]\n", ""},
      {"printf 'no newline'", "", 0, "no newline", ""},
      {"echo \"$ORN_TEST_VAR\"", "", 0, "set\n", ""},
  };
  for (const auto& c : kCases) {
    RunOptions options;
    options.stdinText = c.input;
    options.env["ORN_TEST_VAR"] = "set";
    RunResult r = runProcess("/bin/sh", {"-c", c.script}, options);
    EXPECT_FALSE(r.timedOut) << c.script;
    EXPECT_EQ(r.exitCode, c.exitCode) << c.script;
    EXPECT_EQ(r.out, c.out) << c.script;
    EXPECT_EQ(r.err, c.err) << c.script;
  }
}

TEST(RunProcess, KillsAChildThatOutlivesItsTimeout) {
  RunOptions options;
  options.closeStdin = false;  // cat never sees end of input
  options.timeout = std::chrono::milliseconds(200);
  RunResult r = runProcess("/bin/cat", {}, options);
  EXPECT_TRUE(r.timedOut);
  EXPECT_EQ(r.exitCode, -1);
}

TEST(RunProcess, LargeInputAndOutputDoNotDeadlock) {
  RunOptions options;
  options.stdinText.assign(1 << 20, 'x');
  RunResult r = runProcess("/bin/cat", {}, options);
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out.size(), size_t{1} << 20);
}

TEST(TempDir, RemovesItsContents) {
  std::string path;
  {
    TempDir dir;
    path = dir.path();
    ASSERT_FALSE(path.empty());
    RunResult r = runProcess("/bin/sh", {"-c", "echo hi > " + dir.file("f")});
    EXPECT_EQ(r.exitCode, 0);
  }
  EXPECT_NE(access(path.c_str(), F_OK), 0);
}

}  // namespace
}  // namespace orntest
