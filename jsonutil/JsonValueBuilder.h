// JsonValueBuilder: builds one object or array value on a document's allocator.
#pragma once

#include <string>

#include "JsonTypes.h"

namespace zedLocalUtil {
namespace jsonUtil {

class JsonValueBuilder {
 public:
  // Starts an empty object, or an empty array when `array` is true.
  explicit JsonValueBuilder(JsonAllocator& allocator, bool array = false);

  JsonValueBuilder(const JsonValueBuilder&) = delete;
  JsonValueBuilder& operator=(const JsonValueBuilder&) = delete;

  // REQUIRES: this builder holds an object (for every set).
  // Each set appends a member; an existing member of the same name is kept (no
  // search). Keys and string values are copied up to their first NUL.
  JsonValueBuilder& set(const char* key, const std::string& value);
  JsonValueBuilder& set(const char* key, int value);
  JsonValueBuilder& set(const char* key, double value);
  // Moves the child's value in; the child holds null afterwards.
  JsonValueBuilder& set(const char* key, JsonValueBuilder& child);
  // Moves the value in; it holds null afterwards.
  JsonValueBuilder& set(const char* key, JsonValue& value);
  // REQUIRES: this builder holds an array. Moves the child's value in.
  JsonValueBuilder& add(JsonValueBuilder& child);

  JsonValue& value() { return value_; }
  const JsonValue& value() const { return value_; }
  JsonAllocator& allocator() { return allocator_; }

 private:
  JsonValueBuilder& append(const char* key, JsonValue& value);

  JsonAllocator& allocator_;
  JsonValue value_;
};

}  // namespace jsonUtil
}  // namespace zedLocalUtil
