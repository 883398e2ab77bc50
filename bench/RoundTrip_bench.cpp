// SPDX-License-Identifier: Apache-2.0
// Request round trips through the connector library to a real ornsim process: the latency
// a script pays per orncli request once connected.
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <memory>
#include <mutex>

#include "ORNClient.h"
#include "OrnTestSupport.h"

namespace {

using namespace ornwick::ornConnector;

class Registered : public IORNEventHandler {
 public:
  void onResponse(std::shared_ptr<api::ORNResponse>) noexcept override {}
  void onEvent(std::shared_ptr<api::ORNEvent> event) noexcept override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (event && event->eventType == api::kClientRegistered) {
      registered_ = true;
      cv_.notify_all();
    }
  }
  bool wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    return cv_.wait_until(lock, std::chrono::steady_clock::now() + std::chrono::seconds(10),
                          [this] { return registered_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable cv_;
  bool registered_ = false;
};

void BM_SyncRoundTrip(benchmark::State& state) {
  orntest::Ornsim sim({"--respond", "200:{}"});
  setenv("ORN_QIPC_SOCKET", sim.socketPath().c_str(), 1);
  auto handler = std::make_shared<Registered>();
  ORNClient client;
  if (!sim.ok() || !client.initialize(handler, ConnectorType::kLocalService, "bench") ||
      !handler->wait()) {
    state.SkipWithError("no simulator");
    return;
  }
  auto request = std::make_shared<api::ORNRequest>();
  request->requestType = 1;
  request->payload = R"({"qfi":{"path":"/v2/endpoints","method":"GET"},"dfi":[]})";
  for (auto _ : state) {
    request->requestId = client.generateRequestId();
    benchmark::DoNotOptimize(client.sendSyncRequest(request));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SyncRoundTrip)->UseRealTime();

}  // namespace
