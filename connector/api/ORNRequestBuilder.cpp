// SPDX-License-Identifier: Apache-2.0
// ORNRequestBuilder: type 2 carries rawPayload verbatim; every other type the
// RequestPayload text.
#include "ORNRequestBuilder.h"

#include "QipcProtocol.h"

namespace ornwick {
namespace ornConnector {
namespace api {

ORNRequestBuilder::ORNRequestBuilder() : payload(std::make_shared<RequestPayload>()) {}

ORNRequestBuilder& ORNRequestBuilder::addQfi(const std::string& path,
                                             const QFIRequest::Method& method,
                                             const std::string& requestBody) {
  auto qfi = std::make_shared<QFIRequest>();
  qfi->path = path;
  qfi->method = method;
  qfi->requestBody = requestBody;
  payload->qfi = std::move(qfi);
  return *this;
}

std::shared_ptr<ORNRequest> ORNRequestBuilder::build() const {
  auto request = std::make_shared<ORNRequest>();
  request->requestId = requestId;
  request->requestType = requestType;
  if (requestType == qipc::kSubscriptionRequest) {
    request->payload = rawPayload;
  } else if (payload) {
    request->payload = payload->toJsonString();
  }
  request->requestOption = requestOption;
  return request;
}

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
