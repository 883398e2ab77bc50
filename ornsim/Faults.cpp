// SPDX-License-Identifier: Apache-2.0
// Faults: reading, writing and looking up targeted faults.
#include "Faults.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "Decimal.h"

namespace ornsim {
namespace {

bool parseTarget(const std::string& text, long requestsSoFar, Fault* f) {
  const size_t colon = text.find(':');
  if (colon == std::string::npos || colon + 1 == text.size())
    return false;
  const std::string kind = text.substr(0, colon);
  const std::string value = text.substr(colon + 1);
  if (kind == "path") {
    f->target = Fault::Target::kPath;
    const bool prefix = value.back() == '*';
    f->match = normalPath(prefix ? value.substr(0, value.size() - 1) : value) + (prefix ? "*" : "");
    return true;
  }
  if (kind == "endpoint" || kind == "naming") {
    f->target = kind == "endpoint" ? Fault::Target::kEndpoint : Fault::Target::kNaming;
    f->match = value;
    return true;
  }
  long n = 0;
  if ((kind != "request" && kind != "next") || !parseLong(value, 1, LONG_MAX - requestsSoFar, &n))
    return false;
  f->target = Fault::Target::kRequest;
  f->request = kind == "next" ? requestsSoFar + n : n;
  return true;
}

bool parseAction(const std::string& text, Fault* f) {
  if (text == "silence") {
    f->action = Fault::Action::kSilence;
    return true;
  }
  const size_t colon = text.find(':');
  const std::string kind = text.substr(0, colon);
  const std::string rest = colon == std::string::npos ? "" : text.substr(colon + 1);
  long n = 0;
  if (kind == "delay" && parseLong(rest, 0, INT_MAX, &n)) {
    f->action = Fault::Action::kDelay;
    f->delayMs = static_cast<int>(n);
    return true;
  }
  const size_t second = rest.find(':');
  if (kind != "respond" || second == std::string::npos ||
      !parseLong(rest.substr(0, second), INT_MIN, INT_MAX, &n))
    return false;
  f->action = Fault::Action::kRespond;
  f->code = static_cast<int>(n);
  f->data = rest.substr(second + 1);
  return true;
}

constexpr size_t kNone = static_cast<size_t>(-1);

void addKey(std::unordered_map<std::string, size_t>* index, const std::string& key, size_t at) {
  index->emplace(key, at);  // an earlier fault for the key keeps it
}

}  // namespace

bool parseFault(const std::string& text, long requestsSoFar, Fault* fault, std::string* err) {
  const size_t comma = text.find(',');
  Fault f;
  if (comma == std::string::npos || !parseTarget(text.substr(0, comma), requestsSoFar, &f) ||
      !parseAction(text.substr(comma + 1), &f)) {
    *err =
        "a fault is TARGET,ACTION with TARGET path:PATH, endpoint:ID, naming:ID, request:N or "
        "next:N "
        "and ACTION respond:CODE:DATA, delay:MS or silence";
    return false;
  }
  *fault = std::move(f);
  return true;
}

std::string faultText(const Fault& f) {
  std::string s = f.target == Fault::Target::kPath       ? "path:" + f.match
                  : f.target == Fault::Target::kEndpoint ? "endpoint:" + f.match
                  : f.target == Fault::Target::kNaming   ? "naming:" + f.match
                                                         : "request:" + std::to_string(f.request);
  if (f.action == Fault::Action::kRespond)
    return s + ",respond:" + std::to_string(f.code) + ":" + f.data;
  if (f.action == Fault::Action::kDelay)
    return s + ",delay:" + std::to_string(f.delayMs);
  return s + ",silence";
}

void FaultSet::add(Fault f) {
  const size_t at = faults_.size();
  switch (f.target) {
    case Fault::Target::kRequest:
      byRequest_.emplace(f.request, at);
      break;
    case Fault::Target::kPath:
      if (f.match.back() == '*')
        addKey(&byPrefix_[f.match.size() - 1], f.match.substr(0, f.match.size() - 1), at);
      else
        addKey(&byPath_, f.match, at);
      break;
    case Fault::Target::kEndpoint:
    case Fault::Target::kNaming: {
      const bool entry =
          f.target == Fault::Target::kEndpoint && f.action == Fault::Action::kRespond;
      addKey(entry ? &entryById_ : &wholeById_, f.match, at);
      break;
    }
  }
  faults_.push_back(std::move(f));
}

void FaultSet::clear() {
  *this = FaultSet();
}

void FaultSet::firstFor(const Index& index, const std::string& id, const Home& home,
                        size_t* best) const {
  if (index.empty())
    return;
  auto take = [&](const std::string& key) {
    const auto it = index.find(key);
    if (it != index.end() && it->second < *best)
      *best = it->second;
  };
  take(id);
  if (const Device* d = home.findDevice(id)) {
    take(d->id);
    take(d->endpointId);
  }
}

const Fault* FaultSet::forRequest(long n, const RequestInfo& info, const Home& home) const {
  if (faults_.empty())
    return nullptr;
  size_t best = kNone;
  if (const auto it = byRequest_.find(n); it != byRequest_.end())
    best = it->second;
  for (const auto& p : info.paths) {
    if (const auto it = byPath_.find(p); it != byPath_.end() && it->second < best)
      best = it->second;
    for (const auto& [length, index] : byPrefix_) {
      if (length > p.size())
        break;
      if (const auto it = index.find(p.substr(0, length)); it != index.end() && it->second < best)
        best = it->second;
    }
  }
  // Ids the whole request is about, and the entries of a batch.
  auto whole = [&](const std::string& id) {
    firstFor(wholeById_, id, home, &best);
    firstFor(entryById_, id, home, &best);
  };
  for (const auto& id : info.endpoints)
    whole(id);
  for (const auto& id : info.entries)
    firstFor(wholeById_, id, home, &best);
  for (const auto& groupId : info.groups) {
    whole(groupId);
    if (const Group* g = home.findGroup(groupId))
      for (const auto& member : g->members) {
        if (info.groupBatch)
          firstFor(wholeById_, member, home, &best);
        else
          whole(member);
      }
  }
  return best == kNone ? nullptr : &faults_[best];
}

const Fault* FaultSet::forEntry(const std::string& id, const Home& home) const {
  size_t best = kNone;
  firstFor(entryById_, id, home, &best);
  return best == kNone ? nullptr : &faults_[best];
}

}  // namespace ornsim
