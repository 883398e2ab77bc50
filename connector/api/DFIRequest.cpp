// SPDX-License-Identifier: Apache-2.0
// DFIRequest: header, endpoint and the payload embedded as parsed JSON.
#include "DFIRequest.h"

#include "JsonDocBuilder.h"
#include "ORNRequestBuilder.h"
#include "ParsedJson.h"
#include "Serialize.h"

namespace ornwick {
namespace ornConnector {
namespace api {

using zedLocalUtil::jsonUtil::JsonDocBuilder;
using zedLocalUtil::jsonUtil::JsonValueBuilder;

namespace {
constexpr char kPayloadVersion[] = "3.0";
}  // namespace

std::string DFIRequest::toJsonString() const {
  JsonDocBuilder doc;
  JsonValueBuilder header(doc.allocator());
  header.set("namespace", nameSpace).set("name", name).set("payloadVersion", payloadVersion);
  JsonValueBuilder endpoint(doc.allocator());
  endpoint.set("entityId", entityId)
      .set("endpointId", endpointId)
      .set("friendlyName", friendlyName);
  doc.set("header", header).set("endpoint", endpoint);
  // A payload that does not parse drops the whole request, not only itself;
  // deliberate.
  if (!payload.empty() && !setParsedJson(doc, "payload", payload)) {
    return "";
  }
  return zedLocalUtil::jsonUtil::serialize(doc.root());
}

DFIRequestBuilder::DFIRequestBuilder(ORNRequestBuilder* parent)
    : parent_(parent), request_(std::make_shared<DFIRequest>()) {
  request_->payloadVersion = kPayloadVersion;
}

ORNRequestBuilder& DFIRequestBuilder::append() {
  parent_->payload->dfis.push_back(request_);
  return *parent_;
}

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
