// SPDX-License-Identifier: Apache-2.0
// Home: lookups, the built-in home and home-file validation.
#include "Home.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include "BoundedParse.h"

namespace ornsim {
namespace {

using rapidjson::Value;

const Value* member(const Value& obj, const char* key) {
  auto it = obj.FindMember(key);
  return it == obj.MemberEnd() ? nullptr : &it->value;
}

// Collects problems with one object, each prefixed by where it is
// ("devices[2].state").
class Checker {
 public:
  Checker(std::vector<std::string>* problems, std::string where)
      : problems_(problems), where_(std::move(where)) {}

  void fail(const std::string& what) { problems_->push_back(where_ + ": " + what); }

  bool string(const Value& obj, const char* key, std::string* out, bool required) {
    const Value* v = member(obj, key);
    if (v == nullptr) {
      if (required)
        fail(std::string("missing \"") + key + "\"");
      return false;
    }
    if (!v->IsString()) {
      fail(std::string("\"") + key + "\" must be a string");
      return false;
    }
    out->assign(v->GetString(), v->GetStringLength());
    if (!cleanText(*out)) {
      fail(std::string("\"") + key + "\" must be UTF-8 text without control characters");
      return false;
    }
    return true;
  }

  void number(const Value& obj, const char* key, double lo, double hi, double* out) {
    const Value* v = member(obj, key);
    if (v == nullptr)
      return;
    if (!v->IsNumber() || v->GetDouble() < lo || v->GetDouble() > hi) {
      fail(std::string("\"") + key + "\" must be a number from " + fmt(lo) + " to " + fmt(hi));
      return;
    }
    *out = v->GetDouble();
  }

  void integer(const Value& obj, const char* key, int lo, int hi, int* out) {
    double d = *out;
    number(obj, key, lo, hi, &d);
    *out = static_cast<int>(d);
  }

  // A misspelt key would otherwise be ignored without a word.
  void onlyKeys(const Value& obj, std::initializer_list<const char*> known) {
    for (const auto& m : obj.GetObject()) {
      const std::string key(m.name.GetString(), m.name.GetStringLength());
      if (std::none_of(known.begin(), known.end(), [&](const char* k) { return key == k; }))
        fail("unknown key \"" + key + "\"");
    }
  }

 private:
  static std::string fmt(double d) {
    std::ostringstream s;
    s << d;
    return s.str();
  }
  std::vector<std::string>* problems_;
  std::string where_;
};

// The length of the UTF-8 character at s[i] and its code point in *cp; 0 when
// the bytes there are not one (overlong, a surrogate, past U+10FFFF, cut short).
size_t utf8Char(const std::string& s, size_t i, uint32_t* cp) {
  const auto b = [&](size_t k) { return static_cast<unsigned char>(s[i + k]); };
  const unsigned char lead = b(0);
  const size_t n = lead < 0x80                    ? 1
                   : lead >= 0xc2 && lead <= 0xdf ? 2
                   : lead >= 0xe0 && lead <= 0xef ? 3
                   : lead >= 0xf0 && lead <= 0xf4 ? 4
                                                  : 0;
  if (n == 0 || i + n > s.size())
    return 0;
  *cp = n == 1 ? lead : lead & (0xff >> (n + 1));
  for (size_t k = 1; k < n; ++k) {
    if ((b(k) & 0xc0) != 0x80)
      return 0;
    *cp = (*cp << 6) | (b(k) & 0x3f);
  }
  static const uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  if (*cp < kLeast[n] || *cp > 0x10ffff || (*cp >= 0xd800 && *cp <= 0xdfff))
    return 0;
  return n;
}

bool isControl(uint32_t cp) {
  return cp < 0x20 || (cp >= 0x7f && cp <= 0x9f);
}

const char* const kInterfaces[] = {kPowerController, kBrightnessController, kColorController,
                                   kColorTemperatureController};

}  // namespace

bool cleanText(const std::string& s) {
  uint32_t cp = 0;
  for (size_t i = 0, n = 0; i < s.size(); i += n)
    if ((n = utf8Char(s, i, &cp)) == 0 || isControl(cp))
      return false;
  return true;
}

std::string printableText(const std::string& s) {
  std::string out;
  out.reserve(s.size());
  uint32_t cp = 0;
  for (size_t i = 0, n = 0; i < s.size(); i += n) {
    n = utf8Char(s, i, &cp);
    if (n == 0 || isControl(cp)) {
      out += '?';
      n = n == 0 ? 1 : n;
    } else {
      out.append(s, i, n);
    }
  }
  return out;
}

void parseDeviceState(const Value& v, const std::string& where, DeviceState* state,
                      std::vector<std::string>* problems) {
  Checker c(problems, where);
  if (!v.IsObject()) {
    c.fail("must be an object");
    return;
  }
  c.onlyKeys(v, {"power", "brightness", "color", "colorTemperatureInKelvin"});
  if (const Value* power = member(v, "power")) {
    if (power->IsBool())
      state->power = power->GetBool();
    else
      c.fail("\"power\" must be true or false");
  }
  c.integer(v, "brightness", 0, 100, &state->brightness);
  c.integer(v, "colorTemperatureInKelvin", 1000, 10000, &state->colorTemperatureInKelvin);
  if (const Value* color = member(v, "color")) {
    Checker cc(problems, where + ".color");
    if (!color->IsObject()) {
      cc.fail("must be an object");
      return;
    }
    cc.onlyKeys(*color, {"hue", "saturation", "brightness"});
    cc.number(*color, "hue", 0, 360, &state->color.hue);
    cc.number(*color, "saturation", 0, 1, &state->color.saturation);
    cc.number(*color, "brightness", 0, 1, &state->color.brightness);
  }
}

void parseDevice(const Value& v, const std::string& where, Device* d,
                 std::vector<std::string>* problems) {
  Checker c(problems, where);
  if (!v.IsObject()) {
    c.fail("must be an object");
    return;
  }
  c.string(v, "id", &d->id, true);
  c.string(v, "externallyReportedId", &d->endpointId, false);
  c.string(v, "friendlyName", &d->friendlyName, false);
  if (const Value* r = member(v, "reachable")) {
    if (r->IsBool())
      d->reachable = r->GetBool();
    else
      c.fail("\"reachable\" must be true or false");
  }
  if (const Value* ifs = member(v, "interfaces")) {
    if (!ifs->IsArray()) {
      c.fail("\"interfaces\" must be an array of strings");
    } else {
      for (rapidjson::SizeType i = 0; i < ifs->Size(); ++i) {
        const Value& name = (*ifs)[i];
        if (!name.IsString()) {
          c.fail("\"interfaces\" must be an array of strings");
          continue;
        }
        d->interfaces.emplace_back(name.GetString(), name.GetStringLength());
        if (std::find(std::begin(kInterfaces), std::end(kInterfaces), d->interfaces.back()) ==
            std::end(kInterfaces))
          problems->push_back(where + ".interfaces[" + std::to_string(i) +
                              "]: unknown interface \"" + d->interfaces.back() + "\"");
      }
    }
  }
  if (const Value* s = member(v, "state"))
    parseDeviceState(*s, where + ".state", &d->state, problems);
}

bool Device::offers(const std::string& nameSpace) const {
  return std::find(interfaces.begin(), interfaces.end(), nameSpace) != interfaces.end();
}

const Device* Home::findDevice(const std::string& id) const {
  if (id.empty())
    return nullptr;
  auto it = deviceAt_.find(id);
  return it == deviceAt_.end() ? nullptr : &devices[it->second];
}

Device* Home::findDevice(const std::string& id) {
  return const_cast<Device*>(static_cast<const Home*>(this)->findDevice(id));
}

const Group* Home::findGroup(const std::string& id) const {
  auto it = groupAt_.find(id);
  return it == groupAt_.end() ? nullptr : &groups[it->second];
}

const std::vector<size_t>& Home::groupsOf(const Device& device) const {
  static const std::vector<size_t> kNone;
  const size_t i = static_cast<size_t>(&device - devices.data());
  return i < groupsOf_.size() ? groupsOf_[i] : kNone;
}

void Home::reindex() {
  ++edits;
  deviceAt_.clear();
  groupAt_.clear();
  groupsOf_.assign(devices.size(), {});
  deviceAt_.reserve(2 * devices.size());
  // The first holder of an id wins, as the linear search it replaces did.
  for (size_t i = 0; i < devices.size(); ++i)
    for (const std::string* id : {&devices[i].id, &devices[i].endpointId})
      if (!id->empty())
        deviceAt_.emplace(*id, i);
  for (size_t g = 0; g < groups.size(); ++g) {
    groupAt_.emplace(groups[g].id, g);
    for (const auto& member : groups[g].members)
      if (auto it = deviceAt_.find(member); it != deviceAt_.end()) {
        auto& held = groupsOf_[it->second];
        if (held.empty() || held.back() != g)
          held.push_back(g);
      }
  }
}

bool parseHome(const std::string& text, Home* home, std::vector<std::string>* problems) {
  const size_t before = problems->size();
  rapidjson::Document doc;
  const rapidjson::ParseResult parsed =
      zedLocalUtil::jsonUtil::boundedParse(&doc, text.data(), text.size());
  if (parsed.IsError()) {
    problems->push_back(std::string("not valid JSON: ") +
                        zedLocalUtil::jsonUtil::parseErrorText(parsed.Code()) + " at offset " +
                        std::to_string(parsed.Offset()));
    return false;
  }
  if (!doc.IsObject()) {
    problems->push_back("the top level must be an object");
    return false;
  }
  Home h;
  const Value* devices = member(doc, "devices");
  if (devices == nullptr || !devices->IsArray()) {
    problems->push_back("\"devices\" must be an array");
  } else {
    for (rapidjson::SizeType i = 0; i < devices->Size(); ++i) {
      Device d;
      parseDevice((*devices)[i], "devices[" + std::to_string(i) + "]", &d, problems);
      h.devices.push_back(std::move(d));
    }
  }
  h.reindex();
  std::set<std::string> ids;
  for (size_t i = 0; i < h.devices.size(); ++i) {
    for (const std::string* id : {&h.devices[i].id, &h.devices[i].endpointId}) {
      if (!id->empty() && !ids.insert(*id).second)
        problems->push_back("devices[" + std::to_string(i) + "]: id \"" + *id + "\" is used twice");
    }
  }
  if (const Value* groups = member(doc, "groups")) {
    if (!groups->IsArray()) {
      problems->push_back("\"groups\" must be an array");
    } else {
      for (rapidjson::SizeType i = 0; i < groups->Size(); ++i) {
        Checker c(problems, "groups[" + std::to_string(i) + "]");
        const Value& g = (*groups)[i];
        Group group;
        if (!g.IsObject()) {
          c.fail("must be an object");
          continue;
        }
        c.string(g, "id", &group.id, true);
        const Value* members = member(g, "members");
        if (members == nullptr || !members->IsArray()) {
          c.fail("\"members\" must be an array of device ids");
        } else {
          for (const auto& m : members->GetArray()) {
            if (!m.IsString()) {
              c.fail("\"members\" must be an array of device ids");
              continue;
            }
            group.members.emplace_back(m.GetString(), m.GetStringLength());
            if (!cleanText(group.members.back()))
              c.fail("a member must be UTF-8 text without control characters");
            else if (h.findDevice(group.members.back()) == nullptr)
              c.fail("member \"" + group.members.back() + "\" is not a device");
          }
        }
        h.groups.push_back(std::move(group));
      }
    }
  }
  if (problems->size() != before)
    return false;
  h.reindex();
  *home = std::move(h);
  return true;
}

bool loadHome(const std::string& path, Home* home, std::vector<std::string>* problems) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    problems->push_back("cannot read " + path);
    return false;
  }
  std::ostringstream text;
  text << in.rdbuf();
  return parseHome(text.str(), home, problems);
}

Home builtinHome() {
  Home h;
  auto add = [&h](const char* id, const char* endpoint, const char* name, bool reachable,
                  std::vector<std::string> interfaces, DeviceState state) {
    Device d;
    d.id = id;
    d.endpointId = endpoint;
    d.friendlyName = name;
    d.reachable = reachable;
    d.interfaces = std::move(interfaces);
    d.state = state;
    h.devices.push_back(std::move(d));
  };
  add("light-kitchen", "ep-kitchen", "Kitchen Light", true,
      {kPowerController, kBrightnessController, kColorController, kColorTemperatureController},
      {true, 80, {30, 0.5, 0.8}, 2700});
  add("light-living", "ep-living", "Living Room Lamp", true,
      {kPowerController, kBrightnessController, kColorTemperatureController},
      {false, 50, {}, 4000});
  add("light-bedroom", "ep-bedroom", "Bedroom Light", true,
      {kPowerController, kBrightnessController}, {false, 30, {}, 0});
  add("strip-desk", "ep-desk", "Desk Strip", true,
      {kPowerController, kBrightnessController, kColorController}, {true, 100, {240, 1, 1}, 0});
  add("plug-kettle", "ep-kettle", "Kettle Plug", true, {kPowerController}, {false, 0, {}, 0});
  add("light-garage", "ep-garage", "Garage Light", false, {kPowerController, kBrightnessController},
      {false, 0, {}, 0});
  h.groups.push_back({"group-downstairs", {"light-kitchen", "light-living", "plug-kettle"}});
  h.groups.push_back(
      {"group-lights",
       {"light-kitchen", "light-living", "light-bedroom", "strip-desk", "light-garage"}});
  h.reindex();
  return h;
}

}  // namespace ornsim
