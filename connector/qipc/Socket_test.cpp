// SPDX-License-Identifier: Apache-2.0
#include "Socket.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace ornwick {
namespace qipc {
namespace {

TEST(Socket, FolderOfTheSocketMustBeOursAndClosedToOthers) {
  constexpr uid_t kOther = 65534;
  // mode 0: no folder; owner kNoUid: ours.
  struct Case {
    const char* name;
    mode_t mode;
    uid_t owner;
    bool ownerOnly;
    uid_t serviceUid;
    ServiceCheck expected;
  } const kCases[] = {
      {"ours, owner-only", 0700, kNoUid, true, kNoUid, ServiceCheck::kOk},
      {"missing", 0, kNoUid, true, kNoUid, ServiceCheck::kAbsent},
      {"world-writable", 0777, kNoUid, false, kNoUid, ServiceCheck::kRefused},
      {"sticky shared, a path the user named", 01777, kNoUid, false, kNoUid, ServiceCheck::kOk},
      {"sticky shared, the default path", 01777, kNoUid, true, kNoUid, ServiceCheck::kRefused},
      {"another user's", 0700, kOther, true, kNoUid, ServiceCheck::kRefused},
      {"the configured service uid's", 0755, kOther, true, kOther, ServiceCheck::kOk},
  };
  char base[] = "/tmp/socket_test.XXXXXX";
  ASSERT_NE(mkdtemp(base), nullptr);
  for (const Case& c : kCases) {
    if (c.owner != kNoUid && geteuid() != 0) {
      fprintf(stderr, "skipped \"%s\": needs root to give a folder away\n", c.name);
      continue;
    }
    const std::string dir = std::string(base) + "/d";
    if (c.mode != 0) {
      ASSERT_EQ(mkdir(dir.c_str(), 0700), 0) << c.name;
      ASSERT_EQ(chmod(dir.c_str(), c.mode), 0) << c.name;
      if (c.owner != kNoUid) {
        ASSERT_EQ(chown(dir.c_str(), c.owner, c.owner), 0) << c.name;
      }
    }
    std::string err;
    EXPECT_EQ(checkSocketDir(dir + "/s.sock", c.ownerOnly, c.serviceUid, &err), c.expected)
        << c.name << ": " << err;
    rmdir(dir.c_str());
  }
  rmdir(base);
}

}  // namespace
}  // namespace qipc
}  // namespace ornwick
