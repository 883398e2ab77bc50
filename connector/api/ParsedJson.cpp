// SPDX-License-Identifier: Apache-2.0
// Embedding JSON texts as values, with RapidJSON's default parsing rules and
// the depth bound.
#include "ParsedJson.h"

#include "BoundedParse.h"

namespace ornwick {
namespace ornConnector {
namespace api {

using zedLocalUtil::jsonUtil::JsonDocument;
using zedLocalUtil::jsonUtil::JsonValueBuilder;

bool parseJsonText(const std::string& text, JsonDocument* out) {
  // Over-deep text fails like any unparseable text and leaves *out null.
  return !zedLocalUtil::jsonUtil::boundedParse(out, text.c_str()).IsError();
}

bool setParsedJson(zedLocalUtil::jsonUtil::JsonDocBuilder& doc, const char* key,
                   const std::string& text) {
  JsonDocument parsed(nullptr, zedLocalUtil::jsonUtil::kParseStackCapacity);
  bool ok = parseJsonText(text, &parsed);
  doc.withHelper([&](JsonValueBuilder& b) { b.set(key, parsed); });
  return ok;
}

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
