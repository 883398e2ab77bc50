// SPDX-License-Identifier: Apache-2.0
// ornsim's command line.
#pragma once

#include <climits>
#include <string>
#include <vector>

#include "Faults.h"
#include "QipcProtocol.h"
#include "Subscriptions.h"

namespace ornsim {

// --frame-budget's default: room for 64 of the largest frames each way.
constexpr long kDefaultFrameBudget = 64L * ornwick::qipc::kMaxFrameSize;
static_assert(kDefaultFrameBudget <= INT_MAX, "the frame budget is an int option");

struct EmitSpec {
  int eventType = 0;
  int delayMs = 0;
  std::string payload;
};

struct Options {
  std::string socketPath;  // empty: the library's default address
  std::string homeFile;    // empty: the built-in home
  std::string recordFile;  // empty: no record
  bool noRegister = false;
  int registerDelayMs = 0;
  bool noResponse = false;
  int responseDelayMs = 0;
  bool respond = false;  // answer every request with respondCode/respondData
  int respondCode = 0;
  std::string respondData;
  std::vector<EmitSpec> emits;
  // Limits that bound ornsim's memory; docs/ornsim.md says what happens at each.
  int maxConnections = 256;
  // Bytes, for partly received and, separately, for unsent frames.
  int frameBudget = static_cast<int>(kDefaultFrameBudget);
  int frameTimeoutMs = 10000;     // from a frame's first byte to its last
  int registerTimeoutMs = 10000;  // from accepting a connection to its registration
  int maxSubscriptions = kDefaultMaxSubscriptions;  // per client name
  int maxClients = kDefaultMaxClients;              // client names holding subscriptions
  std::vector<Fault> faults;  // --fault, in order: the first that applies wins
  std::string stateFile;      // empty: state lives in memory only
  bool verbose = false;       // the traffic log on stderr
  // --http: the live view's address and port; port -1 when it is off, 0 for any free port.
  std::string httpAddress = "127.0.0.1";
  int httpPort = -1;
  bool help = false;
  bool version = false;
};

// Parses argv[1..]; returns false and sets *err on an unknown option or a bad
// value.
bool parseOptions(int argc, const char* const* argv, Options* options, std::string* err);

// The --help text.
const char* usageText();

}  // namespace ornsim
