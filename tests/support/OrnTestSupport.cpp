// End-to-end test support: child processes with captured output and bounded lifetimes.
#include "OrnTestSupport.h"

#include <fcntl.h>
#include <poll.h>
#include <rapidjson/document.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

extern char** environ;

namespace orntest {
namespace {

using Clock = std::chrono::steady_clock;

int pidfdOpen(pid_t pid) {
  return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
}

int msLeft(Clock::time_point deadline) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

// Waits for the child to end until the deadline; kills it after that. Returns the status
// as waitpid gives it, and whether it had to be killed.
int reap(pid_t pid, Clock::time_point deadline, bool* killed) {
  *killed = false;
  int pidfd = pidfdOpen(pid);
  if (pidfd >= 0) {
    pollfd p{pidfd, POLLIN, 0};
    int n;
    do {
      n = poll(&p, 1, msLeft(deadline));
    } while (n < 0 && errno == EINTR);
    close(pidfd);
    if (n == 0) {
      kill(pid, SIGKILL);
      *killed = true;
    }
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

int exitCodeOf(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

struct Child {
  pid_t pid = -1;
  int in = -1;   // parent's end of the child's stdin, or -1
  int out = -1;  // parent's end of the child's stdout
  int err = -1;  // parent's end of the child's stderr, or -1
};

// Forks and execs exe. The child's stderr goes to errFile when given, else to a pipe.
// The child dies with the test process (PDEATHSIG), so a crashed test leaves nothing.
Child spawn(const std::string& exe, const std::vector<std::string>& args,
            const std::map<std::string, std::string>& env, const std::string& errFile) {
  int inPipe[2], outPipe[2], errPipe[2] = {-1, -1};
  if (pipe2(inPipe, O_CLOEXEC) != 0 || pipe2(outPipe, O_CLOEXEC) != 0)
    return {};
  if (errFile.empty() && pipe2(errPipe, O_CLOEXEC) != 0)
    return {};

  std::vector<std::string> envStrings;
  for (char** e = environ; *e; ++e) {
    std::string entry(*e);
    std::string key = entry.substr(0, entry.find('='));
    if (!env.count(key))
      envStrings.push_back(entry);
  }
  for (const auto& [key, value] : env)
    envStrings.push_back(key + "=" + value);
  std::vector<char*> argv{const_cast<char*>(exe.c_str())};
  for (const auto& a : args)
    argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  std::vector<char*> envp;
  for (auto& s : envStrings)
    envp.push_back(s.data());
  envp.push_back(nullptr);

  pid_t parent = getpid();
  pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
      _exit(127);
    signal(SIGPIPE, SIG_DFL);
    dup2(inPipe[0], 0);
    dup2(outPipe[1], 1);
    if (errFile.empty()) {
      dup2(errPipe[1], 2);
    } else {
      int fd = open(errFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
      if (fd >= 0)
        dup2(fd, 2);
    }
    execve(exe.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  close(inPipe[0]);
  close(outPipe[1]);
  if (errPipe[1] >= 0)
    close(errPipe[1]);
  if (pid < 0) {
    close(inPipe[1]);
    close(outPipe[0]);
    if (errPipe[0] >= 0)
      close(errPipe[0]);
    return {};
  }
  return {pid, inPipe[1], outPipe[0], errPipe[0]};
}

std::vector<std::string> readLines(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
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

Ornsim::Ornsim(const std::vector<std::string>& extraArgs)
    : socket_(dir_.file("qipc.sock")), record_(dir_.file("record.jsonl")) {
  std::vector<std::string> args{"--socket", socket_, "--record", record_};
  args.insert(args.end(), extraArgs.begin(), extraArgs.end());
  Child child = spawn(ornsimPath(), args, {}, dir_.file("ornsim.stderr"));
  if (child.pid <= 0) {
    error_ = std::string("cannot start ornsim: ") + std::strerror(errno);
    return;
  }
  close(child.in);
  pid_ = child.pid;

  // Wait for "ready <path>" on its stdout.
  auto deadline = Clock::now() + std::chrono::seconds(10);
  std::string out;
  while (out.find('\n') == std::string::npos) {
    pollfd p{child.out, POLLIN, 0};
    int n = poll(&p, 1, msLeft(deadline));
    if (n < 0 && errno == EINTR)
      continue;
    char buf[512];
    ssize_t got = n > 0 ? read(child.out, buf, sizeof buf) : 0;
    if (got <= 0)
      break;
    out.append(buf, static_cast<size_t>(got));
  }
  close(child.out);
  if (out.rfind("ready " + socket_ + "\n", 0) != 0) {
    std::ifstream errLog(dir_.file("ornsim.stderr"));
    std::string errText((std::istreambuf_iterator<char>(errLog)), {});
    error_ = "ornsim did not get ready; stdout: '" + out + "' stderr: '" + errText + "'";
    stop();
  }
}

Ornsim::~Ornsim() {
  stop();
}

int Ornsim::stop() {
  if (pid_ <= 0)
    return -1;
  kill(pid_, SIGTERM);
  bool killed = false;
  int status = reap(pid_, Clock::now() + std::chrono::seconds(5), &killed);
  pid_ = -1;
  return killed ? -1 : exitCodeOf(status);
}

std::vector<std::string> Ornsim::recordLines() const {
  return readLines(record_);
}

bool Ornsim::waitForRecordLines(size_t count, std::chrono::milliseconds timeout) const {
  auto deadline = Clock::now() + timeout;
  // Watch the folder: the record file may not exist yet.
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

LiveProcess::LiveProcess(const std::string& exe, const std::vector<std::string>& args,
                         const std::map<std::string, std::string>& env) {
  // A child that dies early must fail the test, not end it through a write to its stdin.
  signal(SIGPIPE, SIG_IGN);
  Child child = spawn(exe, args, env, "");
  if (child.pid <= 0) {
    err_ = std::string("cannot start ") + exe + ": " + std::strerror(errno);
    return;
  }
  pid_ = child.pid;
  in_ = child.in;
  outFd_ = child.out;
  errFd_ = child.err;
  fcntl(in_, F_SETFL, O_NONBLOCK);
}

LiveProcess::~LiveProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  for (int fd : {in_, outFd_, errFd_})
    if (fd >= 0)
      close(fd);
}

bool LiveProcess::waitForOut(const std::string& needle, size_t from,
                             std::chrono::milliseconds timeout) {
  return waitFor("out", needle, from, timeout);
}

bool LiveProcess::waitForErr(const std::string& needle, size_t from,
                             std::chrono::milliseconds timeout) {
  return waitFor("err", needle, from, timeout);
}

bool LiveProcess::waitFor(const std::string& stream, const std::string& needle, size_t from,
                          std::chrono::milliseconds timeout) {
  const std::string& text = stream == "out" ? out_ : err_;
  const int& fd = stream == "out" ? outFd_ : errFd_;
  auto deadline = Clock::now() + timeout;
  while (text.find(needle, from) == std::string::npos) {
    if (fd < 0 || !pump(deadline))
      return false;
  }
  return true;
}

void LiveProcess::send(const std::string& text) {
  pendingIn_ += text;
  pump(Clock::now());
}

bool LiveProcess::pump(Clock::time_point deadline) {
  if (in_ >= 0 && pendingIn_.empty() && closeInWhenWritten_) {
    close(in_);
    in_ = -1;
  }
  pollfd fds[3] = {
      {outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}, {pendingIn_.empty() ? -1 : in_, POLLOUT, 0}};
  int ready = poll(fds, 3, msLeft(deadline));
  if (ready < 0)
    return errno == EINTR;
  if (ready == 0)
    return false;
  int* fdOf[2] = {&outFd_, &errFd_};
  std::string* textOf[2] = {&out_, &err_};
  for (int i = 0; i < 2; ++i) {
    if (*fdOf[i] < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR)))
      continue;
    char buf[4096];
    ssize_t got = read(*fdOf[i], buf, sizeof buf);
    if (got > 0) {
      textOf[i]->append(buf, static_cast<size_t>(got));
    } else if (got == 0 || errno != EINTR) {
      close(*fdOf[i]);
      *fdOf[i] = -1;
    }
  }
  if (fds[2].fd >= 0 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP))) {
    ssize_t put = write(in_, pendingIn_.data(), pendingIn_.size());
    if (put > 0)
      pendingIn_.erase(0, static_cast<size_t>(put));
    else if (put < 0 && errno != EAGAIN && errno != EINTR)
      pendingIn_.clear();  // the child closed its stdin; nothing more will be read
  }
  return true;
}

RunResult LiveProcess::finish(std::chrono::milliseconds timeout, bool keepStdin) {
  RunResult result;
  if (pid_ <= 0) {
    result.err = err_;
    return result;
  }
  closeInWhenWritten_ = !keepStdin;
  auto deadline = Clock::now() + timeout;
  bool timedOut = false;
  while (outFd_ >= 0 || errFd_ >= 0) {
    if (!pump(deadline) && Clock::now() >= deadline) {
      timedOut = true;
      break;
    }
  }
  if (timedOut)
    kill(pid_, SIGKILL);
  bool killed = false;
  int status = reap(pid_, timedOut ? Clock::now() : deadline, &killed);
  pid_ = -1;
  result.timedOut = timedOut || killed;
  result.exitCode = result.timedOut ? -1 : exitCodeOf(status);
  result.out = out_;
  result.err = err_;
  return result;
}

RunResult runProcess(const std::string& exe, const std::vector<std::string>& args,
                     const RunOptions& options) {
  LiveProcess process(exe, args, options.env);
  process.send(options.stdinText);
  return process.finish(options.timeout, !options.closeStdin);
}

std::map<std::string, std::string> clientEnv(const std::string& socketPath) {
  return {{"ORN_QIPC_SOCKET", socketPath}};
}

RunResult runOrncli(const std::string& socketPath, const std::vector<std::string>& args,
                    RunOptions options) {
  options.env["ORN_QIPC_SOCKET"] = socketPath;
  return runProcess(orncliPath(), args, options);
}

std::string ornsimPath() {
  return ORN_ORNSIM_PATH;
}
std::string orncliPath() {
  return ORN_ORNCLI_PATH;
}

std::string jsonStringMember(const std::string& jsonLine, const std::string& key) {
  rapidjson::Document doc;
  doc.Parse(jsonLine.c_str());
  if (doc.HasParseError() || !doc.IsObject())
    return "";
  auto it = doc.FindMember(key.c_str());
  if (it == doc.MemberEnd() || !it->value.IsString())
    return "";
  return it->value.GetString();
}

}  // namespace orntest
