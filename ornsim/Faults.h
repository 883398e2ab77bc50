// SPDX-License-Identifier: Apache-2.0
// Faults: answers that go wrong on purpose, for one path, one endpoint (or one
// entry of a batch), any request naming a device, or the Nth request.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "Home.h"
#include "RequestInfo.h"

namespace ornsim {

struct Fault {
  // kEndpoint answers for the device's entry when a batch names it, for the
  // whole request otherwise; kNaming always takes the whole request.
  enum class Target { kPath, kEndpoint, kNaming, kRequest };
  enum class Action { kRespond, kDelay, kSilence };
  Target target = Target::kRequest;
  std::string match;  // kPath: a normal path, or a prefix ending in "*"; else an id
  long request = 0;   // kRequest: counted from 1 since ornsim started
  Action action = Action::kSilence;
  int code = 0;  // kRespond
  std::string data;
  int delayMs = 0;  // kDelay
};

// Reads "TARGET,ACTION": TARGET is path:PATH, endpoint:ID, naming:ID, request:N
// or next:K (the Kth request after the `requestsSoFar` already received);
// ACTION is respond:CODE:DATA, delay:MS or silence. Returns false and sets
// *err when the text is not of that form.
bool parseFault(const std::string& text, long requestsSoFar, Fault* fault, std::string* err);

// The fault as parseFault reads it ("next" written as "request").
std::string faultText(const Fault& fault);

// The faults set, in the order they were set, indexed by what they target: a
// request costs a few lookups per id and path it names, whatever the number of
// faults. Where several apply, the one set first wins.
class FaultSet {
 public:
  void add(Fault fault);
  void clear();
  bool empty() const { return faults_.empty(); }
  const std::vector<Fault>& all() const { return faults_; }

  // The fault that takes the whole of request number `n`, or nullptr. An id
  // matches by either of the device's ids, and through a group holding it.
  // A batch entry's device is taken into account only by faults that cannot
  // act on the entry alone (naming:, and endpoint: with delay or silence).
  const Fault* forRequest(long n, const RequestInfo& info, const Home& home) const;

  // The endpoint: fault answering for the batch entry `id`, or nullptr.
  const Fault* forEntry(const std::string& id, const Home& home) const;

 private:
  using Index = std::unordered_map<std::string, size_t>;  // key -> first fault set for it

  // The earlier of *best and the fault `index` holds for `id` (by either of
  // its device's ids).
  void firstFor(const Index& index, const std::string& id, const Home& home, size_t* best) const;

  std::vector<Fault> faults_;
  std::unordered_map<long, size_t> byRequest_;
  Index byPath_;
  std::map<size_t, Index> byPrefix_;  // by prefix length, "*" left out
  Index wholeById_;                   // naming:, and endpoint: with delay or silence
  Index entryById_;                   // endpoint: with respond
};

}  // namespace ornsim
