// Server: ornsim's listening socket and client sessions, on one Asio event
// loop.
#pragma once

#include <asio.hpp>
#include <cstdio>
#include <memory>
#include <set>
#include <string>

#include "Home.h"
#include "Options.h"
#include "Simulation.h"
#include "Subscriptions.h"

namespace ornsim {

class Server {
 public:
  Server(asio::io_context& io, const Options& options, Home home);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Opens the record file, binds an owner-only socket at `path` and starts
  // accepting. Returns false and sets *err when any of that fails.
  bool start(const std::string& path, std::string* err);

  // Stops accepting, drops every client and removes the socket file.
  void shutdown();

 private:
  class Session;
  friend class Session;

  void accept();
  void record(const std::string& line);
  // Sends a state-change event to every session whose client subscribed to it;
  // returns how many got it.
  int publish(const StateChange& change);
  // Sends an event to the registered sessions of `client` (all when empty).
  int sendEvent(const std::string& client, int type, const std::string& payload);

  asio::io_context& io_;
  const Options& options_;
  Home home_;
  Subscriptions subscriptions_;
  Simulation simulation_;
  asio::local::stream_protocol::acceptor acceptor_;
  asio::steady_timer acceptRetry_;
  std::string path_;
  FILE* record_ = nullptr;
  std::set<std::shared_ptr<Session>> sessions_;
};

}  // namespace ornsim
