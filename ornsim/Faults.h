// SPDX-License-Identifier: Apache-2.0
// Faults: answers that go wrong on purpose, for one path, one endpoint or the
// Nth request.
#pragma once

#include <string>
#include <vector>

#include "Home.h"
#include "RequestInfo.h"

namespace ornsim {

struct Fault {
  enum class Target { kPath, kEndpoint, kRequest };
  enum class Action { kRespond, kDelay, kSilence };
  Target target = Target::kRequest;
  std::string match;  // kPath: a normal path, or a prefix ending in "*"; kEndpoint: an id
  long request = 0;   // kRequest: counted from 1 since ornsim started
  Action action = Action::kSilence;
  int code = 0;  // kRespond
  std::string data;
  int delayMs = 0;  // kDelay
};

// Reads "TARGET,ACTION": TARGET is path:PATH, endpoint:ID, request:N or next:K
// (the Kth request after the `requestsSoFar` already received); ACTION is
// respond:CODE:DATA, delay:MS or silence. Returns false and sets *err when the
// text is not of that form.
bool parseFault(const std::string& text, long requestsSoFar, Fault* fault, std::string* err);

// The fault as parseFault reads it ("next" written as "request").
std::string faultText(const Fault& fault);

// The first fault that applies to request number `n`, or nullptr. An endpoint
// fault applies to requests naming the device by either id, or a group holding
// it.
const Fault* matchFault(const std::vector<Fault>& faults, long n, const RequestInfo& info,
                        const Home& home);

}  // namespace ornsim
