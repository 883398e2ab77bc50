// QIPC sockets: where the service listens, connecting to it, and who the peer
// is.
#pragma once

#include <string>

namespace ornwick {
namespace qipc {

// ORN_QIPC_SOCKET when set and non-empty, else the per-user default.
std::string socketPath();

// $XDG_RUNTIME_DIR/ornqipc.sock, else /tmp/ornqipc-<uid>.sock; a fixed path on
// Android.
std::string defaultSocketPath();

// Connects a non-blocking, close-on-exec Unix stream socket to `path`.
// Returns the descriptor, or -1 with *err like "connect /x.sock: Connection
// refused".
int connectUnix(const std::string& path, std::string* err);

// True when the peer on `fd` runs as our uid or as root (kernel peer
// credentials).
bool peerAllowed(int fd, std::string* err);

}  // namespace qipc
}  // namespace ornwick
