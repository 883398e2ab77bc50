// SPDX-License-Identifier: Apache-2.0
// Simulation: faults, the request handler, the saved state and the traffic log,
// in the order a request meets them.
#include "Simulation.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "Diagnostics.h"
#include "Observer.h"
#include "RequestHandler.h"
#include "StateFile.h"

namespace ornsim {
namespace {

// Under load, changes share a write of the state file; a crash (not a clean
// stop) loses at most this much.
constexpr std::chrono::milliseconds kSaveEvery{100};

}  // namespace

std::string logTime(std::chrono::system_clock::time_point t) {
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

Simulation::Simulation(const Options& options, Home& home, Subscriptions& subscriptions,
                       EventSender sendEvent, Timer timer)
    : options_(options),
      home_(home),
      subscriptions_(subscriptions),
      control_(subscriptions),
      timer_(std::move(timer)) {
  for (const auto& f : options.faults)
    addFault(control_, f);
  control_.sendEvent = [this, send = std::move(sendEvent)](const std::string& client, int type,
                                                           const std::string& payload) {
    const int n = send ? send(client, type, payload) : 0;
    eventsSent_ += n;
    return n;
  };
}

Simulation::~Simulation() {
  if (stateLock_ >= 0)
    close(stateLock_);
}

bool Simulation::start(std::string* err) {
  const std::string& path = options_.stateFile;
  if (path.empty())
    return true;
  // Two ornsim writing one file would each overwrite the other's changes.
  stateLock_ = lockStateFile(path, err);
  if (stateLock_ < 0)
    return false;
  std::string text;
  bool missing = false;
  if (!readStateFile(path, &text, &missing, err) && !missing)
    return false;
  std::vector<std::string> problems;
  if (!missing && !applyState(text, &home_, &subscriptions_, &problems, &kept_)) {
    *err = path + ": " + problems[0];
    for (size_t i = 1; i < problems.size(); ++i)
      *err += "; " + problems[i];
    return false;
  }
  if (!kept_.empty())
    fprintf(stderr,
            "ornsim: %s: keeping %zu saved devices this home does not hold; they stay in the "
            "file for the home they were saved with\n",
            path.c_str(), kept_.size());
  homeEdits_ = home_.edits;
  subscriptionEdits_ = subscriptions_.edits();
  saved_ = stateText(home_, subscriptions_, kept_);
  lastSave_ = std::chrono::steady_clock::now();
  return writeAtomically(path, saved_, err);
}

void Simulation::flush() {
  saveWaiting_ = false;
  ++saveRound_;
  if (unsaved_)
    save();
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
  if (faulty && !out.info.control && standIn(&out))
    return out;
  eventsSent_ = 0;
  HandlerResult r = handleRequest(home_, subscriptions_, client, type, payload, &control_);
  out.code = r.code;
  out.data = std::move(r.data);
  out.changes = std::move(r.changes);
  out.eventsSent = eventsSent_;
  // Reads change nothing and write nothing.
  if (!out.changes.empty() || home_.edits != homeEdits_ ||
      subscriptions_.edits() != subscriptionEdits_) {
    homeEdits_ = home_.edits;
    subscriptionEdits_ = subscriptions_.edits();
    unsaved_ = !options_.stateFile.empty();
  }
  if (unsaved_)
    saveSoon();
  return out;
}

bool Simulation::standIn(Outcome* out) const {
  out->delayMs = options_.responseDelayMs;
  // A targeted fault first: it may answer instead of the service, or only
  // change the delay.
  if (const Fault* f = control_.faults.forRequest(out->number, out->info, home_)) {
    out->fault = true;
    switch (f->action) {
      case Fault::Action::kSilence:
        out->answer = false;
        return true;
      case Fault::Action::kRespond:
        out->code = f->code;
        out->data = f->data;
        return true;
      case Fault::Action::kDelay:
        out->delayMs = f->delayMs;
        break;
    }
  }
  // Then the options that act on every request no fault answered.
  if (options_.noResponse) {
    out->fault = true;
    out->answer = false;
    return true;
  }
  if (options_.respond) {
    out->fault = true;
    out->code = options_.respondCode;
    out->data = options_.respondData;
    return true;
  }
  return false;
}

void Simulation::log(const std::string& client, int type, const std::string& payload,
                     const Outcome& out, int events) const {
  if (observer_ != nullptr)
    observer_->served(client, type, payload, out, events);
  if (!options_.verbose)
    return;
  diag("%s\n",
       trafficLine(std::chrono::system_clock::now(), client, type, out.info.what, out, events)
           .c_str());
}

std::string trafficLine(std::chrono::system_clock::time_point at, const std::string& client,
                        int type, const std::string& what, const Simulation::Outcome& out,
                        int events) {
  std::string answer = out.answer ? std::to_string(out.code) : "no answer";
  if (out.answer && out.delayMs > 0)
    answer += " after " + std::to_string(out.delayMs) + " ms";
  if (out.fault)
    answer += " (fault)";
  return logTime(at) + " #" + std::to_string(out.number) + " \"" + printableText(client) +
         "\" type " + std::to_string(type) + " " + printableText(what) + " -> " + answer +
         ", events " + std::to_string(events);
}

void Simulation::saveSoon() {
  if (saveWaiting_)
    return;
  const auto due = lastSave_ + kSaveEvery;
  if (!timer_ || std::chrono::steady_clock::now() >= due) {
    save();
    return;
  }
  saveWaiting_ = true;
  timer_(due, [this, round = ++saveRound_] {
    if (!saveWaiting_ || round != saveRound_)
      return;
    saveWaiting_ = false;
    save();
  });
}

void Simulation::save() {
  unsaved_ = false;
  lastSave_ = std::chrono::steady_clock::now();
  std::string text = stateText(home_, subscriptions_, kept_);
  if (text == saved_)
    return;
  std::string err;
  if (!writeAtomically(options_.stateFile, text, &err)) {
    // Tried again with the next change, or at the stop.
    diag("ornsim: %s\n", err.c_str());
    unsaved_ = true;
    return;
  }
  saved_ = std::move(text);
}

}  // namespace ornsim
