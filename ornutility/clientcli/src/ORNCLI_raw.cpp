// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the generic subcommands, dfi (any directive) and qfi (any feature request).
#include "ORNCLI.h"

#include "ArgHelpers.h"
#include "ORNCLIInternal.h"

namespace ornwick {
namespace ornUtility {

namespace {

constexpr const char kDfiUsage[] =
    "Usage: orncli dfi [options]\n"
    "  --entity <id>       Entity ID (required)\n"
    "  --endpoint <id>     Endpoint ID (required)\n"
    "  --namespace <ns>    DFI namespace (required)\n"
    "  --name <directive>  Directive name (required)\n"
    "  --payload <json>    JSON payload (optional)";
constexpr const char kQfiUsage[] =
    "Usage: orncli qfi [options]\n"
    "  --path <path>       QFI path (required)\n"
    "  --method <GET|POST> HTTP method (required)\n"
    "  --body <json>       Request body for POST (optional)";

const std::string& orEmptyObject(const std::string& text) {
  static const std::string kEmptyObject = "{}";
  return text.empty() ? kEmptyObject : text;
}

}  // namespace

// No arguments is not a request for help here: the first missing option is reported.
int ORNCLI::handleDfi(int argc, char** argv, bool sync, int timeoutSeconds) {
  if (hasFlag(argc, argv, "--help")) {
    return printHelp(kDfiUsage, 0);
  }
  const RequiredOptions options =
      findRequired(argc, argv, {"--entity", "--endpoint", "--namespace", "--name"});
  if (options.missing) {
    return printError("missing_argument", std::string(options.missing) + " is required", 1);
  }
  const std::vector<std::string>& values = options.values;
  const std::string payload = findFlag(argc, argv, "--payload");
  return finishRequest(
      *this,
      sendAndWait(buildDfiRequest(values[0], values[1], values[2], values[3], payload),
                  timeoutSeconds, sync),
      "Failed to send DFI request");
}

// Deliberate: the payload is not validated; text that does not parse goes out as the
// empty DFI text and the service decides.
std::shared_ptr<ORNRequest> ORNCLI::buildDfiRequest(const std::string& entity,
                                                    const std::string& endpoint,
                                                    const std::string& nameSpace,
                                                    const std::string& name,
                                                    const std::string& payload) {
  auto builder = newRequestBuilder(client_.get(), kPayloadRequestType);
  ornConnector::api::DFIRequestBuilder dfi(&builder);
  DFIRequest& request = *dfi.request();
  request.nameSpace = nameSpace;
  request.name = name;
  request.entityId = entity;
  request.endpointId = endpoint;
  request.payload = orEmptyObject(payload);
  dfi.append();
  return builder.build();
}

int ORNCLI::handleQfi(int argc, char** argv, bool sync, int timeoutSeconds) {
  if (hasFlag(argc, argv, "--help")) {
    return printHelp(kQfiUsage, 0);
  }
  const RequiredOptions options = findRequired(argc, argv, {"--path", "--method"});
  if (options.missing) {
    return printError("missing_argument", std::string(options.missing) + " is required", 1);
  }
  const std::string body = findFlag(argc, argv, "--body");
  return finishRequest(*this,
                       sendAndWait(buildQfiRequest(options.values[0], options.values[1], body),
                                   timeoutSeconds, sync),
                       "Failed to send QFI request");
}

std::shared_ptr<ORNRequest> ORNCLI::buildQfiRequest(const std::string& path,
                                                    const std::string& method,
                                                    const std::string& body) {
  // Deliberate: any other method text is sent as 0 for the service to judge.
  QFIRequest::Method qfiMethod = static_cast<QFIRequest::Method>(0);
  if (method == "GET") {
    qfiMethod = QFIRequest::GET;
  } else if (method == "POST") {
    qfiMethod = QFIRequest::POST;
  }
  auto builder = newRequestBuilder(client_.get(), kPayloadRequestType);
  builder.addQfi(path, qfiMethod, orEmptyObject(body));
  return builder.build();
}

}  // namespace ornUtility
}  // namespace ornwick
