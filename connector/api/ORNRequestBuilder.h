// SPDX-License-Identifier: Apache-2.0
// ORNRequestBuilder: assembles id, type and payload into an ORNRequest.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "ORNRequest.h"
#include "RequestPayload.h"

namespace ornwick {
namespace ornConnector {
namespace api {

class ORNRequestBuilder {
 public:
  ORNRequestBuilder();

  std::string requestId;
  int32_t requestType = 0;
  int32_t requestOption = 0;
  std::shared_ptr<RequestPayload> payload;
  // Sent as it stands when requestType is 2.
  std::string rawPayload;

  // Makes the payload's QFI request; the last call wins.
  ORNRequestBuilder& addQfi(const std::string& path, const QFIRequest::Method& method,
                            const std::string& requestBody);
  std::shared_ptr<ORNRequest> build() const;
};

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
