// SPDX-License-Identifier: Apache-2.0
// Subscriptions: storage and event matching.
#include "Subscriptions.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace ornsim {
namespace {

bool wants(const Subscription& s, const StateChange& change) {
  if (s.eventTypes.empty())
    return true;
  for (const auto& t : s.eventTypes)
    if (t.nameSpace == change.nameSpace && (t.name.empty() || t.name == change.name))
      return true;
  return false;
}

// The target as written: an endpoint (entity or endpoint id) or a group.
std::string targetKey(const std::string& endpointId, const std::string& groupId) {
  return endpointId.empty() ? "g:" + groupId : "e:" + endpointId;
}

std::string targetKey(const Subscription& s) {
  return targetKey(s.endpointId, s.groupId);
}

// Equal for subscriptions with the same target and the same set of event types
// (order and repeats do not make a subscription new). Each part is length-prefixed,
// so no text can pass for two.
std::string sameKey(const Subscription& s) {
  std::set<std::pair<std::string, std::string>> types;
  for (const auto& t : s.eventTypes)
    types.emplace(t.nameSpace, t.name);
  std::string key;
  auto put = [&key](const std::string& part) { key += std::to_string(part.size()) + ':' + part; };
  put(s.endpointId);
  put(s.groupId);
  for (const auto& [nameSpace, name] : types) {
    put(nameSpace);
    put(name);
  }
  return key;
}

// A delete's event type takes the same type away, or with no name every type
// of its namespace.
bool takesAway(const std::vector<EventTypeRef>& removed, const EventTypeRef& t) {
  for (const auto& r : removed)
    if (r.nameSpace == t.nameSpace && (r.name.empty() || r.name == t.name))
      return true;
  return false;
}

// Ids past this are not counted on from, so that the counter never overflows
// whatever a state file holds.
constexpr uint64_t kLastCountedId = uint64_t{1} << 53;

}  // namespace

const Subscription& Subscriptions::add(const std::string& client, Subscription s) {
  if (const Subscription* same = find(client, s))
    return *same;
  s.id = "sub-" + std::to_string(nextId_++);
  insert(client, std::move(s));
  return byClient_[client].back();
}

void Subscriptions::insert(const std::string& client, Subscription s) {
  ++edits_;
  auto& list = byClient_[client];
  positions_[client].emplace(sameKey(s), list.size());
  ++byTarget_[targetKey(s)][client];
  list.push_back(std::move(s));
}

const Subscription* Subscriptions::find(const std::string& client, const Subscription& s) const {
  auto it = positions_.find(client);
  if (it == positions_.end())
    return nullptr;
  auto at = it->second.find(sameKey(s));
  return at == it->second.end() ? nullptr : &byClient_.at(client)[at->second];
}

void Subscriptions::index(const std::string& client, const std::vector<Subscription>& before) {
  ++edits_;
  for (const auto& s : before) {
    auto target = byTarget_.find(targetKey(s));
    if (target != byTarget_.end() && --target->second[client] <= 0) {
      target->second.erase(client);
      if (target->second.empty())
        byTarget_.erase(target);
    }
  }
  auto it = byClient_.find(client);
  if (it->second.empty()) {
    byClient_.erase(it);
    positions_.erase(client);
    return;
  }
  auto& positions = positions_[client];
  positions.clear();
  const auto& list = it->second;
  for (size_t i = 0; i < list.size(); ++i) {
    positions.emplace(sameKey(list[i]), i);
    ++byTarget_[targetKey(list[i])][client];
  }
}

int Subscriptions::remove(const std::string& client, const std::string& endpointId,
                          const std::string& groupId, const std::vector<EventTypeRef>& eventTypes) {
  auto it = byClient_.find(client);
  if (it == byClient_.end())
    return 0;
  const std::vector<Subscription> before = it->second;
  std::vector<Subscription> kept;
  std::set<std::string> keys;  // a subscription cut down to another's types joins it
  int removed = 0;
  for (auto s : before) {
    if (s.endpointId == endpointId && s.groupId == groupId) {
      if (eventTypes.empty() || s.eventTypes.empty()) {
        if (eventTypes.empty()) {
          ++removed;
          continue;
        }
      } else {
        s.eventTypes.erase(
            std::remove_if(s.eventTypes.begin(), s.eventTypes.end(),
                           [&](const EventTypeRef& t) { return takesAway(eventTypes, t); }),
            s.eventTypes.end());
        if (s.eventTypes.empty()) {
          ++removed;
          continue;
        }
      }
    }
    if (keys.insert(sameKey(s)).second)
      kept.push_back(std::move(s));
    else
      ++removed;
  }
  it->second = std::move(kept);
  index(client, before);
  return removed;
}

void Subscriptions::restore(const std::string& client, Subscription s) {
  if (s.id.rfind("sub-", 0) == 0) {
    const char* digits = s.id.c_str() + 4;
    char* end = nullptr;
    errno = 0;
    const unsigned long long n = std::strtoull(digits, &end, 10);
    if (errno == 0 && *digits >= '0' && *digits <= '9' && n >= nextId_ && n < kLastCountedId)
      nextId_ = n + 1;
  }
  if (find(client, s) != nullptr)
    return;
  insert(client, std::move(s));
}

std::vector<Subscription> Subscriptions::of(const std::string& client) const {
  auto it = byClient_.find(client);
  return it == byClient_.end() ? std::vector<Subscription>{} : it->second;
}

size_t Subscriptions::count(const std::string& client) const {
  auto it = byClient_.find(client);
  return it == byClient_.end() ? 0 : it->second.size();
}

std::set<std::string> Subscriptions::subscribers(const Home& home,
                                                 const StateChange& change) const {
  std::vector<std::string> targets;
  const Device* d = home.findDevice(change.entityId);
  for (const std::string* id :
       {&change.entityId, &change.endpointId, d != nullptr ? &d->id : nullptr,
        d != nullptr ? &d->endpointId : nullptr})
    if (id != nullptr && !id->empty())
      targets.push_back(targetKey(*id, ""));
  if (d != nullptr)
    for (size_t g : home.groupsOf(*d))
      targets.push_back(targetKey("", home.groups[g].id));
  std::sort(targets.begin(), targets.end());
  targets.erase(std::unique(targets.begin(), targets.end()), targets.end());
  std::set<std::string> names;
  for (const auto& key : targets) {
    auto target = byTarget_.find(key);
    if (target == byTarget_.end())
      continue;
    for (const auto& entry : target->second) {
      if (names.count(entry.first) != 0)
        continue;
      auto list = byClient_.find(entry.first);
      if (list == byClient_.end())
        continue;
      for (const auto& s : list->second)
        if (targetKey(s) == key && wants(s, change)) {
          names.insert(entry.first);
          break;
        }
    }
  }
  return names;
}

}  // namespace ornsim
