// SPDX-License-Identifier: Apache-2.0
// QIPC messages: JSON encoding and strict decoding.
#include "Message.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "BoundedParse.h"

namespace ornwick {
namespace qipc {
namespace {

struct KindName {
  MessageKind kind;
  const char* name;
};
const KindName kKinds[] = {
    {MessageKind::kEvent, "event"},
    {MessageKind::kRegister, "register"},
    {MessageKind::kRequest, "request"},
    {MessageKind::kResponse, "response"},
};

bool getString(const rapidjson::Value& obj, const char* key, std::string* out) {
  auto it = obj.FindMember(key);
  if (it == obj.MemberEnd() || !it->value.IsString())
    return false;
  out->assign(it->value.GetString(), it->value.GetStringLength());
  return true;
}

bool getInt(const rapidjson::Value& obj, const char* key, int* out) {
  auto it = obj.FindMember(key);
  if (it == obj.MemberEnd() || !it->value.IsInt())
    return false;
  *out = it->value.GetInt();
  return true;
}

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

void writeString(Writer& w, const char* key, const std::string& s) {
  w.Key(key);
  w.String(s.data(), static_cast<rapidjson::SizeType>(s.size()));
}

void writeInt(Writer& w, const char* key, int value) {
  w.Key(key);
  w.Int(value);
}

}  // namespace

std::string encodeMessage(const Message& m) {
  rapidjson::StringBuffer buf;
  Writer w(buf);
  w.StartObject();
  w.Key("kind");
  for (const auto& k : kKinds)
    if (k.kind == m.kind)
      w.String(k.name);
  switch (m.kind) {
    case MessageKind::kEvent:
      writeInt(w, "eventType", m.type);
      writeString(w, "payload", m.text);
      break;
    case MessageKind::kRegister:
      writeString(w, "clientName", m.text);
      writeInt(w, "connectorType", m.type);
      break;
    case MessageKind::kRequest:
      writeString(w, "requestId", m.id);
      writeInt(w, "requestType", m.type);
      w.Key("sync");
      w.Bool(m.sync);
      writeString(w, "payload", m.text);
      break;
    case MessageKind::kResponse:
      writeString(w, "requestId", m.id);
      writeInt(w, "responseCode", m.code);
      writeString(w, "responseData", m.text);
      break;
  }
  w.EndObject();
  return std::string(buf.GetString(), buf.GetSize());
}

bool decodeMessage(const std::string& text, Message* m, std::string* err) {
  rapidjson::Document doc;
  const rapidjson::ParseResult parsed =
      zedLocalUtil::jsonUtil::boundedParse(&doc, text.data(), text.size());
  if (parsed.IsError()) {
    *err = std::string("bad message JSON: ") +
           zedLocalUtil::jsonUtil::parseErrorText(parsed.Code()) + " at offset " +
           std::to_string(parsed.Offset());
    return false;
  }
  if (!doc.IsObject()) {
    *err = "message is not a JSON object";
    return false;
  }
  std::string kind;
  if (!getString(doc, "kind", &kind)) {
    *err = "message has no \"kind\"";
    return false;
  }
  bool known = false;
  for (const auto& k : kKinds)
    if (kind == k.name) {
      m->kind = k.kind;
      known = true;
    }
  if (!known) {
    *err = "unknown message kind \"" + kind + "\"";
    return false;
  }
  bool ok = false;
  switch (m->kind) {
    case MessageKind::kEvent:
      ok = getInt(doc, "eventType", &m->type) && getString(doc, "payload", &m->text);
      break;
    case MessageKind::kRegister:
      ok = getString(doc, "clientName", &m->text) && getInt(doc, "connectorType", &m->type);
      break;
    case MessageKind::kRequest: {
      ok = getString(doc, "requestId", &m->id) && getInt(doc, "requestType", &m->type) &&
           getString(doc, "payload", &m->text);
      auto it = doc.FindMember("sync");
      m->sync = it != doc.MemberEnd() && it->value.IsBool() && it->value.GetBool();
      break;
    }
    case MessageKind::kResponse:
      ok = getString(doc, "requestId", &m->id) && getInt(doc, "responseCode", &m->code) &&
           getString(doc, "responseData", &m->text);
      break;
  }
  if (!ok)
    *err = "\"" + kind + "\" message lacks a required member";
  return ok;
}

}  // namespace qipc
}  // namespace ornwick
