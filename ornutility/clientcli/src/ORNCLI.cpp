// SPDX-License-Identifier: Apache-2.0
// ORNCLI: construction, the one-shot dispatcher and its usage text.
#include "ORNCLI.h"

#include <string>

#include "ArgHelpers.h"
#include "ORNCLIInternal.h"

namespace ornwick {
namespace ornUtility {

namespace {

constexpr int kDefaultTimeoutSeconds = 10;

// Printed with one more newline added, so the output ends in "}\n\n".
constexpr const char kUsageText[] = R"USAGE(ORNCLI - Ornwick Command Line Interface

USAGE:
  orncli                                         Interactive mode (menu-driven)
  orncli [global-flags] <subcommand> [options]   Non-interactive mode
  orncli --help                                  Show this help

GLOBAL FLAGS:
  --sync                  Use synchronous IPC (default: async fire-and-wait)
  --timeout <seconds>     Response wait timeout, default 10
  --connect-timeout <sec> QIPC connection + registration timeout, default 10

SUBCOMMANDS:

  devices
    List reachable devices from local cache.
    Example: orncli devices

  power <action> [options]
    Control device power.
    Actions: turnOn, turnOff, get
    Options:
      --endpoints <id1,id2,...>   Comma-separated endpoint IDs (turnOn/turnOff)
      --endpoint <id>             Single endpoint ID (get)
    Examples:
      orncli power turnOn --endpoints id1,id2
      orncli power turnOff --endpoints id1
      orncli power get --endpoint id1

  brightness <action> [options]
    Control device brightness.
    Actions: set, adjust, get
    Options:
      --endpoints <id1,id2,...>   Comma-separated endpoint IDs (set/adjust)
      --endpoint <id>             Single endpoint ID (get)
      --value <0-100>             Brightness value (set)
      --delta <-100 to 100>       Brightness delta (adjust)
    Examples:
      orncli brightness set --endpoints id1 --value 75
      orncli brightness adjust --endpoints id1 --delta -20
      orncli brightness get --endpoint id1

  color set [options]
    Set device color.
    Options:
      --endpoints <id1,id2,...>   Comma-separated endpoint IDs
      --hue <0-360>               Hue value
      --saturation <0.0-1.0>      Saturation value
      --brightness <0.0-1.0>      Brightness value
    Example:
      orncli color set --endpoints id1 --hue 120 --saturation 0.5 --brightness 0.8

  colortemp set [options]
    Set device color temperature.
    Options:
      --endpoints <id1,id2,...>   Comma-separated endpoint IDs
      --kelvin <1000-10000>       Color temperature in Kelvin
    Example:
      orncli colortemp set --endpoints id1 --kelvin 3500

  state <action> [options]
    Query device state.
    Actions: get, report
    Options (get):
      --endpoint <id>             Endpoint ID
      --feature <name>            Feature name (power, brightness, colorTemperature, etc.)
      --latency <HIGH|LOW>        Optional latency tolerance
    Options (report - DFI ReportState):
      --entity <entityId>         Entity ID
      --endpoint <endpointId>     Endpoint ID
      --friendly-name <name>      Friendly name
    Examples:
      orncli state get --endpoint id1 --feature power
      orncli state get --endpoint id1 --feature brightness --latency HIGH
      orncli state report --entity eid1 --endpoint epid1 --friendly-name "My Light"

  dfi [options]
    Send a generic DFI directive.
    Options:
      --entity <entityId>         Entity ID (required)
      --endpoint <endpointId>     Endpoint ID (required)
      --namespace <ns>            DFI namespace (required)
      --name <directive>          Directive name (required)
      --payload <json>            JSON payload (optional, default: "{}")
    Example:
      orncli dfi --entity eid1 --endpoint epid1 --namespace Corva.PowerController --name TurnOn

  qfi [options]
    Send a custom QFI request.
    Options:
      --path <path>               QFI path (required)
      --method <GET|POST>         HTTP method (required)
      --body <json>               Request body for POST (optional)
    Example:
      orncli qfi --path "/v2/endpoints/id1/features/power/" --method GET

  subscribe <action> [options]
    Manage state provider subscriptions.
    Actions: create, delete, list, listen

    create/delete options:
      --endpoint <entityId>       Endpoint entity ID
      --events <ns1:name1,...>    Comma-separated namespace:eventName pairs

    listen options:
      --create <eid:ns:name>      Create subscription and listen (repeatable)
      --timeout <seconds>         Listen timeout (required)

    Examples:
      orncli subscribe create --endpoint eid1 --events Corva.Endpoint.Feature.Power:Property.PowerState.Change
      orncli subscribe delete --endpoint eid1 --events Corva.Endpoint.Feature.Power:Property.PowerState.Change
      orncli subscribe list
      orncli subscribe listen --create eid1:Corva.Endpoint.Feature.Power:Property.PowerState.Change --timeout 60

CONNECTION LIFECYCLE (non-interactive mode):
  1. Initialize QIPC connector
  2. Wait for SERVER_CONNECTION_STATUS -> CONNECTED event
  3. Send CLIENT_REGISTRATION request
  4. Wait for CLIENT_REGISTERED event (bounded by --connect-timeout)
  5. Build and send the request
  6. Async (default): wait for onResponse callback (bounded by --timeout)
     Sync (--sync): synchronous IPC, response returned immediately
  7. Print response JSON to stdout
  8. Exit with appropriate code

OUTPUT:
  Success (exit 0):  Response JSON on stdout
    {"requestId":"...","responseCode":N,"responseData":"..."}

  Error (exit 1):    Usage/argument error JSON on stderr
    {"error":"missing_argument","message":"--endpoints is required"}

  Error (exit 2):    Execution error JSON on stderr
    {"error":"request_failed","message":"..."}
    {"error":"connection_timeout","message":"QIPC registration timed out after Ns"}
    {"error":"response_timeout","message":"No response received within Ns"}

  Subscribe listen:  One JSON object per line on stdout for each event
    {"eventType":N,"payload":"..."}
)USAGE";

void printUsage() {
  writeLine(kUsageText);
}

bool isValueFlag(const std::string& arg) {
  return arg == "--timeout" || arg == "--connect-timeout";
}

}  // namespace

RequiredOptions findRequired(int argc, char** argv, std::initializer_list<const char*> names) {
  RequiredOptions options;
  for (const char* name : names) {
    options.values.push_back(findFlag(argc, argv, name));
    if (!options.missing && options.values.back().empty()) {
      options.missing = name;
    }
  }
  return options;
}

ORNCLI::ORNCLI()
    : menuNames_{"Back",
                 "List Commands",
                 "Quit",
                 "Send Sync Request",
                 "Send Async Request",
                 "Show Last Response",
                 "Show Last Event"} {
  initCommandMap();
}

ORNCLI::~ORNCLI() = default;

int ORNCLI::runCli(int argc, char** argv) {
  using Handler = int (ORNCLI::*)(int, char**, bool, int);
  static const struct {
    const char* name;
    Handler handler;
  } kSubcommands[] = {
      {"devices", &ORNCLI::handleDevices},
      {"power", &ORNCLI::handlePower},
      {"brightness", &ORNCLI::handleBrightness},
      {"color", &ORNCLI::handleColor},
      {"colortemp", &ORNCLI::handleColorTemp},
      {"state", &ORNCLI::handleState},
      {"dfi", &ORNCLI::handleDfi},
      {"qfi", &ORNCLI::handleQfi},
      {"subscribe", &ORNCLI::handleSubscribe},
  };

  if (argc < 1) {
    printUsage();
    return 1;
  }
  // Deliberate: "--help" answers without connecting only as the sole argument.
  if (argc == 1 && std::string(argv[0]) == "--help") {
    printUsage();
    return 0;
  }

  const bool sync = hasFlag(argc, argv, "--sync");
  int responseTimeout = kDefaultTimeoutSeconds;
  int connectTimeout = kDefaultTimeoutSeconds;
  // Deliberate: searched over the whole line, so a subcommand's own "--timeout" also
  // sets the response timeout.
  const std::string timeoutText = findFlag(argc, argv, "--timeout");
  if (!timeoutText.empty()) {
    safeStoi(timeoutText, responseTimeout, kDefaultTimeoutSeconds);
  }
  const std::string connectText = findFlag(argc, argv, "--connect-timeout");
  if (!connectText.empty()) {
    safeStoi(connectText, connectTimeout, kDefaultTimeoutSeconds);
  }

  int index = 0;
  while (index < argc && argv[index][0] == '-') {
    index += isValueFlag(argv[index]) ? 2 : 1;
  }
  if (index >= argc) {
    printUsage();
    return 1;
  }
  const std::string name = argv[index];
  const int restCount = argc - index - 1;
  char** rest = argv + index + 1;

  // Deliberate: the connection comes before the name is looked up, even for a typo.
  if (!initConnection(connectTimeout)) {
    return printError("connection_timeout",
                      "QIPC registration timed out after " + std::to_string(connectTimeout) + "s",
                      2);
  }
  for (const auto& sub : kSubcommands) {
    if (name == sub.name) {
      return (this->*sub.handler)(restCount, rest, sync, responseTimeout);
    }
  }
  return printError("unknown_command",
                    "Unknown subcommand: " + name + ". Run orncli --help for usage.", 1);
}

}  // namespace ornUtility
}  // namespace ornwick
