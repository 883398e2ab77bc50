// SPDX-License-Identifier: Apache-2.0
// IORNEventHandler: how the connector client hands responses and events to its
// user.
#pragma once

#include <memory>

#include "ORNEvent.h"
#include "ORNResponse.h"

namespace ornwick {
namespace ornConnector {

// Called on the client's own threads, never on the caller's. Implementations
// must not throw.
class IORNEventHandler {
 public:
  virtual ~IORNEventHandler() = default;
  virtual void onResponse(std::shared_ptr<api::ORNResponse> response) = 0;
  virtual void onEvent(std::shared_ptr<api::ORNEvent> event) = 0;
};

}  // namespace ornConnector
}  // namespace ornwick
