// SPDX-License-Identifier: Apache-2.0
// QIPC sockets: where the service listens, connecting to it, and who the peer
// is.
#pragma once

#include <sys/types.h>

#include <string>

namespace ornwick {
namespace qipc {

// ORN_QIPC_SOCKET when set and non-empty, else the per-user default.
std::string socketPath();

// Where clients look for the service: $XDG_RUNTIME_DIR/ornqipc.sock, else
// /tmp/ornqipc-<uid>/ornqipc.sock; on Android the service's own
// /dev/socket/ornqipc.
std::string defaultSocketPath();

// False with *err when `path` cannot be a socket address: empty, or too long
// for sockaddr_un. No retry can help then.
bool socketPathFits(const std::string& path, std::string* err);

// Moves `fd` to a close-on-exec descriptor of 3 or more, so that a process
// started with stdin, stdout or stderr closed never writes its output into a
// descriptor of ours. Returns the descriptor (`fd` itself when already there),
// or -1 with `fd` closed and errno set.
int aboveStdio(int fd);

// Where a service started by this user listens by default: the default path,
// except on Android, where /dev/socket is not the user's:
// /data/local/tmp/ornqipc-<uid>/ornqipc.sock.
std::string ownSocketPath();

// Connects a non-blocking, close-on-exec Unix stream socket to `path`.
// Returns the descriptor, or -1 with *err like "connect /x.sock: Connection
// refused".
int connectUnix(const std::string& path, std::string* err);

// Stands for "no uid": then only root and our own uid are trusted.
constexpr uid_t kNoUid = static_cast<uid_t>(-1);

// The service's uid on the platform, set at build time
// (-DORN_QIPC_SERVICE_UID=<uid>), trusted beside ORN_QIPC_SERVICE_UID's.
#ifdef ORN_QIPC_BUILT_IN_SERVICE_UID
constexpr uid_t kBuiltInServiceUid = ORN_QIPC_BUILT_IN_SERVICE_UID;
#else
constexpr uid_t kBuiltInServiceUid = kNoUid;
#endif

// True when the peer on `fd` runs as our uid, as root, as `alsoAllowed` or as
// kBuiltInServiceUid (kernel peer credentials).
bool peerAllowed(int fd, std::string* err, uid_t alsoAllowed = kNoUid);

// ORN_QIPC_SERVICE_UID when it holds a uid, else kNoUid.
uid_t configuredServiceUid();

enum class ServiceCheck { kOk, kAbsent, kRefused };

// Checks the folder that holds `path`: it must belong to root, to us, to
// `serviceUid` or to kBuiltInServiceUid, and nobody else may write to it, except in a shared folder
// with the sticky bit (like /tmp) when not `ownerOnly`. kAbsent with a system
// error when the folder is missing; kRefused with the reason otherwise.
ServiceCheck checkSocketDir(const std::string& path, bool ownerOnly, uid_t serviceUid,
                            std::string* err);

// Checks the folder, connects and checks the peer: kOk with *fd set, kAbsent
// when nobody listens, kRefused when the folder or the peer is not trusted or
// the connect is not permitted (EACCES).
ServiceCheck connectService(const std::string& path, bool ownerOnly, uid_t serviceUid, int* fd,
                            std::string* err);

// Creates the folder of ownSocketPath() owner-only when it is missing, and
// checks it as clients do. Returns false with *err when it is not fit.
bool makeDefaultSocketDir(std::string* err);

}  // namespace qipc
}  // namespace ornwick
