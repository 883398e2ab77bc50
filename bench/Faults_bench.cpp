// SPDX-License-Identifier: Apache-2.0
// ornsim with many faults set: a request costs lookups by what it names, and
// setting faults one by one costs each the same, however many are set.
#include <benchmark/benchmark.h>

#include <string>

#include "Home.h"
#include "Options.h"
#include "Simulation.h"
#include "Subscriptions.h"

namespace {

using ornsim::Simulation;

const char kTurnOn[] =
    R"({"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOn","method":"POST",)"
    R"("requestBody":{"groupId":"group-downstairs","directivePayload":{}}},"dfi":[]})";

std::string addFault(long i) {
  // Half aimed at devices that do not exist, half at requests never reached.
  const std::string target =
      i % 2 ? "endpoint:ep-" + std::to_string(i) : "request:" + std::to_string(1000000000 + i);
  return R"({"qfi":{"path":"/sim/faults","method":"POST","requestBody":{"fault":")" + target +
         R"(,respond:503:{}"}},"dfi":[]})";
}

// A group directive with N faults set, none of which applies to it.
void BM_ServeWithFaults(benchmark::State& state) {
  ornsim::Options options;
  ornsim::Home home = ornsim::builtinHome();
  ornsim::Subscriptions subs;
  Simulation sim(options, home, subs, nullptr);
  for (long i = 0; i < state.range(0); ++i)
    sim.serve("bench", 1, addFault(i));
  for (auto _ : state)
    benchmark::DoNotOptimize(sim.serve("bench", 1, kTurnOn));
}
BENCHMARK(BM_ServeWithFaults)->Arg(0)->Arg(50000)->Unit(benchmark::kMicrosecond);

// Setting N faults, one POST /sim/faults each.
void BM_AddFaults(benchmark::State& state) {
  for (auto _ : state) {
    ornsim::Options options;
    ornsim::Home home = ornsim::builtinHome();
    ornsim::Subscriptions subs;
    Simulation sim(options, home, subs, nullptr);
    for (long i = 0; i < state.range(0); ++i)
      benchmark::DoNotOptimize(sim.serve("bench", 1, addFault(i)));
  }
}
BENCHMARK(BM_AddFaults)->Arg(50000)->Unit(benchmark::kMillisecond);

}  // namespace
