// SPDX-License-Identifier: Apache-2.0
// QIPC sockets: address resolution, connect and peer checks.
#include "Socket.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace ornwick {
namespace qipc {

std::string socketPath() {
  const char* env = std::getenv("ORN_QIPC_SOCKET");
  if (env != nullptr && *env != '\0')
    return env;
  return defaultSocketPath();
}

// On Android the service's socket is in /dev/socket, which belongs to root and
// the platform's services. A service a user starts (ornsim) listens in a
// folder of its own under /data/local/tmp, the one folder an adb shell user may
// write to; /data/local/tmp itself is shell's and group-writable (0771), so
// never the socket's folder.
std::string defaultSocketPath() {
#ifdef __ANDROID__
  return "/dev/socket/ornqipc";
#else
  return ownSocketPath();
#endif
}

std::string ownSocketPath() {
#ifdef __ANDROID__
  return "/data/local/tmp/ornqipc-" + std::to_string(getuid()) + "/ornqipc.sock";
#else
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime != nullptr && *runtime != '\0')
    return std::string(runtime) + "/ornqipc.sock";
  // A folder of our own: a name directly in /tmp could be taken by anyone.
  return "/tmp/ornqipc-" + std::to_string(getuid()) + "/ornqipc.sock";
#endif
}

bool socketPathFits(const std::string& path, std::string* err) {
  if (path.empty()) {
    *err = "the socket path is empty";
    return false;
  }
  if (path.size() >= sizeof(sockaddr_un::sun_path)) {
    *err = "socket path " + path + " is " + std::to_string(path.size()) +
           " bytes long; a socket address holds at most " +
           std::to_string(sizeof(sockaddr_un::sun_path) - 1);
    return false;
  }
  return true;
}

int aboveStdio(int fd) {
  if (fd < 0 || fd > STDERR_FILENO)
    return fd;
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int saved = errno;
  close(fd);
  errno = saved;
  return moved;
}

int connectUnix(const std::string& path, std::string* err) {
  if (!socketPathFits(path, err))
    return -1;
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  int fd = aboveStdio(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (fd < 0) {
    *err = std::string("socket: ") + strerror(errno);
    return -1;
  }
  // A Unix-domain connect completes at once or fails; EAGAIN means a full
  // backlog.
  if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) != 0) {
    const int error = errno;
    *err = "connect " + path + ": " + strerror(error);
    close(fd);
    errno = error;
    return -1;
  }
  return fd;
}

bool trustedUid(uid_t uid, uid_t alsoAllowed) {
  return uid == 0 || uid == getuid() || uid == alsoAllowed ||
         (kBuiltInServiceUid != kNoUid && uid == kBuiltInServiceUid);
}

bool peerAllowed(int fd, std::string* err, uid_t alsoAllowed) {
  ucred cred{};
  socklen_t len = sizeof(cred);
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) {
    *err = std::string("SO_PEERCRED: ") + strerror(errno);
    return false;
  }
  if (!trustedUid(cred.uid, alsoAllowed)) {
    *err = "peer uid " + std::to_string(cred.uid) + " is neither ours nor root";
    if (alsoAllowed != kNoUid)
      *err += " nor " + std::to_string(alsoAllowed);
    if (kBuiltInServiceUid != kNoUid && kBuiltInServiceUid != alsoAllowed)
      *err += " nor " + std::to_string(kBuiltInServiceUid);
    return false;
  }
  return true;
}

uid_t configuredServiceUid() {
  const char* env = std::getenv("ORN_QIPC_SERVICE_UID");
  if (env == nullptr || *env < '0' || *env > '9')
    return kNoUid;
  char* end = nullptr;
  errno = 0;
  unsigned long uid = strtoul(env, &end, 10);
  if (errno != 0 || *end != '\0' || uid >= kNoUid)
    return kNoUid;
  return static_cast<uid_t>(uid);
}

ServiceCheck checkSocketDir(const std::string& path, bool ownerOnly, uid_t serviceUid,
                            std::string* err) {
  const size_t slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? "."
                          : slash == 0               ? "/"
                                                     : path.substr(0, slash);
  struct stat st;
  if (stat(dir.c_str(), &st) != 0) {
    const int error = errno;
    *err = "stat " + dir + ": " + strerror(error);
    // A folder we may not look into is a refusal, not an absence.
    return error == EACCES ? ServiceCheck::kRefused : ServiceCheck::kAbsent;
  }
  if (!S_ISDIR(st.st_mode)) {
    *err = dir + " is not a folder";
    return ServiceCheck::kRefused;
  }
  if (!trustedUid(st.st_uid, serviceUid)) {
    *err = "folder " + dir + " belongs to uid " + std::to_string(st.st_uid);
    return ServiceCheck::kRefused;
  }
  // Whoever may write to the folder may put their own socket at the path.
  if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (ownerOnly || (st.st_mode & S_ISVTX) == 0)) {
    char mode[8];
    snprintf(mode, sizeof(mode), "%04o", static_cast<unsigned>(st.st_mode & 07777));
    *err = "folder " + dir + " is writable by others (mode " + mode + ")";
    return ServiceCheck::kRefused;
  }
  return ServiceCheck::kOk;
}

ServiceCheck connectService(const std::string& path, bool ownerOnly, uid_t serviceUid, int* fd,
                            std::string* err) {
  ServiceCheck dir = checkSocketDir(path, ownerOnly, serviceUid, err);
  if (dir != ServiceCheck::kOk)
    return dir;
  *fd = connectUnix(path, err);
  if (*fd < 0) {
    // A socket we may not connect to (EACCES: its mode or its folder's) is
    // there and refuses us; nobody listening is an absence.
    return errno == EACCES || errno == EPERM ? ServiceCheck::kRefused : ServiceCheck::kAbsent;
  }
  if (!peerAllowed(*fd, err, serviceUid)) {
    close(*fd);
    *fd = -1;
    return ServiceCheck::kRefused;
  }
  return ServiceCheck::kOk;
}

bool makeDefaultSocketDir(std::string* err) {
  const std::string path = ownSocketPath();
  const std::string dir = path.substr(0, path.rfind('/'));
  if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
    *err = "mkdir " + dir + ": " + strerror(errno);
    return false;
  }
  return checkSocketDir(path, true, kNoUid, err) == ServiceCheck::kOk;
}

}  // namespace qipc
}  // namespace ornwick
