// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the orncli tool, one-shot subcommands and the interactive menu.
// One class split across ORNCLI_*.cpp by concern; each section below names its file.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DFIRequest.h"
#include "JsonDocBuilder.h"
#include "ORNCLIEventHandlers.h"
#include "ORNClient.h"
#include "ORNRequest.h"
#include "ORNResponse.h"
#include "QFIRequest.h"
#include "SubscriptionRequest.h"

namespace ornwick {
namespace ornUtility {

using ornConnector::ORNClient;
using ornConnector::api::DFIRequest;
using ornConnector::api::ORNRequest;
using ornConnector::api::QFIRequest;
using ornConnector::api::SubscriptionRequest;

// A reachable device as the interactive dialogues offer it.
struct CachedDevice {
  std::string entityId;
  std::string endpointId;
  std::vector<std::string> interfaces;
};

// ORNCLI_deviceCache.cpp: the service's device list, parsed leniently; never throws.
std::vector<CachedDevice> parseLocalDevices(const std::string& json);
void displayDeviceList(const std::vector<CachedDevice>& devices);

class ORNCLI {
 public:
  ORNCLI();
  ~ORNCLI();

  ORNCLI(const ORNCLI&) = delete;
  ORNCLI& operator=(const ORNCLI&) = delete;

  // ORNCLI.cpp: one-shot dispatch; the arguments exclude the program name. Returns the
  // exit status.
  int runCli(int argc, char** argv);

  // ORNCLI_menu.cpp: the interactive mode; returns when the user leaves.
  void run();

  // ORNCLI_output.cpp: the one-line JSON results. printError returns code unchanged.
  int printError(const std::string& error, const std::string& message, int code);
  void printResponse(const std::shared_ptr<ORNResponse>& response);

  // ORNCLI_input.cpp: one line of standard input after the prompt and "> " or " : ";
  // "" at end of input.
  std::string nextOption(const std::string& prompt);
  std::string nextArgRequired(const std::string& prompt);

 private:
  // ORNCLI_session.cpp
  bool initConnection(int connectTimeoutSeconds);
  std::shared_ptr<ORNResponse> sendAndWait(std::shared_ptr<ORNRequest> request, int timeoutSeconds,
                                           bool sync);

  // ORNCLI_devices.cpp
  int handleDevices(int argc, char** argv, bool sync, int timeoutSeconds);
  std::shared_ptr<ORNRequest> buildDevicesRequest();

  // ORNCLI_lights.cpp
  int handlePower(int argc, char** argv, bool sync, int timeoutSeconds);
  int handleBrightness(int argc, char** argv, bool sync, int timeoutSeconds);
  int handleColor(int argc, char** argv, bool sync, int timeoutSeconds);
  int handleColorTemp(int argc, char** argv, bool sync, int timeoutSeconds);
  std::shared_ptr<ORNRequest> buildPowerRequest(const std::string& action,
                                                const std::vector<std::string>& endpointIds);
  std::shared_ptr<ORNRequest> buildBrightnessRequest(const std::string& action,
                                                     const std::vector<std::string>& endpointIds,
                                                     int number);
  std::shared_ptr<ORNRequest> buildColorRequest(const std::vector<std::string>& endpointIds,
                                                double hue, double saturation, double brightness);
  std::shared_ptr<ORNRequest> buildColorTempRequest(const std::vector<std::string>& endpointIds,
                                                    int kelvin);

  // ORNCLI_state.cpp
  int handleState(int argc, char** argv, bool sync, int timeoutSeconds);
  std::shared_ptr<ORNRequest> buildStateGetRequest(const std::string& endpoint,
                                                   const std::string& feature,
                                                   const std::string& latency);
  std::shared_ptr<ORNRequest> buildStateReportRequest(const std::string& entity,
                                                      const std::string& endpoint,
                                                      const std::string& friendlyName);

  // ORNCLI_raw.cpp
  int handleDfi(int argc, char** argv, bool sync, int timeoutSeconds);
  int handleQfi(int argc, char** argv, bool sync, int timeoutSeconds);
  std::shared_ptr<ORNRequest> buildDfiRequest(const std::string& entity,
                                              const std::string& endpoint,
                                              const std::string& nameSpace, const std::string& name,
                                              const std::string& payload);
  std::shared_ptr<ORNRequest> buildQfiRequest(const std::string& path, const std::string& method,
                                              const std::string& body);

  // ORNCLI_subscribe.cpp
  int handleSubscribe(int argc, char** argv, bool sync, int timeoutSeconds);
  std::shared_ptr<ORNRequest> buildSubscribeRequest(
      SubscriptionRequest::Operation operation, const std::string& endpoint,
      const std::vector<std::pair<std::string, std::string>>& eventPairs);

  // ORNCLI_menu.cpp
  void initCommandMap();
  void showUsage() const;
  bool handleCommand(int id);
  void handlePayloadInput(std::shared_ptr<ORNRequest> request);

  // ORNCLI_qfiPrompts.cpp
  std::shared_ptr<QFIRequest> promptQfiRequest();
  void promptQfiPower(std::shared_ptr<QFIRequest> request);
  void promptQfiBrightness(std::shared_ptr<QFIRequest> request);
  void promptQfiColor(std::shared_ptr<QFIRequest> request);
  void promptQfiColorTemp(std::shared_ptr<QFIRequest> request);
  void promptQfiCustom(std::shared_ptr<QFIRequest> request);

  // ORNCLI_dfiPrompts.cpp
  std::shared_ptr<DFIRequest> promptDfiRequest();
  void promptDfiNamespaceAndDirective(std::shared_ptr<DFIRequest> request,
                                      const std::vector<std::string>& deviceNamespaces);
  void promptDfiPayload(std::shared_ptr<DFIRequest> request);

  // ORNCLI_otherPrompts.cpp
  void promptStateQueryRequest(std::shared_ptr<ORNRequest> request);
  void promptSubscriptionRequest(std::shared_ptr<ORNRequest> request);

  // ORNCLI_deviceCache.cpp
  std::vector<CachedDevice> fetchLocalDevices();

  // Declaration order is fixed: the destructor releases them in reverse.
  std::vector<std::string> menuNames_;
  std::shared_ptr<ORNClient> interactiveClient_;
  std::shared_ptr<ORNCLIInteractiveEventHandler> interactiveHandler_;
  std::map<int, std::string> commandMap_;
  std::shared_ptr<ORNResponse> lastResponse_;
  std::shared_ptr<ORNClient> client_;
  std::shared_ptr<ORNCLIEventHandler> handler_;
};

}  // namespace ornUtility
}  // namespace ornwick
