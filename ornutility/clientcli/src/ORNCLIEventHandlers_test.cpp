// The one-shot handler's single-slot waits with real threads, and the interactive handler's lines.
#include "ORNCLIEventHandlers.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <thread>

namespace ornwick {
namespace ornUtility {
namespace {

std::shared_ptr<ORNResponse> response(const std::string& id) {
  auto r = std::make_shared<ORNResponse>();
  r->requestId = id;
  return r;
}

std::shared_ptr<ORNEvent> event(int type, const std::string& payload = "") {
  auto e = std::make_shared<ORNEvent>();
  e->eventType = type;
  e->payload = payload;
  return e;
}

TEST(ORNCLIEventHandler, ResponseSlotHoldsOnlyTheLatestUnread) {
  ORNCLIEventHandler handler;
  EXPECT_FALSE(handler.waitForResponse(0));
  // Delivered after a timed-out wait, and replaced before the next one.
  handler.onResponse(response("r1"));
  handler.onResponse(response("r2"));
  auto taken = handler.waitForResponse(0);
  ASSERT_TRUE(taken);
  EXPECT_EQ("r2", taken->requestId);
  EXPECT_FALSE(handler.waitForResponse(0)) << "the wait empties the slot";
}

// Waits woken by the library thread are exercised by every end-to-end run.
TEST(ORNCLIEventHandler, ManyDeliveriesFromAnotherThreadEndWithTheLast) {
  ORNCLIEventHandler handler;
  constexpr int kCount = 1000;
  std::thread library([&handler] {
    for (int i = 1; i <= kCount; ++i) {
      handler.onEvent(event(21, std::to_string(i)));
    }
  });
  // Each wait returns some delivered event, in increasing order, until the last one.
  int last = 0;
  while (last < kCount) {
    auto e = handler.waitForEvent(60);
    ASSERT_TRUE(e);
    const int n = static_cast<int>(std::strtol(e->payload.c_str(), nullptr, 10));
    EXPECT_GT(n, last);
    last = n;
  }
  library.join();
  EXPECT_FALSE(handler.waitForEvent(0));
}

TEST(ORNCLIEventHandler, OnlyEvent23RegistersAndEveryEventIsKept) {
  static const int kTypes[] = {0, 20, 21, 22, 23, 24, -23};
  for (int type : kTypes) {
    ORNCLIEventHandler handler;
    handler.onEvent(event(type));
    EXPECT_EQ(type == 23, handler.waitForRegistration(0)) << type;
    auto e = handler.waitForEvent(0);
    ASSERT_TRUE(e) << type;
    EXPECT_EQ(type, e->eventType);
    EXPECT_EQ(type == 23, handler.waitForRegistration(-5)) << "never reset: " << type;
  }
}

TEST(ORNCLIEventHandler, ZeroOrNegativeTimeoutReturnsAtOnce) {
  static const int kTimeouts[] = {0, -1, -3600, INT_MIN};
  for (int timeout : kTimeouts) {
    ORNCLIEventHandler handler;
    EXPECT_FALSE(handler.waitForRegistration(timeout)) << timeout;
    EXPECT_FALSE(handler.waitForResponse(timeout)) << timeout;
    EXPECT_FALSE(handler.waitForEvent(timeout)) << timeout;
    handler.onResponse(response("r"));
    handler.onEvent(event(23));
    EXPECT_TRUE(handler.waitForRegistration(timeout)) << timeout;
    EXPECT_TRUE(handler.waitForResponse(timeout)) << timeout;
    EXPECT_TRUE(handler.waitForEvent(timeout)) << timeout;
  }
}

TEST(ORNCLIEventHandler, NullRecordsAndOtherKindsLeaveSlotsAlone) {
  ORNCLIEventHandler handler;
  handler.onResponse(nullptr);
  handler.onEvent(nullptr);
  EXPECT_FALSE(handler.waitForResponse(0));
  EXPECT_FALSE(handler.waitForEvent(0));

  handler.onEvent(event(21));
  EXPECT_FALSE(handler.waitForResponse(0)) << "an event is not a response";
  handler.onResponse(response("r"));
  auto e = handler.waitForEvent(0);
  ASSERT_TRUE(e);
  EXPECT_EQ(21, e->eventType);
  EXPECT_FALSE(handler.waitForEvent(0)) << "a response is not an event";
}

TEST(ORNCLIInteractiveEventHandler, PrintsEachCallbackAndKeepsLastEvent) {
  ORNCLIInteractiveEventHandler handler;
  EXPECT_FALSE(handler.lastEvent());

  auto r = response("req-7");
  r->responseCode = -400;
  r->responseData = "{\"a\":\"b\"}";
  testing::internal::CaptureStdout();
  handler.onResponse(r);
  handler.onEvent(event(21, ""));
  handler.onEvent(event(23, "{\"x\":1}"));
  handler.onResponse(nullptr);
  handler.onEvent(nullptr);
  const std::string out = testing::internal::GetCapturedStdout();

  EXPECT_EQ(
      "\nReceived async response:\n"
      "Request ID: req-7\n"
      "Response Code: -400\n"
      "Response Data: {\"a\":\"b\"}\n"
      "\nReceived event:\n"
      "Event Type: 21\n"
      "Event Data: \n"
      "\nReceived event:\n"
      "Event Type: 23\n"
      "Event Data: {\"x\":1}\n",
      out);
  ASSERT_TRUE(handler.lastEvent());
  EXPECT_EQ(23, handler.lastEvent()->eventType) << "a null event does not replace it";
}

}  // namespace
}  // namespace ornUtility
}  // namespace ornwick
