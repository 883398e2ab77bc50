// SPDX-License-Identifier: Apache-2.0
// ORNEvent: something the service reports without being asked.
#pragma once

#include <string>

#include "QipcProtocol.h"

namespace ornwick {
namespace ornConnector {
namespace api {

// Event types of the service; the numbers are fixed by the QIPC protocol
// (docs/qipc-protocol.md).
enum ORNEventType : int {
  kServerConnectionStatus = qipc::kConnectionStatusEvent,
  kStateChange = qipc::kStateChangeEvent,
  kServerDisconnected = qipc::kDisconnectedEvent,
  kClientRegistered = qipc::kClientRegisteredEvent,
};

struct ORNEvent {
  int eventType = 0;
  // JSON text, possibly empty.
  std::string payload;
};

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
