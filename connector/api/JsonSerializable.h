// SPDX-License-Identifier: Apache-2.0
// JsonSerializable<T>: records that write themselves as a JSON value, and so as
// text.
#pragma once

#include <string>

#include "JsonTypes.h"

namespace ornwick {
namespace ornConnector {
namespace api {

template <typename T>
class JsonSerializable {
 public:
  virtual ~JsonSerializable() = default;
  virtual zedLocalUtil::jsonUtil::JsonValue toJsonValue(
      zedLocalUtil::jsonUtil::JsonAllocator& allocator) const = 0;

  // The compact text of toJsonValue in a fresh document; "" if writing fails.
  std::string toJsonString() const;
};

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick

#include "JsonSerializable-inl.h"
