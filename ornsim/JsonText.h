// SPDX-License-Identifier: Apache-2.0
// JsonText: the few RapidJSON helpers ornsim's request handling shares.
#pragma once

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>

namespace ornsim {

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

inline const rapidjson::Value* findMember(const rapidjson::Value& obj, const char* key) {
  if (!obj.IsObject())
    return nullptr;
  auto it = obj.FindMember(key);
  return it == obj.MemberEnd() ? nullptr : &it->value;
}

inline bool getString(const rapidjson::Value& obj, const char* key, std::string* out) {
  const rapidjson::Value* v = findMember(obj, key);
  if (v == nullptr || !v->IsString())
    return false;
  out->assign(v->GetString(), v->GetStringLength());
  return true;
}

inline void writeString(JsonWriter& w, const std::string& s) {
  w.String(s.data(), static_cast<rapidjson::SizeType>(s.size()));
}

inline void writeMember(JsonWriter& w, const char* key, const std::string& value) {
  w.Key(key);
  writeString(w, value);
}

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
