// SPDX-License-Identifier: Apache-2.0
// Server: ornsim's listening socket and client sessions, on one Asio event
// loop; what each client message means (registration, requests, events).
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <asio.hpp>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "ByteBudget.h"
#include "Home.h"
#include "Message.h"
#include "Observer.h"
#include "Options.h"
#include "Session.h"
#include "Simulation.h"
#include "Subscriptions.h"

namespace ornsim {

class Server {
 public:
  Server(asio::io_context& io, const Options& options, Home home);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Opens the record file, takes the lock file `path`.lock, binds an owner-only
  // socket at `path` and starts accepting. Returns false and sets *err when any
  // of that fails (another ornsim holding the lock included).
  bool start(const std::string& path, std::string* err);

  // Stops accepting, drops every client and removes the socket and lock files,
  // each only while it is still the one this server made.
  void shutdown();

  // Serves a request of `client` as if it came on a connection: recorded,
  // served, its state changes published and logged. For the live view.
  Simulation::Outcome serve(const std::string& client, const ornwick::qipc::Message& m);

  // What the live view shows.
  void setObserver(Observer* observer) { simulation_.setObserver(observer); }
  const Home& home() const { return home_; }
  const Subscriptions& subscriptions() const { return subscriptions_; }
  const std::vector<Fault>& faults() const { return simulation_.faults(); }
  // The names of the registered connections, one per connection.
  std::vector<std::string> clients() const;

 private:
  // Session::Owner
  bool handle(Session& session, ornwick::qipc::Message& m);
  void closed(Session& session);
  void registered(Session& session, const ornwick::qipc::Message& m);
  void request(Session& session, const ornwick::qipc::Message& m);

  bool lock(const std::string& path, std::string* err);
  void accept();
  // At the connection limit: closes the oldest stalled session (unregistered,
  // mid-frame or not reading); false when every session is serving well.
  bool makeRoom();
  // After a failed accept: a log line (at most one a minute), then a retry after
  // a growing pause or as soon as a connection closes.
  void retryAcceptLater(const asio::error_code& ec);
  // Tells the observer that the connected clients changed.
  void clientsChanged();
  void record(const std::string& line);
  // Sends a state-change event to every session whose client subscribed to it;
  // returns how many queued it.
  int publish(const StateChange& change);
  // Sends an event to the registered sessions of `client` (all when empty).
  int sendEvent(const std::string& client, int type, const std::string& payload);
  // Sends m to the registered sessions whose client is wanted; returns how many
  // queued it (a client cut off for it does not count).
  int sendToClients(const ornwick::qipc::Message& m,
                    const std::function<bool(const std::string& client)>& wanted);

  asio::io_context& io_;
  const Options& options_;
  Home home_;
  Subscriptions subscriptions_;
  Simulation simulation_;
  asio::local::stream_protocol::acceptor acceptor_;
  asio::steady_timer acceptRetry_;
  std::chrono::milliseconds acceptPause_;
  std::optional<std::chrono::steady_clock::time_point> acceptLogged_;
  bool acceptWaiting_ = false;  // acceptRetry_ holds the next accept
  std::string path_;
  // The socket file bound at path_, at stat's full width: bionic's 32-bit
  // dev_t and ino_t would cut it short on a large filesystem.
  decltype(stat::st_dev) socketDev_ = 0;
  decltype(stat::st_ino) socketIno_ = 0;
  std::string lockPath_;
  int lockFd_ = -1;
  FILE* record_ = nullptr;
  bool recordFailing_ = false;  // said once until a write succeeds again
  ByteBudget partialFrames_;    // frames partly received, all sessions
  ByteBudget unsentFrames_;     // frames queued but not yet written, all sessions
  const Session::Owner sessionOwner_;
  std::set<std::shared_ptr<Session>> sessions_;
  uint64_t accepted_ = 0;  // connections accepted so far, each session's order
};

}  // namespace ornsim
