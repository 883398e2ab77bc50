// SPDX-License-Identifier: Apache-2.0
// Subscriptions: who wants which state-change events, kept per client name.
#pragma once

#include <map>
#include <set>
#include <string>
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

// Subscriptions outlive connections: a later client with the same name inherits
// them.
class Subscriptions {
 public:
  explicit Subscriptions(int maxPerClient = kDefaultMaxSubscriptions)
      : maxPerClient_(maxPerClient) {}

  // Stores s for `client` and returns it with its new id; when the client already
  // has one with the same target and event types, returns that one instead.
  const Subscription& add(const std::string& client, Subscription s);
  // The client's subscription with the same target and event types as s, or null.
  const Subscription* find(const std::string& client, const Subscription& s) const;
  // How many subscriptions one client may hold; add() and restore() leave
  // enforcing it to their callers.
  int maxPerClient() const { return maxPerClient_; }
  // Removes the client's subscriptions on this endpoint or group; returns how
  // many.
  int remove(const std::string& client, const std::string& endpointId, const std::string& groupId);
  std::vector<Subscription> of(const std::string& client) const;
  size_t count(const std::string& client) const;
  // Names of the clients that have a subscription matching `change`.
  std::set<std::string> subscribers(const Home& home, const StateChange& change) const;
  // Every client's subscriptions, by client name.
  const std::map<std::string, std::vector<Subscription>>& all() const { return byClient_; }
  // Puts back a saved subscription with its id, unless the client already has
  // one like it; later ids count on past it.
  void restore(const std::string& client, Subscription s);

 private:
  // Where each client's subscriptions sit in byClient_, by sameKey(), so that
  // finding a repeat does not scan the list.
  void index(const std::string& client);

  std::map<std::string, std::vector<Subscription>> byClient_;
  std::map<std::string, std::map<std::string, size_t>> positions_;
  int nextId_ = 1;
  int maxPerClient_;
};

}  // namespace ornsim
