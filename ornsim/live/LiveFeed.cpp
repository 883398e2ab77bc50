// SPDX-License-Identifier: Apache-2.0
// LiveFeed: the live page's updates.
#include "LiveFeed.h"

#include <algorithm>

#include "Control.h"
#include "Directives.h"
#include "JsonText.h"
#include "RequestInfo.h"

namespace ornsim {
namespace {

void writeDevice(JsonWriter& w, const Device& d) {
  w.StartObject();
  writeMember(w, "id", d.id);
  writeMember(w, "endpointId", d.endpointId);
  writeMember(w, "friendlyName", d.friendlyName);
  w.Key("reachable");
  w.Bool(d.reachable);
  w.Key("interfaces");
  w.StartArray();
  for (const auto& i : d.interfaces)
    writeString(w, i);
  w.EndArray();
  w.Key("power");
  w.Bool(d.state.power);
  w.Key("brightness");
  w.Int(d.state.brightness);
  w.Key("color");
  writeColor(w, d.state.color);
  w.Key("colorTemperatureInKelvin");
  w.Int(d.state.colorTemperatureInKelvin);
  w.EndObject();
}

// Names with their connection count; subscriptions outlive connections, so
// a name with subscriptions and no connection is listed too.
void writeClientList(JsonWriter& w, const std::vector<std::string>& connected,
                     const Subscriptions& subs) {
  std::map<std::string, int> names;
  for (const auto& n : connected)
    ++names[n];
  for (const auto& entry : subs.all())
    names.emplace(entry.first, 0);
  w.StartArray();
  for (const auto& [name, connections] : names) {
    w.StartObject();
    writeMember(w, "name", name);
    w.Key("connections");
    w.Int(connections);
    w.Key("subscriptions");
    w.StartArray();
    for (const auto& s : subs.of(name)) {
      std::string text = s.id + " " + (s.groupId.empty() ? s.endpointId : "group " + s.groupId);
      for (const auto& e : s.eventTypes)
        text += " " + e.nameSpace + ":" + e.name;
      writeString(w, text);
    }
    w.EndArray();
    w.EndObject();
  }
  w.EndArray();
}

}  // namespace

LiveFeed::LiveFeed(Source source, std::function<void()> changed)
    : source_(std::move(source)), changed_(std::move(changed)) {
  traffic_.resize(kLines);
  events_.resize(kLines);
}

void LiveFeed::served(const std::string& client, int type, const std::string& payload,
                      const Simulation::Outcome& outcome, int events) {
  Traffic& t = traffic_[trafficCount_++ % kLines];
  t.at = std::chrono::system_clock::now();
  // Assigned into the slot's strings, which keep their capacity.
  t.client = client;
  t.type = type;
  t.payload = payload;
  t.outcome.number = outcome.number;
  t.outcome.answer = outcome.answer;
  t.outcome.fault = outcome.fault;
  t.outcome.code = outcome.code;
  t.outcome.delayMs = outcome.delayMs;
  t.events = events;
  t.line.clear();
  changed_();
}

void LiveFeed::sent(const std::string& to, int type, const std::string& payload, int sessions) {
  std::string line = logTime(std::chrono::system_clock::now()) + " event " + std::to_string(type) +
                     " to " + (to.empty() ? "every client" : to) + " (" + std::to_string(sessions) +
                     (sessions == 1 ? " connection): " : " connections): ") + payload;
  events_[eventCount_++ % kLines] = std::move(line);
  changed_();
}

void LiveFeed::clientsChanged() {
  changed_();
}

void LiveFeed::writeTraffic(JsonWriter& w, Traffic& t) {
  if (t.line.empty()) {
    const RequestInfo info = describeRequest(t.type, t.payload);
    t.line = trafficLine(t.at, t.client, t.type, info.what, t.outcome, t.events);
    t.keys = "\"" + t.client + "\"";
    for (const auto& id : info.endpoints)
      t.keys += " " + id;
    for (const auto& id : info.entries)
      t.keys += " " + id;
    for (const auto& id : info.groups)
      t.keys += " " + id;
  }
  w.StartObject();
  writeMember(w, "line", t.line);
  writeMember(w, "keys", t.keys);
  w.EndObject();
}

void LiveFeed::refresh() {
  std::string state = stateJson();
  if (state != state_) {
    state_ = std::move(state);
    ++stateVersion_;
  }
}

std::string LiveFeed::update(Cursor* c) {
  const bool state = c->state != stateVersion_;
  // A new viewer gets all that is kept; later updates at most kLinesPerUpdate
  // of each, the newest, and the count of those passed over. Under a flood
  // nobody reads them all, and writing them is what would cost the simulator.
  const bool fresh = c->state == 0;
  const uint64_t cap = fresh ? kLines : kLinesPerUpdate;
  const uint64_t firstTraffic = std::max(c->traffic, trafficCount_ - std::min(trafficCount_, cap));
  const uint64_t firstEvent = std::max(c->events, eventCount_ - std::min(eventCount_, cap));
  if (!state && firstTraffic == trafficCount_ && firstEvent == eventCount_)
    return "";
  std::string out = "{";
  if (state)
    out += "\"state\":" + state_ + ",";
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  w.Key("traffic");
  w.StartArray();
  for (uint64_t n = firstTraffic; n < trafficCount_; ++n)
    writeTraffic(w, traffic_[n % kLines]);
  w.EndArray();
  w.Key("trafficSkipped");
  w.Uint64(fresh ? 0 : firstTraffic - c->traffic);
  w.Key("events");
  w.StartArray();
  for (uint64_t n = firstEvent; n < eventCount_; ++n)
    writeString(w, events_[n % kLines]);
  w.EndArray();
  w.Key("eventsSkipped");
  w.Uint64(fresh ? 0 : firstEvent - c->events);
  w.EndObject();
  out += buf.GetString() + 1;  // without its "{"
  *c = {stateVersion_, trafficCount_, eventCount_};
  return out;
}

std::string LiveFeed::stateJson() const {
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  w.Key("devices");
  w.StartArray();
  for (const auto& d : source_.home.devices)
    writeDevice(w, d);
  w.EndArray();
  w.Key("groups");
  writeGroups(w, source_.home.groups);
  w.Key("clients");
  writeClientList(w, source_.clients(), source_.subscriptions);
  w.Key("faults");
  w.StartArray();
  for (const auto& f : source_.faults())
    writeString(w, faultText(f));
  w.EndArray();
  w.EndObject();
  return buf.GetString();
}

}  // namespace ornsim
