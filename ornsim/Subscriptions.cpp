// SPDX-License-Identifier: Apache-2.0
// Subscriptions: storage and event matching.
#include "Subscriptions.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace ornsim {
namespace {

bool sameDevice(const Home& home, const std::string& id, const StateChange& change) {
  if (id == change.entityId || (!change.endpointId.empty() && id == change.endpointId))
    return true;
  // The subscription may name the device by its other id.
  for (const auto& d : home.devices)
    if (d.id == change.entityId)
      return id == d.id || (!d.endpointId.empty() && id == d.endpointId);
  return false;
}

bool covers(const Home& home, const Subscription& s, const StateChange& change) {
  bool entity = false;
  if (!s.endpointId.empty())
    entity = sameDevice(home, s.endpointId, change);
  if (!entity && !s.groupId.empty())
    if (const Group* g = home.findGroup(s.groupId))
      for (const auto& member : g->members)
        entity = entity || sameDevice(home, member, change);
  if (!entity)
    return false;
  if (s.eventTypes.empty())
    return true;
  for (const auto& t : s.eventTypes)
    if (t.nameSpace == change.nameSpace && (t.name.empty() || t.name == change.name))
      return true;
  return false;
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

}  // namespace

const Subscription& Subscriptions::add(const std::string& client, Subscription s) {
  if (const Subscription* same = find(client, s))
    return *same;
  s.id = "sub-" + std::to_string(nextId_++);
  auto& list = byClient_[client];
  positions_[client].emplace(sameKey(s), list.size());
  list.push_back(std::move(s));
  return list.back();
}

const Subscription* Subscriptions::find(const std::string& client, const Subscription& s) const {
  auto it = positions_.find(client);
  if (it == positions_.end())
    return nullptr;
  auto at = it->second.find(sameKey(s));
  return at == it->second.end() ? nullptr : &byClient_.at(client)[at->second];
}

void Subscriptions::index(const std::string& client) {
  auto& positions = positions_[client];
  positions.clear();
  const auto& list = byClient_[client];
  for (size_t i = 0; i < list.size(); ++i)
    positions.emplace(sameKey(list[i]), i);
}

int Subscriptions::remove(const std::string& client, const std::string& endpointId,
                          const std::string& groupId) {
  auto it = byClient_.find(client);
  if (it == byClient_.end())
    return 0;
  auto& list = it->second;
  const size_t before = list.size();
  list.erase(std::remove_if(list.begin(), list.end(),
                            [&](const Subscription& s) {
                              return s.endpointId == endpointId && s.groupId == groupId;
                            }),
             list.end());
  if (list.size() != before)
    index(client);
  return static_cast<int>(before - list.size());
}

void Subscriptions::restore(const std::string& client, Subscription s) {
  const char* digits = s.id.c_str() + (s.id.rfind("sub-", 0) == 0 ? 4 : s.id.size());
  const long n = std::strtol(digits, nullptr, 10);
  if (n >= nextId_ && n < INT_MAX)
    nextId_ = static_cast<int>(n) + 1;
  if (find(client, s) != nullptr)
    return;
  auto& list = byClient_[client];
  positions_[client].emplace(sameKey(s), list.size());
  list.push_back(std::move(s));
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
  std::set<std::string> names;
  for (const auto& entry : byClient_)
    for (const auto& s : entry.second)
      if (covers(home, s, change))
        names.insert(entry.first);
  return names;
}

}  // namespace ornsim
