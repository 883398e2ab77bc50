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
  std::string stdinText;       // written to the child's stdin, which is then closed
  bool closeStdin = true;      // false: stdin stays open (never at EOF) until the child ends
  std::map<std::string, std::string> env;  // added to (or overriding) the environment
  std::chrono::milliseconds timeout{30000};  // the child is killed after this
};

// Runs a program to completion, capturing stdout and stderr (no shell involved).
RunResult runProcess(const std::string& exe, const std::vector<std::string>& args,
                     const RunOptions& options = {});

// Runs the built orncli with ORN_QIPC_SOCKET pointing at the given socket.
RunResult runOrncli(const std::string& socketPath, const std::vector<std::string>& args,
                    RunOptions options = {});

// Paths of the built binaries.
std::string ornsimPath();
std::string orncliPath();

// Reads a JSON string member of a one-line JSON object; "" when absent (test helper only).
std::string jsonStringMember(const std::string& jsonLine, const std::string& key);

}  // namespace orntest
