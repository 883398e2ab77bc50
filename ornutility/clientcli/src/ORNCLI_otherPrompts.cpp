// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the interactive state-query and subscription dialogues.
#include "ORNCLI.h"

#include "ArgHelpers.h"
#include "ORNCLIInternal.h"
#include "RequestPayload.h"
#include "Serialize.h"

namespace ornwick {
namespace ornUtility {

using ornConnector::api::RequestPayload;
using ornConnector::api::SubscriptionBuilder;
using ornConnector::api::SubscriptionRequestBuilder;
using zedLocalUtil::jsonUtil::JsonDocBuilder;

namespace {

// A count asked after label, so the reader's " : " follows on the same line.
// An empty or bad answer counts 1, after invalidMessage.
int promptCount(ORNCLI& cli, const char* label, const char* invalidMessage) {
  writeOut(label);
  int count = 1;
  if (!safeStoi(cli.nextArgRequired(""), count, 1)) {
    writeLine(invalidMessage);
  }
  return count;
}

void promptEventTypes(ORNCLI& cli, SubscriptionBuilder& subscription, const char* label) {
  const int count = promptCount(cli, label, "Invalid number of event types, defaulting to 1");
  for (long long j = 1; j <= count; ++j) {
    writeLine("\nEvent Type " + std::to_string(j) + ":");
    const std::string ns =
        cli.nextArgRequired("Enter event namespace (e.g., Corva.Endpoint.Feature.Power)");
    const std::string name =
        cli.nextArgRequired("Enter event name (e.g., Property.PowerState.Change)");
    subscription.withEventType(ns, name);
  }
}

}  // namespace

void ORNCLI::promptStateQueryRequest(std::shared_ptr<ORNRequest> request) {
  request->requestType = kStateRequestType;
  RequestPayload payload;
  writeLine(
      "\nSelect query type:\n1. QFI State Query\n2. DFI State Query "
      "(ReportState)\n"
      "3. Both QFI and DFI State Query");
  const std::string choice = nextArgRequired("Enter query choice (1-3)");
  if (choice == "1" || choice == "3") {
    auto qfi = std::make_shared<QFIRequest>();
    const std::string endpoint = nextArgRequired("Enter endpoint ID");
    const std::string feature =
        nextArgRequired("Enter feature (e.g., power, brightness, colorTemperature)");
    // Deliberate: no trailing slash, unlike the other feature paths.
    qfi->path = "/v2/endpoints/" + endpoint + "/features/" + feature;
    qfi->method = QFIRequest::GET;
    writeOut("\nAdd latencyTolerance? (y/n): ");
    const std::string add = nextArgRequired("");
    if (add == "y" || add == "Y") {
      writeLine("\nSelect latencyTolerance:\n1. HIGH\n2. LOW");
      const char* latency = nextArgRequired("Enter choice (1-2)") == "2" ? "LOW" : "HIGH";
      JsonDocBuilder body;
      body.set("latencyTolerance", latency);
      qfi->requestBody = zedLocalUtil::jsonUtil::serialize(body.root());
    }
    payload.qfi = qfi;
  }
  if (choice == "2" || choice == "3") {
    auto dfi = std::make_shared<DFIRequest>();
    dfi->nameSpace = "Corva";
    dfi->name = "ReportState";
    // Deliberately "3", where the general directive dialogue writes "3.0".
    dfi->payloadVersion = "3";
    dfi->entityId = nextArgRequired("Enter entity ID");
    dfi->endpointId = nextArgRequired("Enter endpoint ID");
    dfi->friendlyName = nextArgRequired("Enter friendly name");
    dfi->payload = "{}";
    payload.dfis.push_back(dfi);
  }
  request->payload = payload.toJsonString();
}

void ORNCLI::promptSubscriptionRequest(std::shared_ptr<ORNRequest> request) {
  // Raw payload text: the subscription JSON travels as it stands.
  request->requestType = kSubscriptionRequestType;
  SubscriptionRequestBuilder builder;
  SubscriptionRequest& subscriptionRequest = *builder.request();
  writeLine(
      "\nSelect subscription operation:\n1. Create subscription\n"
      "2. Delete subscription\n3. Get subscriptions");
  const std::string operation = nextArgRequired("Enter operation choice (1-3)");
  subscriptionRequest.operation = operation == "2"   ? SubscriptionRequest::DELETE
                                  : operation == "3" ? SubscriptionRequest::GET
                                                     : SubscriptionRequest::CREATE;
  if (subscriptionRequest.operation != SubscriptionRequest::GET) {
    writeLine(
        "\nSelect subscription target:\n1. Individual Endpoints\n"
        "2. Group (via groupId)");
    if (nextArgRequired("Enter target choice (1-2)") == "2") {
      writeLine("\nGroup Subscription:");
      SubscriptionBuilder subscription(&builder);
      subscription.withEndpointGroup(nextArgRequired("Enter group ID"));
      promptEventTypes(*this, subscription, "\nEnter number of event types: ");
      subscription.append();
    } else {
      const int count = promptCount(*this, "\nEnter number of subscriptions: ",
                                    "Invalid number of subscriptions, defaulting to 1");
      for (long long i = 1; i <= count; ++i) {
        writeLine("\nSubscription " + std::to_string(i) + ":");
        SubscriptionBuilder subscription(&builder);
        subscription.withEndpoint(nextArgRequired("Enter endpoint ID(QFI-EntityId)"));
        promptEventTypes(*this, subscription,
                         "\nEnter number of event types for this subscription: ");
        subscription.append();
      }
    }
  }
  request->payload = subscriptionRequest.toJsonString();
}

}  // namespace ornUtility
}  // namespace ornwick
