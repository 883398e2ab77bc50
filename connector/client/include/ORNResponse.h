// SPDX-License-Identifier: Apache-2.0
// ORNResponse: the service's answer to one request.
#pragma once

#include <string>

namespace ornwick {
namespace ornConnector {
namespace api {

struct ORNResponse {
  std::string requestId;
  int responseCode = 0;
  // JSON text, possibly empty.
  std::string responseData;
};

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
