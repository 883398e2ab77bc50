// SPDX-License-Identifier: Apache-2.0
// orn_floor: the least a one-shot client can do, to measure orncli against. One blocking
// Unix socket, one thread: wait for the connection-status event, register, wait for the
// client-registered event, send one request, print its response as orncli prints it.
// Usage: orn_floor <requestType> <sync 0|1> <payload>; the socket is ORN_QIPC_SOCKET.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "QipcProtocol.h"

namespace {

using ornwick::qipc::kMaxFrameSize;

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

bool sendFrame(int fd, const rapidjson::StringBuffer& body) {
  const auto n = static_cast<uint32_t>(body.GetSize());
  std::string frame{static_cast<char>(n >> 24), static_cast<char>(n >> 16),
                    static_cast<char>(n >> 8), static_cast<char>(n)};
  frame.append(body.GetString(), body.GetSize());
  return send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(frame.size());
}

bool readFull(int fd, char* to, size_t size) {
  while (size > 0) {
    ssize_t n = recv(fd, to, size, 0);
    if (n <= 0)
      return false;
    to += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

// Reads frames until one parses as an object of the given kind (and event type).
bool readMessage(int fd, const char* kind, int eventType, rapidjson::Document* doc) {
  for (;;) {
    unsigned char head[4];
    if (!readFull(fd, reinterpret_cast<char*>(head), sizeof(head)))
      return false;
    const uint32_t n = (uint32_t{head[0]} << 24) | (uint32_t{head[1]} << 16) |
                       (uint32_t{head[2]} << 8) | uint32_t{head[3]};
    if (n == 0 || n > kMaxFrameSize)
      return false;
    std::string body(n, '\0');
    if (!readFull(fd, body.data(), n))
      return false;
    doc->Parse(body.data(), body.size());
    if (doc->HasParseError() || !doc->IsObject())
      return false;
    auto k = doc->FindMember("kind");
    if (k == doc->MemberEnd() || !k->value.IsString() || strcmp(k->value.GetString(), kind) != 0)
      continue;
    if (eventType == 0)
      return true;
    auto t = doc->FindMember("eventType");
    if (t != doc->MemberEnd() && t->value.IsInt() && t->value.GetInt() == eventType)
      return true;
  }
}

const char* stringMember(const rapidjson::Document& doc, const char* key) {
  auto m = doc.FindMember(key);
  return m != doc.MemberEnd() && m->value.IsString() ? m->value.GetString() : "";
}

}  // namespace

int main(int argc, char** argv) {
  const char* path = getenv("ORN_QIPC_SOCKET");
  if (argc != 4 || path == nullptr) {
    fputs("usage: ORN_QIPC_SOCKET=<path> orn_floor <requestType> <sync 0|1> <payload>\n", stderr);
    return 1;
  }
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  strncpy(addr.sun_path, path, sizeof(addr.sun_path) - 1);
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0 || connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
    perror("orn_floor: connect");
    return 2;
  }
  rapidjson::Document doc;
  if (!readMessage(fd, "event", ornwick::qipc::kConnectionStatusEvent, &doc))
    return 2;
  rapidjson::StringBuffer out;
  Writer w(out);
  w.StartObject();
  w.Key("kind");
  w.String("register");
  w.Key("clientName");
  w.String("ORNCLI-cmd");
  w.Key("connectorType");
  w.Int(1);
  w.EndObject();
  if (!sendFrame(fd, out) || !readMessage(fd, "event", ornwick::qipc::kClientRegisteredEvent, &doc))
    return 2;

  const std::string id = std::to_string(getpid()) + "-floor-1";
  out.Clear();
  w.Reset(out);
  w.StartObject();
  w.Key("kind");
  w.String("request");
  w.Key("requestId");
  w.String(id.c_str());
  w.Key("requestType");
  w.Int(atoi(argv[1]));
  w.Key("sync");
  w.Bool(argv[2][0] == '1');
  w.Key("payload");
  w.String(argv[3]);
  w.EndObject();
  if (!sendFrame(fd, out) || !readMessage(fd, "response", 0, &doc))
    return 2;
  auto code = doc.FindMember("responseCode");
  std::string line =
      std::string("{\"requestId\":\"") + stringMember(doc, "requestId") + "\",\"responseCode\":" +
      std::to_string(code != doc.MemberEnd() && code->value.IsInt() ? code->value.GetInt() : 0) +
      ",\"responseData\":" + stringMember(doc, "responseData") + "}\n";
  fwrite(line.data(), 1, line.size(), stdout);
  fflush(stdout);
  close(fd);
  return 0;
}
