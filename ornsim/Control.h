// SPDX-License-Identifier: Apache-2.0
// Control: the simulator's own QFI paths under /sim/, for changing the home from
// outside, looking inside it and setting faults. The real service has none of them.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Faults.h"
#include "Home.h"
#include "JsonText.h"
#include "Subscriptions.h"

namespace ornsim {

// Sends an event to the registered connections of a client (every registered
// connection when the name is empty); returns how many got it.
using EventSender =
    std::function<int(const std::string& client, int type, const std::string& payload)>;

// What the /sim/ paths work on besides the home.
struct Control {
  explicit Control(const Subscriptions& subs) : subscriptions(subs) {}

  const Subscriptions& subscriptions;
  FaultSet faults;
  size_t faultListBytes = 0;  // the faults' share of GET /sim/faults's answer, escaped
  long requests = 0;          // received so far, the current one included
  EventSender sendEvent;      // unset: events reach nobody
};

// Writes the groups as /sim/groups lists them: [{"id":..,"members":[..]},..].
void writeGroups(JsonWriter& w, const std::vector<Group>& groups);

// Adds a fault after those set, unless GET /sim/faults could then not list
// them all in one answer: false then, and nothing is added.
bool addFault(Control& control, Fault fault);

}  // namespace ornsim
