// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <string>

#include "ORNCLI.h"

namespace ornwick::ornUtility {
namespace {

// Appends the terminal's output to *seen until it holds needle; false at the deadline or
// when the terminal closes first.
bool readUntil(int fd, const std::string& needle, std::string* seen,
               std::chrono::steady_clock::time_point deadline) {
  while (seen->find(needle) == std::string::npos) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    pollfd p{fd, POLLIN, 0};
    char buf[256];
    ssize_t n = 0;
    if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0 ||
        (n = read(fd, buf, sizeof buf)) <= 0)
      return false;
    seen->append(buf, static_cast<size_t>(n));
  }
  return true;
}

// glibc keeps stdin's end-of-file flag: without clearing it the second prompt returns ""
// at once and the typed line is never read.
TEST(LineReader, TypedLineAfterCtrlDAtTerminalIsTheNextAnswer) {
  int master = -1;
  pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    ORNCLI cli;
    std::string first = cli.nextOption("a");
    std::string second = cli.nextArgRequired("b");
    std::cout << "[" << first << "|" << second << "]" << std::endl;
    _exit(0);
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  std::string seen;
  EXPECT_TRUE(readUntil(master, "a> ", &seen, deadline)) << seen;
  EXPECT_EQ(write(master, "\x04", 1), 1);  // Ctrl-D at the start of a line
  EXPECT_TRUE(readUntil(master, "b : ", &seen, deadline)) << seen;
  EXPECT_EQ(write(master, "typed\n", 6), 6);
  EXPECT_TRUE(readUntil(master, "]", &seen, deadline)) << seen;
  EXPECT_NE(seen.find("[|typed]"), std::string::npos) << seen;
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  close(master);
}

}  // namespace
}  // namespace ornwick::ornUtility
