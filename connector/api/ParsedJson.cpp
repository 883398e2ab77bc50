// Embedding JSON texts as values, with RapidJSON's default parsing rules.
#include "ParsedJson.h"

namespace ornwick {
namespace ornConnector {
namespace api {

using zedLocalUtil::jsonUtil::JsonDocument;
using zedLocalUtil::jsonUtil::JsonValueBuilder;

bool parseJsonText(const std::string& text, JsonDocument* out) {
  out->Parse(text.c_str());
  if (out->HasParseError()) {
    out->SetNull();
    return false;
  }
  return true;
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
