// SPDX-License-Identifier: Apache-2.0
// The RapidJSON DOM types every JSON builder and request record shares: UTF-8
// text on the C runtime allocator, so values can move freely between documents.
#pragma once

#include <rapidjson/document.h>

namespace zedLocalUtil {
namespace jsonUtil {

using JsonAllocator = rapidjson::CrtAllocator;
using JsonValue = rapidjson::GenericValue<rapidjson::UTF8<>, JsonAllocator>;
using JsonDocument = rapidjson::GenericDocument<rapidjson::UTF8<>, JsonAllocator, JsonAllocator>;

// Parse stack capacity used by every document we make.
constexpr size_t kParseStackCapacity = 1024;

}  // namespace jsonUtil
}  // namespace zedLocalUtil
