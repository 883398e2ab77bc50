// SPDX-License-Identifier: Apache-2.0
// Building and writing request texts: the work orncli does per command before any I/O.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "JsonDocBuilder.h"
#include "ORNRequestBuilder.h"
#include "QfiPath.h"
#include "Serialize.h"

namespace {

using namespace ornwick::ornConnector::api;
using zedLocalUtil::jsonUtil::JsonDocBuilder;
using zedLocalUtil::jsonUtil::JsonValueBuilder;

// A batch power directive for N endpoints, from ids to the envelope's payload text.
void BM_BatchDirectivePayload(benchmark::State& state) {
  std::vector<std::string> ids;
  for (int i = 0; i < state.range(0); ++i)
    ids.push_back("endpoint-" + std::to_string(i));
  for (auto _ : state) {
    JsonDocBuilder doc;
    JsonValueBuilder batch(doc.allocator(), true);
    for (const auto& id : ids) {
      JsonValueBuilder entry(doc.allocator());
      entry.set("endpointId", id);
      batch.add(entry);
    }
    doc.set("batch", batch);
    JsonValueBuilder payload(doc.allocator());
    doc.set("directivePayload", payload);
    ORNRequestBuilder builder;
    builder.requestId = "r1";
    builder.requestType = 1;
    builder.addQfi(QfiPath::batchDirective("power", "turnOn").toString(), QFIRequest::POST,
                   zedLocalUtil::jsonUtil::serialize(doc.root()));
    benchmark::DoNotOptimize(builder.build());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BatchDirectivePayload)->Arg(1)->Arg(16)->Arg(256);

}  // namespace
