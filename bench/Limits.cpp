// SPDX-License-Identifier: Apache-2.0
// ornbench's limits rows: each starts its own ornsim, puts it in a hostile situation and
// reports whether (and how fast) a well-behaved client is still served, and at what memory.
#include "Limits.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "BenchProcess.h"
#include "Frame.h"
#include "Socket.h"

namespace ornbench {
namespace {

constexpr const char* kListing = R"({"qfi":{"path":"/v2/endpoints","method":"GET"},"dfi":[]})";

// A /proc/<pid>/status figure in MiB ("VmRSS", "VmHWM"); -1 when unreadable.
double statusMiB(pid_t pid, const std::string& key) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(in, line);)
    if (line.compare(0, key.size() + 1, key + ":") == 0)
      return std::stod(line.substr(key.size() + 1)) / 1024.0;
  return -1;
}

double msSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// A registered client's round trip once `peers` connections hold every place, each having
// sent `prefix` (nothing, or the start of a frame). Returns the ms or -1 when refused.
double servedPastPeers(const std::string& ornsimPath, int peers, const std::string& prefix) {
  Sim sim(ornsimPath);
  if (!sim.ok())
    return -1;
  std::vector<int> fds;
  std::string err;
  for (int i = 0; i < peers; ++i) {
    const int fd = ornwick::qipc::connectUnix(sim.socketPath(), &err);
    if (fd >= 0 && !prefix.empty())
      send(fd, prefix.data(), prefix.size(), MSG_NOSIGNAL);
    fds.push_back(fd);
  }
  const auto start = Clock::now();
  const auto deadline = start + std::chrono::seconds(5);
  Conn c;
  const bool served = c.open(sim.socketPath(), "ornbench-late", deadline) &&
                      c.sendRequest("late", 1, kListing) && c.readResponse(deadline);
  const double ms = msSince(start);
  for (int fd : fds)
    if (fd >= 0)
      close(fd);
  return served ? ms : -1;
}

// Requests answered one after another within `seconds` while ornsim logs each (-v) into a
// pipe nobody reads.
long answeredWithStderrUnread(const std::string& ornsimPath, double seconds) {
  Sim sim(ornsimPath, {"-v"});
  Conn c;
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(seconds));
  if (!sim.ok() || !c.open(sim.socketPath(), "ornbench-log", end))
    return -1;
  long answered = 0;
  while (Clock::now() < end && c.sendRequest("log", 1, kListing) &&
         c.readResponse(Clock::now() + std::chrono::seconds(5)))
    ++answered;
  return answered;
}

// A home of `devices` lights, written into `dir`; its path.
std::string bigHome(const std::string& dir, int devices) {
  const std::string path = dir + "/home.json";
  std::ofstream out(path);
  out << "{\"devices\":[";
  for (int i = 0; i < devices; ++i)
    out << (i ? "," : "") << "{\"id\":\"light-" << i << "\",\"friendlyName\":\"Light " << i
        << "\",\"interfaces\":[\"Corva.PowerController\",\"Corva.BrightnessController\","
           "\"Corva.ColorController\",\"Corva.ColorTemperatureController\"]}";
  out << "]}\n";
  return path;
}

}  // namespace

bool runLimits(const std::string& ornsimPath) {
  printf("== ornsim's limits: a client among hostile peers (default limits)\n");
  printf("%-44s %12s\n", "situation", "result");
  const double idle = servedPastPeers(ornsimPath, 256, "");
  const double partial = servedPastPeers(ornsimPath, 256, std::string("\0\0\0\x20{", 5));
  for (const auto& row : {std::make_pair("256 idle connections, then a client", idle),
                          std::make_pair("256 connections 5 bytes into a frame", partial)}) {
    if (row.second < 0)
      printf("%-44s %12s\n", row.first, "refused");
    else
      printf("%-44s %9.1f ms\n", row.first, row.second);
  }
  const double seconds = 2;
  const long answered = answeredWithStderrUnread(ornsimPath, seconds);
  printf("%-44s %7ld in %.0f s\n", "-v, stderr a pipe nobody reads: answers", answered, seconds);

  // 1,000 listings of a 4,300-device home asked for with a long delay, then the client leaves.
  char pattern[] = "/tmp/ornbench-home-XXXXXX";
  if (mkdtemp(pattern) == nullptr)
    return false;
  const std::string home = bigHome(pattern, 4300);
  Sim sim(ornsimPath, {"--home", home, "--response-delay-ms", "600000"});
  if (!sim.ok())
    return false;
  int sent = 0;
  {
    Conn c;
    if (!c.open(sim.socketPath(), "ornbench-delay", Clock::now() + std::chrono::seconds(10)))
      return false;
    while (sent < 1000 && c.sendRequest(std::to_string(sent), 1, kListing))
      ++sent;
  }
  Conn after;  // a round trip, so ornsim has seen the first client go
  after.open(sim.socketPath(), "ornbench-after", Clock::now() + std::chrono::seconds(10));
  printf("%-44s %5d sent, peak %.0f MiB, after it left %.0f MiB\n",
         "1,000 delayed 4,300-device listings", sent, statusMiB(sim.pid(), "VmHWM"),
         statusMiB(sim.pid(), "VmRSS"));
  unlink(home.c_str());
  rmdir(pattern);
  return true;
}

}  // namespace ornbench
