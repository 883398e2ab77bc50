// SPDX-License-Identifier: Apache-2.0
// Template bodies of JsonSerializable.
#pragma once

#include "Serialize.h"

namespace ornwick {
namespace ornConnector {
namespace api {

template <typename T>
std::string JsonSerializable<T>::toJsonString() const {
  zedLocalUtil::jsonUtil::JsonDocument doc(nullptr, zedLocalUtil::jsonUtil::kParseStackCapacity);
  zedLocalUtil::jsonUtil::JsonValue value = toJsonValue(doc.GetAllocator());
  return zedLocalUtil::jsonUtil::serialize(value);
}

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
