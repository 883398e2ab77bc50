// SPDX-License-Identifier: Apache-2.0
// DFIRequest: one directive for one endpoint, and the builder that adds it to a
// request.
#pragma once

#include <memory>
#include <string>

namespace ornwick {
namespace ornConnector {
namespace api {

class ORNRequestBuilder;

struct DFIRequest {
  std::string nameSpace;
  std::string name;
  std::string payloadVersion;
  std::string entityId;
  std::string endpointId;
  std::string friendlyName;
  std::string payload;

  // {"header":{...},"endpoint":{...}[,"payload":<parsed payload>]};
  // "" when the payload does not parse.
  std::string toJsonString() const;
};

class DFIRequestBuilder {
 public:
  // Creates an empty request with payloadVersion "3.0".
  explicit DFIRequestBuilder(ORNRequestBuilder* parent);

  std::shared_ptr<DFIRequest>& request() { return request_; }
  // Appends the request to the parent's DFI list.
  ORNRequestBuilder& append();

 private:
  ORNRequestBuilder* parent_;
  std::shared_ptr<DFIRequest> request_;
};

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
