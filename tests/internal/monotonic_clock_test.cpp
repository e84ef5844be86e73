#include <rkutils/internal/monotonic_clock.h>

#include <chrono>
#include <csignal>
#include <limits>

#include <gtest/gtest.h>
#include <sys/time.h>

#include "support/stopwatch.h"

namespace {

using namespace std::chrono_literals;
using rkutils::internal::Deadline;
using rkutils::internal::monotonic_now;
using rkutils::internal::pause_us;
using support::Stopwatch;

TEST(MonotonicNow, IsTheMonotonicClock) {
  const auto before = std::chrono::steady_clock::now().time_since_epoch();
  const std::timespec now = monotonic_now();
  const auto after = std::chrono::steady_clock::now().time_since_epoch();
  const auto time = std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  EXPECT_GE(time, before);
  EXPECT_LE(time, after);
}

TEST(PauseUs, SleepsItsWholeTimeThroughSignals) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &action, nullptr);
  const itimerval every_50_ms = {{0, 50000}, {0, 50000}};
  ::setitimer(ITIMER_REAL, &every_50_ms, nullptr);
  const Stopwatch watch;
  pause_us(400000);
  const auto elapsed = watch.elapsed();
  const itimerval off = {};
  ::setitimer(ITIMER_REAL, &off, nullptr);
  EXPECT_GE(elapsed, 400ms);
  EXPECT_LT(elapsed, 3s);
}

TEST(PauseUs, OfLessThanOneDoesNotSleep) {
  const Stopwatch watch;
  pause_us(0);
  pause_us(-5000000);
  pause_us(std::numeric_limits<std::int64_t>::min());
  EXPECT_LT(watch.elapsed(), 3s);
}

TEST(Deadline, HasItsWholeTimeAtFirst) {
  const Deadline deadline(300000);
  EXPECT_LE(deadline.remaining_ms(), 300000);
  EXPECT_GT(deadline.remaining_ms(), 297000);
  EXPECT_LE(deadline.remaining_us(), 300000000);
  EXPECT_GT(deadline.remaining_us(), 297000000);
}

// Not a millisecond less than is left, or a wait would end early and be taken for over.
TEST(Deadline, RoundsMillisecondsUp) {
  const Deadline deadline(50);
  while (deadline.remaining_us() > 500) {
  }
  const int left_ms = deadline.remaining_ms();
  EXPECT_TRUE(left_ms == 1 || deadline.remaining_us() == 0) << left_ms;
}

TEST(Deadline, LeavesNothingOnceItIsOver) {
  for (const int timeout_ms : {0, -1, std::numeric_limits<int>::min()}) {
    const Deadline deadline(timeout_ms);
    pause_us(10);
    EXPECT_EQ(deadline.remaining_us(), 0);
    EXPECT_EQ(deadline.remaining_ms(), 0);
  }
}

}  // namespace
