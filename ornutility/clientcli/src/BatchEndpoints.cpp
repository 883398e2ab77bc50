// SPDX-License-Identifier: Apache-2.0
// buildBatchEndpoints: the endpoint list of every batch directive body.
#include "BatchEndpoints.h"

namespace ornwick {
namespace ornUtility {

using zedLocalUtil::jsonUtil::JsonValueBuilder;

void buildBatchEndpoints(zedLocalUtil::jsonUtil::JsonDocBuilder& doc,
                         const std::vector<std::string>& endpointIds) {
  JsonValueBuilder batch(doc.allocator(), true);
  // Ids keep their order and duplicates; the service decides what a repeat
  // means.
  for (const std::string& id : endpointIds) {
    JsonValueBuilder entry(doc.allocator());
    entry.set("endpointId", id);
    batch.add(entry);
  }
  doc.set("batch", batch);
}

}  // namespace ornUtility
}  // namespace ornwick
