// SPDX-License-Identifier: Apache-2.0
// libFuzzer target: arbitrary request payloads of every type through ornsim's
// handler, against one home that lives across inputs so state changes pile up.
// Subscriptions are per input, so they cannot grow without bound over a run.
#include "RequestHandler.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static ornsim::Home home = ornsim::builtinHome();
  ornsim::Subscriptions subscriptions;
  if (size == 0)
    return 0;
  // The first byte picks the request type, so 1, 2 and 3 are all reached.
  const int type = data[0] % 4;
  const std::string payload(reinterpret_cast<const char*>(data) + 1, size - 1);
  ornsim::HandlerResult r = ornsim::handleRequest(home, subscriptions, "fuzz", type, payload);
  for (const auto& change : r.changes)
    ornsim::stateChangePayload(change);
  return 0;
}
