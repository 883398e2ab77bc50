// SPDX-License-Identifier: Apache-2.0
// LiveView: the page, its updates over a WebSocket and its controls, on
// websocketpp over the simulator's Asio loop.
#include "LiveView.h"

#include <rapidjson/document.h>

#include <map>
#include <websocketpp/config/asio_no_tls.hpp>
#include <websocketpp/server.hpp>

#include "Diagnostics.h"
#include "JsonText.h"
#include "LiveFeed.h"
#include "LiveGuard.h"
#include "LivePage.h"
#include "Message.h"
#include "Server.h"

namespace ornsim {
namespace {

using WsServer = websocketpp::server<websocketpp::config::asio>;
using Hdl = websocketpp::connection_hdl;
namespace status = websocketpp::http::status_code;

// Updates go out at most this often; changes in between are folded into one.
constexpr std::chrono::milliseconds kUpdateEvery{40};
// A viewer whose unsent updates pass this is cut off (the page says so).
constexpr size_t kMaxViewerBytes = 1u << 20;
// The kernel's send buffer per connection, fixed: left to grow by itself it
// would hold megabytes more for a viewer that does not read.
constexpr int kSocketSendBuffer = 64 << 10;
constexpr size_t kMaxViewers = 16;
// The controls' bodies are small; anything bigger is not the page's.
constexpr size_t kMaxBodyBytes = 64u << 10;
constexpr int kQfiRequest = 1;

// "token" from a query string ("a=1&token=x").
std::string queryToken(const std::string& query) {
  size_t at = 0;
  while (at <= query.size()) {
    size_t end = query.find('&', at);
    if (end == std::string::npos)
      end = query.size();
    if (query.compare(at, 6, "token=") == 0)
      return query.substr(at + 6, end - at - 6);
    at = end + 1;
  }
  return "";
}

// The page's control, {"path":"/sim/..","method":M,"body":..}, as the QFI
// payload a client would send; "" when it is not one.
std::string controlPayload(const std::string& text) {
  rapidjson::Document doc;
  doc.Parse(text.c_str(), text.size());
  std::string path, method;
  if (doc.HasParseError() || !doc.IsObject() || !getString(doc, "path", &path) ||
      !getString(doc, "method", &method) || path.compare(0, 5, "/sim/") != 0)
    return "";
  rapidjson::StringBuffer buf;
  JsonWriter w(buf);
  w.StartObject();
  w.Key("qfi");
  w.StartObject();
  writeMember(w, "path", path);
  writeMember(w, "method", method);
  if (const rapidjson::Value* body = findMember(doc, "body")) {
    w.Key("requestBody");
    body->Accept(w);
  }
  w.EndObject();
  w.Key("dfi");
  w.StartArray();
  w.EndArray();
  w.EndObject();
  return buf.GetString();
}

}  // namespace

struct LiveView::Impl {
  Impl(asio::io_context& loop, Server& sim)
      : io(loop),
        server(sim),
        feed({sim.home(), sim.subscriptions(),
              [&sim]() -> const std::vector<Fault>& { return sim.faults(); },
              [&sim] { return sim.clients(); }},
             [this] { changed(); }),
        flushTimer(loop) {}

  // Guards a library callback: nothing may escape into websocketpp's loop.
  template <typename F>
  void guarded(const char* what, F&& f) {
    try {
      f();
    } catch (const std::exception& e) {
      diag("ornsim: live view: %s: %s\n", what, e.what());
    }
  }

  LiveGuard::Request request(const WsServer::connection_ptr& con, bool changing,
                             std::string* path) {
    const std::string resource = con->get_resource();
    const size_t q = resource.find('?');
    *path = resource.substr(0, q);
    return {con->get_request_header("Host"), con->get_request_header("Origin"),
            con->get_request_header("Cookie"),
            q == std::string::npos ? "" : queryToken(resource.substr(q + 1)), changing};
  }

  static void answer(const WsServer::connection_ptr& con, status::value code,
                     const std::string& type, const std::string& body) {
    con->set_status(code);
    con->replace_header("Content-Type", type);
    con->replace_header("Cache-Control", "no-store");
    con->replace_header("X-Content-Type-Options", "nosniff");
    con->replace_header("X-Frame-Options", "DENY");
    con->replace_header("Referrer-Policy", "no-referrer");
    con->set_body(body);
  }

  void onHttp(const Hdl& hdl) {
    std::error_code ec;
    WsServer::connection_ptr con = ws.get_con_from_hdl(hdl, ec);
    if (ec)
      return;
    const std::string method = con->get_request().get_method();
    std::string path;
    const LiveGuard::Request r = request(con, method != "GET" && method != "HEAD", &path);
    if (guard->check(r) != LiveGuard::Verdict::kAllow) {
      answer(con, status::forbidden, "text/plain", "forbidden\n");
      return;
    }
    if (path == "/" && method == "GET") {
      if (!r.queryToken.empty()) {
        // Into the cookie, and out of the address bar and the history.
        con->replace_header("Set-Cookie", guard->setCookie());
        con->replace_header("Location", "/");
        answer(con, status::see_other, "text/plain", "");
        return;
      }
      con->replace_header("Content-Security-Policy",
                          "default-src 'none'; script-src 'unsafe-inline'; style-src "
                          "'unsafe-inline'; connect-src 'self'; img-src data:; "
                          "frame-ancestors 'none'; form-action 'none'; base-uri 'none'");
      answer(con, status::ok, "text/html; charset=utf-8",
             std::string(reinterpret_cast<const char*>(kLivePage), kLivePageSize));
    } else if (path == "/control" && method == "POST") {
      control(con);
    } else if (path == "/" || path == "/control") {
      answer(con, status::method_not_allowed, "text/plain", "method not allowed\n");
    } else {
      answer(con, status::not_found, "text/plain", "not found\n");
    }
  }

  // Serves the control as a request of kClientName: recorded, logged and
  // published like one that came on the socket.
  void control(const WsServer::connection_ptr& con) {
    const std::string payload = controlPayload(con->get_request_body());
    if (payload.empty()) {
      answer(con, status::bad_request, "text/plain",
             "the body is {\"path\":\"/sim/..\",\"method\":..,\"body\":..}\n");
      return;
    }
    ornwick::qipc::Message m;
    m.kind = ornwick::qipc::MessageKind::kRequest;
    m.id = "live-" + std::to_string(++controls);
    m.type = kQfiRequest;
    m.text = payload;
    Simulation::Outcome out = server.serve(kClientName, m);
    answer(con, status::ok, "application/json",
           "{\"code\":" + std::to_string(out.code) +
               ",\"data\":" + (out.data.empty() ? "null" : out.data) + "}");
  }

  bool onValidate(const Hdl& hdl) {
    std::error_code ec;
    WsServer::connection_ptr con = ws.get_con_from_hdl(hdl, ec);
    if (ec)
      return false;
    std::string path;
    if (guard->check(request(con, true, &path)) != LiveGuard::Verdict::kAllow) {
      con->set_status(status::forbidden);
      return false;
    }
    if (path != "/updates") {
      con->set_status(status::not_found);
      return false;
    }
    if (viewers.size() >= kMaxViewers) {
      con->set_status(status::service_unavailable);
      return false;
    }
    return true;
  }

  void onOpen(const Hdl& hdl) {
    LiveFeed::Cursor& cursor = viewers[hdl];
    feed.refresh();
    send(hdl, &cursor);
  }

  void send(const Hdl& hdl, LiveFeed::Cursor* cursor) {
    const std::string update = feed.update(cursor);
    std::error_code ec;
    if (!update.empty())
      ws.send(hdl, update, websocketpp::frame::opcode::text, ec);
  }

  void changed() {
    if (flushPending || viewers.empty())
      return;
    flushPending = true;
    flushTimer.expires_after(kUpdateEvery);
    flushTimer.async_wait([this](const asio::error_code& ec) {
      flushPending = false;
      if (!ec)
        guarded("update", [this] { flush(); });
    });
  }

  void flush() {
    feed.refresh();
    for (auto it = viewers.begin(); it != viewers.end();) {
      std::error_code ec;
      WsServer::connection_ptr con = ws.get_con_from_hdl(it->first, ec);
      if (!ec && con->get_buffered_amount() > kMaxViewerBytes) {
        diag("ornsim: live view: a viewer is not reading; cutting it off\n");
        ws.close(it->first, websocketpp::close::status::policy_violation, "not reading", ec);
        it = viewers.erase(it);
        continue;
      }
      if (!ec)
        send(it->first, &it->second);
      ++it;
    }
  }

  asio::io_context& io;
  Server& server;
  WsServer ws;
  LiveFeed feed;
  std::unique_ptr<LiveGuard> guard;
  std::map<Hdl, LiveFeed::Cursor, std::owner_less<Hdl>> viewers;
  asio::steady_timer flushTimer;
  bool flushPending = false;
  long controls = 0;
};

LiveView::LiveView(asio::io_context& io, Server& server)
    : impl_(std::make_unique<Impl>(io, server)) {}

LiveView::~LiveView() {
  // Closing the viewers may throw from inside websocketpp; it is the end anyway.
  impl_->guarded("stop", [this] { stop(); });
}

bool LiveView::start(const std::string& address, int port, std::string* err) {
  Impl& d = *impl_;
  // The one name taken: it needs no resolver and cannot be rebound.
  const std::string host = address == "localhost" ? "127.0.0.1" : address;
  d.ws.clear_access_channels(websocketpp::log::alevel::all);
  d.ws.clear_error_channels(websocketpp::log::elevel::all);
  std::error_code ec;
  d.ws.init_asio(&d.io, ec);
  const asio::ip::address ip = asio::ip::make_address(host, ec);
  if (ec) {
    *err = "--http: " + host + " is not an IP address";
    return false;
  }
  // After the accept: the socket does not exist before.
  d.ws.set_tcp_post_init_handler([&d](const Hdl& h) {
    std::error_code bad;
    WsServer::connection_ptr con = d.ws.get_con_from_hdl(h, bad);
    asio::error_code ignored;
    if (!bad)
      con->get_raw_socket().set_option(asio::socket_base::send_buffer_size(kSocketSendBuffer),
                                       ignored);
  });
  d.ws.set_max_http_body_size(kMaxBodyBytes);
  d.ws.set_max_message_size(kMaxBodyBytes);
  d.ws.set_http_handler([&d](const Hdl& h) { d.guarded("request", [&] { d.onHttp(h); }); });
  d.ws.set_validate_handler([&d](const Hdl& h) {
    bool ok = false;
    d.guarded("upgrade", [&] { ok = d.onValidate(h); });
    return ok;
  });
  d.ws.set_open_handler([&d](const Hdl& h) { d.guarded("open", [&] { d.onOpen(h); }); });
  d.ws.set_close_handler([&d](const Hdl& h) { d.viewers.erase(h); });
  d.ws.set_fail_handler([&d](const Hdl& h) { d.viewers.erase(h); });
  // The page only listens; a viewer that talks is not the page.
  d.ws.set_message_handler([&d](const Hdl& h, const WsServer::message_ptr&) {
    std::error_code ignored;
    d.ws.close(h, websocketpp::close::status::policy_violation, "", ignored);
  });
  d.ws.listen(asio::ip::tcp::endpoint(ip, static_cast<uint16_t>(port)), ec);
  if (!ec)
    d.ws.start_accept(ec);
  if (ec) {
    *err = "--http: listen " + host + ":" + std::to_string(port) + ": " + ec.message();
    return false;
  }
  asio::error_code aec;
  const int bound = d.ws.get_local_endpoint(aec).port();
  d.guard = std::make_unique<LiveGuard>(host, bound, newLiveToken());
  d.server.setObserver(&d.feed);
  return true;
}

std::string LiveView::url() const {
  return impl_->guard ? impl_->guard->url() : "";
}

void LiveView::stop() {
  Impl& d = *impl_;
  d.server.setObserver(nullptr);
  d.flushTimer.cancel();
  std::error_code ec;
  if (d.ws.is_listening())
    d.ws.stop_listening(ec);
  for (const auto& v : d.viewers)
    d.ws.close(v.first, websocketpp::close::status::going_away, "", ec);
  d.viewers.clear();
}

}  // namespace ornsim
