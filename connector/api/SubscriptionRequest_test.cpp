#include "SubscriptionRequest.h"

#include <gtest/gtest.h>

namespace ornwick::ornConnector::api {
namespace {

// The create, delete and list texts are pinned end to end; these are the corners.
TEST(SubscriptionRequest, JsonText) {
  // clang-format off
  static const struct { const char* name; void (*fill)(SubscriptionRequestBuilder&); const char* want; } kCases[] = {
      {"delete, empty entities and event types",
       [](SubscriptionRequestBuilder& r) { r.request()->operation = SubscriptionRequest::DELETE; SubscriptionBuilder(&r).append(); },
       R"({"operation":"delete","subscriptions":[{"entities":{},"eventTypes":[]}]})"},
      {"unknown operation",
       [](SubscriptionRequestBuilder& r) { r.request()->operation = static_cast<SubscriptionRequest::Operation>(0); },
       R"({"operation":"unknown","subscriptions":[]})"},
      {"same event twice, group after endpoint",
       [](SubscriptionRequestBuilder& r) { SubscriptionBuilder(&r).withEndpointGroup("g1").withEndpoint("e1").withEventType("n", "x").withEventType("n", "x").append(); },
       R"({"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"e1"},"endpointGroup":{"id":"g1"}},"eventTypes":[{"namespace":"n","name":"x"},{"namespace":"n","name":"x"}]}]})"},
      {"null entries skipped, null entities written {}",
       [](SubscriptionRequestBuilder& r) {
         SubscriptionBuilder s(&r);
         s.subscription()->entities = nullptr;
         s.subscription()->eventTypes.push_back(nullptr);
         r.request()->subscriptions.push_back(nullptr);
         s.append();
       },
       R"({"operation":"create","subscriptions":[{"entities":{},"eventTypes":[]}]})"},
      // clang-format on
  };
  for (const auto& c : kCases) {
    SubscriptionRequestBuilder r;
    c.fill(r);
    EXPECT_EQ(c.want, r.request()->toJsonString()) << c.name;
  }
}

}  // namespace
}  // namespace ornwick::ornConnector::api
