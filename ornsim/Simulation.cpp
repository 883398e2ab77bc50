// SPDX-License-Identifier: Apache-2.0
// Simulation: faults, the request handler, the saved state and the traffic log,
// in the order a request meets them.
#include "Simulation.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "RequestHandler.h"
#include "StateFile.h"

namespace ornsim {
namespace {

// Reads a whole file; false and *missing when it does not exist, false and
// *err for other failures.
bool readFile(const std::string& path, std::string* text, bool* missing, std::string* err) {
  FILE* f = fopen(path.c_str(), "rb");
  *missing = f == nullptr && errno == ENOENT;
  if (f == nullptr) {
    *err = "open " + path + ": " + strerror(errno);
    return false;
  }
  char buf[65536];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0)
    text->append(buf, n);
  const bool ok = !ferror(f);
  fclose(f);
  if (!ok)
    *err = "read " + path + ": " + strerror(EIO);
  return ok;
}

// Outside text on one log line: control characters would break it.
std::string printable(std::string s) {
  for (char& c : s)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
      c = '?';
  return s;
}

std::string now() {
  const auto t = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(t);
  const auto ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(t.time_since_epoch()).count() % 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[40];
  const size_t n = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
  snprintf(text + n, sizeof text - n, ".%03d", static_cast<int>(ms));
  return text;
}

}  // namespace

Simulation::Simulation(const Options& options, Home& home, Subscriptions& subscriptions,
                       EventSender sendEvent)
    : options_(options), home_(home), subscriptions_(subscriptions), control_(subscriptions) {
  control_.faults = options.faults;
  control_.sendEvent = [this, send = std::move(sendEvent)](const std::string& client, int type,
                                                           const std::string& payload) {
    const int n = send ? send(client, type, payload) : 0;
    eventsSent_ += n;
    return n;
  };
}

bool Simulation::start(std::string* err) {
  const std::string& path = options_.stateFile;
  if (path.empty())
    return true;
  std::string text;
  bool missing = false;
  if (!readFile(path, &text, &missing, err) && !missing)
    return false;
  std::vector<std::string> problems;
  if (!missing && !applyState(text, &home_, &subscriptions_, &problems)) {
    *err = path + ": " + problems[0];
    for (size_t i = 1; i < problems.size(); ++i)
      *err += "; " + problems[i];
    return false;
  }
  saved_ = stateText(home_, subscriptions_);
  return writeAtomically(path, saved_, err);
}

Simulation::Outcome Simulation::serve(const std::string& client, int type,
                                      const std::string& payload) {
  Outcome out;
  out.number = ++control_.requests;
  const bool faulty = options_.respond || options_.noResponse || options_.responseDelayMs > 0 ||
                      !control_.faults.empty();
  if (options_.verbose || faulty)
    out.info = describeRequest(type, payload);
  // The /sim/ paths stay in reach whatever faults are set.
  if (faulty && !out.info.control) {
    const Fault* f = matchFault(control_.faults, out.number, out.info, home_);
    const Fault::Action action = f != nullptr ? f->action : Fault::Action::kDelay;
    out.fault = f != nullptr || options_.respond || options_.noResponse;
    out.delayMs =
        f != nullptr && action == Fault::Action::kDelay ? f->delayMs : options_.responseDelayMs;
    if (action == Fault::Action::kSilence ||
        (action != Fault::Action::kRespond && options_.noResponse)) {
      out.answer = false;
      return out;
    }
    if (action == Fault::Action::kRespond || options_.respond) {
      out.code = action == Fault::Action::kRespond ? f->code : options_.respondCode;
      out.data = action == Fault::Action::kRespond ? f->data : options_.respondData;
      return out;
    }
  }
  eventsSent_ = 0;
  HandlerResult r = handleRequest(home_, subscriptions_, client, type, payload, &control_);
  out.code = r.code;
  out.data = std::move(r.data);
  out.changes = std::move(r.changes);
  out.eventsSent = eventsSent_;
  if (!options_.stateFile.empty())
    save();
  return out;
}

void Simulation::log(const std::string& client, int type, const Outcome& out, int events) const {
  if (!options_.verbose)
    return;
  std::string answer = out.answer ? std::to_string(out.code) : "no answer";
  if (out.answer && out.delayMs > 0)
    answer += " after " + std::to_string(out.delayMs) + " ms";
  if (out.fault)
    answer += " (fault)";
  fprintf(stderr, "%s #%ld \"%s\" type %d %s -> %s, events %d\n", now().c_str(), out.number,
          printable(client).c_str(), type, printable(out.info.what).c_str(), answer.c_str(),
          events);
}

void Simulation::save() {
  std::string text = stateText(home_, subscriptions_);
  if (text == saved_)
    return;
  std::string err;
  if (!writeAtomically(options_.stateFile, text, &err)) {
    fprintf(stderr, "ornsim: %s\n", err.c_str());
    return;
  }
  saved_ = std::move(text);
}

}  // namespace ornsim
