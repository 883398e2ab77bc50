// SPDX-License-Identifier: Apache-2.0
// QfiPath: the REST-like paths of feature-interface requests.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace ornwick {
namespace ornConnector {
namespace api {

struct QfiPath {
  enum Kind : int32_t { kWhole = 0, kBatchDirective = 1, kEndpointFeature = 2, kEndpointQuery = 3 };

  int32_t kind = kWhole;
  std::string interfaceName;
  std::string directiveName;
  std::string endpointId;
  std::string featureName;
  std::unordered_map<std::string, std::string> queryParams;
  std::string path;

  // "/v2/endpoints/batch/interfaces/<interface>[/<directive>]/"
  static QfiPath batchDirective(const std::string& interfaceName, const std::string& directiveName);
  // "/v2/endpoints/<endpoint>/features/<feature>/"
  static QfiPath endpointFeature(const std::string& endpointId, const std::string& featureName);
  // "/v2/endpoints[?k=v&...]", values not encoded.
  static QfiPath endpointQuery(std::unordered_map<std::string, std::string> queryParams);

  std::string toString() const;
};

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
