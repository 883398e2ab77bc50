// SPDX-License-Identifier: Apache-2.0
// JsonDocBuilder: owns a JSON document whose root object is filled member by
// member. Header-level code, like JsonValueBuilder; both sets go through
// withHelper so they share JsonValueBuilder's rules.
#pragma once

#include <string>
#include <utility>

#include "JsonTypes.h"
#include "JsonValueBuilder.h"

namespace zedLocalUtil {
namespace jsonUtil {

class JsonDocBuilder {
 public:
  // The root starts as an empty object.
  JsonDocBuilder() : doc_(nullptr, kParseStackCapacity) { doc_.SetObject(); }

  JsonDocBuilder(const JsonDocBuilder&) = delete;
  JsonDocBuilder& operator=(const JsonDocBuilder&) = delete;

  JsonDocBuilder& set(const char* key, const std::string& value) {
    return withHelper([&](JsonValueBuilder& b) { b.set(key, value); });
  }
  // Moves the child's value in; the child holds null afterwards.
  JsonDocBuilder& set(const char* key, JsonValueBuilder& child) {
    return withHelper([&](JsonValueBuilder& b) { b.set(key, child); });
  }

  // Lends the root to a temporary builder, applies f to it and takes the root
  // back. Should f leave by an exception, the root is lost and the document
  // holds {}.
  template <typename F>
  JsonDocBuilder& withHelper(F&& f) {
    JsonValueBuilder helper(allocator());
    helper.value().Swap(doc_);
    std::forward<F>(f)(helper);
    helper.value().Swap(doc_);
    return *this;
  }

  // Every JsonValueBuilder destined for this document must be made on this
  // allocator.
  JsonAllocator& allocator() { return doc_.GetAllocator(); }
  // The root value, for serialize.
  const JsonValue& root() const { return doc_; }
  JsonDocument& document() { return doc_; }

 private:
  JsonDocument doc_;
};

}  // namespace jsonUtil
}  // namespace zedLocalUtil
