// SPDX-License-Identifier: Apache-2.0
// LiveGuard: the token, Host and Origin checks of the live view.
#include "LiveGuard.h"

#include <arpa/inet.h>

#include <random>

namespace ornsim {
namespace {

bool isIpv6(const std::string& address) {
  return address.find(':') != std::string::npos;
}

bool isWildcard(const std::string& address) {
  return address == "0.0.0.0" || address == "::";
}

// An address literal as a Host header may carry it: a dotted IPv4 address or a
// bracketed IPv6 one. Names are what DNS rebinding points at, so they count as
// foreign.
bool isAddressLiteral(const std::string& host) {
  unsigned char buf[16];
  if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    return inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), buf) == 1;
  return inet_pton(AF_INET, host.c_str(), buf) == 1;
}

}  // namespace

LiveGuard::LiveGuard(std::string address, int port, std::string token)
    : address_(std::move(address)),
      port_(port),
      token_(std::move(token)),
      cookieName_("ornsim-live-" + std::to_string(port)) {
  hostPort_ = (isIpv6(address_) ? "[" + address_ + "]" : address_) + ":" + std::to_string(port_);
}

LiveGuard::Verdict LiveGuard::check(const Request& r) const {
  if (!hostAllowed(r.host))
    return Verdict::kBadHost;
  if (!tokenMatches(r.queryToken) && !tokenMatches(cookieToken(r.cookie)))
    return Verdict::kNoToken;
  // A page of another site may post here with the user's cookie; its Origin
  // says so. Tools that send no Origin hold the token and are the user's own.
  if (r.changing && !r.origin.empty() &&
      (r.origin.compare(0, 7, "http://") != 0 || !hostAllowed(r.origin.substr(7))))
    return Verdict::kBadOrigin;
  return Verdict::kAllow;
}

bool LiveGuard::hostAllowed(const std::string& host) const {
  const std::string suffix = ":" + std::to_string(port_);
  if (host.size() <= suffix.size() ||
      host.compare(host.size() - suffix.size(), suffix.size(), suffix) != 0)
    return false;
  const std::string name = host.substr(0, host.size() - suffix.size());
  if (host == hostPort_ || name == "localhost")
    return true;
  // Listening on every address: any of them, but only by number.
  return isWildcard(address_) && isAddressLiteral(name);
}

bool LiveGuard::tokenMatches(const std::string& given) const {
  if (given.size() != token_.size())
    return false;
  // Every byte compared, so the time taken tells nothing about the token.
  unsigned char diff = 0;
  for (size_t i = 0; i < given.size(); ++i)
    diff |= static_cast<unsigned char>(given[i] ^ token_[i]);
  return diff == 0;
}

std::string LiveGuard::cookieToken(const std::string& header) const {
  const std::string key = cookieName_ + "=";
  size_t at = 0;
  while (at < header.size()) {
    while (at < header.size() && (header[at] == ' ' || header[at] == ';'))
      ++at;
    size_t end = header.find(';', at);
    if (end == std::string::npos)
      end = header.size();
    if (header.compare(at, key.size(), key) == 0)
      return header.substr(at + key.size(), end - at - key.size());
    at = end;
  }
  return "";
}

std::string LiveGuard::url() const {
  const std::string host = isWildcard(address_) ? (isIpv6(address_) ? "[::1]" : "127.0.0.1") +
                                                      (":" + std::to_string(port_))
                                                : hostPort_;
  return "http://" + host + "/?token=" + token_;
}

std::string LiveGuard::setCookie() const {
  return cookieName_ + "=" + token_ + "; Path=/; HttpOnly; SameSite=Strict";
}

std::string newLiveToken() {
  std::random_device random;
  static const char kHex[] = "0123456789abcdef";
  std::string token;
  for (int i = 0; i < 4; ++i) {
    const uint32_t r = random();
    for (int shift = 0; shift < 32; shift += 4)
      token += kHex[(r >> shift) & 0xf];
  }
  return token;
}

}  // namespace ornsim
