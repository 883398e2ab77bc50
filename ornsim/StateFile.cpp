// SPDX-License-Identifier: Apache-2.0
// StateFile: writing, reading and replacing the saved state.
#include "StateFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "BoundedParse.h"
#include "RequestHandlerInternal.h"
#include "RequestInfo.h"

namespace ornsim {
namespace {

using rapidjson::SizeType;
using rapidjson::Value;

bool parse(const std::string& text, rapidjson::Document* doc, std::string* err) {
  const rapidjson::ParseResult parsed =
      zedLocalUtil::jsonUtil::boundedParse(doc, text.data(), text.size());
  if (parsed.IsError()) {
    *err = std::string("not valid JSON: ") + zedLocalUtil::jsonUtil::parseErrorText(parsed.Code()) +
           " at offset " + std::to_string(parsed.Offset());
    return false;
  }
  return true;
}

const Value* arrayMember(const Value& obj, const char* key, std::vector<std::string>* problems) {
  const Value* v = findMember(obj, key);
  if (v != nullptr && !v->IsArray()) {
    problems->push_back(std::string("\"") + key + "\" must be an array");
    return nullptr;
  }
  return v;
}

void readDevice(const Value& v, const std::string& where, Home* home,
                std::vector<std::string>* problems) {
  std::string id;
  if (!getString(v, "id", &id)) {
    problems->push_back(where + ": needs a string \"id\"");
    return;
  }
  Device* d = home->findDevice(id);
  if (d == nullptr)
    return;
  if (const Value* r = findMember(v, "reachable")) {
    if (r->IsBool())
      d->reachable = r->GetBool();
    else
      problems->push_back(where + ": \"reachable\" must be true or false");
  }
  if (const Value* s = findMember(v, "state"))
    parseDeviceState(*s, where + ".state", &d->state, problems);
}

void readClient(const Value& v, const std::string& where, Subscriptions* subs,
                std::vector<std::string>* problems) {
  std::string client;
  const Value* list = findMember(v, "subscriptions");
  if (!getString(v, "client", &client) || list == nullptr || !list->IsArray()) {
    problems->push_back(where + ": needs a string \"client\" and an array \"subscriptions\"");
    return;
  }
  std::vector<Subscription> saved;
  for (SizeType i = 0; i < list->Size(); ++i) {
    Subscription s;
    std::string err;
    if (!getString((*list)[i], "subscriptionId", &s.id))
      err = "needs a string \"subscriptionId\"";
    if (err.empty() && readSubscription((*list)[i], &s, &err))
      saved.push_back(std::move(s));
    else
      problems->push_back(where + ".subscriptions[" + std::to_string(i) + "]: " + err);
  }
  // The limits that hold for creating hold for restoring: repeats collapse into
  // the first, and more than a client may hold is an error, not a silent cut.
  if (!roomForClient(*subs, client, saved)) {
    problems->push_back(where + ": too many clients: " + tooManyClients(*subs));
    return;
  }
  if (!roomFor(*subs, client, saved)) {
    problems->push_back(where + ": too many subscriptions for \"" + client +
                        "\": " + tooManySubscriptions(*subs));
    return;
  }
  for (auto& s : saved)
    subs->restore(client, std::move(s));
}

void writeDeviceState(JsonWriter& w, const Device& d) {
  w.StartObject();
  writeMember(w, "id", d.id);
  w.Key("reachable");
  w.Bool(d.reachable);
  w.Key("state");
  w.StartObject();
  w.Key("power");
  w.Bool(d.state.power);
  w.Key("brightness");
  w.Int(d.state.brightness);
  w.Key("color");
  w.StartObject();
  w.Key("hue");
  w.Double(d.state.color.hue);
  w.Key("saturation");
  w.Double(d.state.color.saturation);
  w.Key("brightness");
  w.Double(d.state.color.brightness);
  w.EndObject();
  // Devices without colour temperature hold 0, which a home file may not say.
  if (d.state.colorTemperatureInKelvin != 0) {
    w.Key("colorTemperatureInKelvin");
    w.Int(d.state.colorTemperatureInKelvin);
  }
  w.EndObject();
  w.EndObject();
}

}  // namespace

void writeClients(JsonWriter& w, const Subscriptions& subs) {
  w.Key("clients");
  w.StartArray();
  for (const auto& [client, list] : subs.all()) {
    if (list.empty())
      continue;
    w.StartObject();
    writeMember(w, "client", client);
    w.Key("subscriptions");
    w.StartArray();
    for (const auto& s : list)
      writeSubscription(w, s);
    w.EndArray();
    w.EndObject();
  }
  w.EndArray();
}

std::string stateText(const Home& home, const Subscriptions& subs) {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  w.Key("devices");
  w.StartArray();
  for (const auto& d : home.devices)
    writeDeviceState(w, d);
  w.EndArray();
  writeClients(w, subs);
  w.EndObject();
  return std::string(buf.GetString()) + "\n";
}

bool applyState(const std::string& text, Home* home, Subscriptions* subs,
                std::vector<std::string>* problems) {
  rapidjson::Document doc;
  std::string err;
  if (!parse(text, &doc, &err)) {
    problems->push_back(err);
    return false;
  }
  if (!doc.IsObject()) {
    problems->push_back("the top level must be an object");
    return false;
  }
  const size_t before = problems->size();
  Home h = *home;
  Subscriptions s(subs->maxPerClient(), subs->maxClients());
  if (const Value* devices = arrayMember(doc, "devices", problems))
    for (SizeType i = 0; i < devices->Size(); ++i)
      readDevice((*devices)[i], "devices[" + std::to_string(i) + "]", &h, problems);
  if (const Value* clients = arrayMember(doc, "clients", problems))
    for (SizeType i = 0; i < clients->Size(); ++i)
      readClient((*clients)[i], "clients[" + std::to_string(i) + "]", &s, problems);
  if (problems->size() != before)
    return false;
  *home = std::move(h);
  *subs = std::move(s);
  return true;
}

bool writeAtomically(const std::string& path, const std::string& text, std::string* err) {
  const std::string temp = path + ".tmp";
  FILE* f = fopen(temp.c_str(), "w");
  if (f == nullptr) {
    *err = "open " + temp + ": " + strerror(errno);
    return false;
  }
  bool ok = fwrite(text.data(), 1, text.size(), f) == text.size() && fflush(f) == 0;
  int error = errno;
  if (fclose(f) != 0 && ok) {
    ok = false;
    error = errno;
  }
  if (ok && rename(temp.c_str(), path.c_str()) != 0) {
    *err = "rename " + temp + " to " + path + ": " + strerror(errno);
    unlink(temp.c_str());
    return false;
  }
  if (!ok) {
    *err = "write " + temp + ": " + strerror(error);
    unlink(temp.c_str());
  }
  return ok;
}

}  // namespace ornsim
