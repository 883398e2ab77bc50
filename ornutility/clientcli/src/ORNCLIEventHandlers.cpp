// SPDX-License-Identifier: Apache-2.0
// The two connector event handlers: single-slot waits for one-shot mode, and the
// printing handler of the interactive mode.
#include "ORNCLIEventHandlers.h"

#include <chrono>
#include <cstdint>
#include <string>

#include "ORNCLIInternal.h"

namespace ornwick {
namespace ornUtility {

namespace {

std::chrono::steady_clock::time_point deadlineAfter(int timeoutSeconds) {
  return std::chrono::steady_clock::now() +
         std::chrono::nanoseconds(static_cast<int64_t>(timeoutSeconds) * 1000000000LL);
}

// Takes the slot's record, waiting until the deadline for one to arrive.
template <typename T>
std::shared_ptr<T> takeFromSlot(std::mutex& mutex, SteadyCondition& cv, std::shared_ptr<T>& slot,
                                int timeoutSeconds) {
  std::unique_lock<std::mutex> lock(mutex);
  if (!slot) {
    cv.wait_until(lock, deadlineAfter(timeoutSeconds), [&slot] { return slot != nullptr; });
  }
  std::shared_ptr<T> taken;
  taken.swap(slot);
  return taken;
}

}  // namespace

void ORNCLIEventHandler::onResponse(std::shared_ptr<ORNResponse> response) noexcept {
  if (!response) {
    return;
  }
  std::lock_guard<std::mutex> lock(responseMutex_);
  lastResponse_ = std::move(response);
  responseCv_.notify_one();
}

void ORNCLIEventHandler::onEvent(std::shared_ptr<ORNEvent> event) noexcept {
  if (!event) {
    return;
  }
  const bool registration = event->eventType == kClientRegisteredEvent;
  {
    std::lock_guard<std::mutex> lock(eventMutex_);
    lastEvent_ = std::move(event);
    eventCv_.notify_one();
  }
  // Taken only after the event mutex is released: no lock is ever held with another.
  if (registration) {
    std::lock_guard<std::mutex> lock(registrationMutex_);
    registered_ = true;
    registrationCv_.notify_one();
  }
}

bool ORNCLIEventHandler::waitForRegistration(int timeoutSeconds) {
  std::unique_lock<std::mutex> lock(registrationMutex_);
  if (registered_) {
    return true;
  }
  return registrationCv_.wait_until(lock, deadlineAfter(timeoutSeconds),
                                    [this] { return registered_; });
}

std::shared_ptr<ORNResponse> ORNCLIEventHandler::waitForResponse(int timeoutSeconds) {
  return takeFromSlot(responseMutex_, responseCv_, lastResponse_, timeoutSeconds);
}

std::shared_ptr<ORNEvent> ORNCLIEventHandler::waitForEvent(int timeoutSeconds) {
  return takeFromSlot(eventMutex_, eventCv_, lastEvent_, timeoutSeconds);
}

void ORNCLIInteractiveEventHandler::onResponse(std::shared_ptr<ORNResponse> response) noexcept {
  if (!response) {
    ORNCLI_LOG_ERROR(kHandlersSourcePath, "Received null response");
    return;
  }
  // One write for the whole block, so the menu thread's output cannot split it.
  writeLine("\nReceived async response:\nRequest ID: " + response->requestId + "\nResponse Code: " +
            std::to_string(response->responseCode) + "\nResponse Data: " + response->responseData);
}

void ORNCLIInteractiveEventHandler::onEvent(std::shared_ptr<ORNEvent> event) noexcept {
  if (!event) {
    ORNCLI_LOG_ERROR(kHandlersSourcePath, "Received null event");
    return;
  }
  {
    std::lock_guard<std::mutex> lock(lastEventMutex_);
    lastEvent_ = event;
  }
  writeLine("\nReceived event:\nEvent Type: " + std::to_string(event->eventType) +
            "\nEvent Data: " + event->payload);
}

std::shared_ptr<ORNEvent> ORNCLIInteractiveEventHandler::lastEvent() const {
  std::lock_guard<std::mutex> lock(lastEventMutex_);
  return lastEvent_;
}

}  // namespace ornUtility
}  // namespace ornwick
