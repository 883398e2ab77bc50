// SPDX-License-Identifier: Apache-2.0
// End-to-end test support: a private ornsim per test, and real orncli runs against it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace orntest {

using Env = std::map<std::string, std::string>;
using Seconds = std::chrono::seconds;

// A temporary folder, removed with everything in it on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

struct RunResult {
  int exitCode = -1;  // -1 when killed by a signal or timed out
  std::string out, err;
};

// A running program on pipes (stderr to errFile when one is given), killed and reaped on
// destruction if still running.
class LiveProcess {
 public:
  LiveProcess(const std::string& exe, const std::vector<std::string>& args, const Env& env = {},
              const std::string& errFile = "");
  ~LiveProcess();
  LiveProcess(const LiveProcess&) = delete;
  LiveProcess& operator=(const LiveProcess&) = delete;

  pid_t pid() const { return pid_; }
  const std::string& out() const { return out_; }
  // Waits (10 s at most) until needle stands in stdout (stderr) at or after from; false when
  // the time passes or the stream ends first.
  bool waitForOut(const std::string& needle, size_t from = 0) { return waitFor(1, needle, from); }
  bool waitForErr(const std::string& needle, size_t from = 0) { return waitFor(2, needle, from); }
  // Queues text for stdin; it is written as the child reads, never blocking the test.
  void send(const std::string& text);
  // Closes stdin once queued text is written, reads both streams to their end and reaps
  // the child; kills it when the timeout passes first.
  RunResult finish(Seconds timeout = Seconds(30));

 private:
  bool waitFor(int stream, const std::string& needle, size_t from);
  // One poll over the open descriptors; false when the deadline passed.
  bool pump(std::chrono::steady_clock::time_point deadline);

  pid_t pid_ = -1;
  int fds_[3] = {-1, -1, -1};  // stdin, stdout, stderr
  bool closeIn_ = false;
  std::string pendingIn_, out_, err_;
};

// An ornsim on its own socket in its own temporary folder, recording every message it
// receives (--record), stderr to <dir>/ornsim.stderr. Stopped by its pid on destruction.
class Ornsim {
 public:
  // Waits for the "ready" line; on failure ok() is false and error() says why.
  explicit Ornsim(const std::vector<std::string>& extraArgs = {});
  ~Ornsim() { stop(); }

  bool ok() const { return running_; }
  const std::string& error() const { return error_; }
  const std::string& socketPath() const { return socket_; }
  pid_t pid() const { return process_.pid(); }
  const TempDir& dir() const { return dir_; }
  // The record file's lines (one JSON object each) as they stand now.
  std::vector<std::string> recordLines() const;
  // Waits (on file-system notifications) until the record holds count lines.
  bool waitForRecordLines(size_t count, std::chrono::milliseconds timeout = Seconds(10)) const;
  // Record lines of requests only (those with "requestType"), in arrival order.
  std::vector<std::string> recordedRequests() const;
  // SIGTERM now; returns the exit status (-1 if killed by a signal).
  int stop();

 private:
  TempDir dir_;
  std::string socket_, record_, error_;
  LiveProcess process_;
  bool running_ = false;
};

inline std::string ornsimPath() {
  return ORN_ORNSIM_PATH;
}
// ORN_TEST_ORNCLI names another orncli to test, such as one built against a platform prefix;
// ornsim and the suite stay this build's.
inline std::string orncliPath() {
  const char* other = std::getenv("ORN_TEST_ORNCLI");
  return other != nullptr && *other != '\0' ? other : ORN_ORNCLI_PATH;
}
// The environment that points orncli (or any client of the library) at socketPath.
inline Env clientEnv(const std::string& socketPath) {
  return {{"ORN_QIPC_SOCKET", socketPath}};
}
// Runs a program to completion with stdin at its end, capturing stdout and stderr.
inline RunResult runProcess(const std::string& exe, const std::vector<std::string>& args,
                            const Env& env = {}) {
  return LiveProcess(exe, args, env).finish();
}
inline RunResult runOrncli(const std::string& socketPath, const std::vector<std::string>& args) {
  return runProcess(orncliPath(), args, clientEnv(socketPath));
}
// The whole text of a file; "" when it cannot be read.
std::string fileText(const std::string& path);

}  // namespace orntest
