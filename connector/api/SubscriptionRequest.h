// SPDX-License-Identifier: Apache-2.0
// Subscription requests: create, delete or list state-change subscriptions.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "JsonSerializable.h"

namespace ornwick {
namespace ornConnector {
namespace api {

using zedLocalUtil::jsonUtil::JsonAllocator;
using zedLocalUtil::jsonUtil::JsonValue;

struct EventType : JsonSerializable<EventType> {
  std::string nameSpace;
  std::string name;
  JsonValue toJsonValue(JsonAllocator& allocator) const override;
};

struct EndpointEntity : JsonSerializable<EndpointEntity> {
  std::string type = "Endpoint";
  std::string id;
  JsonValue toJsonValue(JsonAllocator& allocator) const override;
};

struct EndpointGroupEntity : JsonSerializable<EndpointGroupEntity> {
  std::string id;
  JsonValue toJsonValue(JsonAllocator& allocator) const override;
};

struct Entities : JsonSerializable<Entities> {
  std::shared_ptr<EndpointEntity> endpoint;
  std::shared_ptr<EndpointGroupEntity> endpointGroup;
  JsonValue toJsonValue(JsonAllocator& allocator) const override;
};

struct Subscription : JsonSerializable<Subscription> {
  std::shared_ptr<Entities> entities;
  std::vector<std::shared_ptr<EventType>> eventTypes;
  JsonValue toJsonValue(JsonAllocator& allocator) const override;
};

// Each record writes an object with its members in declaration order; null
// children are left out (or written {} for a subscription's entities). Strings
// are taken up to their first NUL.
struct SubscriptionRequest : JsonSerializable<SubscriptionRequest> {
  // Written "create", "delete", "get"; any other value "unknown".
  enum Operation : int32_t { CREATE = 1, DELETE = 2, GET = 3 };

  Operation operation = CREATE;
  std::vector<std::shared_ptr<Subscription>> subscriptions;
  JsonValue toJsonValue(JsonAllocator& allocator) const override;
};

class SubscriptionRequestBuilder {
 public:
  // Starts a create request with no subscriptions.
  SubscriptionRequestBuilder();
  std::shared_ptr<SubscriptionRequest>& request() { return request_; }

 private:
  std::shared_ptr<SubscriptionRequest> request_;
};

class SubscriptionBuilder {
 public:
  // Starts a subscription with empty (non-null) entities.
  explicit SubscriptionBuilder(SubscriptionRequestBuilder* parent);

  // Appends an event type; the same pair twice gives two entries.
  SubscriptionBuilder& withEventType(const std::string& ns, const std::string& name);
  // Sets the entities' endpoint (type "Endpoint") or endpoint group to the id.
  SubscriptionBuilder& withEndpoint(const std::string& id);
  SubscriptionBuilder& withEndpointGroup(const std::string& id);
  std::shared_ptr<Subscription>& subscription() { return subscription_; }
  // Appends the subscription to the parent's request.
  SubscriptionRequestBuilder& append();

 private:
  Entities& entities();

  SubscriptionRequestBuilder* parent_;
  std::shared_ptr<Subscription> subscription_;
};

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
