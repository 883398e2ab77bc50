// SPDX-License-Identifier: Apache-2.0
// RequestInfo: what a request asks for, read without acting on it, for the
// traffic log and targeted faults.
#pragma once

#include <string>
#include <vector>

namespace ornsim {

struct RequestInfo {
  // For the log: "GET /v2/endpoints", "Corva.PowerController.TurnOn ep-kitchen",
  // "subscribe create ep-kitchen"; several operations joined by "; ".
  std::string what;
  std::vector<std::string> paths;      // QFI paths, as normalPath gives them
  std::vector<std::string> endpoints;  // entity or endpoint ids the whole request is about
  std::vector<std::string> entries;    // ids of a batch's entries, each answered apart
  std::vector<std::string> groups;     // group ids the request names
  bool groupBatch = false;             // a batch on a group: its members are entries
  bool control = false;                // a simulator-only path (under /sim/)
};

// Reads a request payload of `requestType`. Text that does not parse (or nests
// deeper than kMaxJsonDepth) gives `what` "invalid JSON" and nothing else.
RequestInfo describeRequest(int requestType, const std::string& payload);

// The path without its query and trailing "/": "/v2/endpoints/?x=1" gives
// "/v2/endpoints".
std::string normalPath(const std::string& path);

// Nesting deeper than this is treated as JSON that does not parse.
constexpr int kMaxJsonDepth = 256;

}  // namespace ornsim
