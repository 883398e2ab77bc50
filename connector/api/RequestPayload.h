// SPDX-License-Identifier: Apache-2.0
// RequestPayload: at most one QFI request and any number of DFI requests.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "DFIRequest.h"
#include "QFIRequest.h"

namespace ornwick {
namespace ornConnector {
namespace api {

struct RequestPayload {
  std::shared_ptr<QFIRequest> qfi;
  std::vector<std::shared_ptr<DFIRequest>> dfis;

  // {"qfi":...,"dfi":[...]}: "qfi" only with a QFI request, "dfi" always; a
  // sub-request that does not parse is null. "" when there is neither.
  std::string toJsonString() const;
};

}  // namespace api
}  // namespace ornConnector
}  // namespace ornwick
