// SPDX-License-Identifier: Apache-2.0
// SteadyCondition: a condition variable whose timed waits run on the monotonic
// clock with every C library. Below API 30, bionic's libc++ turns
// std::condition_variable's steady-clock wait_until into a wait on the
// real-time clock, so a device whose clock is set after boot (from 1970 to
// now) cuts such a wait short or stretches it by the jump. This one is bound
// to CLOCK_MONOTONIC when it is made, the same code on every platform.
#pragma once

#include <errno.h>
#include <pthread.h>
#include <time.h>

#include <chrono>
#include <cstdint>
#include <mutex>

namespace ornwick {

// The member names follow std::condition_variable's, so it takes that one's
// place as it is.
class SteadyCondition {
 public:
  using Clock = std::chrono::steady_clock;

  SteadyCondition() {
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    pthread_cond_init(&cond_, &attr);
    pthread_condattr_destroy(&attr);
  }
  ~SteadyCondition() { pthread_cond_destroy(&cond_); }
  SteadyCondition(const SteadyCondition&) = delete;
  SteadyCondition& operator=(const SteadyCondition&) = delete;

  void notify_one() noexcept { pthread_cond_signal(&cond_); }
  void notify_all() noexcept { pthread_cond_broadcast(&cond_); }

  void wait(std::unique_lock<std::mutex>& lock) {
    pthread_cond_wait(&cond_, lock.mutex()->native_handle());
  }
  template <typename Predicate>
  void wait(std::unique_lock<std::mutex>& lock, Predicate ready) {
    while (!ready())
      wait(lock);
  }

  // One wait, until a notification (or a spurious wake-up) or the deadline;
  // false once the deadline has passed.
  bool waitUntil(std::unique_lock<std::mutex>& lock, Clock::time_point deadline) {
    const Clock::duration left = deadline - Clock::now();
    if (left <= Clock::duration::zero())
      return false;
    // A 32-bit time_t holds the monotonic clock plus 2^30 s; a longer wait is
    // taken in steps.
    constexpr int64_t kMaxStepSeconds = int64_t{1} << 30;
    const auto leftNs = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
    const int64_t stepSeconds =
        leftNs / 1000000000 < kMaxStepSeconds ? leftNs / 1000000000 : kMaxStepSeconds;
    timespec at;
    clock_gettime(CLOCK_MONOTONIC, &at);
    int64_t ns = at.tv_nsec + leftNs % 1000000000;
    at.tv_sec += static_cast<time_t>(stepSeconds + ns / 1000000000);
    at.tv_nsec = static_cast<long>(ns % 1000000000);
    pthread_cond_timedwait(&cond_, lock.mutex()->native_handle(), &at);
    return Clock::now() < deadline;
  }
  // Waits until `ready` holds or the deadline passes; returns `ready()`.
  template <typename Predicate>
  bool wait_until(std::unique_lock<std::mutex>& lock, Clock::time_point deadline, Predicate ready) {
    while (!ready()) {
      if (!waitUntil(lock, deadline))
        return ready();
    }
    return true;
  }

 private:
  pthread_cond_t cond_;
};

}  // namespace ornwick
