// SPDX-License-Identifier: Apache-2.0
// ornsim's command line: parsing and the --help text.
#include "Options.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "Decimal.h"

namespace ornsim {
namespace {

bool parseInt(const std::string& text, int minValue, int* out) {
  long v = 0;
  if (!parseLong(text, minValue, INT_MAX, &v))
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

// [ADDR:]PORT; an IPv6 address goes in brackets. Only the form is checked here:
// whether the address is one to listen on shows when the view starts.
bool parseHttp(const std::string& text, Options* o) {
  const size_t colon = text.rfind(':');
  std::string address = colon == std::string::npos ? "" : text.substr(0, colon);
  if (address.size() >= 2 && address.front() == '[' && address.back() == ']')
    address = address.substr(1, address.size() - 2);
  if (colon != std::string::npos && (address.empty() || address.find(' ') != std::string::npos))
    return false;
  int port = 0;
  if (!parseInt(text.substr(colon == std::string::npos ? 0 : colon + 1), 0, &port) || port > 65535)
    return false;
  if (!address.empty())
    o->httpAddress = address;
  o->httpPort = port;
  return true;
}

}  // namespace

bool parseOptions(int argc, const char* const* argv, Options* o, std::string* err) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      o->help = true;
      continue;
    }
    if (arg == "--version") {
      o->version = true;
      continue;
    }
    if (arg == "-v" || arg == "--verbose") {
      o->verbose = true;
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
    static const char* const kWithValue[] = {"--socket", "--home",  "--record", "--respond",
                                             "--emit",   "--fault", "--state",  "--http"};
    // Whole numbers, each with its least value.
    static const struct {
      const char* name;
      int minValue;
      int Options::*field;
    } kNumbers[] = {
        {"--register-delay-ms", 0, &Options::registerDelayMs},
        {"--response-delay-ms", 0, &Options::responseDelayMs},
        {"--max-connections", 1, &Options::maxConnections},
        {"--frame-budget", 1, &Options::frameBudget},
        {"--frame-timeout-ms", 1, &Options::frameTimeoutMs},
        {"--register-timeout-ms", 1, &Options::registerTimeoutMs},
        {"--max-subscriptions", 1, &Options::maxSubscriptions},
        {"--max-clients", 1, &Options::maxClients},
    };
    bool known = false;
    for (const char* name : kWithValue)
      known = known || arg == name;
    const auto* number = std::find_if(std::begin(kNumbers), std::end(kNumbers),
                                      [&](const auto& n) { return arg == n.name; });
    known = known || number != std::end(kNumbers);
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
    std::string why;
    if (arg == "--socket")
      o->socketPath = value;
    else if (arg == "--home")
      o->homeFile = value;
    else if (arg == "--record")
      o->recordFile = value;
    else if (number != std::end(kNumbers))
      ok = parseInt(value, number->minValue, &(o->*number->field));
    else if (arg == "--respond")
      ok = parseRespond(value, o);
    else if (arg == "--state")
      o->stateFile = value;
    else if (arg == "--http")
      ok = parseHttp(value, o);
    else if (arg == "--fault")
      ok = parseFault(value, 0, &o->faults.emplace_back(), &why);
    else
      ok = parseEmit(value, o);
    if (!ok) {
      *err = "bad value for " + arg + ": \"" + value + "\"" + (why.empty() ? "" : "; " + why);
      return false;
    }
  }
  return true;
}

// The default socket lines name this platform's defaults (Socket.h, ownSocketPath).
#ifdef __ANDROID__
#define ORNSIM_DEFAULT_SOCKET                                                                 \
  "$ORN_QIPC_SOCKET, else\n"                                                                  \
  "                            /data/local/tmp/ornqipc-<uid>/ornqipc.sock; orncli looks in\n" \
  "                            /dev/socket/ornqipc unless ORN_QIPC_SOCKET names this one)"
#else
#define ORNSIM_DEFAULT_SOCKET                                        \
  "$ORN_QIPC_SOCKET, else\n"                                         \
  "                            $XDG_RUNTIME_DIR/ornqipc.sock, else " \
  "/tmp/ornqipc-<uid>/ornqipc.sock)"
#endif

const char* usageText() {
  return R"(Usage: ornsim [options]
Simulates the device-control service on a QIPC Unix-domain socket.

  --socket PATH             listen here (default: )" ORNSIM_DEFAULT_SOCKET R"(
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
  --fault TARGET,ACTION     answer matching requests wrongly on purpose; repeatable, the
                            first that applies wins. TARGET: path:PATH (a trailing * makes
                            it a prefix), endpoint:ID (by either id, or a group holding it;
                            in a batch, only its entry answers CODE:DATA), naming:ID (as
                            endpoint:, always the whole request), request:N (the Nth
                            request since the start). ACTION: respond:CODE:DATA (the home
                            is not touched), delay:MS, silence
  --state FILE              keep device state and subscriptions in FILE across restarts
  --max-connections N       at most N open connections (default 256); at the limit the oldest
                            connection that is unregistered, in the middle of a frame or not
                            reading its answers is closed to make room, and only when there
                            is none is the new one closed at once
  --frame-budget BYTES      across all connections, hold at most BYTES of partly received
                            frames and BYTES of unsent ones, delayed answers included; the
                            connection that would pass either is closed (default 67108864,
                            64 MiB)
  --frame-timeout-ms N      close a connection whose frame has not fully arrived N ms after
                            its first byte (default 10000)
  --register-timeout-ms N   close a connection that has not registered N ms after it was
                            accepted (default 10000)
  --max-subscriptions N     subscriptions per client name (default 256); beyond that, or
                            past 256 KiB of listing, a create fails with 400
  --max-clients N           client names holding subscriptions at once (default 1024); a
                            create by one more name fails with 400
  -v, --verbose             log one line per request on stderr
  --http [ADDR:]PORT        serve a live page of the home on ADDR (default 127.0.0.1) and
                            PORT (0: any free one); prints "http <url>" after "ready", the
                            URL holds the access token. See docs/ornsim.md before giving
                            an address other than loopback
  -h, --help                show this text
  --version                 show the version

Prints "ready <socket path>" on stdout once it accepts connections. Paths under /sim/
(GET /sim/groups, /sim/subscriptions, /sim/faults; POST /sim/endpoints[/ID[/remove]],
/sim/events, /sim/faults[/clear]) control the simulator; see docs/ornsim.md.
While it runs it holds a lock on "<socket path>.lock"; another ornsim on the same path fails.
SIGINT or SIGTERM stop it with status 0 and remove the socket and the lock file, each only if
it is still its own.
Exit status 2: bad command line, bad home or state file, the lock is held, or the socket
cannot be set up.
)";
}

}  // namespace ornsim
