#include "support/stopped_clock.h"

#include <thread>

#include <gtest/gtest.h>

#include "support/stopwatch.h"

namespace {

using namespace std::chrono_literals;
using support::StoppedClock;
using support::Stopwatch;

std::int64_t us_of(const std::timespec& time) {
  return std::int64_t{time.tv_sec} * 1000000 + time.tv_nsec / 1000;
}

// What a caller in this thread gets.
std::int64_t now_us() {
  std::timespec now = {};
  EXPECT_EQ(::clock_gettime(CLOCK_MONOTONIC, &now), 0);
  return us_of(now);
}

void sleep_until_us(std::int64_t end_us) {
  std::timespec end = {};
  end.tv_sec = static_cast<std::time_t>(end_us / 1000000);
  end.tv_nsec = static_cast<long>(end_us % 1000000 * 1000);
  EXPECT_EQ(::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr), 0);
}

TEST(StoppedClock, GoesOnOnlyWhenToldTo) {
  const std::int64_t before_us = now_us();
  StoppedClock clock;
  const std::int64_t start_us = now_us();
  EXPECT_GE(start_us, before_us);
  EXPECT_EQ(us_of(clock.now()), start_us);
  std::this_thread::sleep_for(5ms);
  EXPECT_EQ(now_us(), start_us);
  clock.advance_us(1234567);
  EXPECT_EQ(now_us(), start_us + 1234567);
}

TEST(StoppedClock, GoesToTheEndOfEachSleep) {
  StoppedClock clock;
  const std::int64_t start_us = now_us();
  std::vector<int> numbers;
  clock.at_pauses([&](int number) {
    EXPECT_LT(now_us(), start_us + 1000000000) << "at its beginning";
    numbers.push_back(number);
  });
  sleep_until_us(start_us + 1);
  sleep_until_us(start_us + 1000000000);
  EXPECT_EQ(now_us(), start_us + 1000000000);
  EXPECT_EQ(numbers, (std::vector<int>{1, 2}));
  EXPECT_EQ(clock.take_pauses_us(), (std::vector<std::int64_t>{1, 999999999}));
  EXPECT_EQ(clock.take_pauses_us(), std::vector<std::int64_t>{});
}

TEST(StoppedClock, IsItsThreadsOwnAndEnds) {
  {
    StoppedClock clock;
    clock.advance_us(3600000000);
    std::thread([ahead_us = now_us()] { EXPECT_LT(now_us(), ahead_us); }).join();
  }
  const Stopwatch watch;
  const std::int64_t start_us = now_us();
  sleep_until_us(start_us + 20000);
  EXPECT_GE(now_us(), start_us + 20000);
  EXPECT_GE(watch.elapsed(), 20ms);
}

}  // namespace
