// SPDX-License-Identifier: Apache-2.0
// serialize: RapidJSON's compact Writer, with its default number formatting.
#include "Serialize.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace zedLocalUtil {
namespace jsonUtil {

namespace {
constexpr size_t kInitialBufferCapacity = 256;
}  // namespace

std::string serialize(const JsonValue& value) {
  rapidjson::StringBuffer buffer(nullptr, kInitialBufferCapacity);
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  // The writer refuses NaN and infinity; a half-written text is worth nothing.
  if (!value.Accept(writer)) {
    return "";
  }
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace jsonUtil
}  // namespace zedLocalUtil
