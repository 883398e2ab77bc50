// Helpers shared by the orncli end-to-end suites: the lines orncli writes, and the
// requests that ornsim recorded.
#pragma once

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "OrnTestSupport.h"

namespace clitest {

// A request as ornsim's record file holds it.
struct RecordedRequest {
  std::string client;
  bool sync = false;
  std::string requestId;
  int requestType = -1;
  std::string payload;
};

// Parses one record line; false when it is not a well-formed request line.
inline bool parseRequestLine(const std::string& line, RecordedRequest* out) {
  rapidjson::Document doc;
  doc.Parse(line.c_str());
  if (doc.HasParseError() || !doc.IsObject()) {
    return false;
  }
  const auto client = doc.FindMember("client");
  const auto sync = doc.FindMember("sync");
  const auto id = doc.FindMember("requestId");
  const auto type = doc.FindMember("requestType");
  const auto payload = doc.FindMember("payload");
  if (client == doc.MemberEnd() || !client->value.IsString() || sync == doc.MemberEnd() ||
      !sync->value.IsBool() || id == doc.MemberEnd() || !id->value.IsString() ||
      type == doc.MemberEnd() || !type->value.IsInt() || payload == doc.MemberEnd() ||
      !payload->value.IsString()) {
    return false;
  }
  out->client = client->value.GetString();
  out->sync = sync->value.GetBool();
  out->requestId = id->value.GetString();
  out->requestType = type->value.GetInt();
  out->payload.assign(payload->value.GetString(), payload->value.GetStringLength());
  return true;
}

// The requests sim has recorded so far, parsed; a line that does not parse fails the test.
inline std::vector<RecordedRequest> recorded(const orntest::Ornsim& sim) {
  std::vector<RecordedRequest> requests;
  for (const std::string& line : sim.recordedRequests()) {
    RecordedRequest request;
    EXPECT_TRUE(parseRequestLine(line, &request)) << line;
    requests.push_back(request);
  }
  return requests;
}

inline std::string joinArgs(const std::vector<std::string>& args) {
  std::string joined;
  for (const std::string& arg : args) {
    joined += (joined.empty() ? "" : " ") + arg;
  }
  return joined;
}

inline std::string errorLine(const std::string& key, const std::string& message) {
  return "{\"error\":\"" + key + "\",\"message\":\"" + message + "\"}\n";
}

inline std::string responseLine(const std::string& requestId, int code, const std::string& data) {
  return "{\"requestId\":\"" + requestId + "\",\"responseCode\":" + std::to_string(code) +
         ",\"responseData\":" + data + "}\n";
}

constexpr const char kStoiWarning[] = "Warning: Invalid characters in input, using default value\n";

}  // namespace clitest
