// SPDX-License-Identifier: Apache-2.0
// RequestHandler: what the simulated service answers, as a pure function of its
// state.
#pragma once

#include <string>
#include <vector>

#include "Home.h"
#include "Subscriptions.h"

namespace ornsim {

struct Control;

struct HandlerResult {
  int code = 200;
  std::string data;                  // JSON text
  std::vector<StateChange> changes;  // to be published as event 21
};

// Answers one request of `requestType` (1 QFI/DFI, 2 subscriptions, 3 state)
// from `client`, updating home and subscriptions. Bad requests get a 4xx code
// and {"error":..,"message":..}. Paths under /sim/ are the simulator's own and
// need `control`; without it they are unknown, as they are to the real service.
// The endpoint faults of `control` answer for the batch entries of their device.
HandlerResult handleRequest(Home& home, Subscriptions& subscriptions, const std::string& client,
                            int requestType, const std::string& payload,
                            Control* control = nullptr);

// The JSON payload of the state-change event for `change`.
std::string stateChangePayload(const StateChange& change);

}  // namespace ornsim
