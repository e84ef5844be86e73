#include <rkutils/internal/monotonic_clock.h>

#include <algorithm>
#include <cerrno>

namespace rkutils::internal {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1000000000;
constexpr std::int64_t kNanosecondsPerMillisecond = 1000000;
constexpr std::int64_t kNanosecondsPerMicrosecond = 1000;

std::int64_t now_ns() noexcept {
  const std::timespec now = monotonic_now();
  return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

}  // namespace

std::timespec monotonic_now() noexcept {
  std::timespec now = {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

void pause_us(std::int64_t duration_us) noexcept {
  if (duration_us <= 0) return;
  const std::int64_t end_ns = now_ns() + duration_us * kNanosecondsPerMicrosecond;
  std::timespec end = {};
  end.tv_sec = static_cast<std::time_t>(end_ns / kNanosecondsPerSecond);
  end.tv_nsec = static_cast<long>(end_ns % kNanosecondsPerSecond);
  while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
  }
}

Deadline::Deadline(int timeout_ms) noexcept
    : end_ns_(now_ns() + std::max(timeout_ms, 0) * kNanosecondsPerMillisecond) {}

std::int64_t Deadline::remaining_us() const noexcept {
  return std::max<std::int64_t>(end_ns_ - now_ns(), 0) / kNanosecondsPerMicrosecond;
}

int Deadline::remaining_ms() const noexcept {
  const std::int64_t left_ns = std::max<std::int64_t>(end_ns_ - now_ns(), 0);
  return static_cast<int>((left_ns + kNanosecondsPerMillisecond - 1) / kNanosecondsPerMillisecond);
}

}  // namespace rkutils::internal
