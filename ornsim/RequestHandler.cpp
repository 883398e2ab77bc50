// SPDX-License-Identifier: Apache-2.0
// RequestHandler: request dispatch, QFI routes, DFI directives and state
// requests.
#include "RequestHandler.h"

#include "BoundedParse.h"
#include "Directives.h"
#include "JsonText.h"
#include "QipcProtocol.h"
#include "RequestHandlerInternal.h"

namespace ornsim {
namespace {

using rapidjson::Value;

// One element of a "results" array, naming its endpoint when there is one.
void writeResult(JsonWriter& w, const char* endpointId, const Reply& r) {
  w.StartObject();
  if (endpointId != nullptr)
    writeMember(w, "endpointId", endpointId);
  w.Key("responseCode");
  w.Int(r.code);
  w.Key("responseData");
  w.RawValue(r.json.data(), r.json.size(), rapidjson::kObjectType);
  w.EndObject();
}

// Results of a request that changes things: every one when they fit in an
// answer, else (the changes are made all the same) a summary with as many
// failures as fit. `ids` names each result's endpoint; without, its index.
std::string resultsAnswer(const std::vector<Reply>& replies, const std::vector<std::string>* ids) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  w.Key("results");
  w.StartArray();
  for (size_t i = 0; i < replies.size(); ++i)
    writeResult(w, ids != nullptr ? (*ids)[i].c_str() : nullptr, replies[i]);
  w.EndArray();
  w.EndObject();
  std::string all = buf.GetString();
  if (escapedSize(all) <= kMaxAnswerBytes)
    return all;
  size_t failed = 0;
  for (const auto& r : replies)
    failed += r.code >= 300 ? 1 : 0;
  rapidjson::StringBuffer sbuf;
  JsonWriter s(sbuf);
  s.StartObject();
  s.Key("summary");
  s.StartObject();
  s.Key(ids != nullptr ? "endpoints" : "operations");
  s.Uint64(replies.size());
  s.Key("succeeded");
  s.Uint64(replies.size() - failed);
  s.Key("failed");
  s.Uint64(failed);
  s.EndObject();
  s.Key("failures");
  s.StartArray();
  size_t listed = 0;
  // A quarter of the room for failures leaves room for their escaping (at most
  // double) and what follows; a failure too long for its share is only counted.
  for (size_t i = 0; i < replies.size() && sbuf.GetSize() < kMaxAnswerBytes / 4; ++i) {
    const size_t idSize = ids != nullptr ? (*ids)[i].size() : 0;
    if (replies[i].code < 300 || replies[i].json.size() + idSize > kMaxAnswerBytes / 16)
      continue;
    s.StartObject();
    if (ids != nullptr) {
      writeMember(s, "endpointId", (*ids)[i]);
    } else {
      s.Key("index");
      s.Uint64(i);
    }
    s.Key("responseCode");
    s.Int(replies[i].code);
    s.Key("responseData");
    s.RawValue(replies[i].json.data(), replies[i].json.size(), rapidjson::kObjectType);
    s.EndObject();
    ++listed;
  }
  s.EndArray();
  s.Key("failuresNotListed");
  s.Uint64(failed - listed);
  s.EndObject();
  return sbuf.GetString();
}

const char kReachableFilter[] =
    "features[name:connectivity].properties[name:reachability].value.value=";

// Splits "a/b/c/" into {"a","b","c"}; the trailing "/" is optional, as the tool
// sends both.
std::vector<std::string> segments(const std::string& path) {
  std::vector<std::string> parts;
  size_t start = !path.empty() && path[0] == '/' ? 1 : 0;
  for (;;) {
    size_t end = path.find('/', start);
    parts.push_back(path.substr(start, end == std::string::npos ? end : end - start));
    if (end == std::string::npos)
      break;
    start = end + 1;
  }
  if (parts.size() > 1 && parts.back().empty())
    parts.pop_back();
  return parts;
}

void writeDevice(JsonWriter& w, const Device& d) {
  w.StartObject();
  writeMember(w, "id", d.id);
  writeMember(w, "externallyReportedId", d.endpointId);
  writeMember(w, "friendlyName", d.friendlyName);
  w.Key("capabilities");
  w.StartObject();
  w.Key("interfaces");
  w.StartArray();
  for (const auto& i : d.interfaces)
    writeString(w, i);
  w.EndArray();
  w.EndObject();
  w.EndObject();
}

Reply deviceList(const Home& home, const std::string& query) {
  // Only the reachability filter is understood; anything else is refused, not
  // ignored.
  std::string wanted;
  if (!query.empty()) {
    const std::string key = "filterExpression=";
    if (query.compare(0, key.size(), key) != 0 || query.find('&') != std::string::npos)
      return fail(400, "invalid_query", "only the query filterExpression=... is supported");
    const std::string filter = query.substr(key.size());
    if (filter.compare(0, sizeof(kReachableFilter) - 1, kReachableFilter) != 0)
      return fail(400, "invalid_filter", "unsupported filterExpression: " + filter);
    wanted = filter.substr(sizeof(kReachableFilter) - 1);
    if (wanted != "OK" && wanted != "UNREACHABLE")
      return fail(400, "invalid_filter", "reachability is OK or UNREACHABLE, not " + wanted);
  }
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  w.Key("results");
  w.StartArray();
  for (const auto& d : home.devices)
    if (wanted.empty() || d.reachable == (wanted == "OK"))
      writeDevice(w, d);
  w.EndArray();
  w.EndObject();
  return {200, buf.GetString()};
}

Reply featureState(Home& home, const std::string& id, const std::string& feature) {
  Device* d = home.findDevice(id);
  if (d == nullptr)
    return fail(404, "unknown_endpoint", "no endpoint " + id);
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  if (!writeFeature(w, *d, feature))
    return fail(404, "unknown_feature", "endpoint " + id + " has no feature " + feature);
  // Its last known state would pass for the current one; only whether it is
  // reachable is known.
  if (!d->reachable && feature != "connectivity")
    return fail(503, "endpoint_unreachable", id + " is unreachable");
  return {200, buf.GetString()};
}

// Applies one operation to one device, reporting why not when it cannot.
Reply applyTo(Device* d, const std::string& id, const OpInfo& op, const OpArgs& args,
              std::vector<StateChange>* changes) {
  if (d == nullptr)
    return fail(404, "unknown_endpoint", "no endpoint " + id);
  if (!d->offers(op.nameSpace))
    return fail(400, "unsupported_interface", id + " does not offer " + op.nameSpace);
  if (!d->reachable)
    return fail(503, "endpoint_unreachable", id + " is unreachable");
  for (auto& c : applyOp(*d, op.op, args))
    changes->push_back(std::move(c));
  return {200, "{\"status\":\"SUCCESS\"}"};
}

// A fault's DATA as an entry's "responseData": JSON as it is, other text as a
// JSON string.
Reply entryFault(const Fault& f) {
  rapidjson::Document doc;
  if (!zedLocalUtil::jsonUtil::boundedParse(&doc, f.data.data(), f.data.size()).IsError())
    return {f.code, f.data};
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  writeString(w, f.data);
  return {f.code, buf.GetString()};
}

// `control` (may be null) holds the faults that answer for single entries.
Reply batchDirective(Home& home, const OpInfo& op, const Value* body,
                     std::vector<StateChange>* changes, const Control* control) {
  if (body == nullptr || !body->IsObject())
    return fail(400, "invalid_body", "a batch directive needs a JSON object body");
  const Value* directivePayload = findMember(*body, "directivePayload");
  OpArgs args;
  std::string err;
  if (!parseOpArgs(op.op, directivePayload, &args, &err))
    return fail(400, "invalid_payload", err);
  std::vector<std::string> ids;
  std::string groupId;
  if (getString(*body, "groupId", &groupId)) {
    const Group* g = home.findGroup(groupId);
    if (g == nullptr)
      return fail(404, "unknown_group", "no group " + groupId);
    ids = g->members;
  } else if (const Value* batch = findMember(*body, "batch"); batch && batch->IsArray()) {
    for (const auto& e : batch->GetArray()) {
      std::string id;
      if (!getString(e, "endpointId", &id))
        return fail(400, "invalid_body", "each \"batch\" element needs a string \"endpointId\"");
      ids.push_back(id);
    }
  } else {
    return fail(400, "invalid_body", "the body needs \"batch\" or \"groupId\"");
  }
  std::vector<Reply> replies;
  replies.reserve(ids.size());
  // Unknown endpoints and faulty ones fail alone; the rest of the batch still applies.
  for (const auto& id : ids) {
    const Fault* f = control != nullptr ? control->faults.forEntry(id, home) : nullptr;
    replies.push_back(f != nullptr ? entryFault(*f)
                                   : applyTo(home.findDevice(id), id, op, args, changes));
  }
  return {200, resultsAnswer(replies, &ids)};
}

Reply qfi(Home& home, const Value& q, std::vector<StateChange>* changes, Control* control) {
  std::string path, method;
  if (!q.IsObject() || !getString(q, "path", &path))
    return fail(400, "invalid_qfi", "a QFI request needs a string \"path\"");
  getString(q, "method", &method);
  const Value* body = findMember(q, "requestBody");
  std::string query;
  if (auto mark = path.find('?'); mark != std::string::npos) {
    query = path.substr(mark + 1);
    path.erase(mark);
  }
  const auto s = segments(path);
  if (control != nullptr && s[0] == "sim")
    return controlRequest(*control, home, method, s, body, changes);
  const bool endpoints = s.size() >= 2 && s[0] == "v2" && s[1] == "endpoints";
  auto wrongMethod = [&](const char* wanted) {
    return fail(405, "method_not_allowed",
                std::string(wanted) + " " + path + " is the only method, not \"" + method + "\"");
  };
  if (endpoints && s.size() == 2) {
    if (method != "GET")
      return wrongMethod("GET");
    return deviceList(home, query);
  }
  if (endpoints && s.size() == 5 && s[3] == "features") {
    if (method != "GET")
      return wrongMethod("GET");
    return featureState(home, s[2], s[4]);
  }
  if (endpoints && s.size() == 6 && s[2] == "batch" && s[3] == "interfaces") {
    const OpInfo* op = findQfiOp(s[4], s[5]);
    if (op == nullptr)
      return fail(404, "unknown_directive", "no directive " + s[5] + " for " + s[4]);
    if (method != "POST")
      return wrongMethod("POST");
    return batchDirective(home, *op, body, changes, control);
  }
  return fail(404, "unknown_path", "no such path: " + path);
}

Reply reportState(Device& d) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  writeMember(w, "entityId", d.id);
  writeMember(w, "endpointId", d.endpointId);
  w.Key("name");
  w.String("StateReport");
  w.Key("features");
  w.StartArray();
  for (const auto& f : featuresOf(d))
    writeFeature(w, d, f);
  w.EndArray();
  w.EndObject();
  return {200, buf.GetString()};
}

Reply dfi(Home& home, const Value& v, std::vector<StateChange>* changes) {
  const Value* header = findMember(v, "header");
  std::string nameSpace, name;
  if (header == nullptr || !getString(*header, "namespace", &nameSpace) ||
      !getString(*header, "name", &name))
    return fail(400, "invalid_dfi",
                "a DFI request needs \"header\" with \"namespace\" and \"name\"");
  if (nameSpace == "Tessel.DeviceManager") {
    if (name != "GetDevices")
      return fail(400, "unknown_directive", "no directive " + name + " in " + nameSpace);
    return deviceList(home, "");
  }
  const OpInfo* op = findDfiOp(nameSpace, name);
  const bool report = nameSpace == "Corva" && name == "ReportState";
  if (op == nullptr && !report) {
    if (nameSpace != "Corva" && !knownNamespace(nameSpace))
      return fail(400, "unknown_namespace", "no namespace " + nameSpace);
    return fail(400, "unknown_directive", "no directive " + name + " in " + nameSpace);
  }
  // The endpoint id wins; the entity id is the fallback.
  std::string endpointId, entityId;
  if (const Value* endpoint = findMember(v, "endpoint")) {
    getString(*endpoint, "endpointId", &endpointId);
    getString(*endpoint, "entityId", &entityId);
  }
  Device* d = home.findDevice(endpointId);
  if (d == nullptr)
    d = home.findDevice(entityId);
  const std::string id = endpointId.empty() ? entityId : endpointId;
  if (report) {
    if (d == nullptr)
      return fail(404, "unknown_endpoint", "no endpoint " + id);
    return reportState(*d);
  }
  OpArgs args;
  std::string err;
  if (!parseOpArgs(op->op, findMember(v, "payload"), &args, &err))
    return fail(400, "invalid_payload", err);
  return applyTo(d, id, *op, args, changes);
}

// Type 1 and 3: {"qfi":{..},"dfi":[..]}. One operation answers as itself;
// several answer together in "results".
HandlerResult requestPayload(Home& home, const Value& doc, Control* control) {
  HandlerResult result;
  std::vector<Reply> replies;
  const Value* q = findMember(doc, "qfi");
  const Value* dfis = findMember(doc, "dfi");
  if (q != nullptr)
    replies.push_back(qfi(home, *q, &result.changes, control));
  if (dfis != nullptr && !dfis->IsArray())
    replies.push_back(fail(400, "invalid_dfi", "\"dfi\" must be an array"));
  else if (dfis != nullptr)
    for (const auto& d : dfis->GetArray())
      replies.push_back(d.IsObject() ? dfi(home, d, &result.changes)
                                     : fail(400, "invalid_dfi", "a DFI request must be an object"));
  if (replies.empty()) {
    Reply r = fail(400, "empty_request", "the payload holds no QFI or DFI request");
    result.code = r.code;
    result.data = r.json;
    return result;
  }
  if (replies.size() == 1) {
    result.code = replies[0].code;
    result.data = replies[0].json;
    return result;
  }
  bool allOk = true;
  for (const auto& r : replies)
    allOk = allOk && r.code < 300;
  result.code = allOk ? 200 : 207;
  result.data = resultsAnswer(replies, nullptr);
  return result;
}

}  // namespace

size_t escapedSize(const std::string& json) {
  size_t n = json.size();
  for (const char c : json) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\' || c == '\b' || c == '\f' || c == '\n' || c == '\r' || c == '\t')
      n += 1;
    else if (u < 0x20)
      n += 5;
  }
  return n;
}

HandlerResult handleRequest(Home& home, Subscriptions& subscriptions, const std::string& client,
                            int requestType, const std::string& payload, Control* control) {
  HandlerResult result;
  rapidjson::Document doc;
  const rapidjson::ParseResult parsed =
      zedLocalUtil::jsonUtil::boundedParse(&doc, payload.data(), payload.size());
  Reply r{0, ""};
  if (requestType != ornwick::qipc::kPayloadRequest &&
      requestType != ornwick::qipc::kSubscriptionRequest &&
      requestType != ornwick::qipc::kStateRequest) {
    r = fail(400, "unknown_request_type", "no request type " + std::to_string(requestType));
  } else if (parsed.IsError()) {
    r = fail(400, "invalid_json",
             std::string(zedLocalUtil::jsonUtil::parseErrorText(parsed.Code())) + " at offset " +
                 std::to_string(parsed.Offset()));
  } else if (!doc.IsObject()) {
    r = fail(400, "invalid_json", "the payload must be a JSON object");
  } else if (requestType == ornwick::qipc::kSubscriptionRequest) {
    r = handleSubscription(home, subscriptions, client, doc);
  } else {
    return requestPayload(home, doc, control);
  }
  result.code = r.code;
  result.data = std::move(r.json);
  return result;
}

std::string stateChangePayload(const StateChange& change) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  writeMember(w, "entityId", change.entityId);
  writeMember(w, "endpointId", change.endpointId);
  writeMember(w, "namespace", change.nameSpace);
  writeMember(w, "name", change.name);
  w.Key("value");
  w.RawValue(change.valueJson.data(), change.valueJson.size(), rapidjson::kObjectType);
  w.EndObject();
  return buf.GetString();
}

}  // namespace ornsim
