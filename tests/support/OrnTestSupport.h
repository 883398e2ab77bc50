// End-to-end test support: a private ornsim per test, and real orncli runs against it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace orntest {

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

// An ornsim process on its own socket in its own temporary folder, recording every
// message it receives. Stopped (SIGTERM, then SIGKILL) by its pid on destruction.
class Ornsim {
 public:
  // Starts ornsim with --socket <dir>/qipc.sock --record <dir>/record.jsonl plus extraArgs,
  // and waits for its "ready" line. On failure ok() is false and error() says why.
  explicit Ornsim(const std::vector<std::string>& extraArgs = {});
  ~Ornsim();
  Ornsim(const Ornsim&) = delete;
  Ornsim& operator=(const Ornsim&) = delete;

  bool ok() const { return pid_ > 0; }
  const std::string& error() const { return error_; }
  const std::string& socketPath() const { return socket_; }
  const std::string& recordPath() const { return record_; }
  pid_t pid() const { return pid_; }
  const TempDir& dir() const { return dir_; }

  // The record file's lines (one JSON object each) as they stand now.
  std::vector<std::string> recordLines() const;
  // Waits until the record file holds at least count lines (woken by file-system
  // notifications, not polling); false when the timeout passes first.
  bool waitForRecordLines(size_t count,
                          std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  // Record lines of requests only (those with "requestType"), in arrival order.
  std::vector<std::string> recordedRequests() const;
  // Stops the process now; returns its exit status (or -1 if killed by a signal).
  int stop();

 private:
  TempDir dir_;
  std::string socket_;
  std::string record_;
  std::string error_;
  pid_t pid_ = -1;
};

struct RunResult {
  int exitCode = -1;  // -1 when killed by a signal or timed out
  bool timedOut = false;
  std::string out;
  std::string err;
};

struct RunOptions {
  std::string stdinText;   // written to the child's stdin, which is then closed
  bool closeStdin = true;  // false: stdin stays open (never at EOF) until the child ends
  std::map<std::string, std::string> env;    // added to (or overriding) the environment
  std::chrono::milliseconds timeout{30000};  // the child is killed after this
};

// A running program on pipes: a test can wait for its output, answer, and act between its
// lines. Killed (SIGKILL) and reaped on destruction if still running.
class LiveProcess {
 public:
  LiveProcess(const std::string& exe, const std::vector<std::string>& args,
              const std::map<std::string, std::string>& env = {});
  ~LiveProcess();
  LiveProcess(const LiveProcess&) = delete;
  LiveProcess& operator=(const LiveProcess&) = delete;

  bool started() const { return pid_ > 0; }
  const std::string& out() const { return out_; }
  const std::string& err() const { return err_; }

  // Waits until needle stands in stdout (stderr) at or after from; false when the timeout
  // passes or the stream ends first.
  bool waitForOut(const std::string& needle, size_t from = 0,
                  std::chrono::milliseconds timeout = std::chrono::seconds(10));
  bool waitForErr(const std::string& needle, size_t from = 0,
                  std::chrono::milliseconds timeout = std::chrono::seconds(10));
  // Queues text for stdin; it is written as the child reads, never blocking the test.
  void send(const std::string& text);
  // Closes stdin (once queued text is written, unless keepStdin), reads both streams to
  // their end and reaps the child; kills it when the timeout passes first.
  RunResult finish(std::chrono::milliseconds timeout = std::chrono::seconds(10),
                   bool keepStdin = false);

 private:
  bool waitFor(const std::string& stream, const std::string& needle, size_t from,
               std::chrono::milliseconds timeout);
  // One poll over the open descriptors; false when the deadline passed.
  bool pump(std::chrono::steady_clock::time_point deadline);

  pid_t pid_ = -1;
  int in_ = -1;
  int outFd_ = -1;
  int errFd_ = -1;
  bool closeInWhenWritten_ = false;
  std::string pendingIn_;
  std::string out_;
  std::string err_;
};

// Runs a program to completion, capturing stdout and stderr (no shell involved).
RunResult runProcess(const std::string& exe, const std::vector<std::string>& args,
                     const RunOptions& options = {});

// The environment that points orncli (or any client of the library) at socketPath.
std::map<std::string, std::string> clientEnv(const std::string& socketPath);

// Runs the built orncli with ORN_QIPC_SOCKET pointing at the given socket.
RunResult runOrncli(const std::string& socketPath, const std::vector<std::string>& args,
                    RunOptions options = {});

// Paths of the built binaries.
std::string ornsimPath();
std::string orncliPath();

// Reads a JSON string member of a one-line JSON object; "" when absent (test helper only).
std::string jsonStringMember(const std::string& jsonLine, const std::string& key);

}  // namespace orntest
