// SPDX-License-Identifier: Apache-2.0
// LiveView: ornsim --http, the simulated home as a live page. Its HTTP and
// WebSocket server runs on the simulator's own event loop; it watches the
// simulation through the Observer seam and steers it with /sim/ requests
// served as those of any client.
#pragma once

#include <asio.hpp>
#include <memory>
#include <string>

namespace ornsim {

class Server;

class LiveView {
 public:
  // The client name the page's requests are recorded and logged under.
  static constexpr const char* kClientName = "ornsim-live";

  LiveView(asio::io_context& io, Server& server);
  ~LiveView();
  LiveView(const LiveView&) = delete;
  LiveView& operator=(const LiveView&) = delete;

  // Listens on address:port (port 0: any free one) and starts watching.
  // Returns false and sets *err when the address cannot be listened on.
  bool start(const std::string& address, int port, std::string* err);
  // The address to open, token included.
  std::string url() const;
  // Stops listening, closes the viewers and stops watching.
  void stop();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ornsim
