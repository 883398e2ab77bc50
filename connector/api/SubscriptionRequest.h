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

struct SubscriptionRequest : JsonSerializable<SubscriptionRequest> {
  enum Operation : int32_t { CREATE = 1, DELETE = 2, GET = 3 };

  Operation operation = CREATE;
  std::vector<std::shared_ptr<Subscription>> subscriptions;
  JsonValue toJsonValue(JsonAllocator& allocator) const override;
};

class SubscriptionRequestBuilder {
 public:
  SubscriptionRequestBuilder();
  std::shared_ptr<SubscriptionRequest>& request() { return request_; }

 private:
  std::shared_ptr<SubscriptionRequest> request_;
};

class SubscriptionBuilder {
 public:
  // Starts a subscription with empty (non-null) entities.
  explicit SubscriptionBuilder(SubscriptionRequestBuilder* parent);

  SubscriptionBuilder& withEventType(const std::string& ns, const std::string& name);
  std::shared_ptr<Subscription>& subscription() { return subscription_; }

 private:
  SubscriptionRequestBuilder* parent_;
  std::shared_ptr<Subscription> subscription_;
};

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
