// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the state subcommand, a feature read (get) or a ReportState directive (report).
#include "ORNCLI.h"

#include "ArgHelpers.h"
#include "JsonDocBuilder.h"
#include "ORNCLIInternal.h"
#include "QfiPath.h"
#include "Serialize.h"

namespace ornwick {
namespace ornUtility {

namespace {

constexpr const char kStateUsage[] =
    "Usage: orncli state <get|report> [options]\n"
    "  get:    --endpoint <id> --feature <name> [--latency HIGH|LOW]\n"
    "  report: --entity <id> --endpoint <id> --friendly-name <name>";

}  // namespace

int ORNCLI::handleState(int argc, char** argv, bool sync, int timeoutSeconds) {
  if (argc < 1 || hasFlag(argc, argv, "--help")) {
    return printHelp(kStateUsage, argc < 1 ? 1 : 0);
  }
  const std::string action = argv[0];
  if (action == "get") {
    const RequiredOptions options = findRequired(argc, argv, {"--endpoint", "--feature"});
    if (options.missing) {
      return printError("missing_argument",
                        std::string(options.missing) + " is required for state get", 1);
    }
    const std::string& endpoint = options.values[0];
    const std::string& feature = options.values[1];
    // Any latency text goes through; HIGH and LOW are only the documented ones.
    const std::string latency = findFlag(argc, argv, "--latency");
    return finishRequest(
        *this, sendAndWait(buildStateGetRequest(endpoint, feature, latency), timeoutSeconds, sync),
        "Failed to send state get request");
  }
  if (action == "report") {
    const RequiredOptions options =
        findRequired(argc, argv, {"--entity", "--endpoint", "--friendly-name"});
    if (options.missing) {
      return printError("missing_argument",
                        std::string(options.missing) + " is required for state report", 1);
    }
    const std::vector<std::string>& values = options.values;
    return finishRequest(
        *this,
        sendAndWait(buildStateReportRequest(values[0], values[1], values[2]), timeoutSeconds, sync),
        "Failed to send state report request");
  }
  return printError("invalid_argument", "Unknown state action: " + action + ". Use get or report",
                    1);
}

std::shared_ptr<ORNRequest> ORNCLI::buildStateGetRequest(const std::string& endpoint,
                                                         const std::string& feature,
                                                         const std::string& latency) {
  // Without a latency the body is empty, not "{}".
  std::string body;
  if (!latency.empty()) {
    zedLocalUtil::jsonUtil::JsonDocBuilder doc;
    doc.set("latencyTolerance", latency);
    body = zedLocalUtil::jsonUtil::serialize(doc.root());
  }
  auto builder = newRequestBuilder(client_.get(), kStateRequestType);
  builder.addQfi(ornConnector::api::QfiPath::endpointFeature(endpoint, feature).toString(),
                 QFIRequest::GET, body);
  return builder.build();
}

std::shared_ptr<ORNRequest> ORNCLI::buildStateReportRequest(const std::string& entity,
                                                            const std::string& endpoint,
                                                            const std::string& friendlyName) {
  auto builder = newRequestBuilder(client_.get(), kStateRequestType);
  ornConnector::api::DFIRequestBuilder dfi(&builder);
  DFIRequest& request = *dfi.request();
  request.nameSpace = "Corva";
  request.name = "ReportState";
  // Deliberate: "3", not the "3.0" that the dfi subcommand sends.
  request.payloadVersion = "3";
  request.entityId = entity;
  request.endpointId = endpoint;
  request.friendlyName = friendlyName;
  request.payload = "{}";
  dfi.append();
  return builder.build();
}

}  // namespace ornUtility
}  // namespace ornwick
