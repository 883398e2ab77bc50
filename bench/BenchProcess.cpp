// SPDX-License-Identifier: Apache-2.0
// Processes for the end-to-end benchmarks.
#include "BenchProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "Message.h"
#include "Socket.h"

namespace ornbench {
namespace {

int msLeft(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() < 0 ? 0 : static_cast<int>(left.count()) + 1;
}

std::vector<char*> argvOf(const std::vector<std::string>& argv) {
  std::vector<char*> out;
  for (const auto& a : argv)
    out.push_back(const_cast<char*>(a.c_str()));
  out.push_back(nullptr);
  return out;
}

// Forks argv; the child's stdout and stderr go to outFd and errFd (-1: /dev/null), and
// it dies with the driver.
pid_t spawn(const std::vector<std::string>& argv, int outFd, int errFd) {
  auto args = argvOf(argv);
  pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    int null = open("/dev/null", O_RDWR);
    dup2(null, 0);
    dup2(outFd >= 0 ? outFd : null, 1);
    dup2(errFd >= 0 ? errFd : null, 2);
    execv(args[0], args.data());
    _exit(127);
  }
  return pid;
}

int exitCode(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Waits until fd is readable; false at the deadline or on an error.
bool waitReadable(int fd, Clock::time_point deadline) {
  pollfd p{fd, POLLIN, 0};
  int n;
  while ((n = poll(&p, 1, msLeft(deadline))) < 0 && errno == EINTR) {
  }
  return n > 0;
}

// Appends what fd has to *buffer, waiting until the deadline; false at the deadline or at
// the end of the stream.
bool readMore(int fd, std::string* buffer, Clock::time_point deadline) {
  char buf[4096];
  ssize_t got = waitReadable(fd, deadline) ? read(fd, buf, sizeof(buf)) : 0;
  if (got <= 0)
    return false;
  buffer->append(buf, static_cast<size_t>(got));
  return true;
}

}  // namespace

TimedRun timedRun(const std::vector<std::string>& argv) {
  TimedRun run;
  auto args = argvOf(argv);
  const auto start = Clock::now();
  pid_t pid = fork();
  if (pid == 0) {
    int null = open("/dev/null", O_RDWR);
    dup2(null, 1);
    dup2(null, 2);
    execv(args[0], args.data());
    _exit(127);
  }
  if (pid < 0)
    return run;
  int status = 0;
  rusage usage{};
  while (wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
  }
  run.ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  auto msOf = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) * 1e3 + t.tv_usec / 1e3;
  };
  run.cpuMs = msOf(usage.ru_utime) + msOf(usage.ru_stime);
  run.rssKiB = usage.ru_maxrss;
  run.faults = usage.ru_minflt;
  run.switches = usage.ru_nvcsw + usage.ru_nivcsw;
  run.status = exitCode(status);
  return run;
}

std::string capture(const std::vector<std::string>& argv) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0)
    return "";
  pid_t pid = spawn(argv, fds[1], -1);
  close(fds[1]);
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = read(fds[0], buf, sizeof(buf))) != 0;) {
    if (n < 0 && errno == EINTR)
      continue;
    if (n < 0)
      break;
    out.append(buf, static_cast<size_t>(n));
  }
  close(fds[0]);
  int status = 0;
  while (pid > 0 && waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return pid > 0 && exitCode(status) == 0 ? out : "";
}

Child::Child(const std::vector<std::string>& argv) {
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0)
    return;
  if (pipe2(err, O_CLOEXEC) != 0) {
    close(out[0]);
    close(out[1]);
    return;
  }
  pid_ = spawn(argv, out[1], err[1]);
  close(out[1]);
  close(err[1]);
  out_ = out[0];
  err_ = err[0];
}

Child::~Child() {
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    // SIGTERM ends both ornsim and orncli; a child that ignores it is killed.
    pollfd p{out_, POLLIN, 0};
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
      if (Clock::now() >= deadline) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
        break;
      }
      // Its stdout closes when it exits; drain it meanwhile so it never blocks.
      if (poll(&p, 1, msLeft(deadline)) > 0) {
        char buf[4096];
        if (read(out_, buf, sizeof(buf)) <= 0) {
          // Its stdout closed as it exits: wait for that, rather than out the deadline.
          waitpid(pid_, &status, 0);
          break;
        }
      }
    }
  }
  if (out_ >= 0)
    close(out_);
  if (err_ >= 0)
    close(err_);
}

bool Child::waitFor(int fd, std::string* buffer, const std::string& needle,
                    Clock::time_point deadline) {
  while (buffer->find(needle) == std::string::npos)
    if (!readMore(fd, buffer, deadline))
      return false;
  return true;
}

bool Child::waitOutLine(const std::string& prefix, Clock::time_point deadline, std::string* rest) {
  for (;;) {
    const size_t at = outText_.find(prefix);
    const size_t end = at == std::string::npos ? at : outText_.find('\n', at + prefix.size());
    if (end != std::string::npos) {
      *rest = outText_.substr(at + prefix.size(), end - at - prefix.size());
      return true;
    }
    if (!readMore(out_, &outText_, deadline))
      return false;
  }
}

bool Child::waitOut(const std::string& needle, Clock::time_point deadline) {
  return waitFor(out_, &outText_, needle, deadline);
}

bool Child::waitErr(const std::string& needle, Clock::time_point deadline) {
  return waitFor(err_, &errText_, needle, deadline);
}

bool Child::nextOutLine(Clock::time_point deadline) {
  for (;;) {
    size_t lines = static_cast<size_t>(std::count(outText_.begin(), outText_.end(), '\n'));
    if (lines > linesSeen_) {
      linesSeen_ = lines;
      // Keep only the unfinished tail, so the count stays cheap.
      outText_.erase(0, outText_.rfind('\n') + 1);
      linesSeen_ = 0;
      return true;
    }
    if (!readMore(out_, &outText_, deadline))
      return false;
  }
}

Sim::Sim(const std::string& ornsimPath, const std::vector<std::string>& extraArgs) {
  std::string pattern = (std::filesystem::temp_directory_path() / "ornbench-XXXXXX").string();
  if (!mkdtemp(pattern.data()))
    return;
  dir_ = pattern;
  socket_ = dir_ + "/qipc.sock";
  std::vector<std::string> argv{ornsimPath, "--socket", socket_};
  argv.insert(argv.end(), extraArgs.begin(), extraArgs.end());
  child_ = std::make_unique<Child>(argv);
  const auto deadline = Clock::now() + std::chrono::seconds(60);
  ready_ = child_->started() && child_->waitOut("ready ", deadline);
  if (ready_ && std::find(extraArgs.begin(), extraArgs.end(), "--http") != extraArgs.end())
    ready_ = child_->waitOutLine("\nhttp ", deadline, &http_);
}

double Sim::cpuNs() const {
  // The scheduler's own count, to the nanosecond, unlike the tick-counted utime.
  double ns = 0;
  FILE* f = fopen(("/proc/" + std::to_string(child_->pid()) + "/schedstat").c_str(), "r");
  if (f != nullptr) {
    if (fscanf(f, "%lf", &ns) != 1)
      ns = 0;
    fclose(f);
  }
  return ns;
}

Sim::~Sim() {
  child_.reset();
  if (!dir_.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
}

Conn::~Conn() {
  if (fd_ >= 0)
    close(fd_);
}

bool Conn::open(const std::string& socketPath, const std::string& clientName,
                Clock::time_point deadline) {
  std::string err;
  fd_ = ornwick::qipc::connectUnix(socketPath, &err);
  if (fd_ < 0)
    return false;
  bool registered = false;
  bool registerSent = false;
  while (!registered) {
    if (!waitReadable(fd_, deadline))
      return false;
    char buf[16384];
    ssize_t got = recv(fd_, buf, sizeof(buf), MSG_DONTWAIT);
    if (got <= 0)
      return false;
    decoder_.feed(buf, static_cast<size_t>(got));
    if (drain(&registered) < 0)
      return false;
    if (!registerSent) {
      ornwick::qipc::Message reg;
      reg.kind = ornwick::qipc::MessageKind::kRegister;
      reg.type = 1;
      reg.text = clientName;
      std::string frame;
      if (!ornwick::qipc::encodeFrame(ornwick::qipc::encodeMessage(reg), &frame) ||
          !writeAll(frame))
        return false;
      registerSent = true;
    }
  }
  return true;
}

bool Conn::writeAll(const std::string& frame) {
  size_t at = 0;
  while (at < frame.size()) {
    ssize_t n = send(fd_, frame.data() + at, frame.size() - at, MSG_NOSIGNAL);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
      pollfd p{fd_, POLLOUT, 0};
      poll(&p, 1, 1000);
      continue;
    }
    if (n <= 0)
      return false;
    at += static_cast<size_t>(n);
  }
  return true;
}

bool Conn::sendRequest(const std::string& id, int type, const std::string& payload) {
  ornwick::qipc::Message m;
  m.kind = ornwick::qipc::MessageKind::kRequest;
  m.id = id;
  m.type = type;
  m.text = payload;
  std::string frame;
  return ornwick::qipc::encodeFrame(ornwick::qipc::encodeMessage(m), &frame) && writeAll(frame);
}

int Conn::drain(bool* registered) {
  int responses = 0;
  std::string body, err;
  for (;;) {
    auto status = decoder_.next(&body, &err);
    if (status == ornwick::qipc::FrameDecoder::Status::kNeedMore)
      return responses;
    ornwick::qipc::Message m;
    if (status == ornwick::qipc::FrameDecoder::Status::kError ||
        !ornwick::qipc::decodeMessage(body, &m, &err))
      return -1;
    if (m.kind == ornwick::qipc::MessageKind::kResponse) {
      ++responses;
      lastCode_ = m.code;
    } else if (m.kind == ornwick::qipc::MessageKind::kEvent &&
               m.type == ornwick::qipc::kStateChangeEvent) {
      ++stateEvents_;
    } else if (m.kind == ornwick::qipc::MessageKind::kEvent &&
               m.type == ornwick::qipc::kClientRegisteredEvent && registered)
      *registered = true;
  }
}

int Conn::pump() {
  int responses = 0;
  for (;;) {
    char buf[16384];
    ssize_t got = recv(fd_, buf, sizeof(buf), MSG_DONTWAIT);
    if (got < 0 && errno == EINTR)
      continue;
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
      return responses;
    if (got <= 0)
      return -1;
    decoder_.feed(buf, static_cast<size_t>(got));
    int n = drain(nullptr);
    if (n < 0)
      return -1;
    responses += n;
  }
}

bool Conn::readResponse(Clock::time_point deadline) {
  for (;;) {
    int n = pump();
    if (n < 0)
      return false;
    if (n > 0)
      return true;
    if (!waitReadable(fd_, deadline))
      return false;
  }
}

double median(std::vector<double> v) {
  if (v.empty())
    return 0;
  const size_t mid = v.size() / 2;
  std::nth_element(v.begin(), v.begin() + static_cast<long>(mid), v.end());
  if (v.size() % 2 == 1)
    return v[mid];
  const double upper = v[mid];
  return (*std::max_element(v.begin(), v.begin() + static_cast<long>(mid)) + upper) / 2;
}

double quantile(std::vector<double> v, double q) {
  if (v.empty())
    return 0;
  std::sort(v.begin(), v.end());
  size_t rank = static_cast<size_t>(std::ceil(q * static_cast<double>(v.size())));
  return v[std::min(v.size() - 1, rank == 0 ? 0 : rank - 1)];
}

}  // namespace ornbench
