// SPDX-License-Identifier: Apache-2.0
// QFIRequest: the body is embedded as parsed JSON, so a body that does not
// parse spoils the whole request text.
#include "QFIRequest.h"

#include "JsonDocBuilder.h"
#include "ParsedJson.h"
#include "Serialize.h"

namespace ornwick {
namespace ornConnector {
namespace api {

namespace {

const char* methodText(QFIRequest::Method method) {
  switch (method) {
    case QFIRequest::GET:
      return "GET";
    case QFIRequest::POST:
      return "POST";
  }
  return "UNKNOWN";
}

}  // namespace

std::shared_ptr<QFIRequest> QFIRequest::fromPath(const QfiPath& path, Method method,
                                                 const std::string& requestBody) {
  auto request = std::make_shared<QFIRequest>();
  request->path = path.toString();
  request->method = method;
  request->requestBody = requestBody;
  request->qfiPath = path;
  request->madeFromPath = true;
  return request;
}

std::string QFIRequest::toJsonString() const {
  zedLocalUtil::jsonUtil::JsonDocBuilder doc;
  doc.set("path", path).set("method", methodText(method));
  if (!requestBody.empty() && !setParsedJson(doc, "requestBody", requestBody)) {
    return "";
  }
  return zedLocalUtil::jsonUtil::serialize(doc.root());
}

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
