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

// The saved text of the home's device state and the subscriptions, followed by
// the `kept` device entries (JSON texts) of ids the home does not hold.
std::string stateText(const Home& home, const Subscriptions& subs,
                      const std::vector<std::string>& kept = {});

// Applies a saved text. Entries of devices the home does not hold go to *kept
// as they are, so that saving again does not cut them out. Returns false with
// every problem found (positions as in home files) and changes nothing then.
bool applyState(const std::string& text, Home* home, Subscriptions* subs,
                std::vector<std::string>* problems, std::vector<std::string>* kept = nullptr);

// Takes an exclusive lock on `path`.lock (owner-only, never through a link) for
// as long as the returned descriptor is open; -1 and *err when another process
// holds it or it cannot be taken.
int lockStateFile(const std::string& path, std::string* err);

// Reads the state file: a regular file, not followed through a link. False and
// *missing when there is none; false and *err for anything else.
bool readStateFile(const std::string& path, std::string* text, bool* missing, std::string* err);

// Replaces the file at `path` by `text`: written to `path`.tmp (created anew,
// owner-only, never through a link), synced, renamed over `path` and the folder
// synced, so that a reader, a restart after a crash or one after a power cut
// sees the old file or the new one, whole. Returns false and sets *err when
// that fails.
bool writeAtomically(const std::string& path, const std::string& text, std::string* err);

}  // namespace ornsim
