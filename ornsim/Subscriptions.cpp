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

}  // namespace

const Subscription& Subscriptions::add(const std::string& client, Subscription s) {
  s.id = "sub-" + std::to_string(nextId_++);
  auto& list = byClient_[client];
  list.push_back(std::move(s));
  return list.back();
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
  return static_cast<int>(before - list.size());
}

void Subscriptions::restore(const std::string& client, Subscription s) {
  const char* digits = s.id.c_str() + (s.id.rfind("sub-", 0) == 0 ? 4 : s.id.size());
  const long n = std::strtol(digits, nullptr, 10);
  if (n >= nextId_ && n < INT_MAX)
    nextId_ = static_cast<int>(n) + 1;
  byClient_[client].push_back(std::move(s));
}

std::vector<Subscription> Subscriptions::of(const std::string& client) const {
  auto it = byClient_.find(client);
  return it == byClient_.end() ? std::vector<Subscription>{} : it->second;
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
