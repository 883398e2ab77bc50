// SPDX-License-Identifier: Apache-2.0
// End-to-end test support: child processes with captured output and bounded lifetimes.
#include "OrnTestSupport.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

extern char** environ;

namespace orntest {
namespace {

using Clock = std::chrono::steady_clock;

int msLeft(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

// Waits for the child to end until the deadline, and kills it after that. Returns its exit
// status, or -1 when it was killed or ended by a signal.
int reap(pid_t pid, Clock::time_point deadline) {
  int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  bool killed = false;
  if (pidfd >= 0) {
    pollfd p{pidfd, POLLIN, 0};
    int n;
    while ((n = poll(&p, 1, msLeft(deadline))) < 0 && errno == EINTR) {
    }
    close(pidfd);
    killed = n == 0 && kill(pid, SIGKILL) == 0;
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return !killed && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<std::string> concat(std::vector<std::string> a, const std::vector<std::string>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

}  // namespace

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "orntest-XXXXXX").string();
  if (mkdtemp(pattern.data()))
    path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ec;
  if (!path_.empty())
    std::filesystem::remove_all(path_, ec);
}

// The child dies with the test process (PDEATHSIG), so a crashed test leaves nothing.
LiveProcess::LiveProcess(const std::string& exe, const std::vector<std::string>& args,
                         const Env& env, const std::string& errFile) {
  // A child that dies early must fail the test, not end it through a write to its stdin.
  signal(SIGPIPE, SIG_IGN);
  int in[2], out[2], err[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
    return;
  if (!errFile.empty()) {
    close(err[0]);
    close(err[1]);
    err[0] = -1;
    err[1] = open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  }
  std::vector<std::string> envStrings;
  for (char** e = environ; *e; ++e)
    if (!env.count(std::string(*e).substr(0, std::string(*e).find('='))))
      envStrings.emplace_back(*e);
  for (const auto& [key, value] : env)
    envStrings.push_back(key + "=" + value);
  std::vector<char*> argv{const_cast<char*>(exe.c_str())}, envp;
  for (const auto& a : args)
    argv.push_back(const_cast<char*>(a.c_str()));
  for (auto& s : envStrings)
    envp.push_back(s.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
      _exit(127);
    signal(SIGPIPE, SIG_DFL);
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(err[1], 2);
    execve(exe.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  for (int fd : {in[0], out[1], err[1]})
    close(fd);
  fds_[0] = in[1];
  fds_[1] = out[0];
  fds_[2] = err[0];
  fcntl(fds_[0], F_SETFL, O_NONBLOCK);
}

LiveProcess::~LiveProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    reap(pid_, Clock::now());
  }
  for (int fd : fds_)
    if (fd >= 0)
      close(fd);
}

bool LiveProcess::waitFor(int stream, const std::string& needle, size_t from) {
  const std::string& text = stream == 1 ? out_ : err_;
  const auto deadline = Clock::now() + Seconds(10);
  while (text.find(needle, from) == std::string::npos)
    if (fds_[stream] < 0 || !pump(deadline))
      return false;
  return true;
}

void LiveProcess::send(const std::string& text) {
  pendingIn_ += text;
  pump(Clock::now());
}

bool LiveProcess::pump(Clock::time_point deadline) {
  if (fds_[0] >= 0 && pendingIn_.empty() && closeIn_) {
    close(fds_[0]);
    fds_[0] = -1;
  }
  pollfd p[3] = {
      {pendingIn_.empty() ? -1 : fds_[0], POLLOUT, 0}, {fds_[1], POLLIN, 0}, {fds_[2], POLLIN, 0}};
  const int ready = poll(p, 3, msLeft(deadline));
  if (ready <= 0)
    return ready < 0 && errno == EINTR;
  std::string* texts[3] = {nullptr, &out_, &err_};
  for (int i = 1; i < 3; ++i) {
    if (fds_[i] < 0 || !(p[i].revents & (POLLIN | POLLHUP | POLLERR)))
      continue;
    char buf[4096];
    const ssize_t got = read(fds_[i], buf, sizeof buf);
    if (got > 0) {
      texts[i]->append(buf, static_cast<size_t>(got));
    } else if (got == 0 || errno != EINTR) {
      close(fds_[i]);
      fds_[i] = -1;
    }
  }
  if (p[0].fd >= 0 && (p[0].revents & (POLLOUT | POLLERR | POLLHUP))) {
    const ssize_t put = write(fds_[0], pendingIn_.data(), pendingIn_.size());
    if (put > 0)
      pendingIn_.erase(0, static_cast<size_t>(put));
    else if (put < 0 && errno != EAGAIN && errno != EINTR)
      pendingIn_.clear();  // the child closed its stdin; nothing more will be read
  }
  return true;
}

RunResult LiveProcess::finish(Seconds timeout) {
  closeIn_ = true;
  const auto deadline = Clock::now() + timeout;
  while (pid_ > 0 && (fds_[1] >= 0 || fds_[2] >= 0) &&
         (pump(deadline) || Clock::now() < deadline)) {
  }
  const int exitCode = pid_ > 0 ? reap(pid_, deadline) : -1;
  pid_ = -1;
  return {exitCode, out_, err_};
}

Ornsim::Ornsim(const std::vector<std::string>& extraArgs)
    : socket_(dir_.file("qipc.sock")),
      record_(dir_.file("record.jsonl")),
      process_(ornsimPath(), concat({"--socket", socket_, "--record", record_}, extraArgs), {},
               dir_.file("ornsim.stderr")) {
  running_ = process_.waitForOut("\n") && process_.out() == "ready " + socket_ + "\n";
  if (!running_) {
    const RunResult r = process_.finish(Seconds(5));
    error_ = "ornsim did not get ready; stdout: '" + r.out + "' stderr: '" +
             fileText(dir_.file("ornsim.stderr")) + "'";
  }
}

int Ornsim::stop() {
  if (!running_)
    return -1;
  running_ = false;
  kill(process_.pid(), SIGTERM);
  return process_.finish(Seconds(5)).exitCode;
}

std::vector<std::string> Ornsim::recordLines() const {
  std::vector<std::string> lines;
  std::ifstream in(record_);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

bool Ornsim::waitForRecordLines(size_t count, std::chrono::milliseconds timeout) const {
  const auto deadline = Clock::now() + timeout;
  // Watches the folder: the record file may not exist yet.
  int fd = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  if (fd < 0)
    return false;
  inotify_add_watch(fd, dir_.path().c_str(), IN_MODIFY | IN_CREATE | IN_CLOSE_WRITE);
  bool enough;
  while (!(enough = recordLines().size() >= count)) {
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, msLeft(deadline)) <= 0 && Clock::now() >= deadline)
      break;
    char events[4096];
    while (read(fd, events, sizeof events) > 0) {
    }
  }
  close(fd);
  return enough;
}

std::vector<std::string> Ornsim::recordedRequests() const {
  std::vector<std::string> requests;
  for (const auto& line : recordLines())
    if (line.find("\"requestType\"") != std::string::npos)
      requests.push_back(line);
  return requests;
}

std::string fileText(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace orntest
