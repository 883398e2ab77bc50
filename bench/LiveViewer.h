// SPDX-License-Identifier: Apache-2.0
// LiveViewer: a stand-in for a browser with ornsim's live page open: it holds
// the page's WebSocket and reads every update, on a thread of its own.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

namespace ornbench {

class LiveViewer {
 public:
  // `url` as ornsim prints it: http://HOST:PORT/?token=TOKEN.
  explicit LiveViewer(const std::string& url);
  ~LiveViewer();
  LiveViewer(const LiveViewer&) = delete;
  LiveViewer& operator=(const LiveViewer&) = delete;

  // Whether the updates connection opened (waits for it at most `seconds`).
  bool waitOpen(int seconds);
  long updates() const { return updates_; }

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
  std::atomic<long> updates_{0};
  std::thread thread_;
};

}  // namespace ornbench
