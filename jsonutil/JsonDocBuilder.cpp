// JsonDocBuilder: both sets go through withHelper so they share
// JsonValueBuilder's rules.
#include "JsonDocBuilder.h"

namespace zedLocalUtil {
namespace jsonUtil {

JsonDocBuilder::JsonDocBuilder() : doc_(nullptr, kParseStackCapacity) {
  doc_.SetObject();
}

JsonDocBuilder& JsonDocBuilder::set(const char* key, const std::string& value) {
  return withHelper([&](JsonValueBuilder& b) { b.set(key, value); });
}

JsonDocBuilder& JsonDocBuilder::set(const char* key, JsonValueBuilder& child) {
  return withHelper([&](JsonValueBuilder& b) { b.set(key, child); });
}

}  // namespace jsonUtil
}  // namespace zedLocalUtil
