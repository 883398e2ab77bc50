// SPDX-License-Identifier: Apache-2.0
// Helpers shared by the orncli end-to-end suites: command lines, shorthand transcripts and
// the requests that ornsim recorded.
#pragma once

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <string>
#include <utility>
#include <vector>

#include "OrnTestSupport.h"

namespace clitest {

// Splits a command line at blanks; '...' quotes blanks or an empty argument.
inline std::vector<std::string> splitArgs(const std::string& line) {
  std::vector<std::string> args;
  std::string arg;
  bool quoted = false, open = false;
  for (char c : line + ' ') {
    if (c != ' ' || quoted) {
      c == '\'' ? void(quoted = !quoted) : void(arg += c);
      open = true;
    } else if (open) {
      args.push_back(arg);
      arg.clear();
      open = false;
    }
  }
  return args;
}

using Blocks = std::vector<std::pair<std::string, std::string>>;

// Replaces every token of text by its block, in order, so a block may hold later tokens.
inline std::string expand(std::string text, const Blocks& blocks) {
  for (const auto& [token, block] : blocks) {
    for (size_t at; (at = text.find(token)) != std::string::npos;)
      text.replace(at, token.size(), block);
  }
  return text;
}

// A recorded request: its client, its id, and "S" (sync) or "A" (async), its type, a blank
// and its payload, as in "A1 {...}".
struct Sent {
  std::string client, id, line;
};

// The requests sim has recorded so far; a line that does not parse fails the test.
inline std::vector<Sent> sent(const orntest::Ornsim& sim) {
  std::vector<Sent> requests;
  for (const std::string& line : sim.recordedRequests()) {
    rapidjson::Document d;
    bool ok = !d.Parse(line.c_str()).HasParseError() && d.IsObject();
    for (const char* key : {"client", "requestId", "payload", "sync", "requestType"})
      ok = ok && d.HasMember(key);
    if (!ok || !d["client"].IsString() || !d["requestId"].IsString() || !d["payload"].IsString() ||
        !d["sync"].IsBool() || !d["requestType"].IsInt()) {
      ADD_FAILURE() << "bad record line: " << line;
      continue;
    }
    requests.push_back({d["client"].GetString(), d["requestId"].GetString(),
                        (d["sync"].GetBool() ? "S" : "A") +
                            std::to_string(d["requestType"].GetInt()) + " " +
                            std::string(d["payload"].GetString(), d["payload"].GetStringLength())});
  }
  return requests;
}

// Where actual first differs from expected, as the line number and both lines with their
// control characters shown; "" when they are equal.
inline std::string firstDifference(const std::string& expected, const std::string& actual) {
  if (expected == actual)
    return "";
  size_t start = 0, line = 1;  // of the first line that differs
  for (size_t i = 0; i < expected.size() && i < actual.size() && expected[i] == actual[i]; ++i)
    if (expected[i] == '\n')
      start = i + 1, ++line;
  const auto lineAt = [start](const std::string& text) {
    if (start >= text.size())
      return std::string("(end of text)");
    std::string shown = "\"";
    for (size_t i = start; i < text.size() && text[i] != '\n'; ++i) {
      const unsigned char c = text[i];
      const char hex[] = {'\\', 'x', "0123456789abcdef"[c >> 4], "0123456789abcdef"[c & 15]};
      shown += c == '"' || c == '\\' ? std::string{'\\', char(c)}
               : c < 0x20            ? std::string(hex, sizeof(hex))
                                     : std::string(1, char(c));
    }
    return shown + (text.find('\n', start) == std::string::npos ? "\" (no newline)" : "\"");
  };
  return "line " + std::to_string(line) + "\n  expected: " + lineAt(expected) +
         "\n  actual:   " + lineAt(actual) + "\n";
}

// The whole text of golden file `name` (tests/e2e/golden/); "" when it cannot be read.
inline std::string golden(const std::string& name) {
  return orntest::fileText(std::string(ORN_GOLDEN_DIR) + "/" + name);
}

constexpr const char kWarning[] = "Warning: Invalid characters in input, using default value\n";

}  // namespace clitest
