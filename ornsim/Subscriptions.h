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

// Subscriptions outlive connections: a later client with the same name inherits
// them.
class Subscriptions {
 public:
  // Stores s for `client` and returns it with its new id.
  const Subscription& add(const std::string& client, Subscription s);
  // Removes the client's subscriptions on this endpoint or group; returns how
  // many.
  int remove(const std::string& client, const std::string& endpointId, const std::string& groupId);
  std::vector<Subscription> of(const std::string& client) const;
  // Names of the clients that have a subscription matching `change`.
  std::set<std::string> subscribers(const Home& home, const StateChange& change) const;
  // Every client's subscriptions, by client name.
  const std::map<std::string, std::vector<Subscription>>& all() const { return byClient_; }
  // Puts back a saved subscription with its id; later ids count on past it.
  void restore(const std::string& client, Subscription s);

 private:
  std::map<std::string, std::vector<Subscription>> byClient_;
  int nextId_ = 1;
};

}  // namespace ornsim
