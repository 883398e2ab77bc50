// SPDX-License-Identifier: Apache-2.0
// Control: answers the simulator-only paths under /sim/.
#include "Control.h"

#include <algorithm>

#include "Directives.h"
#include "JsonText.h"
#include "RequestHandlerInternal.h"
#include "StateFile.h"

namespace ornsim {
namespace {

using rapidjson::Value;

Reply success() {
  return {200, "{\"status\":\"SUCCESS\"}"};
}

std::string joined(const std::vector<std::string>& problems) {
  std::string s;
  for (const auto& p : problems)
    s += (s.empty() ? "" : "; ") + p;
  return s;
}

// Rejects members other than `known`, so that a misspelt one is not ignored.
bool onlyKeys(const Value& body, std::initializer_list<const char*> known, std::string* err) {
  for (const auto& m : body.GetObject()) {
    const std::string key(m.name.GetString(), m.name.GetStringLength());
    bool ok = false;
    for (const char* k : known)
      ok = ok || key == k;
    if (!ok) {
      *err = "unknown member \"" + key + "\"";
      return false;
    }
  }
  return true;
}

// As if the device's wall switch (or its own sensor) changed it: each state key
// given is applied as the matching directive is, and reported the same way.
Reply setDevice(Home& home, const std::string& id, const Value* body,
                std::vector<StateChange>* changes) {
  Device* d = home.findDevice(id);
  if (d == nullptr)
    return fail(404, "unknown_endpoint", "no endpoint " + id);
  std::string err;
  if (body == nullptr || !body->IsObject() || !onlyKeys(*body, {"reachable", "state"}, &err))
    return fail(400, "invalid_body",
                "the body takes \"reachable\" and \"state\"" + (err.empty() ? "" : ": " + err));
  const Value* reachable = findMember(*body, "reachable");
  const Value* state = findMember(*body, "state");
  if (reachable != nullptr && !reachable->IsBool())
    return fail(400, "invalid_body", "\"reachable\" must be true or false");
  DeviceState wanted = d->state;
  std::vector<std::string> problems;
  if (state != nullptr)
    parseDeviceState(*state, "state", &wanted, &problems);
  if (!problems.empty())
    return fail(400, "invalid_body", joined(problems));
  static const struct {
    const char* key;
    const char* interface;
  } kKeys[] = {{"power", kPowerController},
               {"brightness", kBrightnessController},
               {"color", kColorController},
               {"colorTemperatureInKelvin", kColorTemperatureController}};
  std::vector<const char*> given;
  for (const auto& k : kKeys) {
    if (state == nullptr || findMember(*state, k.key) == nullptr)
      continue;
    if (!d->offers(k.interface))
      return fail(400, "unsupported_interface", id + " does not offer " + k.interface);
    given.push_back(k.key);
  }
  if (reachable != nullptr) {
    d->reachable = reachable->GetBool();
    ++home.edits;
  }
  if (!given.empty() && !d->reachable)
    return fail(503, "endpoint_unreachable", id + " is unreachable");
  for (const std::string key : given) {
    OpArgs args;
    Op op = wanted.power ? Op::kTurnOn : Op::kTurnOff;
    if (key == "brightness") {
      op = Op::kSetBrightness;
      args.number = wanted.brightness;
    } else if (key == "color") {
      op = Op::kSetColor;
      args.color = wanted.color;
    } else if (key == "colorTemperatureInKelvin") {
      op = Op::kSetColorTemperature;
      args.number = wanted.colorTemperatureInKelvin;
    }
    for (auto& c : applyOp(*d, op, args))
      changes->push_back(std::move(c));
  }
  return success();
}

Reply addDevice(Home& home, const Value* body) {
  if (body == nullptr)
    return fail(400, "invalid_body", "the body is a device as a home file writes it");
  Device d;
  std::vector<std::string> problems;
  parseDevice(*body, "device", &d, &problems);
  if (!problems.empty())
    return fail(400, "invalid_body", joined(problems));
  for (const std::string* id : {&d.id, &d.endpointId})
    if (home.findDevice(*id) != nullptr)
      return fail(409, "device_exists", "id " + *id + " is taken");
  home.devices.push_back(std::move(d));
  home.reindex();
  return success();
}

Reply removeDevice(Home& home, const std::string& id) {
  const Device* d = home.findDevice(id);
  if (d == nullptr)
    return fail(404, "unknown_endpoint", "no endpoint " + id);
  const std::string entityId = d->id, endpointId = d->endpointId;
  home.devices.erase(home.devices.begin() + (d - home.devices.data()));
  // Groups only ever hold devices of the home.
  for (auto& g : home.groups)
    g.members.erase(std::remove_if(g.members.begin(), g.members.end(),
                                   [&](const std::string& m) {
                                     return m == entityId ||
                                            (!endpointId.empty() && m == endpointId);
                                   }),
                    g.members.end());
  home.reindex();
  return success();
}

Reply injectEvent(Control& control, const Value* body) {
  std::string err, client, payload;
  const Value* type = body == nullptr ? nullptr : findMember(*body, "eventType");
  if (type == nullptr || !type->IsInt() ||
      !onlyKeys(*body, {"eventType", "payload", "client"}, &err))
    return fail(400, "invalid_body",
                "the body takes an integer \"eventType\", \"payload\" and \"client\"" +
                    (err.empty() ? "" : ": " + err));
  if (findMember(*body, "client") != nullptr && !getString(*body, "client", &client))
    return fail(400, "invalid_body", "\"client\" must be a string");
  // A string goes out as it is; any other JSON as its text.
  if (const Value* p = findMember(*body, "payload");
      p != nullptr && !getString(*body, "payload", &payload)) {
    rapidjson::StringBuffer buf;
    JsonWriter w(buf);
    p->Accept(w);
    payload = buf.GetString();
  }
  const int sent = control.sendEvent ? control.sendEvent(client, type->GetInt(), payload) : 0;
  return {200, "{\"sent\":" + std::to_string(sent) + "}"};
}

}  // namespace

void writeGroups(JsonWriter& w, const std::vector<Group>& groups) {
  w.StartArray();
  for (const auto& g : groups) {
    w.StartObject();
    writeMember(w, "id", g.id);
    w.Key("members");
    w.StartArray();
    for (const auto& m : g.members)
      writeString(w, m);
    w.EndArray();
    w.EndObject();
  }
  w.EndArray();
}

namespace {

Reply listGroups(const Home& home) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  w.Key("groups");
  writeGroups(w, home.groups);
  w.EndObject();
  return {200, buf.GetString()};
}

Reply listSubscriptions(const Subscriptions& subs) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  writeClients(w, subs);
  w.EndObject();
  return {200, buf.GetString()};
}

Reply faults(Control& control, const std::string& action, const Value* body) {
  Fault added;
  if (action == "add") {
    std::string text, err;
    if (body == nullptr || !getString(*body, "fault", &text))
      return fail(400, "invalid_body", "the body needs a string \"fault\"");
    if (!parseFault(text, control.requests, &added, &err))
      return fail(400, "invalid_body", err);
    if (!addFault(control, added))
      return fail(400, "too_many_faults",
                  "the faults set would not fit in an answer; nothing was added");
  } else if (action == "clear") {
    control.faults.clear();
    control.faultListBytes = 0;
  }
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  w.Key("requests");
  w.Int64(control.requests);
  if (action == "add") {
    // The fault as read back and the count, not the whole list, so that
    // setting many faults one by one costs each the same.
    writeMember(w, "added", faultText(added));
    w.Key("count");
    w.Uint64(control.faults.all().size());
  } else {
    w.Key("faults");
    w.StartArray();
    for (const auto& f : control.faults.all())
      writeString(w, faultText(f));
    w.EndArray();
  }
  w.EndObject();
  return {200, buf.GetString()};
}

}  // namespace

bool addFault(Control& control, Fault fault) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  writeString(w, faultText(fault));
  // Its place in GET /sim/faults's list, with a comma; the rest of that
  // answer is a number and a few keys.
  const size_t bytes = escapedSize(buf.GetString()) + 1;
  constexpr size_t kAround = 64;
  // Refused rather than set unseen: that answer lists every fault.
  if (control.faultListBytes + bytes + kAround > kMaxAnswerBytes)
    return false;
  control.faultListBytes += bytes;
  control.faults.add(std::move(fault));
  return true;
}

Reply controlRequest(Control& control, Home& home, const std::string& method,
                     const std::vector<std::string>& segments, const Value* body,
                     std::vector<StateChange>* changes) {
  const std::string id = segments.size() > 2 ? segments[2] : "";
  const struct {
    std::vector<std::string> pattern;  // "*": an entity or endpoint id
    const char* method;
    std::function<Reply()> answer;
  } kRoutes[] = {
      {{"sim", "groups"}, "GET", [&] { return listGroups(home); }},
      {{"sim", "subscriptions"}, "GET", [&] { return listSubscriptions(control.subscriptions); }},
      {{"sim", "faults"}, "GET", [&] { return faults(control, "list", body); }},
      {{"sim", "faults"}, "POST", [&] { return faults(control, "add", body); }},
      {{"sim", "faults", "clear"}, "POST", [&] { return faults(control, "clear", body); }},
      {{"sim", "events"}, "POST", [&] { return injectEvent(control, body); }},
      {{"sim", "endpoints"}, "POST", [&] { return addDevice(home, body); }},
      {{"sim", "endpoints", "*"}, "POST", [&] { return setDevice(home, id, body, changes); }},
      {{"sim", "endpoints", "*", "remove"}, "POST", [&] { return removeDevice(home, id); }},
  };
  std::string path, methods;
  for (const auto& part : segments)
    path += "/" + part;
  for (const auto& r : kRoutes) {
    bool same = r.pattern.size() == segments.size();
    for (size_t i = 0; same && i < segments.size(); ++i)
      same = r.pattern[i] == "*" || r.pattern[i] == segments[i];
    if (same && method == r.method)
      return r.answer();
    if (same)
      methods += (methods.empty() ? "" : " or ") + std::string(r.method);
  }
  if (methods.empty())
    return fail(404, "unknown_path", "no such path: " + path);
  return fail(405, "method_not_allowed", path + " takes " + methods + ", not \"" + method + "\"");
}

}  // namespace ornsim
