// SPDX-License-Identifier: Apache-2.0
// Observer: what a watcher of the simulation (the live view) is told as it
// happens. Calls come on the event loop, after the fact; a watcher must not
// block and must not change the simulation from inside them.
#pragma once

#include <string>

#include "Simulation.h"

namespace ornsim {

class Observer {
 public:
  virtual ~Observer() = default;
  // A request was served; `events` counts the events it caused, as -v does.
  virtual void served(const std::string& client, int type, const std::string& payload,
                      const Simulation::Outcome& outcome, int events) = 0;
  // An event went to `sessions` connections of `to` (a client name, or a list
  // of them; empty: every registered connection).
  virtual void sent(const std::string& to, int type, const std::string& payload, int sessions) = 0;
  // A client registered or a connection closed.
  virtual void clientsChanged() = 0;
};

}  // namespace ornsim
