// SPDX-License-Identifier: Apache-2.0
#include "Socket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
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

// A socket that is there but closed to us (EACCES at connect) is refused, so
// the client logs why, while nobody listening is only absent. Checked by
// another uid when we are root, whom modes do not stop.
TEST(Socket, ConnectNotPermittedIsARefusal) {
  struct Case {
    const char* name;
    bool listening;
    mode_t socketMode;
    mode_t folderMode;
    ServiceCheck expected;
  } const kCases[] = {
      {"listening, open to us", true, 0777, 0755, ServiceCheck::kOk},
      {"nobody listening", false, 0777, 0755, ServiceCheck::kAbsent},
      {"socket closed to us", true, 0, 0755, ServiceCheck::kRefused},
      {"folder closed to us", true, 0777, 0, ServiceCheck::kRefused},
  };
  for (const Case& c : kCases) {
    char base[] = "/tmp/socket_test.XXXXXX";
    ASSERT_NE(mkdtemp(base), nullptr);
    ASSERT_EQ(chmod(base, 0755), 0);
    const std::string dir = std::string(base) + "/d";
    const std::string path = dir + "/s.sock";
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    const int server = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
    ASSERT_EQ(bind(server, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0) << c.name;
    if (c.listening) {
      ASSERT_EQ(listen(server, 4), 0);
    }
    ASSERT_EQ(chmod(path.c_str(), c.socketMode), 0);
    ASSERT_EQ(chmod(dir.c_str(), c.folderMode), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
        _exit(100);
      int fd = -1;
      std::string err;
      // The folder and the listener are root's or our own: trusted.
      _exit(static_cast<int>(connectService(path, true, kNoUid, &fd, &err)));
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), static_cast<int>(c.expected)) << c.name;
    close(server);
    chmod(dir.c_str(), 0755);
    unlink(path.c_str());
    rmdir(dir.c_str());
    rmdir(base);
  }
}

}  // namespace
}  // namespace qipc
}  // namespace ornwick
