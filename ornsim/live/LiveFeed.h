// SPDX-License-Identifier: Apache-2.0
// LiveFeed: what the live page shows, kept as the simulation tells it (the
// traffic lines and events sent, the last kLines of each) and read from it
// (devices, groups, clients, faults), written as the JSON updates viewers get.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Faults.h"
#include "Home.h"
#include "JsonText.h"
#include "Observer.h"
#include "Subscriptions.h"

namespace ornsim {

class LiveFeed : public Observer {
 public:
  // Traffic lines and events kept, each.
  static constexpr size_t kLines = 300;
  // Of each, in one update after a viewer's first.
  static constexpr size_t kLinesPerUpdate = 40;

  // Where the state is read; `changed` is called after anything the page shows
  // may have changed.
  struct Source {
    const Home& home;
    const Subscriptions& subscriptions;
    std::function<const std::vector<Fault>&()> faults;
    std::function<std::vector<std::string>()> clients;  // one name per connection
  };

  // What one viewer has been sent.
  struct Cursor {
    uint64_t state = 0;  // the state version
    uint64_t traffic = 0;
    uint64_t events = 0;
  };

  LiveFeed(Source source, std::function<void()> changed);

  // Reads the state again; call once before the updates of a round.
  void refresh();
  // The JSON update that brings the viewer at *cursor up to date, or "" when it
  // is; moves *cursor on.
  std::string update(Cursor* cursor);

  // Observer
  void served(const std::string& client, int type, const std::string& payload,
              const Simulation::Outcome& outcome, int events) override;
  void sent(const std::string& to, int type, const std::string& payload, int sessions) override;
  void clientsChanged() override;

 private:
  // A served request, kept as it came; its line is written only if a viewer
  // is sent it, so a busy simulator pays for a copy, not a parse, per request.
  struct Traffic {
    std::chrono::system_clock::time_point at;
    std::string client;
    int type = 0;
    std::string payload;
    Simulation::Outcome outcome;
    int events = 0;
    std::string line;  // written on first use
    std::string keys;  // the client and the ids named, for the page's filter
  };

  void writeTraffic(JsonWriter& w, Traffic& t);
  std::string stateJson() const;

  Source source_;
  std::function<void()> changed_;
  std::string state_;
  uint64_t stateVersion_ = 0;
  std::vector<Traffic> traffic_;     // a ring of kLines; entry n at n % kLines
  std::vector<std::string> events_;  // likewise
  uint64_t trafficCount_ = 0;        // ever served
  uint64_t eventCount_ = 0;
};

}  // namespace ornsim
