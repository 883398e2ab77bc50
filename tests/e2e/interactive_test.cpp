// SPDX-License-Identifier: Apache-2.0
// orncli's interactive mode end to end: the real binary, a scripted stdin and a private
// ornsim. Transcripts are compared whole; request ids are replaced by <ID>.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "CliExpect.h"
#include "OrnTestSupport.h"

namespace {

const char kMenuLines[] =
    "0 - Back\n-1 - List Commands\n-2 - Quit\n1 - Send Sync Request\n"
    "2 - Send Async Request\n3 - Show Last Response\n4 - Show Last Event\n";

// The simulator's answer to every request unless a row says otherwise: a device list, so
// that the device cache has something to offer.
const char kDevices[] = R"({"results":[{"id":"e1","externallyReportedId":"ep1","capabilities":)"
                        R"({"interfaces":["Corva.ColorController","Corva.PowerController"]}},)"
                        R"({"id":"e2"},7]})";

// Shorthands for the recurring blocks of an expected transcript and of the requests.
// clang-format off
const clitest::Blocks kBlocks = {
    {"{BAD}", "Error: Invalid Command.. Please try again!\n{MENU}"},
    {"{MENU}", std::string(kMenuLines) + "cmd> "},
    {"{PAYLOAD}", "Select payload type:\n1. QFI Request\n2. DFI Request\n3. Both QFI and DFI\n4. StateProvider Subscription Request\n5. StateProvider State Query Request\n6. Get Reachable Devices (local cache)\nEnter choice (1-6) : "},
    {"{SYNC}", "Sync response received:\nRequest ID: <ID>\nResponse Code: 200\nResponse Data: {DATA}\n"},
    {"{DATA}", kDevices},
    {"{WARN}", clitest::kWarning},
    {"{QFI}", "\nSelect QFI interface:\n1. Power Control\n2. Brightness Control\n3. Color Control\n4. Color Temperature Control\n5. Custom Path\nEnter interface choice (1-5) : "},
    {"{POWER}", "\nSelect power action:\n1. Turn On\n2. Turn Off\n3. Get Power\nEnter action choice (1-3) : "},
    {"{BRIGHTNESS}", "\nSelect brightness action:\n1. Set Brightness\n2. Adjust Brightness\n3. Get Brightness\nEnter action choice (1-3) : "},
    {"{BATCH}", "\nSelect batch endpoint source:\n1. Group (via groupId)\n2. Individual endpoint IDs\nEnter batch source (1-2) : "},
    {"{COUNT}", "\nEnter number of endpoints:  : "},
    {"{DFI}", "\nBuild DFI endpoint from:\n1. Local device cache (auto-fill from connected devices)\n2. Manual input\nEnter choice (1-2) : "},
    {"{FETCH}", "Fetching local connected devices...\n\n--- Local Connected Devices ---\n1. entityId: e1  endpointId: ep1  [Corva.ColorController, Corva.PowerController]\n2. entityId: e2\n-------------------------------\nSelect device number (1-2) : "},
    {"{IDS}", "Enter entity ID : Enter endpoint ID : "},
    {"{ALLNS}", "{NS}\nSelect directive name:\n"},
    {"{NS}", "\nSelect DFI namespace:\n1. Corva.PowerController\n2. Corva.BrightnessController\n3. Corva.ColorController\n4. Corva.ColorTemperatureController\n5. Tessel.DeviceManager\nEnter namespace choice (1-5) : "},
    {"{CT}", "1. SetColorTemperature\n2. IncreaseColorTemperature\n3. DecreaseColorTemperature\nEnter directive choice (1-3) : "},
    {"{STATE}", "\nSelect query type:\n1. QFI State Query\n2. DFI State Query (ReportState)\n3. Both QFI and DFI State Query\nEnter query choice (1-3) : "},
    {"{FEATURE}", "Enter endpoint ID : Enter feature (e.g., power, brightness, colorTemperature) : \nAdd latencyTolerance? (y/n):  : "},
    {"{SUBOP}", "\nSelect subscription operation:\n1. Create subscription\n2. Delete subscription\n3. Get subscriptions\nEnter operation choice (1-3) : "},
    {"{TARGET}", "\nSelect subscription target:\n1. Individual Endpoints\n2. Group (via groupId)\nEnter target choice (1-2) : "},
    {"{EVENT}", "Enter event namespace (e.g., Corva.Endpoint.Feature.Power) : Enter event name (e.g., Property.PowerState.Change) : "},
    // The simulator's own device list, from its built-in home, with the bedroom light picked.
    {"{BEDROOM}", "Fetching local connected devices...\n\n--- Local Connected Devices ---\n1. entityId: light-kitchen  endpointId: ep-kitchen  [Corva.PowerController, Corva.BrightnessController, Corva.ColorController, Corva.ColorTemperatureController]\n2. entityId: light-living  endpointId: ep-living  [Corva.PowerController, Corva.BrightnessController, Corva.ColorTemperatureController]\n3. entityId: light-bedroom  endpointId: ep-bedroom  [Corva.PowerController, Corva.BrightnessController]\n4. entityId: strip-desk  endpointId: ep-desk  [Corva.PowerController, Corva.BrightnessController, Corva.ColorController]\n5. entityId: plug-kettle  endpointId: ep-kettle  [Corva.PowerController]\n-------------------------------\nSelect device number (1-5) : Selected device: entityId=light-bedroom endpointId=ep-bedroom\n\nSelect DFI namespace:\n1. Corva.PowerController\n2. Corva.BrightnessController\n3. Tessel.DeviceManager\nEnter namespace choice (1-3) : \nSelect directive name:\n1. SetBrightness\n2. AdjustBrightness\nEnter directive choice (1-2) : "},
    // The device cache's query, sent synchronously, and its payload.
    {"{QUERY}", "S1 {Q}"},
    {"{Q}", R"({"qfi":{"path":"/v2/endpoints?filterExpression=features[name:connectivity].properties[name:reachability].value.value=OK","method":"GET"},"dfi":[]})"},
};

// The start of a transcript: the banner, the menu and the prompt, each written in one piece, with
// the events that arrived meanwhile printed around and between them by the library's thread. Taking
// out the main thread's pieces, in order, must leave only whole event blocks.
void expectStart(const std::string& start) {
  static const std::regex kEventBlocks(
      "(\nReceived event:\nEvent Type: \\d+\nEvent Data: [^\n]*\n)*");
  std::string events = start;
  size_t at = 0;
  for (const std::string piece : {"Starting ORN Client utility...\nRunning in interactive mode\n",
                                  "ORN Client utility! (Interactive)\n", kMenuLines, "cmd> "}) {
    if ((at = events.find(piece, at)) == std::string::npos) {
      ADD_FAILURE() << "missing " << piece << " in\n" << start;
      return;
    }
    events.erase(at, piece.size());
  }
  EXPECT_TRUE(std::regex_match(events, kEventBlocks)) << start;
}

// orncli without arguments on pipes against a fresh simulator (answering every request
// with kDevices unless simArgs is given). Construction waits until orncli shows its first
// prompt and has printed the event named by ready; without ready it waits for nothing, and
// the input follows at once.
struct Session {
  explicit Session(const char* simArgs = nullptr, const char* ready = "Event Type: 23\n")
      : sim(clitest::splitArgs(simArgs ? simArgs
                                       : std::string("--respond '200:") + kDevices + "'")),
        cli(orntest::orncliPath(), {}, orntest::clientEnv(sim.socketPath())),
        piped(ready == nullptr) {
    ok = sim.ok() && (piped || (cli.waitForOut("cmd> ") && cli.waitForOut(ready) &&
                                cli.waitForOut("\n", cli.out().find(ready) + strlen(ready))));
    if (!ok)
      ADD_FAILURE() << "no start: " << sim.error() << "\noutput:\n" << cli.out();
    started = cli.out().size();
  }

  // Closes stdin and checks that orncli left through its menu with status 0. Returns the
  // output after the start with request ids replaced by <ID>, and stores the requests that
  // reached the simulator, one line each.
  std::string finish(const std::string& context) {
    const orntest::RunResult r = cli.finish();
    EXPECT_EQ(r.exitCode, 0) << context << "\nstderr:\n" << r.err;
    std::string out = cli.out();
    if (piped) {
      // The connection's two events land anywhere between the main thread's writes; without
      // them the transcript is the one of a user who waited.
      static const std::regex kConnectionEvents(
          "\nReceived event:\nEvent Type: 2[03]\nEvent Data: [^\n]*\n");
      EXPECT_EQ(std::distance(std::sregex_iterator(out.begin(), out.end(), kConnectionEvents),
                              std::sregex_iterator()),
                2)
          << out;
      out = std::regex_replace(out, kConnectionEvents, "");
      started = out.find("cmd> ") + strlen("cmd> ");
    }
    expectStart(out.substr(0, started));
    std::string rest = out.substr(started);
    requests.clear();
    for (const clitest::Sent& request : clitest::sent(sim)) {
      EXPECT_EQ(request.client, "ORNCLI") << request.line;
      requests += (requests.empty() ? "" : "\n") + request.line;
      if (!request.id.empty())
        rest = clitest::expand(rest, {{request.id, "<ID>"}});
    }
    return rest;
  }

  orntest::Ornsim sim;
  orntest::LiveProcess cli;
  const bool piped;
  bool ok = false;
  size_t started = 0;
  std::string requests;
};

struct Script {
  const char* input;          // ends with 0 or -2: end of input does not end the loop
  const char* expected;       // the transcript after the start, with kBlocks shorthands
  const char* requests;       // one line each, as clitest::Sent writes them
  const char* sim = nullptr;  // ornsim's options instead of answering with kDevices
  // The event awaited before the input; nullptr: none, the input is piped in at once.
  const char* ready = "Event Type: 23\n";
};

TEST(Interactive, DialoguesBuildTheirRequests) {
  const Script kScripts[] = {
      // Only the exact one-character payload choices count: " 1" and "" send an empty payload.
      // The script's last line has no newline: it is still read.
      {"7\n-3\n\nabc\n-1\n 3\n4\n1\n 1\n1\n\n3\n-2", "{BAD}{BAD}{BAD}{WARN}{BAD}{MENU}No response available\n{MENU}Last event:\nEvent Type: 21\nEvent Data: {\"n\":1}\n{MENU}{PAYLOAD}{SYNC}{MENU}{PAYLOAD}{SYNC}{MENU}Last response:\nRequest ID: <ID>\nResponse Code: 200\nResponse Data: {DATA}\n{MENU}", "S1 \nS1 ", "--respond 200:{DATA} --emit 21:0:{\"n\":1}", "Event Type: 21\n"},
      {"1\n1\n1\n1\n1\ng1\n0\n", "{PAYLOAD}{QFI}{POWER}{BATCH}Enter group ID : {SYNC}{MENU}", R"(S1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOn/","method":"POST","requestBody":{"groupId":"g1","directivePayload":{}}},"dfi":[]})"},
      // Bad interface -> power; "3 " is not "3" -> turn off; bad count -> one endpoint.
      {"1\n1\nabc\n3 \n\nx\ne1\n0\n", "{PAYLOAD}{QFI}{WARN}Invalid interface choice, defaulting to Power Control\n{POWER}{BATCH}{COUNT}{WARN}Invalid number of endpoints, defaulting to 1\nEnter endpoint ID 1 : {SYNC}{MENU}", R"(S1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/power/turnOff/","method":"POST","requestBody":{"batch":[{"endpointId":"e1"}],"directivePayload":{}}},"dfi":[]})"},
      // An out-of-menu number asks for a path and leaves the method unset.
      {"1\n1\n9\n/x\n0\n", "{PAYLOAD}{QFI}Invalid choice, using custom path input\nEnter QFI path : {SYNC}{MENU}", R"(S1 {"qfi":{"path":"/x","method":"UNKNOWN"},"dfi":[]})"},
      // Ranges are advice: 150 goes out. Brightness paths have no trailing slash.
      {"1\n1\n2\n1\n2\n2\na\nb\n150\n0\n", "{PAYLOAD}{QFI}{BRIGHTNESS}{BATCH}{COUNT}Enter endpoint ID 1 : Enter endpoint ID 2 : Enter brightness value (0-100) : {SYNC}{MENU}", R"(S1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/brightness/setBrightness","method":"POST","requestBody":{"batch":[{"endpointId":"a"},{"endpointId":"b"}],"directivePayload":{"brightness":150}}},"dfi":[]})"},
      {"1\n1\n2\n2\n1\ng\nx\n0\n", "{PAYLOAD}{QFI}{BRIGHTNESS}{BATCH}Enter group ID : Enter brightness adjustment (-100 to 100) : {WARN}Invalid brightness delta, defaulting to 0\n{SYNC}{MENU}", R"(S1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/brightness/adjustBrightness","method":"POST","requestBody":{"groupId":"g","directivePayload":{"brightnessDelta":0}}},"dfi":[]})"},
      // Colour values are read leniently: "half" is 0.0, without a message.
      {"1\n1\n3\n1\ng\n120\nhalf\n0.8\n0\n", "{PAYLOAD}{QFI}{BATCH}Enter group ID : Enter hue value (0-360) : Enter saturation value (0.0-1.0) : Enter brightness value (0.0-1.0) : {SYNC}{MENU}", R"(S1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/color/setColor","method":"POST","requestBody":{"groupId":"g","directivePayload":{"color":{"hue":120.0,"saturation":0.0,"brightness":0.8}}}},"dfi":[]})"},
      {"1\n1\n4\n2\n0\n\n0\n", "{PAYLOAD}{QFI}{BATCH}{COUNT}Enter color temperature value (1000-10000 Kelvin) : Invalid color temperature, defaulting to 2700\n{SYNC}{MENU}", R"(S1 {"qfi":{"path":"/v2/endpoints/batch/interfaces/colorTemperature/setColorTemperature","method":"POST","requestBody":{"batch":[],"directivePayload":{"colorTemperatureInKelvin":2700}}},"dfi":[]})"},
      // Custom: an empty method answer is POST and asks for a body; "1" is GET without one.
      {"1\n1\n5\n/v2/x\n\n{\"a\":1}\n1\n1\n5\n/v2/y\n1\n0\n", "{PAYLOAD}{QFI}Enter custom QFI path : Select method:\n1. GET\n2. POST\nEnter method (1-2) : Enter custom request body (JSON format) : {SYNC}{MENU}{PAYLOAD}{QFI}Enter custom QFI path : Select method:\n1. GET\n2. POST\nEnter method (1-2) : {SYNC}{MENU}", R"(S1 {"qfi":{"path":"/v2/x","method":"POST","requestBody":{"a":1}},"dfi":[]})" "\n" R"(S1 {"qfi":{"path":"/v2/y","method":"GET"},"dfi":[]})"},
      // DFI dialogues. Brightness answers are pasted into the payload text as typed.
      {"1\n2\n2\nent\nep\n2\n1\n80\n0\n", "{PAYLOAD}{DFI}{IDS}{ALLNS}1. SetBrightness\n2. AdjustBrightness\nEnter directive choice (1-2) : Enter brightness value (0-100) : {SYNC}{MENU}", R"(S1 {"dfi":[{"header":{"namespace":"Corva.BrightnessController","name":"SetBrightness","payloadVersion":"3.0"},"endpoint":{"entityId":"ent","endpointId":"ep","friendlyName":""},"payload":{"brightness":80}}]})"},
      // A picked device narrows the namespaces, offered in table order, and adds the device manager.
      {"1\n2\n1\n1\n2\n{}\n0\n", "{PAYLOAD}{DFI}{FETCH}Selected device: entityId=e1 endpointId=ep1\n\nSelect DFI namespace:\n1. Corva.PowerController\n2. Corva.ColorController\n3. Tessel.DeviceManager\nEnter namespace choice (1-3) : \nSelect directive name:\n1. SetColor\nEnter custom payload (JSON format) : {SYNC}{MENU}", "{QUERY}\n" R"(S1 {"dfi":[{"header":{"namespace":"Corva.ColorController","name":"SetColor","payloadVersion":"3.0"},"endpoint":{"entityId":"e1","endpointId":"ep1","friendlyName":""},"payload":{}}]})"},
      // A device without interfaces is offered the whole table.
      {"1\n2\n1\n2\n5\nwhatever\n\n0\n", "{PAYLOAD}{DFI}{FETCH}Selected device: entityId=e2 endpointId=\n{ALLNS}1. GetDevices\nEnter directive choice (1) : Enter custom payload (JSON format) : {SYNC}{MENU}", "{QUERY}\n" R"(S1 {"dfi":[{"header":{"namespace":"Tessel.DeviceManager","name":"GetDevices","payloadVersion":"3.0"},"endpoint":{"entityId":"e2","endpointId":"","friendlyName":""}}]})"},
      // A bad device number means manual input; a bad directive number the first directive.
      {"1\n2\n1\n3\nent\nep\n4\nabc\n{\"k\":1}\n1\n2\n2\nf\np\n4\n3\n{}\n0\n", "{PAYLOAD}{DFI}{FETCH}Invalid selection, falling back to manual input\n{IDS}{ALLNS}{CT}{WARN}Enter custom payload (JSON format) : {SYNC}{MENU}{PAYLOAD}{DFI}{IDS}{ALLNS}{CT}Enter custom payload (JSON format) : {SYNC}{MENU}", "{QUERY}\n" R"(S1 {"dfi":[{"header":{"namespace":"Corva.ColorTemperatureController","name":"SetColorTemperature","payloadVersion":"3.0"},"endpoint":{"entityId":"ent","endpointId":"ep","friendlyName":""},"payload":{"k":1}}]})" "\n" R"(S1 {"dfi":[{"header":{"namespace":"Corva.ColorTemperatureController","name":"DecreaseColorTemperature","payloadVersion":"3.0"},"endpoint":{"entityId":"f","endpointId":"p","friendlyName":""},"payload":{}}]})"},
      // Both: the QFI part is asked first. An out-of-range namespace is the first one.
      {"1\n3\n1\n3\ne9\n2\nent\nep\n0\n1\n0\n", "{PAYLOAD}{QFI}{POWER}Enter endpoint ID : {DFI}{IDS}{NS}Invalid namespace choice, defaulting to first option\n\nSelect directive name:\n1. TurnOn\n2. TurnOff\nEnter directive choice (1-2) : {SYNC}{MENU}", R"(S1 {"qfi":{"path":"/v2/endpoints/e9/features/power/","method":"GET"},"dfi":[{"header":{"namespace":"Corva.PowerController","name":"TurnOn","payloadVersion":"3.0"},"endpoint":{"entityId":"ent","endpointId":"ep","friendlyName":""}}]})"},
      // The simulator's own device list, from its built-in home.
      {"1\n2\n1\n3\n2\n2\n-20\n0\n", "{PAYLOAD}{DFI}{BEDROOM}Enter brightness delta (-100 to 100) : Sync response received:\nRequest ID: <ID>\nResponse Code: 200\nResponse Data: {\"status\":\"SUCCESS\"}\n{MENU}", "{QUERY}\n" R"(S1 {"dfi":[{"header":{"namespace":"Corva.BrightnessController","name":"AdjustBrightness","payloadVersion":"3.0"},"endpoint":{"entityId":"light-bedroom","endpointId":"ep-bedroom","friendlyName":""},"payload":{"brightnessDelta":-20}}]})", ""},
      // A whole session piped in at once: the first request, sent long before the delayed
      // registration, waits for it.
      {"1\n2\n1\n3\n2\n1\n40\n1\n5\n1\nep-bedroom\nbrightness\nn\n0\n", "{PAYLOAD}{DFI}{BEDROOM}Enter brightness value (0-100) : Sync response received:\nRequest ID: <ID>\nResponse Code: 200\nResponse Data: {\"status\":\"SUCCESS\"}\n{MENU}{PAYLOAD}{STATE}{FEATURE}Sync response received:\nRequest ID: <ID>\nResponse Code: 200\nResponse Data: {\"entityId\":\"light-bedroom\",\"endpointId\":\"ep-bedroom\",\"name\":\"brightness\",\"properties\":[{\"name\":\"brightness\",\"value\":{\"value\":40}}]}\n{MENU}", "{QUERY}\n" R"(S1 {"dfi":[{"header":{"namespace":"Corva.BrightnessController","name":"SetBrightness","payloadVersion":"3.0"},"endpoint":{"entityId":"light-bedroom","endpointId":"ep-bedroom","friendlyName":""},"payload":{"brightness":40}}]})" "\n" R"(S3 {"qfi":{"path":"/v2/endpoints/ep-bedroom/features/brightness","method":"GET"},"dfi":[]})", "--register-delay-ms 500", nullptr},
      // State and subscription dialogues set the request type and the payload.
      {"1\n5\n3\ne1\npower\ny\n2\nent\nep\nLamp\n0\n", "{PAYLOAD}{STATE}{FEATURE}\nSelect latencyTolerance:\n1. HIGH\n2. LOW\nEnter choice (1-2) : {IDS}Enter friendly name : {SYNC}{MENU}", R"(S3 {"qfi":{"path":"/v2/endpoints/e1/features/power","method":"GET","requestBody":{"latencyTolerance":"LOW"}},"dfi":[{"header":{"namespace":"Corva","name":"ReportState","payloadVersion":"3"},"endpoint":{"entityId":"ent","endpointId":"ep","friendlyName":"Lamp"},"payload":{}}]})"},
      {"1\n5\n1\ne1\nbrightness\nyes\n0\n", "{PAYLOAD}{STATE}{FEATURE}{SYNC}{MENU}", R"(S3 {"qfi":{"path":"/v2/endpoints/e1/features/brightness","method":"GET"},"dfi":[]})"},
      {"1\n4\n3\n0\n", "{PAYLOAD}{SUBOP}{SYNC}{MENU}", R"(S2 {"operation":"get","subscriptions":[]})"},
      // Empty answers take the defaults: create, individual endpoints.
      {"1\n4\n\n\nx\ne1\n2\nN1\nn1\nN2\nn2\n0\n", "{PAYLOAD}{SUBOP}{TARGET}\nEnter number of subscriptions:  : {WARN}Invalid number of subscriptions, defaulting to 1\n\nSubscription 1:\nEnter endpoint ID(QFI-EntityId) : \nEnter number of event types for this subscription:  : \nEvent Type 1:\n{EVENT}\nEvent Type 2:\n{EVENT}{SYNC}{MENU}", R"(S2 {"operation":"create","subscriptions":[{"entities":{"endpoint":{"type":"Endpoint","id":"e1"}},"eventTypes":[{"namespace":"N1","name":"n1"},{"namespace":"N2","name":"n2"}]}]})"},
      {"1\n4\n2\n2\ng1\n\nN\nn\n0\n", "{PAYLOAD}{SUBOP}{TARGET}\nGroup Subscription:\nEnter group ID : \nEnter number of event types:  : Invalid number of event types, defaulting to 1\n\nEvent Type 1:\n{EVENT}{SYNC}{MENU}", R"(S2 {"operation":"delete","subscriptions":[{"entities":{"endpointGroup":{"id":"g1"}},"eventTypes":[{"namespace":"N","name":"n"}]}]})"},
      {"1\n4\n1\n1\n0\n0\n", "{PAYLOAD}{SUBOP}{TARGET}\nEnter number of subscriptions:  : {SYNC}{MENU}", R"(S2 {"operation":"create","subscriptions":[]})"},
  };
  for (const Script& c : kScripts) {
    Session session(c.sim ? clitest::expand(c.sim, kBlocks).c_str() : nullptr, c.ready);
    if (!session.ok)
      return;
    session.cli.send(c.input);
    EXPECT_EQ(clitest::expand(c.expected, kBlocks), session.finish(c.input)) << c.input;
    EXPECT_EQ(clitest::expand(c.requests, kBlocks), session.requests) << c.input;
  }
}
// The async answer is printed by the library's thread; the simulator's delay puts it after
// the menu, while orncli waits for the next command. It is not kept as the last response,
// and a failed sync send replaces a good one. With the service gone, the device cache falls
// back to manual input.
TEST(InteractiveMenu, AsyncAnswersAndFailedSends) {
  // The delay keeps the async answer behind the menu printed right after the send, even on
  // a loaded machine.
  Session session(
      (std::string("--respond '200:") + kDevices + "' --response-delay-ms 600").c_str());
  ASSERT_TRUE(session.ok);
  orntest::LiveProcess& cli = session.cli;
  const std::string answered = std::string("Response Data: ") + kDevices + "\n";
  cli.send("2\n6\n");
  ASSERT_TRUE(cli.waitForOut(answered, session.started));
  cli.send("3\n1\n6\n");
  ASSERT_TRUE(cli.waitForOut(answered + kMenuLines + "cmd> ", cli.out().find(answered) + 1));
  session.sim.stop();
  const size_t stopped = cli.out().size();
  ASSERT_TRUE(cli.waitForOut("Event Type: 22\n", stopped));
  ASSERT_TRUE(cli.waitForOut("\n", cli.out().find("Event Type: 22\n", stopped) + 15));
  cli.send("1\n6\n3\n2\n6\n1\n2\n1\nent\nep\n1\n1\n0\n");
  EXPECT_EQ(clitest::expand(
      "{PAYLOAD}Sending GetReachableDevices request...\nAsync request sent with ID: <ID>\n{MENU}\nReceived async response:\nRequest ID: <ID>\nResponse Code: 200\nResponse Data: {DATA}\nNo response available\n{MENU}"
      "{PAYLOAD}Sending GetReachableDevices request...\n{SYNC}{MENU}\nReceived event:\nEvent Type: 22\nEvent Data: {\"status\":\"DISCONNECTED\"}\n"
      "{PAYLOAD}Sending GetReachableDevices request...\nFailed to send sync request\n{MENU}No response available\n{MENU}"
      "{PAYLOAD}Sending GetReachableDevices request...\nFailed to send async request\n{MENU}"
      "{PAYLOAD}{DFI}Fetching local connected devices...\nFailed to fetch local devices\nFalling back to manual input\n{IDS}{ALLNS}1. TurnOn\n2. TurnOff\nEnter directive choice (1-2) : Failed to send sync request\n{MENU}",
      kBlocks), session.finish(""));
  EXPECT_EQ(clitest::expand("A1 {Q}\n{QUERY}", kBlocks), session.requests);
}

// clang-format on
}  // namespace
