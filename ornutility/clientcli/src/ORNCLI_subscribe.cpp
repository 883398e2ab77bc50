// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the subscribe subcommand: create, delete and list subscriptions, or create
// some and print the state-change events that follow until a time limit.
#include "ORNCLI.h"

#include <chrono>

#include "ArgHelpers.h"
#include "ORNCLIInternal.h"

namespace ornwick {
namespace ornUtility {

namespace {

using ornConnector::api::EndpointEntity;
using ornConnector::api::SubscriptionBuilder;
using ornConnector::api::SubscriptionRequestBuilder;

// The help pieces keep their own column (five blanks after the events placeholder).
constexpr const char kSubscribeUsage[] =
    "Usage: orncli subscribe <create|delete|list|listen> [options]\n"
    "  create/delete:\n"
    "    --endpoint <entityId>       Endpoint entity ID\n"
    "    --events <ns1:name1,...>     Comma-separated namespace:eventName pairs\n"
    "  list: (no additional options)\n"
    "  listen:\n"
    "    --create <eid:ns:name>      Create subscription and listen (repeatable)\n"
    "    --timeout <seconds>         Listen timeout (required)";

struct CreateTarget {
  std::string entityId;
  std::string nameSpace;
  std::string eventName;
};

// "entityId:namespace:eventName"; further colons belong to the event name.
bool parseCreateValue(const std::string& value, CreateTarget* target) {
  const size_t first = value.find(':');
  if (first == std::string::npos) {
    return false;
  }
  const size_t second = value.find(':', first + 1);
  if (second == std::string::npos) {
    return false;
  }
  target->entityId = value.substr(0, first);
  target->nameSpace = value.substr(first + 1, second - first - 1);
  target->eventName = value.substr(second + 1);
  return !target->entityId.empty() && !target->nameSpace.empty() && !target->eventName.empty();
}

void printStateChange(const ORNEvent& event) {
  // The payload is JSON text already and goes out raw; only an empty one needs quotes.
  writeOut("{\"eventType\":" + std::to_string(event.eventType) +
           ",\"payload\":" + (event.payload.empty() ? "\"\"" : event.payload) + "}\n");
}

}  // namespace

int ORNCLI::handleSubscribe(int argc, char** argv, bool sync, int timeoutSeconds) {
  if (argc < 1 || hasFlag(argc, argv, "--help")) {
    return printHelp(kSubscribeUsage, argc < 1 ? 1 : 0);
  }
  const std::string action = argv[0];
  if (action == "list") {
    return finishRequest(
        *this,
        sendAndWait(buildSubscribeRequest(SubscriptionRequest::GET, "", {}), timeoutSeconds, sync),
        "Failed to send subscribe list request");
  }
  if (action == "create" || action == "delete") {
    const RequiredOptions options = findRequired(argc, argv, {"--endpoint", "--events"});
    if (options.missing) {
      return printError("missing_argument", std::string(options.missing) + " is required", 1);
    }
    const auto pairs = parseEventPairs(options.values[1]);
    if (pairs.empty()) {
      return printError("invalid_argument", "Invalid --events format. Use ns1:name1,ns2:name2", 1);
    }
    const auto operation =
        action == "create" ? SubscriptionRequest::CREATE : SubscriptionRequest::DELETE;
    return finishRequest(*this,
                         sendAndWait(buildSubscribeRequest(operation, options.values[0], pairs),
                                     timeoutSeconds, sync),
                         "Failed to send subscribe " + action + " request");
  }
  if (action != "listen") {
    // Deliberate: no list of the valid actions, unlike the other subcommands.
    return printError("invalid_argument", "Unknown subscribe action: " + action, 1);
  }

  const std::vector<std::string> creates = findAllFlags(argc, argv, "--create");
  const std::string timeoutText = findFlag(argc, argv, "--timeout");
  if (creates.empty()) {
    return printError("missing_argument", "--create is required for subscribe listen", 1);
  }
  if (timeoutText.empty()) {
    return printError("missing_argument", "--timeout is required for subscribe listen", 1);
  }
  int listenSeconds = 60;
  if (!safeStoi(timeoutText, listenSeconds, 0)) {
    return printError("invalid_argument", "Invalid timeout value: " + timeoutText, 1);
  }

  for (const std::string& value : creates) {
    CreateTarget target;
    // Subscriptions made by earlier values stay in force after a later failure.
    if (!parseCreateValue(value, &target)) {
      return printError("invalid_argument",
                        "Invalid --create format: " + value + ". Use entityId:namespace:eventName",
                        1);
    }
    const auto response =
        sendAndWait(buildSubscribeRequest(SubscriptionRequest::CREATE, target.entityId,
                                          {{target.nameSpace, target.eventName}}),
                    timeoutSeconds, sync);
    if (!response) {
      return printError("request_failed", "Failed to create subscription for " + value, 2);
    }
    // On stderr, so that stdout carries events only.
    writeErr("{\"subscription_created\":\"" + target.entityId +
             "\",\"responseCode\":" + std::to_string(response->responseCode) + "}\n");
  }

  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::seconds(listenSeconds);
  if (!handler_ || Clock::now() >= deadline) {
    return 0;
  }
  for (;;) {
    // Whole seconds only: less than one second left ends the listening.
    const auto left = std::chrono::duration_cast<std::chrono::seconds>(deadline - Clock::now());
    if (left.count() < 1) {
      break;
    }
    const auto event = handler_->waitForEvent(static_cast<int>(left.count()));
    // Every other event, the client-registered one included, is dropped.
    if (event && event->eventType == kStateChangeEvent) {
      printStateChange(*event);
    }
    if (Clock::now() >= deadline) {
      break;
    }
  }
  return 0;
}

std::shared_ptr<ORNRequest> ORNCLI::buildSubscribeRequest(
    SubscriptionRequest::Operation operation, const std::string& endpoint,
    const std::vector<std::pair<std::string, std::string>>& eventPairs) {
  auto builder = newRequestBuilder(client_.get(), kSubscriptionRequestType);
  SubscriptionRequestBuilder requestBuilder;
  SubscriptionRequest& request = *requestBuilder.request();
  request.operation = operation;
  if (operation != SubscriptionRequest::GET) {
    SubscriptionBuilder subscription(&requestBuilder);
    auto entity = std::make_shared<EndpointEntity>();
    entity->id = endpoint;
    subscription.subscription()->entities->endpoint = entity;
    for (const auto& pair : eventPairs) {
      subscription.withEventType(pair.first, pair.second);
    }
    request.subscriptions.push_back(subscription.subscription());
  }
  builder.rawPayload = request.toJsonString();
  return builder.build();
}

}  // namespace ornUtility
}  // namespace ornwick
