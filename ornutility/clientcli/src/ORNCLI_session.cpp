// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the one-shot connection and the send-and-wait of every subcommand.
#include "ORNCLI.h"

#include "ORNCLIInternal.h"

namespace ornwick {
namespace ornUtility {

bool ORNCLI::initConnection(int connectTimeoutSeconds) {
  handler_ = std::make_shared<ORNCLIEventHandler>();
  client_ = std::make_shared<ORNClient>();
  if (!client_->initialize(handler_, kConnectorType, kOneShotClientName)) {
    return false;
  }
  return handler_->waitForRegistration(connectTimeoutSeconds);
}

std::shared_ptr<ORNResponse> ORNCLI::sendAndWait(std::shared_ptr<ORNRequest> request,
                                                 int timeoutSeconds, bool sync) {
  if (!client_) {
    return nullptr;
  }
  if (sync) {
    // The library's own time limit applies; the response slot is left alone.
    return client_->sendSyncRequest(std::move(request));
  }
  if (!client_->sendAsyncRequest(std::move(request))) {
    return nullptr;
  }
  // Deliberate: the next response is taken whatever its id; one request is in
  // flight.
  return handler_->waitForResponse(timeoutSeconds);
}

ornConnector::api::ORNRequestBuilder newRequestBuilder(ORNClient* client, int32_t requestType) {
  ornConnector::api::ORNRequestBuilder builder;
  if (client) {
    builder.requestId = client->generateRequestId();
  }
  builder.requestType = requestType;
  return builder;
}

}  // namespace ornUtility
}  // namespace ornwick
