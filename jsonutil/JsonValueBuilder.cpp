// JsonValueBuilder: members are appended, never looked up, so order is
// insertion order.
#include "JsonValueBuilder.h"

namespace zedLocalUtil {
namespace jsonUtil {

JsonValueBuilder::JsonValueBuilder(JsonAllocator& allocator, bool array)
    : allocator_(allocator), value_(array ? rapidjson::kArrayType : rapidjson::kObjectType) {}

JsonValueBuilder& JsonValueBuilder::append(const char* key, JsonValue& value) {
  JsonValue name(key, allocator_);
  // AddMember does not search, so a repeated key is written twice; deliberate.
  value_.AddMember(name, value, allocator_);
  return *this;
}

JsonValueBuilder& JsonValueBuilder::set(const char* key, const std::string& value) {
  JsonValue v(value.c_str(), allocator_);
  return append(key, v);
}

JsonValueBuilder& JsonValueBuilder::set(const char* key, int value) {
  JsonValue v(value);
  return append(key, v);
}

JsonValueBuilder& JsonValueBuilder::set(const char* key, double value) {
  JsonValue v(value);
  return append(key, v);
}

JsonValueBuilder& JsonValueBuilder::set(const char* key, JsonValueBuilder& child) {
  return append(key, child.value_);
}

JsonValueBuilder& JsonValueBuilder::set(const char* key, JsonValue& value) {
  return append(key, value);
}

JsonValueBuilder& JsonValueBuilder::add(JsonValueBuilder& child) {
  value_.PushBack(child.value_, allocator_);
  return *this;
}

}  // namespace jsonUtil
}  // namespace zedLocalUtil
