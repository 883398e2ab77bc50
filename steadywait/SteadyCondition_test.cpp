// SPDX-License-Identifier: Apache-2.0
// SteadyCondition: its waits run on the monotonic clock and end by a
// notification or the deadline.
#include "SteadyCondition.h"

#include <gtest/gtest.h>

#include <thread>

namespace ornwick {
namespace {

using Clock = SteadyCondition::Clock;

// The deadline is handed to the C library as a monotonic time; a condition
// left on the real-time clock (glibc's and bionic's default) would take that
// time for one decades past and return at once. So one wait with nobody
// notifying lasts until its deadline: this is what shows the binding, since
// moving the real-time clock here proves nothing.
TEST(SteadyCondition, OneWaitLastsUntilItsMonotonicDeadline) {
  std::mutex mutex;
  SteadyCondition cond;
  std::unique_lock<std::mutex> lock(mutex);
  const Clock::time_point start = Clock::now();
  const Clock::time_point deadline = start + std::chrono::milliseconds(300);
  EXPECT_FALSE(cond.waitUntil(lock, deadline)) << "woke before its deadline";
  EXPECT_GE(Clock::now(), deadline);
  EXPECT_FALSE(cond.waitUntil(lock, deadline)) << "a passed deadline waits no more";
}

TEST(SteadyCondition, PredicateWaitEndsAtTheNotificationOrTheDeadline) {
  struct Case {
    bool notify;
    std::chrono::milliseconds limit;
  };
  // clang-format off
  const Case cases[] = {
    {true,  std::chrono::hours(1)},         // ends long before its deadline
    {false, std::chrono::milliseconds(50)}, // nobody notifies: false at the deadline
    {false, std::chrono::milliseconds(-5)}, // a passed deadline: false at once
  };
  // clang-format on
  for (const Case& c : cases) {
    std::mutex mutex;
    SteadyCondition cond;
    bool ready = false;
    std::thread notifier([&] {
      if (!c.notify)
        return;
      std::lock_guard<std::mutex> lock(mutex);
      ready = true;
      cond.notify_one();
    });
    std::unique_lock<std::mutex> lock(mutex);
    const Clock::time_point deadline = Clock::now() + c.limit;
    EXPECT_EQ(cond.wait_until(lock, deadline, [&] { return ready; }), c.notify);
    if (!c.notify) {
      EXPECT_GE(Clock::now(), deadline);
    }
    lock.unlock();
    notifier.join();
  }
}

}  // namespace
}  // namespace ornwick
