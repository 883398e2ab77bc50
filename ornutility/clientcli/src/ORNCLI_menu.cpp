// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the interactive menu loop, its command map and the choice of payload.
#include "ORNCLI.h"

#include <iterator>
#include <string>

#include "ArgHelpers.h"
#include "ORNCLIInternal.h"
#include "RequestPayload.h"

namespace ornwick {
namespace ornUtility {

using ornConnector::ConnectorType;
using ornConnector::api::RequestPayload;

namespace {

// Menu ids in the names list's order, which is also the printed order.
constexpr int kMenuIds[] = {0, -1, -2, 1, 2, 3, 4};

constexpr int kBack = 0;
constexpr int kListCommands = -1;
constexpr int kQuit = -2;
constexpr int kSendSync = 1;
constexpr int kSendAsync = 2;
constexpr int kShowLastResponse = 3;
constexpr int kShowLastEvent = 4;

constexpr const char kInvalidCommand[] = "Error: Invalid Command.. Please try again!";

constexpr const char kPayloadMenu[] =
    "Select payload type:\n"
    "1. QFI Request\n"
    "2. DFI Request\n"
    "3. Both QFI and DFI\n"
    "4. StateProvider Subscription Request\n"
    "5. StateProvider State Query Request\n"
    "6. Get Reachable Devices (local cache)";

std::string responseLines(const ORNResponse& response) {
  return "Request ID: " + response.requestId +
         "\nResponse Code: " + std::to_string(response.responseCode) +
         "\nResponse Data: " + response.responseData;
}

}  // namespace

void ORNCLI::initCommandMap() {
  commandMap_.clear();
  for (size_t i = 0; i < menuNames_.size() && i < std::size(kMenuIds); ++i) {
    commandMap_[kMenuIds[i]] = menuNames_[i];
  }
}

void ORNCLI::showUsage() const {
  std::string menu;
  for (int id : kMenuIds) {
    auto it = commandMap_.find(id);
    if (it != commandMap_.end()) {
      menu += std::to_string(id) + " - " + it->second + "\n";
    }
  }
  writeOut(menu);
}

void ORNCLI::run() {
  interactiveHandler_ = std::make_shared<ORNCLIInteractiveEventHandler>();
  interactiveClient_ = std::make_shared<ORNClient>();
  if (!interactiveClient_->initialize(interactiveHandler_, kConnectorType,
                                      kInteractiveClientName)) {
    ORNCLI_LOG_ERROR(kCliSourcePath, "Failed to initialize ORN client");
    writeLine("Failed to initialize ORN client");
    return;
  }
  // Registration is not awaited: the menu comes up at once and the library
  // answers whatever is sent before it completes.
  writeLine("ORN Client utility! (Interactive)");
  for (;;) {
    showUsage();
    int id = kBack;
    if (!safeStoi(nextOption("cmd"), id, kBack)) {
      writeLine(kInvalidCommand);
      continue;
    }
    if (id == kListCommands) {
      continue;
    }
    if (id == kBack || id == kQuit) {
      return;
    }
    if (!handleCommand(id)) {
      writeLine(kInvalidCommand);
    }
  }
}

bool ORNCLI::handleCommand(int id) {
  switch (id) {
    case kSendSync:
    case kSendAsync: {
      auto request = std::make_shared<ORNRequest>();
      request->requestId = interactiveClient_->generateRequestId();
      request->requestType = kPayloadRequestType;
      handlePayloadInput(request);
      if (id == kSendSync) {
        // Replaced even by a failure: "Show Last Response" is never stale.
        lastResponse_ = interactiveClient_->sendSyncRequest(request);
        if (lastResponse_) {
          writeLine("Sync response received:\n" + responseLines(*lastResponse_));
        } else {
          writeLine("Failed to send sync request");
        }
      } else if (interactiveClient_->sendAsyncRequest(request)) {
        // Deliberate: the handler prints the answer, which is not kept.
        writeLine("Async request sent with ID: " + request->requestId);
      } else {
        writeLine("Failed to send async request");
      }
      return true;
    }
    case kShowLastResponse:
      if (lastResponse_) {
        writeLine("Last response:\n" + responseLines(*lastResponse_));
      } else {
        writeLine("No response available");
      }
      return true;
    case kShowLastEvent: {
      std::shared_ptr<ORNEvent> event = interactiveHandler_->lastEvent();
      if (event) {
        writeLine("Last event:\nEvent Type: " + std::to_string(event->eventType) +
                  "\nEvent Data: " + event->payload);
      } else {
        writeLine("No event available");
      }
      return true;
    }
    default:
      return false;
  }
}

void ORNCLI::handlePayloadInput(std::shared_ptr<ORNRequest> request) {
  writeLine(kPayloadMenu);
  // Compared as text: " 1" or "01" is no choice and sends an empty payload.
  const std::string choice = nextArgRequired("Enter choice (1-6)");
  if (choice == "6") {
    request->payload = reachableDevicesPayload();
    writeLine("Sending GetReachableDevices request...");
    return;
  }
  if (choice == "4") {
    promptSubscriptionRequest(request);
    return;
  }
  if (choice == "5") {
    promptStateQueryRequest(request);
    return;
  }
  // Deliberate: any other answer sends the empty payload without a message.
  RequestPayload payload;
  if (choice == "1" || choice == "3") {
    payload.qfi = promptQfiRequest();
  }
  if (choice == "2" || choice == "3") {
    payload.dfis.push_back(promptDfiRequest());
  }
  request->payload = payload.toJsonString();
}

}  // namespace ornUtility
}  // namespace ornwick
