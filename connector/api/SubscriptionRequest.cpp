// SPDX-License-Identifier: Apache-2.0
// Subscription records: each writes itself as one JSON object.
#include "SubscriptionRequest.h"

#include <utility>

#include "JsonValueBuilder.h"

namespace ornwick {
namespace ornConnector {
namespace api {

using zedLocalUtil::jsonUtil::JsonValueBuilder;

namespace {

const char* operationText(SubscriptionRequest::Operation operation) {
  switch (operation) {
    case SubscriptionRequest::CREATE:
      return "create";
    case SubscriptionRequest::DELETE:
      return "delete";
    case SubscriptionRequest::GET:
      return "get";
  }
  return "unknown";
}

// Sets key to the array of every non-null item's value, in order.
template <typename T>
void setArray(JsonValueBuilder& object, const char* key,
              const std::vector<std::shared_ptr<T>>& items) {
  JsonValue array(rapidjson::kArrayType);
  for (const auto& item : items) {
    if (item) {
      JsonValue v = item->toJsonValue(object.allocator());
      array.PushBack(v, object.allocator());
    }
  }
  object.set(key, array);
}

}  // namespace

JsonValue EventType::toJsonValue(JsonAllocator& allocator) const {
  JsonValueBuilder b(allocator);
  b.set("namespace", nameSpace).set("name", name);
  return std::move(b.value());
}

JsonValue EndpointEntity::toJsonValue(JsonAllocator& allocator) const {
  JsonValueBuilder b(allocator);
  b.set("type", type).set("id", id);
  return std::move(b.value());
}

JsonValue EndpointGroupEntity::toJsonValue(JsonAllocator& allocator) const {
  JsonValueBuilder b(allocator);
  b.set("id", id);
  return std::move(b.value());
}

JsonValue Entities::toJsonValue(JsonAllocator& allocator) const {
  JsonValueBuilder b(allocator);
  if (endpoint) {
    JsonValue v = endpoint->toJsonValue(allocator);
    b.set("endpoint", v);
  }
  if (endpointGroup) {
    JsonValue v = endpointGroup->toJsonValue(allocator);
    b.set("endpointGroup", v);
  }
  return std::move(b.value());
}

JsonValue Subscription::toJsonValue(JsonAllocator& allocator) const {
  JsonValueBuilder b(allocator);
  JsonValue e = entities ? entities->toJsonValue(allocator) : JsonValue(rapidjson::kObjectType);
  b.set("entities", e);
  setArray(b, "eventTypes", eventTypes);
  return std::move(b.value());
}

JsonValue SubscriptionRequest::toJsonValue(JsonAllocator& allocator) const {
  JsonValueBuilder b(allocator);
  b.set("operation", std::string(operationText(operation)));
  setArray(b, "subscriptions", subscriptions);
  return std::move(b.value());
}

SubscriptionRequestBuilder::SubscriptionRequestBuilder()
    : request_(std::make_shared<SubscriptionRequest>()) {}

SubscriptionBuilder::SubscriptionBuilder(SubscriptionRequestBuilder* parent)
    : parent_(parent), subscription_(std::make_shared<Subscription>()) {
  subscription_->entities = std::make_shared<Entities>();
}

SubscriptionBuilder& SubscriptionBuilder::withEventType(const std::string& ns,
                                                        const std::string& name) {
  auto eventType = std::make_shared<EventType>();
  eventType->nameSpace = ns;
  eventType->name = name;
  subscription_->eventTypes.push_back(std::move(eventType));
  return *this;
}

Entities& SubscriptionBuilder::entities() {
  // A caller may have cleared them through subscription().
  if (!subscription_->entities) {
    subscription_->entities = std::make_shared<Entities>();
  }
  return *subscription_->entities;
}

SubscriptionBuilder& SubscriptionBuilder::withEndpoint(const std::string& id) {
  entities().endpoint = std::make_shared<EndpointEntity>();
  entities().endpoint->id = id;
  return *this;
}

SubscriptionBuilder& SubscriptionBuilder::withEndpointGroup(const std::string& id) {
  entities().endpointGroup = std::make_shared<EndpointGroupEntity>();
  entities().endpointGroup->id = id;
  return *this;
}

SubscriptionRequestBuilder& SubscriptionBuilder::append() {
  parent_->request()->subscriptions.push_back(subscription_);
  return *parent_;
}

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
