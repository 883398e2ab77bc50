// SPDX-License-Identifier: Apache-2.0
// Subscriptions: who wants which state-change events, kept per client name.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Home.h"

namespace ornsim {

// One property change of one device, as event 21 reports it.
struct StateChange {
  std::string entityId;
  std::string endpointId;
  std::string nameSpace;  // e.g. "Corva.Endpoint.Feature.Power"
  std::string name;       // e.g. "Property.PowerState.Change"
  std::string valueJson;  // the new value as JSON text
};

struct EventTypeRef {
  std::string nameSpace;
  std::string name;
};

struct Subscription {
  std::string id;
  std::string endpointId;                // set for an endpoint subscription (entity or endpoint id)
  std::string groupId;                   // set for a group subscription
  std::vector<EventTypeRef> eventTypes;  // empty: every event
};

// Subscriptions per client name unless ornsim is told otherwise.
constexpr int kDefaultMaxSubscriptions = 256;
// Client names holding subscriptions at once unless ornsim is told otherwise.
constexpr int kDefaultMaxClients = 1024;

// Subscriptions outlive connections: a later client with the same name inherits
// them. A name is held only while it has subscriptions: its last delete frees it.
class Subscriptions {
 public:
  explicit Subscriptions(int maxPerClient = kDefaultMaxSubscriptions,
                         int maxClients = kDefaultMaxClients)
      : maxPerClient_(maxPerClient), maxClients_(maxClients) {}

  // Stores s for `client` and returns it with its new id; when the client already
  // has one with the same target and event types, returns that one instead.
  const Subscription& add(const std::string& client, Subscription s);
  // The client's subscription with the same target and event types as s, or null.
  const Subscription* find(const std::string& client, const Subscription& s) const;
  // How many subscriptions one client may hold; add() and restore() leave
  // enforcing it to their callers.
  int maxPerClient() const { return maxPerClient_; }
  // How many client names may hold subscriptions; enforced as maxPerClient().
  int maxClients() const { return maxClients_; }
  // Removes the given event types from the client's subscriptions on this
  // endpoint or group, and those left with none; with no types given, every
  // subscription on the target. A subscription to every event type (none
  // listed) goes only with the latter. Returns how many subscriptions went.
  int remove(const std::string& client, const std::string& endpointId, const std::string& groupId,
             const std::vector<EventTypeRef>& eventTypes = {});
  std::vector<Subscription> of(const std::string& client) const;
  size_t count(const std::string& client) const;
  // Client names holding subscriptions.
  size_t clients() const { return byClient_.size(); }
  // Counts every change to the subscriptions, so that a saver can tell.
  uint64_t edits() const { return edits_; }
  // Names of the clients that have a subscription matching `change`. Costs what
  // the subscriptions on the device and on its groups cost, not all of them.
  std::set<std::string> subscribers(const Home& home, const StateChange& change) const;
  // Every client's subscriptions, by client name.
  const std::map<std::string, std::vector<Subscription>>& all() const { return byClient_; }
  // Puts back a saved subscription with its id, unless the client already has
  // one like it; later ids count on past it.
  void restore(const std::string& client, Subscription s);

 private:
  void insert(const std::string& client, Subscription s);
  // Rebuilds the client's entries in positions_ and byTarget_ after its list
  // changed, and forgets the client when the list is empty.
  void index(const std::string& client, const std::vector<Subscription>& before);

  std::map<std::string, std::vector<Subscription>> byClient_;
  // Where each client's subscriptions sit in byClient_, by sameKey(), so that
  // finding a repeat does not scan the list.
  std::map<std::string, std::map<std::string, size_t>> positions_;
  // Per target (targetKey()), how many subscriptions each client has on it.
  std::unordered_map<std::string, std::map<std::string, int>> byTarget_;
  uint64_t nextId_ = 1;
  uint64_t edits_ = 0;
  int maxPerClient_;
  int maxClients_;
};

}  // namespace ornsim
