// SPDX-License-Identifier: Apache-2.0
// JsonValueBuilder: builds one object or array value on a document's allocator.
// Header-level code: against the platform's JSON library only serialize comes
// from outside. Members are appended, never looked up, so order is insertion
// order.
#pragma once

#include <string>

#include "JsonTypes.h"

namespace zedLocalUtil {
namespace jsonUtil {

class JsonValueBuilder {
 public:
  // Starts an empty object, or an empty array when `array` is true.
  explicit JsonValueBuilder(JsonAllocator& allocator, bool array = false)
      : allocator_(allocator), value_(array ? rapidjson::kArrayType : rapidjson::kObjectType) {}

  JsonValueBuilder(const JsonValueBuilder&) = delete;
  JsonValueBuilder& operator=(const JsonValueBuilder&) = delete;

  // REQUIRES: this builder holds an object (for every set).
  // Each set appends a member; an existing member of the same name is kept (no
  // search). Keys and string values are copied up to their first NUL.
  JsonValueBuilder& set(const char* key, const std::string& value) {
    JsonValue v(value.c_str(), allocator_);
    return append(key, v);
  }
  JsonValueBuilder& set(const char* key, int value) {
    JsonValue v(value);
    return append(key, v);
  }
  JsonValueBuilder& set(const char* key, double value) {
    JsonValue v(value);
    return append(key, v);
  }
  // Moves the child's value in; the child holds null afterwards.
  JsonValueBuilder& set(const char* key, JsonValueBuilder& child) {
    return append(key, child.value_);
  }
  // Moves the value in; it holds null afterwards.
  JsonValueBuilder& set(const char* key, JsonValue& value) { return append(key, value); }
  // REQUIRES: this builder holds an array. Moves the child's value in.
  JsonValueBuilder& add(JsonValueBuilder& child) {
    value_.PushBack(child.value_, allocator_);
    return *this;
  }

  JsonValue& value() { return value_; }
  const JsonValue& value() const { return value_; }
  JsonAllocator& allocator() { return allocator_; }

 private:
  JsonValueBuilder& append(const char* key, JsonValue& value) {
    JsonValue name(key, allocator_);
    // AddMember does not search, so a repeated key is written twice; deliberate.
    value_.AddMember(name, value, allocator_);
    return *this;
  }

  JsonAllocator& allocator_;
  JsonValue value_;
};

}  // namespace jsonUtil
}  // namespace zedLocalUtil
