// SPDX-License-Identifier: Apache-2.0
// LiveGuard: who may use the live view. A loopback port is open to every local
// user, unlike the owner-only socket, so each request must carry the random
// token, name this server as its Host (against DNS rebinding) and, when it
// changes something, come from this server's own page (its Origin).
#pragma once

#include <string>

namespace ornsim {

class LiveGuard {
 public:
  enum class Verdict { kAllow, kBadHost, kNoToken, kBadOrigin };

  struct Request {
    std::string host;        // the Host header
    std::string origin;      // the Origin header; empty when none was sent
    std::string cookie;      // the Cookie header
    std::string queryToken;  // "token" from the query string
    bool changing = false;   // a POST, or the WebSocket upgrade
  };

  // `address` is the listening address as given (IPv6 without brackets), `port`
  // the port bound.
  LiveGuard(std::string address, int port, std::string token);

  Verdict check(const Request& request) const;

  // The URL to open, token included.
  std::string url() const;
  // The Set-Cookie value that keeps the token after the first load.
  std::string setCookie() const;

 private:
  bool hostAllowed(const std::string& host) const;
  bool tokenMatches(const std::string& given) const;
  std::string cookieToken(const std::string& header) const;

  std::string address_;
  std::string hostPort_;  // address_ as a Host header writes it, with the port
  int port_;
  std::string token_;
  std::string cookieName_;  // per port: two ornsims on one machine keep apart
};

// 128 random bits as hex.
std::string newLiveToken();

}  // namespace ornsim
