// ornsim's command line: parsing and the --help text.
#include "Options.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace ornsim {
namespace {

// Whole decimal text only; ornsim is a test tool and should reject typos
// loudly.
bool parseInt(const std::string& text, int minValue, int* out) {
  if (text.empty())
    return false;
  errno = 0;
  char* end = nullptr;
  long v = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || v < minValue || v > INT_MAX)
    return false;
  *out = static_cast<int>(v);
  return true;
}

bool parseRespond(const std::string& text, Options* o) {
  auto colon = text.find(':');
  if (colon == std::string::npos || !parseInt(text.substr(0, colon), INT_MIN, &o->respondCode))
    return false;
  o->respond = true;
  o->respondData = text.substr(colon + 1);
  return true;
}

bool parseEmit(const std::string& text, Options* o) {
  auto first = text.find(':');
  if (first == std::string::npos)
    return false;
  auto second = text.find(':', first + 1);
  if (second == std::string::npos)
    return false;
  EmitSpec e;
  if (!parseInt(text.substr(0, first), INT_MIN, &e.eventType) ||
      !parseInt(text.substr(first + 1, second - first - 1), 0, &e.delayMs))
    return false;
  e.payload = text.substr(second + 1);
  o->emits.push_back(e);
  return true;
}

}  // namespace

bool parseOptions(int argc, const char* const* argv, Options* o, std::string* err) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help") {
      o->help = true;
      continue;
    }
    if (arg == "--no-register") {
      o->noRegister = true;
      continue;
    }
    if (arg == "--no-response") {
      o->noResponse = true;
      continue;
    }
    static const char* const kWithValue[] = {
        "--socket", "--home", "--record", "--register-delay-ms", "--respond", "--response-delay-ms",
        "--emit"};
    bool known = false;
    for (const char* name : kWithValue)
      known = known || arg == name;
    if (!known) {
      *err = "unknown option: " + arg;
      return false;
    }
    if (i + 1 >= argc) {
      *err = arg + " needs a value";
      return false;
    }
    const std::string value = argv[++i];
    bool ok = true;
    if (arg == "--socket")
      o->socketPath = value;
    else if (arg == "--home")
      o->homeFile = value;
    else if (arg == "--record")
      o->recordFile = value;
    else if (arg == "--register-delay-ms")
      ok = parseInt(value, 0, &o->registerDelayMs);
    else if (arg == "--response-delay-ms")
      ok = parseInt(value, 0, &o->responseDelayMs);
    else if (arg == "--respond")
      ok = parseRespond(value, o);
    else
      ok = parseEmit(value, o);
    if (!ok) {
      *err = "bad value for " + arg + ": \"" + value + "\"";
      return false;
    }
  }
  return true;
}

const char* usageText() {
  return R"(Usage: ornsim [options]
Simulates the device-control service on a QIPC Unix-domain socket.

  --socket PATH             listen here (default: $ORN_QIPC_SOCKET, else
                            $XDG_RUNTIME_DIR/ornqipc.sock, else /tmp/ornqipc-<uid>/ornqipc.sock)
  --home FILE               devices and groups from this JSON file (default: built-in home)
  --record FILE             append one JSON line per message received:
                              {"register":NAME,"connectorType":N}
                              {"client":NAME,"sync":BOOL,"requestId":ID,"requestType":N,"payload":TEXT}
  --no-register             never send the client-registered event (23)
  --register-delay-ms N     send event 23 N ms after the registration
  --no-response             never answer requests
  --response-delay-ms N     delay every answer by N ms (--respond answers too)
  --respond CODE:DATA       answer every request with CODE and the text DATA (may be empty)
  --emit TYPE:DELAY_MS:PAYLOAD
                            DELAY_MS after each client's registration, send it an event of
                            TYPE with the text PAYLOAD (may be empty); repeatable
  --help                    show this text

Prints "ready <socket path>" on stdout once it accepts connections.
SIGINT or SIGTERM stop it with status 0 and remove the socket.
Exit status 2: bad command line, bad home file, or the socket cannot be set up.
)";
}

}  // namespace ornsim
