// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the one-line JSON results of one-shot mode, written by plain concatenation.
#include "ORNCLI.h"

#include "ORNCLIInternal.h"

namespace ornwick {
namespace ornUtility {

// Deliberate: nothing is escaped, so the bytes stay predictable.
int ORNCLI::printError(const std::string& error, const std::string& message, int code) {
  writeErr("{\"error\":\"" + error + "\",\"message\":\"" + message + "\"}\n");
  return code;
}

// REQUIRES: response is not empty.
void ORNCLI::printResponse(const std::shared_ptr<ORNResponse>& response) {
  // responseData is JSON text already; only an empty one needs a stand-in.
  const std::string& data = response->responseData.empty() ? "\"\"" : response->responseData;
  writeOut("{\"requestId\":\"" + response->requestId + "\",\"responseCode\":" +
           std::to_string(response->responseCode) + ",\"responseData\":" + data + "}\n");
}

int printHelp(const char* text, int code) {
  writeLine(text);
  return code;
}

int finishRequest(ORNCLI& cli, const std::shared_ptr<ORNResponse>& response,
                  const std::string& failure) {
  // Any response counts as success, whatever its code.
  if (!response) {
    return cli.printError("request_failed", failure, 2);
  }
  cli.printResponse(response);
  return 0;
}

}  // namespace ornUtility
}  // namespace ornwick
