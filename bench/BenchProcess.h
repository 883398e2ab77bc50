// SPDX-License-Identifier: Apache-2.0
// Processes for the end-to-end benchmarks: timed one-shot runs, a private ornsim, a
// long-running child on pipes, and a plain QIPC connection to drive the service.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Frame.h"

namespace ornbench {

using Clock = std::chrono::steady_clock;

struct TimedRun {
  double ms = 0;      // fork to reaped, wall clock
  double cpuMs = 0;   // user + system time of the child
  long rssKiB = 0;    // wait4's ru_maxrss: the exec'd image's peak resident set
  long faults = 0;    // minor page faults
  long switches = 0;  // voluntary + involuntary context switches
  int status = -1;    // exit code, -1 when killed by a signal
};

// Runs argv[0] with stdout and stderr on /dev/null. Forked, not vfork'd or
// posix_spawn'd: the kernel carries the pre-exec address space's peak into
// ru_maxrss, and a fork only copies the driver's few written pages.
TimedRun timedRun(const std::vector<std::string>& argv);

// Runs argv[0] and returns its stdout (empty when it failed to start or exited non-zero).
std::string capture(const std::vector<std::string>& argv);

// A child on pipes, killed by its pid (SIGTERM, then SIGKILL) and reaped on destruction.
class Child {
 public:
  explicit Child(const std::vector<std::string>& argv);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  // Reads stdout (or stderr) until it holds a line containing needle; false at the
  // deadline or end of stream.
  bool waitOut(const std::string& needle, Clock::time_point deadline);
  bool waitErr(const std::string& needle, Clock::time_point deadline);
  // Reads stdout until one more complete line than before arrived.
  bool nextOutLine(Clock::time_point deadline);
  // Reads stdout until a whole line holds prefix; *rest is what follows it on the line.
  bool waitOutLine(const std::string& prefix, Clock::time_point deadline, std::string* rest);

 private:
  bool waitFor(int fd, std::string* buffer, const std::string& needle, Clock::time_point deadline);

  pid_t pid_ = -1;
  int out_ = -1;
  int err_ = -1;
  std::string outText_;
  std::string errText_;
  size_t linesSeen_ = 0;
};

// ornsim on a socket in its own temporary folder, with `extraArgs` besides --socket.
class Sim {
 public:
  // `extraArgs` follow --socket; with --http the live view's URL is read too.
  explicit Sim(const std::string& ornsimPath, const std::vector<std::string>& extraArgs = {});
  ~Sim();
  Sim(const Sim&) = delete;
  Sim& operator=(const Sim&) = delete;

  bool ok() const { return child_ && child_->started() && ready_; }
  const std::string& socketPath() const { return socket_; }
  pid_t pid() const { return child_ ? child_->pid() : -1; }
  const std::string& httpUrl() const { return http_; }
  // CPU time ornsim has used so far, in nanoseconds (0 when it cannot be read).
  double cpuNs() const;

 private:
  std::string dir_;
  std::string socket_;
  std::string http_;
  std::unique_ptr<Child> child_;
  bool ready_ = false;
};

// A registered QIPC connection that sends requests and reads their answers.
class Conn {
 public:
  ~Conn();
  // Connects, waits for the connection-status event, registers and waits for the
  // client-registered event.
  bool open(const std::string& socketPath, const std::string& clientName,
            Clock::time_point deadline);
  int fd() const { return fd_; }
  // Queues and writes one request frame (blocking until written).
  bool sendRequest(const std::string& id, int type, const std::string& payload);
  // Reads until a response arrives; false at the deadline or on a broken stream.
  bool readResponse(Clock::time_point deadline);
  // Non-blocking: consumes what is readable; returns the responses completed, -1 on error.
  int pump();
  // The code of the last response read, and the state-change events read so far.
  int lastCode() const { return lastCode_; }
  long stateEvents() const { return stateEvents_; }

 private:
  bool writeAll(const std::string& frame);
  // Decodes buffered frames; counts responses, sets *registered on event 23.
  int drain(bool* registered);

  int fd_ = -1;
  int lastCode_ = 0;
  long stateEvents_ = 0;
  ornwick::qipc::FrameDecoder decoder_;
};

double median(std::vector<double> v);
// The q-quantile (0..1) by nearest rank.
double quantile(std::vector<double> v, double q);

}  // namespace ornbench
