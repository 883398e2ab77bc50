// SPDX-License-Identifier: Apache-2.0
// Simulation: what ornsim does with each request between reading and answering
// it: faults, the simulated service with its /sim/ controls, the saved state
// (--state) and the traffic log (-v).
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Control.h"
#include "Home.h"
#include "Options.h"
#include "RequestInfo.h"
#include "Subscriptions.h"

namespace ornsim {

class Observer;

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

  // Calls `then` on the event loop at `due` (or never, once the loop has stopped).
  using Timer =
      std::function<void(std::chrono::steady_clock::time_point due, std::function<void()> then)>;

  // With a timer, saving the state after changes is gathered on it; without,
  // each change is saved before serve() returns.
  Simulation(const Options& options, Home& home, Subscriptions& subscriptions,
             EventSender sendEvent, Timer timer = nullptr);
  ~Simulation();
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;

  // With --state: locks the file, applies it when it exists, then writes it.
  // Returns false and sets *err when any of that fails.
  bool start(std::string* err);

  // Writes a change not saved yet (at a clean stop).
  void flush();

  // Decides the answer to a request of `client` and applies it to the home
  // unless a fault stands in for the service.
  Outcome serve(const std::string& client, int type, const std::string& payload);

  // With -v: one line on stderr for a served request; `events` counts every
  // event it caused. The observer, when set, is told either way.
  void log(const std::string& client, int type, const std::string& payload, const Outcome& outcome,
           int events) const;

  // One watcher at most; null stops the telling.
  void setObserver(Observer* observer) { observer_ = observer; }
  Observer* observer() const { return observer_; }
  const std::vector<Fault>& faults() const { return control_.faults.all(); }

 private:
  // Applies faults and the global --respond, --no-response and
  // --response-delay-ms to *out; true when they answer (or withhold the
  // answer) in the service's place.
  bool standIn(Outcome* out) const;
  // Saves now when the last save is kSaveEvery old, else when it will be.
  void saveSoon();
  void save();

  const Options& options_;
  Home& home_;
  Subscriptions& subscriptions_;
  Control control_;
  Timer timer_;
  bool saveWaiting_ = false;  // a save is due on timer_
  uint64_t saveRound_ = 0;    // a waiting save of an earlier round is void
  std::chrono::steady_clock::time_point lastSave_;
  bool unsaved_ = false;                            // a change is not in the state file yet
  uint64_t homeEdits_ = 0, subscriptionEdits_ = 0;  // as seen by the last request
  std::vector<std::string> kept_;                   // saved devices the home does not hold
  int stateLock_ = -1;
  std::string saved_;   // the state file's text as last written
  int eventsSent_ = 0;  // by the request being served
  Observer* observer_ = nullptr;
};

// The traffic log's line for a request served at `at`, whose request info
// says `what`.
std::string trafficLine(std::chrono::system_clock::time_point at, const std::string& client,
                        int type, const std::string& what, const Simulation::Outcome& outcome,
                        int events);
// The traffic log's time: local, to the millisecond.
std::string logTime(std::chrono::system_clock::time_point at);

}  // namespace ornsim
