// SPDX-License-Identifier: Apache-2.0
// ORNClient: a client of the device-control service over the local QIPC
// channel.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "IORNEventHandler.h"
#include "ORNRequest.h"
#include "ORNResponse.h"

namespace ornwick {
namespace ornConnector {

enum class ConnectorType : int {
  kUnknown = 0,
  kLocalService = 1,
};

class ORNClient {
 public:
  // How long sendSyncRequest waits for its response.
  static constexpr std::chrono::seconds kSyncRequestTimeout{30};

  ORNClient();
  // Stops the client: threads joined, socket closed, no callback afterwards.
  ~ORNClient();

  ORNClient(const ORNClient&) = delete;
  ORNClient& operator=(const ORNClient&) = delete;

  // Sets the client up and starts connecting in the background; does not wait
  // for the service. Returns false on bad arguments, a second call, a socket
  // path too long for a socket address (with a log record), or when no thread
  // can start.
  bool initialize(std::shared_ptr<IORNEventHandler> handler, ConnectorType type,
                  const std::string& clientName);

  // Blocks until the matching response, a lost connection, or the library's
  // time limit (kSyncRequestTimeout); empty on failure. Until the client is
  // first registered the request is held and sent once it is, within the same
  // limit; after that it fails at once when not connected.
  std::shared_ptr<api::ORNResponse> sendSyncRequest(std::shared_ptr<api::ORNRequest> request);

  // False when the request cannot be handed to the transport (e.g. not
  // connected). Until the client is first registered the request is held and
  // sent once it is; one held past kSyncRequestTimeout is dropped with a log
  // record.
  bool sendAsyncRequest(std::shared_ptr<api::ORNRequest> request);

  // Unique across threads and concurrent processes.
  std::string generateRequestId();

  // Replaces kSyncRequestTimeout for this client. Not in the platform's
  // library; only tests call it, to see a time-out without waiting 30 s.
  void setSyncRequestTimeout(std::chrono::milliseconds timeout);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ornConnector
}  // namespace ornwick
