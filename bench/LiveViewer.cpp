// SPDX-License-Identifier: Apache-2.0
// LiveViewer: websocketpp's client on its own Asio loop.
#include "LiveViewer.h"

#include <condition_variable>
#include <mutex>
#include <websocketpp/client.hpp>
#include <websocketpp/config/asio_no_tls_client.hpp>

namespace ornbench {

using Client = websocketpp::client<websocketpp::config::asio_client>;

struct LiveViewer::Impl {
  Client client;
  std::mutex mutex;
  std::condition_variable opened;
  int state = 0;  // 0 connecting, 1 open, -1 failed
  websocketpp::connection_hdl hdl;

  void settle(int s) {
    std::lock_guard<std::mutex> lock(mutex);
    state = s;
    opened.notify_all();
  }
};

LiveViewer::LiveViewer(const std::string& url) : impl_(std::make_unique<Impl>()) {
  Impl& d = *impl_;
  const size_t hostAt = url.find("//") + 2, pathAt = url.find('/', hostAt);
  const std::string host = url.substr(hostAt, pathAt - hostAt);
  const std::string token = url.substr(url.find("token=") + 6);
  const std::string port = host.substr(host.rfind(':') + 1);
  d.client.clear_access_channels(websocketpp::log::alevel::all);
  d.client.clear_error_channels(websocketpp::log::elevel::all);
  std::error_code ec;
  d.client.init_asio(ec);
  d.client.set_open_handler([&d](websocketpp::connection_hdl) { d.settle(1); });
  d.client.set_fail_handler([&d](websocketpp::connection_hdl) { d.settle(-1); });
  d.client.set_message_handler(
      [this](websocketpp::connection_hdl, Client::message_ptr) { ++updates_; });
  Client::connection_ptr con = d.client.get_connection("ws://" + host + "/updates", ec);
  if (ec) {
    d.state = -1;
    return;
  }
  con->append_header("Cookie", "ornsim-live-" + port + "=" + token);
  con->append_header("Origin", "http://" + host);
  d.hdl = con->get_handle();
  d.client.connect(con);
  thread_ = std::thread([&d] {
    try {
      d.client.run();
    } catch (const std::exception&) {
      d.settle(-1);
    }
  });
}

LiveViewer::~LiveViewer() {
  Impl& d = *impl_;
  std::error_code ec;
  if (thread_.joinable()) {
    d.client.get_io_service().post([&d] {
      std::error_code ignored;
      d.client.close(d.hdl, websocketpp::close::status::going_away, "", ignored);
      d.client.stop_perpetual();
    });
    d.client.get_io_service().post([&d] { d.client.stop(); });
    thread_.join();
  }
}

bool LiveViewer::waitOpen(int seconds) {
  Impl& d = *impl_;
  std::unique_lock<std::mutex> lock(d.mutex);
  d.opened.wait_until(lock, std::chrono::steady_clock::now() + std::chrono::seconds(seconds),
                      [&d] { return d.state != 0; });
  return d.state == 1;
}

}  // namespace ornbench
