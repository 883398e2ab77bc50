#include "BatchEndpoints.h"

#include <gtest/gtest.h>

#include "Serialize.h"

namespace ornwick {
namespace ornUtility {
namespace {

// The filled directive bodies are pinned by the one-shot end-to-end suite.
TEST(BatchEndpoints, KeepsOrderDuplicatesAndEmptyIds) {
  static const struct {
    std::vector<std::string> ids;
    const char* want;
  } kCases[] = {
      {{}, R"({"batch":[],"next":1})"},
      {{"b", "a", "b"},
       R"({"batch":[{"endpointId":"b"},{"endpointId":"a"},{"endpointId":"b"}],"next":1})"},
      {{""}, R"({"batch":[{"endpointId":""}],"next":1})"},
  };
  for (const auto& c : kCases) {
    zedLocalUtil::jsonUtil::JsonDocBuilder doc;
    buildBatchEndpoints(doc, c.ids);
    // Members set afterwards follow "batch".
    doc.withHelper([](zedLocalUtil::jsonUtil::JsonValueBuilder& b) { b.set("next", 1); });
    EXPECT_EQ(c.want, zedLocalUtil::jsonUtil::serialize(doc.root())) << c.want;
  }
}

}  // namespace
}  // namespace ornUtility
}  // namespace ornwick
