// SPDX-License-Identifier: Apache-2.0
// QfiPath: path texts are pieced together as given, with no escaping or
// encoding.
#include "QfiPath.h"

#include <utility>

namespace ornwick {
namespace ornConnector {
namespace api {

namespace {
constexpr char kEndpointsRoot[] = "/v2/endpoints";
}  // namespace

QfiPath QfiPath::batchDirective(const std::string& interfaceName,
                                const std::string& directiveName) {
  QfiPath p;
  p.kind = kBatchDirective;
  p.interfaceName = interfaceName;
  p.directiveName = directiveName;
  p.path = p.toString();
  return p;
}

QfiPath QfiPath::endpointFeature(const std::string& endpointId, const std::string& featureName) {
  QfiPath p;
  p.kind = kEndpointFeature;
  p.endpointId = endpointId;
  p.featureName = featureName;
  p.path = p.toString();
  return p;
}

QfiPath QfiPath::endpointQuery(std::unordered_map<std::string, std::string> queryParams) {
  QfiPath p;
  p.kind = kEndpointQuery;
  p.queryParams = std::move(queryParams);
  p.path = p.toString();
  return p;
}

std::string QfiPath::toString() const {
  std::string out;
  switch (kind) {
    case kBatchDirective:
      out = std::string(kEndpointsRoot) + "/batch/interfaces/" + interfaceName;
      if (!directiveName.empty()) {
        out += "/" + directiveName;
      }
      // Batch and feature paths end in "/", query paths never do; deliberate.
      return out + "/";
    case kEndpointFeature:
      return std::string(kEndpointsRoot) + "/" + endpointId + "/features/" + featureName + "/";
    case kEndpointQuery: {
      out = kEndpointsRoot;
      char separator = '?';
      for (const auto& param : queryParams) {
        out += separator;
        out += param.first + "=" + param.second;
        separator = '&';
      }
      return out;
    }
    default:
      return path;
  }
}

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
