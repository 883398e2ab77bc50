// SPDX-License-Identifier: Apache-2.0
// ScaleBench: big homes and many client names against a private ornsim.
#include "ScaleBench.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BenchProcess.h"

namespace ornbench {
namespace {

constexpr const char* kGroupOn =
    R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOn/","method":"POST","requestBody":{"groupId":"all","directivePayload":{}}},"dfi":[]})";
constexpr const char* kGroupOff =
    R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOff/","method":"POST","requestBody":{"groupId":"all","directivePayload":{}}},"dfi":[]})";
constexpr const char* kOneOn =
    R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOn/","method":"POST","requestBody":{"batch":[{"endpointId":"d0"}],"directivePayload":{}}},"dfi":[]})";
constexpr const char* kKitchenOn =
    R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOn/","method":"POST","requestBody":{"batch":[{"endpointId":"ep-kitchen"}],"directivePayload":{}}},"dfi":[]})";
constexpr const char* kSubscribeAll =
    R"({"operation":"create","subscriptions":[{"entities":{"endpointGroup":{"id":"all"}},"eventTypes":[]}]})";
constexpr const char* kSubscribeKitchen =
    R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"ep-kitchen"}},"eventTypes":[]}]})";
constexpr const char* kDeleteKitchen =
    R"({"operation":"delete","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"ep-kitchen"}},"eventTypes":[]}]})";

double msSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

Clock::time_point soon() {
  return Clock::now() + std::chrono::seconds(60);
}

// VmRSS of a process, in MiB; -1 when unknown.
double rssMiB(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmRSS:", 0) == 0)
      return std::atof(line.c_str() + 6) / 1024.0;
  return -1;
}

// One request and its answer; false unless it answered `code`.
bool ask(Conn& c, int type, const char* payload, int code = 200) {
  return c.sendRequest("b", type, payload) && c.readResponse(soon()) && c.lastCode() == code;
}

// The median time of `rounds` turnOns of the kitchen light, in ms.
double turnOnMs(Conn& c, int rounds) {
  std::vector<double> ms;
  for (int i = 0; i < rounds; ++i) {
    const auto start = Clock::now();
    if (!ask(c, 1, kKitchenOn))
      return -1;
    ms.push_back(msSince(start));
  }
  return median(ms);
}

}  // namespace

bool runGroupDirective(const std::string& ornsim, int devices) {
  char home[] = "/tmp/ornbench-home-XXXXXX";
  const int fd = mkstemp(home);
  if (fd < 0)
    return false;
  close(fd);
  {
    std::ofstream out(home);
    out << R"({"devices":[)";
    for (int i = 0; i < devices; ++i)
      out << (i ? "," : "") << R"({"id":"d)" << i << R"(","externallyReportedId":"ep-d)" << i
          << R"(","interfaces":["Corva.PowerController"]})";
    out << R"(],"groups":[{"id":"all","members":[)";
    for (int i = 0; i < devices; ++i)
      out << (i ? "," : "") << "\"d" << i << '"';
    out << "]}]}";
  }
  char stateDir[] = "/tmp/ornbench-state-XXXXXX";
  if (mkdtemp(stateDir) == nullptr)
    return false;
  // Declared before the Sim, so removed after it stops (and saves a last time).
  struct RemoveAll {
    std::string path;
    ~RemoveAll() {
      std::error_code ec;
      std::filesystem::remove_all(path, ec);
    }
  } removeState{stateDir};
  const std::string state = std::string(stateDir) + "/state.json";
  const auto start = Clock::now();
  Sim sim(ornsim, {"--home", home, "--state", state});
  const double startMs = msSince(start);
  unlink(home);
  printf("== a home of %d devices in one group, with a group subscription\n", devices);
  printf("start-up to ready: %.0f ms\n", startMs);
  Conn c;
  if (!sim.ok() || !c.open(sim.socketPath(), "ornbench-group", soon()) ||
      !ask(c, 2, kSubscribeAll)) {
    fprintf(stderr, "ornbench: ornsim with %d devices did not serve\n", devices);
    return false;
  }
  std::vector<double> ms;
  for (int i = 0; i < 6; ++i) {
    const long before = c.stateEvents();
    const auto t = Clock::now();
    if (!ask(c, 1, i % 2 == 0 ? kGroupOn : kGroupOff) || c.stateEvents() - before != devices) {
      fprintf(stderr, "ornbench: the group directive failed or lost events\n");
      return false;
    }
    ms.push_back(msSince(t));
  }
  printf("group turnOn/turnOff, %d events each: median %.1f ms, max %.1f ms; ornsim %.1f MiB\n",
         devices, median(ms), quantile(ms, 1.0), rssMiB(sim.pid()));
  // One device at a time, each change saved with --state: writes are gathered.
  std::vector<double> one;
  for (int i = 0; i < 200; ++i) {
    const auto t = Clock::now();
    if (!ask(c, 1, kOneOn)) {
      fprintf(stderr, "ornbench: turnOn failed\n");
      return false;
    }
    one.push_back(msSince(t));
  }
  printf("one device's turnOn with --state saving the home: median %.3f ms, p99 %.3f ms\n",
         median(one), quantile(one, 0.99));
  return true;
}

bool runClientNames(const std::string& ornsim, int names) {
  Sim sim(ornsim);
  Conn driver;
  if (!sim.ok() || !driver.open(sim.socketPath(), "ornbench-driver", soon())) {
    fprintf(stderr, "ornbench: ornsim did not start\n");
    return false;
  }
  const double atStart = turnOnMs(driver, 200), rssAtStart = rssMiB(sim.pid());
  printf("== %d client names: each connects, subscribes and leaves\n", names);
  printf("%-38s %9s %12s\n", "", "RSS MiB", "turnOn ms");
  printf("%-38s %9.1f %12.3f\n", "at start", rssAtStart, atStart);
  const auto start = Clock::now();
  for (int i = 0; i < names; ++i) {
    Conn c;
    if (!c.open(sim.socketPath(), "name-" + std::to_string(i), soon()) ||
        !ask(c, 2, kSubscribeKitchen) || !ask(c, 2, kDeleteKitchen)) {
      fprintf(stderr, "ornbench: name %d failed\n", i);
      return false;
    }
  }
  const double churnS = msSince(start) / 1000;
  printf("%-38s %9.1f %12.3f\n", "after, each deleting first", rssMiB(sim.pid()),
         turnOnMs(driver, 200));
  // Twice the default cap on names shows the cap at work.
  const int leaving = std::min(names, 2048);
  int refused = 0;
  for (int i = 0; i < leaving; ++i) {
    Conn c;
    if (!c.open(sim.socketPath(), "kept-" + std::to_string(i), soon()) ||
        !c.sendRequest("b", 2, kSubscribeKitchen) || !c.readResponse(soon())) {
      fprintf(stderr, "ornbench: name %d failed\n", i);
      return false;
    }
    refused += c.lastCode() == 400 ? 1 : 0;
  }
  char kept[64];
  snprintf(kept, sizeof kept, "after %d leaving it (%d refused)", leaving, refused);
  printf("%-38s %9.1f %12.3f\n", kept, rssMiB(sim.pid()), turnOnMs(driver, 200));
  printf("(%.1f s for the first %d names)\n", churnS, names);
  return true;
}

}  // namespace ornbench
