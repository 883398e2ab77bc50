// SPDX-License-Identifier: Apache-2.0
// buildBatchEndpoints: the "batch" member shared by every batch directive body.
#pragma once

#include <string>
#include <vector>

#include "JsonDocBuilder.h"

namespace ornwick {
namespace ornUtility {

// Sets "batch":[{"endpointId":id},...] on the document, ids in the order given.
void buildBatchEndpoints(zedLocalUtil::jsonUtil::JsonDocBuilder& doc,
                         const std::vector<std::string>& endpointIds);

}  // namespace ornUtility
}  // namespace ornwick
