// SPDX-License-Identifier: Apache-2.0
// QFIRequest: a feature-interface request (path, method, optional JSON body).
#pragma once

#include <memory>
#include <string>

#include "QfiPath.h"

namespace ornwick {
namespace ornConnector {
namespace api {

struct QFIRequest {
  enum Method : int32_t { GET = 1, POST = 2 };

  std::string path;
  Method method = static_cast<Method>(0);
  std::string requestBody;
  QfiPath qfiPath;
  // True when made by fromPath().
  bool madeFromPath = false;

  static std::shared_ptr<QFIRequest> fromPath(const QfiPath& path, Method method,
                                              const std::string& requestBody);

  // {"path":...,"method":"GET"|"POST"|"UNKNOWN"[,"requestBody":<parsed body>]};
  // "" when the body does not parse.
  std::string toJsonString() const;
};

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
