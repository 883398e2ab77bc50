// SPDX-License-Identifier: Apache-2.0
#include "LiveGuard.h"

#include <gtest/gtest.h>

namespace ornsim {
namespace {

using V = LiveGuard::Verdict;

TEST(LiveGuard, LetsInOnlyTheTokenFromThisServersOwnPage) {
  const std::string t = "0123456789abcdef0123456789abcdef";
  const std::string cookie = "ornsim-live-8080=" + t;
  // clang-format off
  const struct { const char* address; LiveGuard::Request r; V want; } kCases[] = {
      {"127.0.0.1", {"127.0.0.1:8080", "", "", t, false}, V::kAllow},
      {"127.0.0.1", {"localhost:8080", "", "a=1; " + cookie + "; b=2", "", false}, V::kAllow},
      {"127.0.0.1", {"127.0.0.1:8080", "http://127.0.0.1:8080", cookie, "", true}, V::kAllow},
      {"127.0.0.1", {"127.0.0.1:8080", "http://localhost:8080", cookie, "", true}, V::kAllow},
      {"127.0.0.1", {"127.0.0.1:8080", "", cookie, "", true}, V::kAllow},  // a tool, not a page
      {"::1", {"[::1]:8080", "", cookie, "", false}, V::kAllow},
      {"0.0.0.0", {"192.168.1.9:8080", "http://192.168.1.9:8080", cookie, "", true}, V::kAllow},
      {"::", {"[fe80::1]:8080", "", cookie, "", false}, V::kAllow},
      // No token, a wrong one, one for another port, a prefix of the right one.
      {"127.0.0.1", {"127.0.0.1:8080", "", "", "", false}, V::kNoToken},
      {"127.0.0.1", {"127.0.0.1:8080", "", "", "0123456789abcdef0123456789abcdeX", false}, V::kNoToken},
      {"127.0.0.1", {"127.0.0.1:8080", "", "ornsim-live-8081=" + t, "", false}, V::kNoToken},
      {"127.0.0.1", {"127.0.0.1:8080", "", "x" + cookie, "", false}, V::kNoToken},
      {"127.0.0.1", {"127.0.0.1:8080", "", "", t.substr(1), false}, V::kNoToken},
      // Foreign hosts: a rebinding name, another port, none; names even on a wildcard.
      {"127.0.0.1", {"evil.example:8080", "", cookie, t, false}, V::kBadHost},
      {"127.0.0.1", {"127.0.0.1:8081", "", cookie, t, false}, V::kBadHost},
      {"127.0.0.1", {"127.0.0.1", "", cookie, t, false}, V::kBadHost},
      {"127.0.0.1", {"", "", cookie, t, false}, V::kBadHost},
      {"0.0.0.0", {"evil.example:8080", "", cookie, t, false}, V::kBadHost},
      {"::", {"[fe80::zz]:8080", "", cookie, t, false}, V::kBadHost},
      // Foreign origins on a change; a read does not look.
      {"127.0.0.1", {"127.0.0.1:8080", "http://evil.example", cookie, "", true}, V::kBadOrigin},
      {"127.0.0.1", {"127.0.0.1:8080", "null", cookie, "", true}, V::kBadOrigin},
      {"127.0.0.1", {"127.0.0.1:8080", "https://127.0.0.1:8080", cookie, "", true}, V::kBadOrigin},
      {"127.0.0.1", {"127.0.0.1:8080", "http://127.0.0.1:8081", cookie, "", true}, V::kBadOrigin},
      {"127.0.0.1", {"127.0.0.1:8080", "http://evil.example", cookie, "", false}, V::kAllow},
  };
  // clang-format on
  for (const auto& c : kCases) {
    const LiveGuard guard(c.address, 8080, t);
    EXPECT_EQ(guard.check(c.r), c.want) << c.address << " host " << c.r.host << " origin "
                                        << c.r.origin << " cookie " << c.r.cookie;
  }
}

TEST(LiveGuard, UrlAndCookieCarryTheToken) {
  const std::string t = newLiveToken();
  EXPECT_EQ(t.size(), 32u);
  EXPECT_NE(t, newLiveToken());
  EXPECT_EQ(LiveGuard("127.0.0.1", 9, t).url(), "http://127.0.0.1:9/?token=" + t);
  EXPECT_EQ(LiveGuard("::1", 9, t).url(), "http://[::1]:9/?token=" + t);
  EXPECT_EQ(LiveGuard("0.0.0.0", 9, t).url(), "http://127.0.0.1:9/?token=" + t);
  EXPECT_EQ(LiveGuard("::1", 9, t).setCookie(),
            "ornsim-live-9=" + t + "; Path=/; HttpOnly; SameSite=Strict");
}

}  // namespace
}  // namespace ornsim
