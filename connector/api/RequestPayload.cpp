// SPDX-License-Identifier: Apache-2.0
// RequestPayload: sub-request texts are parsed back and embedded as JSON
// values.
#include "RequestPayload.h"

#include "JsonDocBuilder.h"
#include "ParsedJson.h"
#include "Serialize.h"

namespace ornwick {
namespace ornConnector {
namespace api {

using zedLocalUtil::jsonUtil::JsonDocument;
using zedLocalUtil::jsonUtil::JsonValueBuilder;

std::string RequestPayload::toJsonString() const {
  if (!qfi && dfis.empty()) {
    return "";
  }
  zedLocalUtil::jsonUtil::JsonDocBuilder doc;
  // Sub-requests whose text does not parse are written null, silently;
  // deliberate.
  if (qfi) {
    setParsedJson(doc, "qfi", qfi->toJsonString());
  }
  JsonValueBuilder array(doc.allocator(), true);
  for (const auto& dfi : dfis) {
    JsonDocument parsed(nullptr, zedLocalUtil::jsonUtil::kParseStackCapacity);
    if (dfi) {
      parseJsonText(dfi->toJsonString(), &parsed);
    }
    array.value().PushBack(parsed.Move(), doc.allocator());
  }
  // "dfi" is written even when empty; deliberate.
  doc.set("dfi", array);
  return zedLocalUtil::jsonUtil::serialize(doc.root());
}

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
