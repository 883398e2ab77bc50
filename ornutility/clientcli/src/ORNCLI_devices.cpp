// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the devices subcommand, one query for the reachable endpoints.
#include "ORNCLI.h"

#include "ArgHelpers.h"
#include "ORNCLIInternal.h"
#include "QfiPath.h"

namespace ornwick {
namespace ornUtility {

ornConnector::api::QfiPath reachableDevicesPath() {
  return ornConnector::api::QfiPath::endpointQuery({{kReachableFilterKey, kReachableFilterValue}});
}

int ORNCLI::handleDevices(int argc, char** argv, bool sync, int timeoutSeconds) {
  if (hasFlag(argc, argv, "--help")) {
    return printHelp("Usage: orncli devices\n  List reachable devices from local cache.", 0);
  }
  return finishRequest(*this, sendAndWait(buildDevicesRequest(), timeoutSeconds, sync),
                       "Failed to send devices request");
}

std::shared_ptr<ORNRequest> ORNCLI::buildDevicesRequest() {
  auto builder = newRequestBuilder(client_.get(), kPayloadRequestType);
  builder.addQfi(reachableDevicesPath().toString(), QFIRequest::GET, "");
  return builder.build();
}

}  // namespace ornUtility
}  // namespace ornwick
