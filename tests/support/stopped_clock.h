// Time that moves when a test says so.
#ifndef TESTS_SUPPORT_STOPPED_CLOCK_H
#define TESTS_SUPPORT_STOPPED_CLOCK_H

#include <cstdint>
#include <ctime>
#include <functional>
#include <vector>

namespace support {

// While it lives, the monotonic clock stands still for its thread, at a whole microsecond. Who
// sleeps until a time of that clock does not: the clock goes to that time. Other threads, other
// clocks, and waits for descriptors are as ever. One at a time; stopped_clock.cpp must be among the
// program's sources.
class StoppedClock {
 public:
  StoppedClock();
  ~StoppedClock();
  StoppedClock(const StoppedClock&) = delete;
  StoppedClock& operator=(const StoppedClock&) = delete;

  [[nodiscard]] std::timespec now() const;
  void advance_us(std::int64_t duration_us);

  // How long the sleeps since the last call would have been.
  std::vector<std::int64_t> take_pauses_us();

  // What is done at the beginning of each sleep from now on; its argument counts them, from 1.
  void at_pauses(std::function<void(int)> action);

  // For the functions that stand before the C library's.
  void sleep_until(const std::timespec& end);

 private:
  std::int64_t now_ns_;
  std::vector<std::int64_t> pauses_us_;
  std::function<void(int)> action_;
  int pauses_ = 0;
};

}  // namespace support

#endif
