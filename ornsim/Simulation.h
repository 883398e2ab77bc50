// SPDX-License-Identifier: Apache-2.0
// Simulation: what ornsim does with each request between reading and answering
// it: faults, the simulated service with its /sim/ controls, the saved state
// (--state) and the traffic log (-v).
#pragma once

#include <string>
#include <vector>

#include "Control.h"
#include "Home.h"
#include "Options.h"
#include "RequestInfo.h"
#include "Subscriptions.h"

namespace ornsim {

class Simulation {
 public:
  // What to do with one request.
  struct Outcome {
    long number = 0;     // requests received so far, this one included
    bool answer = true;  // false: leave the request unanswered
    bool fault = false;  // the answer (or its absence, or delay) is a fault's
    int code = 0;
    std::string data;
    int delayMs = 0;
    std::vector<StateChange> changes;  // to be published as event 21
    int eventsSent = 0;                // events the request itself sent (/sim/events)
    RequestInfo info;                  // filled when the log or a fault needs it
  };

  Simulation(const Options& options, Home& home, Subscriptions& subscriptions,
             EventSender sendEvent);
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;

  // With --state: applies the file when it exists, then writes it. Returns
  // false and sets *err when either fails.
  bool start(std::string* err);

  // Decides the answer to a request of `client` and applies it to the home
  // unless a fault stands in for the service.
  Outcome serve(const std::string& client, int type, const std::string& payload);

  // With -v: one line on stderr for a served request; `events` counts every
  // event it caused.
  void log(const std::string& client, int type, const Outcome& outcome, int events) const;

 private:
  void save();

  const Options& options_;
  Home& home_;
  Subscriptions& subscriptions_;
  Control control_;
  std::string saved_;   // the state file's text as last written
  int eventsSent_ = 0;  // by the request being served
};

}  // namespace ornsim
