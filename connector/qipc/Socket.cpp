// QIPC sockets: address resolution, connect and peer checks.
#include "Socket.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>

namespace ornwick {
namespace qipc {

std::string socketPath() {
  const char* env = std::getenv("ORN_QIPC_SOCKET");
  if (env != nullptr && *env != '\0')
    return env;
  return defaultSocketPath();
}

std::string defaultSocketPath() {
#ifdef __ANDROID__
  return "/dev/socket/ornqipc";
#else
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime != nullptr && *runtime != '\0')
    return std::string(runtime) + "/ornqipc.sock";
  return "/tmp/ornqipc-" + std::to_string(getuid()) + ".sock";
#endif
}

int connectUnix(const std::string& path, std::string* err) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(addr.sun_path)) {
    *err = "socket path \"" + path + "\" is empty or too long";
    return -1;
  }
  memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    *err = std::string("socket: ") + strerror(errno);
    return -1;
  }
  // A Unix-domain connect completes at once or fails; EAGAIN means a full
  // backlog.
  if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) != 0) {
    *err = "connect " + path + ": " + strerror(errno);
    close(fd);
    return -1;
  }
  return fd;
}

bool peerAllowed(int fd, std::string* err) {
  ucred cred{};
  socklen_t len = sizeof(cred);
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) {
    *err = std::string("SO_PEERCRED: ") + strerror(errno);
    return false;
  }
  if (cred.uid != 0 && cred.uid != getuid()) {
    *err = "peer uid " + std::to_string(cred.uid) + " is neither ours nor root";
    return false;
  }
  return true;
}

}  // namespace qipc
}  // namespace ornwick
