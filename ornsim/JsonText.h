// SPDX-License-Identifier: Apache-2.0
// JsonText: the shared JSON member helpers under ornsim's names, and the error
// text every failed request answers with.
#pragma once

#include <string>

#include "JsonFields.h"

namespace ornsim {

using zedLocalUtil::jsonUtil::findMember;
using zedLocalUtil::jsonUtil::getString;
using zedLocalUtil::jsonUtil::JsonWriter;
using zedLocalUtil::jsonUtil::writeMember;
using zedLocalUtil::jsonUtil::writeString;

// {"error":..., "message":...}
inline std::string errorJson(const std::string& error, const std::string& message) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  writeMember(w, "error", error);
  writeMember(w, "message", message);
  w.EndObject();
  return buf.GetString();
}

}  // namespace ornsim
