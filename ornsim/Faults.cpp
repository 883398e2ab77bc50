// SPDX-License-Identifier: Apache-2.0
// Faults: reading, writing and matching targeted faults.
#include "Faults.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

namespace ornsim {
namespace {

bool parseLong(const std::string& text, long lo, long hi, long* out) {
  if (text.empty())
    return false;
  errno = 0;
  char* end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || v < lo || v > hi)
    return false;
  *out = v;
  return true;
}

bool parseTarget(const std::string& text, long requestsSoFar, Fault* f) {
  const size_t colon = text.find(':');
  if (colon == std::string::npos || colon + 1 == text.size())
    return false;
  const std::string kind = text.substr(0, colon);
  const std::string value = text.substr(colon + 1);
  if (kind == "path") {
    f->target = Fault::Target::kPath;
    const bool prefix = value.back() == '*';
    f->match = normalPath(prefix ? value.substr(0, value.size() - 1) : value) + (prefix ? "*" : "");
    return true;
  }
  if (kind == "endpoint") {
    f->target = Fault::Target::kEndpoint;
    f->match = value;
    return true;
  }
  long n = 0;
  if ((kind != "request" && kind != "next") || !parseLong(value, 1, LONG_MAX - requestsSoFar, &n))
    return false;
  f->target = Fault::Target::kRequest;
  f->request = kind == "next" ? requestsSoFar + n : n;
  return true;
}

bool parseAction(const std::string& text, Fault* f) {
  if (text == "silence") {
    f->action = Fault::Action::kSilence;
    return true;
  }
  const size_t colon = text.find(':');
  const std::string kind = text.substr(0, colon);
  const std::string rest = colon == std::string::npos ? "" : text.substr(colon + 1);
  long n = 0;
  if (kind == "delay" && parseLong(rest, 0, INT_MAX, &n)) {
    f->action = Fault::Action::kDelay;
    f->delayMs = static_cast<int>(n);
    return true;
  }
  const size_t second = rest.find(':');
  if (kind != "respond" || second == std::string::npos ||
      !parseLong(rest.substr(0, second), INT_MIN, INT_MAX, &n))
    return false;
  f->action = Fault::Action::kRespond;
  f->code = static_cast<int>(n);
  f->data = rest.substr(second + 1);
  return true;
}

// True when `id` names the device `wanted` names, by either of its ids.
bool sameDevice(const Home& home, const std::string& id, const std::string& wanted) {
  if (id == wanted)
    return true;
  const Device* d = home.findDevice(id);
  return d != nullptr && d == home.findDevice(wanted);
}

bool applies(const Fault& f, long n, const RequestInfo& info, const Home& home) {
  switch (f.target) {
    case Fault::Target::kRequest:
      return n == f.request;
    case Fault::Target::kPath:
      return std::any_of(info.paths.begin(), info.paths.end(), [&](const std::string& p) {
        return f.match.back() == '*'
                   ? p.compare(0, f.match.size() - 1, f.match, 0, f.match.size() - 1) == 0
                   : p == f.match;
      });
    case Fault::Target::kEndpoint:
      for (const auto& id : info.endpoints)
        if (sameDevice(home, id, f.match))
          return true;
      for (const auto& groupId : info.groups) {
        if (groupId == f.match)
          return true;
        if (const Group* g = home.findGroup(groupId))
          for (const auto& member : g->members)
            if (sameDevice(home, member, f.match))
              return true;
      }
      return false;
  }
  return false;
}

}  // namespace

bool parseFault(const std::string& text, long requestsSoFar, Fault* fault, std::string* err) {
  const size_t comma = text.find(',');
  Fault f;
  if (comma == std::string::npos || !parseTarget(text.substr(0, comma), requestsSoFar, &f) ||
      !parseAction(text.substr(comma + 1), &f)) {
    *err =
        "a fault is TARGET,ACTION with TARGET path:PATH, endpoint:ID, request:N or next:N "
        "and ACTION respond:CODE:DATA, delay:MS or silence";
    return false;
  }
  *fault = std::move(f);
  return true;
}

std::string faultText(const Fault& f) {
  std::string s = f.target == Fault::Target::kPath       ? "path:" + f.match
                  : f.target == Fault::Target::kEndpoint ? "endpoint:" + f.match
                                                         : "request:" + std::to_string(f.request);
  if (f.action == Fault::Action::kRespond)
    return s + ",respond:" + std::to_string(f.code) + ":" + f.data;
  if (f.action == Fault::Action::kDelay)
    return s + ",delay:" + std::to_string(f.delayMs);
  return s + ",silence";
}

const Fault* matchFault(const std::vector<Fault>& faults, long n, const RequestInfo& info,
                        const Home& home) {
  for (const auto& f : faults)
    if (applies(f, n, info, home))
      return &f;
  return nullptr;
}

}  // namespace ornsim
