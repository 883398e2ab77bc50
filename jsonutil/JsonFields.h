// SPDX-License-Identifier: Apache-2.0
// JsonFields: reading members of a parsed object and writing members with
// RapidJSON's writer, the helpers the QIPC messages and ornsim share.
#pragma once

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>

namespace zedLocalUtil {
namespace jsonUtil {

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

// The member `key` of obj; null when obj is not an object or has no such member.
inline const rapidjson::Value* findMember(const rapidjson::Value& obj, const char* key) {
  if (!obj.IsObject())
    return nullptr;
  auto it = obj.FindMember(key);
  return it == obj.MemberEnd() ? nullptr : &it->value;
}

// False, *out untouched, unless the member is there and a string.
inline bool getString(const rapidjson::Value& obj, const char* key, std::string* out) {
  const rapidjson::Value* v = findMember(obj, key);
  if (v == nullptr || !v->IsString())
    return false;
  out->assign(v->GetString(), v->GetStringLength());
  return true;
}

// False, *out untouched, unless the member is there and an int.
inline bool getInt(const rapidjson::Value& obj, const char* key, int* out) {
  const rapidjson::Value* v = findMember(obj, key);
  if (v == nullptr || !v->IsInt())
    return false;
  *out = v->GetInt();
  return true;
}

// Writes s whole, embedded NULs included.
inline void writeString(JsonWriter& w, const std::string& s) {
  w.String(s.data(), static_cast<rapidjson::SizeType>(s.size()));
}

inline void writeMember(JsonWriter& w, const char* key, const std::string& value) {
  w.Key(key);
  writeString(w, value);
}

inline void writeMember(JsonWriter& w, const char* key, int value) {
  w.Key(key);
  w.Int(value);
}

}  // namespace jsonUtil
}  // namespace zedLocalUtil
