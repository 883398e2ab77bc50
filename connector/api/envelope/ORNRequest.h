// SPDX-License-Identifier: Apache-2.0
// ORNRequest: the envelope every request travels in to the device-control
// service.
#pragma once

#include <cstdint>
#include <string>

namespace ornwick {
namespace ornConnector {
namespace api {

struct ORNRequest {
  std::string requestId;
  // 1: payload is a RequestPayload text; 2: raw text (subscriptions); 3: state
  // requests.
  int32_t requestType = 0;
  std::string payload;
  int32_t requestOption = 0;
  // Reserved for the connector; this program leaves it empty.
  std::string requestContext;
};

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
