// SPDX-License-Identifier: Apache-2.0
// QIPC messages: JSON encoding and strict decoding.
#include "Message.h"

#include "BoundedParse.h"
#include "JsonFields.h"

namespace ornwick {
namespace qipc {
namespace {

using zedLocalUtil::jsonUtil::getInt;
using zedLocalUtil::jsonUtil::getString;
using zedLocalUtil::jsonUtil::JsonWriter;
using zedLocalUtil::jsonUtil::writeMember;

}  // namespace

std::string encodeMessage(const Message& m) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  w.Key("kind");
  w.String(messageKindName(m.kind));
  switch (m.kind) {
    case MessageKind::kEvent:
      writeMember(w, "eventType", m.type);
      writeMember(w, "payload", m.text);
      break;
    case MessageKind::kRegister:
      writeMember(w, "clientName", m.text);
      writeMember(w, "connectorType", m.type);
      break;
    case MessageKind::kRequest:
      writeMember(w, "requestId", m.id);
      writeMember(w, "requestType", m.type);
      w.Key("sync");
      w.Bool(m.sync);
      writeMember(w, "payload", m.text);
      break;
    case MessageKind::kResponse:
      writeMember(w, "requestId", m.id);
      writeMember(w, "responseCode", m.code);
      writeMember(w, "responseData", m.text);
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
  for (const auto& k : kMessageKinds)
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
