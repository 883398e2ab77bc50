// SPDX-License-Identifier: Apache-2.0
// StateFile: device state and subscriptions kept across restarts (--state).
//
// The text: {"devices":[{"id":..,"reachable":..,"state":{..}},..],
//            "clients":[{"client":..,"subscriptions":[..]},..]}
// with device state as a home file writes it and subscriptions as a create
// answer shows them.
#pragma once

#include <string>
#include <vector>

#include "Home.h"
#include "JsonText.h"
#include "Subscriptions.h"

namespace ornsim {

// Writes the member "clients": every client's subscriptions.
void writeClients(JsonWriter& w, const Subscriptions& subs);

// The saved text of the home's device state and the subscriptions.
std::string stateText(const Home& home, const Subscriptions& subs);

// Applies a saved text. Devices the home does not hold are skipped. Returns
// false with every problem found (positions as in home files) and changes
// nothing then.
bool applyState(const std::string& text, Home* home, Subscriptions* subs,
                std::vector<std::string>* problems);

// Replaces the file at `path` by `text` through a temporary file beside it and
// a rename, so that a reader sees the old file or the new one, whole. Returns
// false and sets *err when that fails.
bool writeAtomically(const std::string& path, const std::string& text, std::string* err);

}  // namespace ornsim
