// End-to-end test support: a private ornsim per test, and real orncli runs against it.
#pragma once

#include <sys/types.h>

#include <chrono>
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
  std::string out;
  std::string err;
};

// A running program on pipes: a test can wait for its output, answer, and act between its
// lines. Killed (SIGKILL) and reaped on destruction if still running.
class LiveProcess {
 public:
  // stderr goes to errFile when one is given (nothing to drain), else to err().
  LiveProcess(const std::string& exe, const std::vector<std::string>& args, const Env& env = {},
              const std::string& errFile = "");
  ~LiveProcess();
  LiveProcess(const LiveProcess&) = delete;
  LiveProcess& operator=(const LiveProcess&) = delete;

  pid_t pid() const { return pid_; }
  const std::string& out() const { return out_; }
  const std::string& err() const { return err_; }
  // Waits (10 s at most) until needle stands in stdout (stderr) at or after from; false when
  // the time passes or the stream ends first.
  bool waitForOut(const std::string& needle, size_t from = 0) { return waitFor(0, needle, from); }
  bool waitForErr(const std::string& needle, size_t from = 0) { return waitFor(1, needle, from); }
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
  int in_ = -1;
  int fds_[2] = {-1, -1};  // stdout, stderr
  bool closeIn_ = false;
  std::string pendingIn_, out_, err_;
};

// An ornsim process on its own socket in its own temporary folder, recording every
// message it receives. Stopped (SIGTERM, then SIGKILL) by its pid on destruction.
class Ornsim {
 public:
  // Starts ornsim with --socket <dir>/qipc.sock --record <dir>/record.jsonl plus extraArgs,
  // stderr to <dir>/ornsim.stderr, and waits for its "ready" line. On failure ok() is false
  // and error() says why.
  explicit Ornsim(const std::vector<std::string>& extraArgs = {});
  ~Ornsim() { stop(); }

  bool ok() const { return running_; }
  const std::string& error() const { return error_; }
  const std::string& socketPath() const { return socket_; }
  pid_t pid() const { return process_.pid(); }
  const TempDir& dir() const { return dir_; }
  // The record file's lines (one JSON object each) as they stand now.
  std::vector<std::string> recordLines() const;
  // Waits until the record file holds at least count lines (woken by file-system
  // notifications, not polling); false when the timeout passes first.
  bool waitForRecordLines(size_t count, std::chrono::milliseconds timeout = Seconds(10)) const;
  // Record lines of requests only (those with "requestType"), in arrival order.
  std::vector<std::string> recordedRequests() const;
  // Stops the process now; returns its exit status (or -1 if killed by a signal).
  int stop();

 private:
  TempDir dir_;
  std::string socket_, record_, error_;
  LiveProcess process_;
  bool running_ = false;
};

// Runs a program to completion with stdin at its end, capturing stdout and stderr.
RunResult runProcess(const std::string& exe, const std::vector<std::string>& args,
                     const Env& env = {});
// The environment that points orncli (or any client of the library) at socketPath.
Env clientEnv(const std::string& socketPath);
// Runs the built orncli with ORN_QIPC_SOCKET pointing at the given socket.
RunResult runOrncli(const std::string& socketPath, const std::vector<std::string>& args);
// Paths of the built binaries.
std::string ornsimPath();
std::string orncliPath();
// Reads a JSON string member of a one-line JSON object; "" when absent (test helper only).
std::string jsonStringMember(const std::string& jsonLine, const std::string& key);

}  // namespace orntest
