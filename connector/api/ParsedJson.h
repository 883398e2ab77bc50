// SPDX-License-Identifier: Apache-2.0
// Embedding JSON texts as values: request texts nest their parts parsed, not
// quoted.
#pragma once

#include <string>

#include "JsonDocBuilder.h"

namespace ornwick {
namespace ornConnector {
namespace api {

// Parses text, up to its first NUL, into *out. Returns false, with *out null,
// when it does not parse (the empty text and text nested deeper than
// kMaxJsonDepth included).
bool parseJsonText(const std::string& text, zedLocalUtil::jsonUtil::JsonDocument* out);

// Appends the parsed text to the root under key, or null when it does not
// parse. Returns whether it parsed.
bool setParsedJson(zedLocalUtil::jsonUtil::JsonDocBuilder& doc, const char* key,
                   const std::string& text);

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
