#include <rkutils/internal/wait_readable.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

#include <poll.h>

namespace rkutils::internal {
namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1000000000;
constexpr std::int64_t kNanosecondsPerMillisecond = 1000000;

// The monotonic clock: setting the time of day neither shortens nor prolongs a wait.
std::int64_t now_ns() noexcept {
  timespec now = {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

// What is left until `deadline_ns` for poll(), rounded up so that the wait never ends early.
int remaining_ms(std::int64_t deadline_ns) noexcept {
  const std::int64_t left_ns = deadline_ns - now_ns();
  if (left_ns <= 0) return 0;
  return static_cast<int>((left_ns + kNanosecondsPerMillisecond - 1) / kNanosecondsPerMillisecond);
}

}  // namespace

bool wait_readable(int descriptor, int timeout_ms) noexcept {
  if (timeout_ms < 0) timeout_ms = 0;  // to poll() it would mean for ever
  const std::int64_t deadline_ns = now_ns() + timeout_ms * kNanosecondsPerMillisecond;
  pollfd entry = {};
  entry.fd = descriptor;
  entry.events = POLLIN;

  int ready = ::poll(&entry, 1, timeout_ms);
  while (ready < 0 && errno == EINTR) ready = ::poll(&entry, 1, remaining_ms(deadline_ns));

  if (ready == 0) {
    errno = ETIMEDOUT;
    return false;
  }
  if (ready > 0 && (entry.revents & POLLNVAL) != 0) {
    errno = EBADF;
    return false;
  }
  return ready > 0;
}

}  // namespace rkutils::internal
