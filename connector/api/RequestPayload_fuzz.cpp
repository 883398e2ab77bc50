// SPDX-License-Identifier: Apache-2.0
// libFuzzer target: arbitrary text as a QFI body and a DFI payload (the tool's
// --body and --payload) through the request text the tool sends: parse, embed,
// write and free.
#include "DFIRequest.h"
#include "ORNRequestBuilder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace ornwick::ornConnector::api;
  const std::string text(reinterpret_cast<const char*>(data), size);
  ORNRequestBuilder builder;
  builder.requestType = 1;
  builder.addQfi("/v2/endpoints", QFIRequest::POST, text);
  DFIRequestBuilder dfi(&builder);
  dfi.request()->payload = text;
  dfi.append();
  const std::string payload = builder.build()->payload;
  // Both parts embed the same text, so they are null together or not at all.
  const bool bothNull = payload == R"({"qfi":null,"dfi":[null]})";
  const bool bothThere = payload.compare(0, 9, R"({"qfi":{")") == 0 &&
                         payload.find(R"("dfi":[{"header":)") != std::string::npos;
  if (bothNull == bothThere)
    __builtin_trap();
  return 0;
}
