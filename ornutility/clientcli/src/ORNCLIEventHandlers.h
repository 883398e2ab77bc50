// SPDX-License-Identifier: Apache-2.0
// The two connector event handlers: blocking waits for one-shot mode, printing for
// interactive mode.
#pragma once

#include <memory>
#include <mutex>

#include "IORNEventHandler.h"
#include "ORNEvent.h"
#include "ORNResponse.h"
#include "SteadyCondition.h"

namespace ornwick {
namespace ornUtility {

using ornConnector::api::ORNEvent;
using ornConnector::api::ORNResponse;

// One slot per kind (event, response) plus the registered flag; a new record replaces an
// unread one and a wait empties the slot. Waits use absolute deadlines on the monotonic clock,
// which no change of the wall clock moves (SteadyCondition).
class ORNCLIEventHandler : public ornConnector::IORNEventHandler {
 public:
  ~ORNCLIEventHandler() override = default;
  void onResponse(std::shared_ptr<ORNResponse> response) noexcept override;
  void onEvent(std::shared_ptr<ORNEvent> event) noexcept override;

  // True once the client-registered event (23) has been seen, also before the wait.
  bool waitForRegistration(int timeoutSeconds);
  // The slot's record, waiting up to the timeout; empty when none came.
  std::shared_ptr<ORNResponse> waitForResponse(int timeoutSeconds);
  std::shared_ptr<ORNEvent> waitForEvent(int timeoutSeconds);

 private:
  std::shared_ptr<ORNEvent> lastEvent_;
  std::mutex eventMutex_;
  SteadyCondition eventCv_;
  std::mutex registrationMutex_;
  SteadyCondition registrationCv_;
  bool registered_ = false;
  std::mutex responseMutex_;
  SteadyCondition responseCv_;
  std::shared_ptr<ORNResponse> lastResponse_;
};

// Prints every response and event as it arrives and keeps the last event.
class ORNCLIInteractiveEventHandler : public ornConnector::IORNEventHandler {
 public:
  ~ORNCLIInteractiveEventHandler() override = default;
  void onResponse(std::shared_ptr<ORNResponse> response) noexcept override;
  void onEvent(std::shared_ptr<ORNEvent> event) noexcept override;

  std::shared_ptr<ORNEvent> lastEvent() const;

 private:
  mutable std::mutex lastEventMutex_;
  std::shared_ptr<ORNEvent> lastEvent_;
};

}  // namespace ornUtility
}  // namespace ornwick
