// SPDX-License-Identifier: Apache-2.0
// The one-shot handler's single-slot waits, also with a real second thread; the interactive
// handler's output is pinned by the interactive end-to-end suite.
#include "ORNCLIEventHandlers.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <thread>

#include "ORNCLIInternal.h"
#include "QipcProtocol.h"

namespace ornwick::ornUtility {
namespace {

// The tool keeps its own copy of the protocol numbers it needs; they must be the protocol's.
static_assert(kPayloadRequestType == qipc::kPayloadRequest);
static_assert(kSubscriptionRequestType == qipc::kSubscriptionRequest);
static_assert(kStateRequestType == qipc::kStateRequest);
static_assert(kStateChangeEvent == qipc::kStateChangeEvent);
static_assert(kClientRegisteredEvent == qipc::kClientRegisteredEvent);

std::shared_ptr<ORNResponse> response(const std::string& id) {
  return std::make_shared<ORNResponse>(ORNResponse{id, 0, ""});
}

std::shared_ptr<ORNEvent> event(int type, const std::string& payload = "") {
  return std::make_shared<ORNEvent>(ORNEvent{type, payload});
}

// Null records are ignored; each slot keeps the latest unread record of its own kind; only
// event 23 registers, for good; a zero or negative timeout never waits.
TEST(ORNCLIEventHandler, SlotsRegistrationAndNoWait) {
  for (int timeout : {0, -1, INT_MIN}) {
    for (int type : {0, 20, 21, 22, 23, 24, -23}) {
      ORNCLIEventHandler handler;
      handler.onResponse(nullptr);
      handler.onEvent(nullptr);
      EXPECT_FALSE(handler.waitForRegistration(timeout)) << timeout;
      EXPECT_FALSE(handler.waitForResponse(timeout)) << timeout;
      EXPECT_FALSE(handler.waitForEvent(timeout)) << timeout;
      handler.onEvent(event(type));
      handler.onResponse(response("r1"));
      handler.onResponse(response("r2"));
      EXPECT_EQ(type == 23, handler.waitForRegistration(timeout)) << type << " " << timeout;
      auto r = handler.waitForResponse(timeout);
      ASSERT_TRUE(r) << timeout;
      EXPECT_EQ("r2", r->requestId);
      EXPECT_FALSE(handler.waitForResponse(timeout)) << "the wait empties the slot";
      auto e = handler.waitForEvent(timeout);
      ASSERT_TRUE(e) << type << " " << timeout;
      EXPECT_EQ(type, e->eventType);
      EXPECT_FALSE(handler.waitForEvent(timeout));
      EXPECT_EQ(type == 23, handler.waitForRegistration(timeout)) << "never reset: " << type;
    }
  }
  ORNCLIInteractiveEventHandler interactive;
  testing::internal::CaptureStdout();
  interactive.onResponse(nullptr);
  interactive.onEvent(nullptr);
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
  EXPECT_FALSE(interactive.lastEvent());
}

TEST(ORNCLIEventHandler, ManyDeliveriesFromAnotherThreadEndWithTheLast) {
  ORNCLIEventHandler handler;
  constexpr int kCount = 1000;
  std::thread library([&handler] {
    for (int i = 1; i <= kCount; ++i)
      handler.onEvent(event(21, std::to_string(i)));
  });
  // Each wait returns some delivered event, in increasing order, until the last one.
  for (int last = 0; last < kCount;) {
    auto e = handler.waitForEvent(60);
    ASSERT_TRUE(e);
    const int n = static_cast<int>(std::strtol(e->payload.c_str(), nullptr, 10));
    EXPECT_GT(n, last);
    last = n;
  }
  library.join();
  EXPECT_FALSE(handler.waitForEvent(0));
}

}  // namespace
}  // namespace ornwick::ornUtility
