#include "support/stopped_clock.h"

#include <rkutils/export.h>

#include <cerrno>
#include <chrono>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

namespace support {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1000000000;
constexpr std::int64_t kNanosecondsPerMicrosecond = 1000;

thread_local StoppedClock* stopped = nullptr;

// Where a time has more bits than a long, the calls that take it have names of their own.
#ifdef SYS_clock_gettime
constexpr long kGetTime = SYS_clock_gettime;
constexpr long kSleep = SYS_clock_nanosleep;
#else
constexpr long kGetTime = SYS_clock_gettime64;
constexpr long kSleep = SYS_clock_nanosleep_time64;
#endif

}  // namespace

StoppedClock::StoppedClock()
    : now_ns_(kNanosecondsPerMicrosecond * std::chrono::ceil<std::chrono::microseconds>(
                                               std::chrono::steady_clock::now().time_since_epoch())
                                               .count()) {
  stopped = this;
}

StoppedClock::~StoppedClock() { stopped = nullptr; }

std::timespec StoppedClock::now() const {
  std::timespec time = {};
  time.tv_sec = static_cast<std::time_t>(now_ns_ / kNanosecondsPerSecond);
  time.tv_nsec = static_cast<long>(now_ns_ % kNanosecondsPerSecond);
  return time;
}

void StoppedClock::advance_us(std::int64_t duration_us) {
  now_ns_ += duration_us * kNanosecondsPerMicrosecond;
}

std::vector<std::int64_t> StoppedClock::take_pauses_us() { return std::exchange(pauses_us_, {}); }

void StoppedClock::at_pauses(std::function<void(int)> action) {
  action_ = std::move(action);
  pauses_ = 0;
}

void StoppedClock::sleep_until(const std::timespec& end) {
  ++pauses_;
  if (action_) action_(pauses_);
  const std::int64_t end_ns = end.tv_sec * kNanosecondsPerSecond + end.tv_nsec;
  pauses_us_.push_back((end_ns - now_ns_) / kNanosecondsPerMicrosecond);
  now_ns_ = end_ns;
}

}  // namespace support

// Stand before the C library's and make the system calls themselves. Some C libraries declare the
// first as not throwing and others do not, so that no declaration of ours would fit all.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

RK_API int clock_gettime(clockid_t clock, std::timespec* time) {
  if (support::stopped != nullptr && clock == CLOCK_MONOTONIC) {
    *time = support::stopped->now();
    return 0;
  }
  return static_cast<int>(::syscall(support::kGetTime, clock, time));
}

RK_API int clock_nanosleep(clockid_t clock, int flags, const std::timespec* end,
                           std::timespec* left) {
  if (support::stopped != nullptr && clock == CLOCK_MONOTONIC && flags == TIMER_ABSTIME) {
    support::stopped->sleep_until(*end);
    return 0;
  }
  return ::syscall(support::kSleep, clock, flags, end, left) == 0 ? 0 : errno;
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
