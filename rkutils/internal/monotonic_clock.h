// Time that only goes forward: setting the time of day neither shortens nor prolongs what is
// measured with it.
#ifndef RKUTILS_INTERNAL_MONOTONIC_CLOCK_H
#define RKUTILS_INTERNAL_MONOTONIC_CLOCK_H

#include <cstdint>
#include <ctime>

namespace rkutils::internal {

[[nodiscard]] std::timespec monotonic_now() noexcept;

// Sleeps for `duration_us` microseconds, not at all for less than one. A signal does not end the
// sleep: it goes on with what remains.
void pause_us(std::int64_t duration_us) noexcept;

// The end of a time limit that begins with construction.
class Deadline {
 public:
  // Less than 0 counts as 0.
  explicit Deadline(int timeout_ms) noexcept;

  // What is left of it; 0 once it is over.
  [[nodiscard]] std::int64_t remaining_us() const noexcept;

  // The same for poll(), rounded up so that a wait never ends early.
  [[nodiscard]] int remaining_ms() const noexcept;

 private:
  std::int64_t end_ns_;
};

}  // namespace rkutils::internal

#endif
