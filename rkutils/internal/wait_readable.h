// Waiting for a descriptor.
#ifndef RKUTILS_INTERNAL_WAIT_READABLE_H
#define RKUTILS_INTERNAL_WAIT_READABLE_H

#include <rkutils/internal/monotonic_clock.h>

namespace rkutils::internal {

// Waits until `descriptor` can be read without blocking, for `timeout_ms` milliseconds of real time
// at most (0 and less only look). A signal does not end the wait: it goes on with what remains. Any
// descriptor number is good, 1024 and above too.
//
// True when it can be read (end of file and a pending error count as readable, as with select()),
// false when the time is up or the wait failed; errno is ETIMEDOUT or the failure's.
[[nodiscard]] bool wait_readable(int descriptor, int timeout_ms) noexcept;

// The same until a deadline, for several waits that share their time.
[[nodiscard]] bool wait_readable(int descriptor, const Deadline& deadline) noexcept;

// The same until it can be written; a peer that is gone counts as writable.
[[nodiscard]] bool wait_writable(int descriptor, const Deadline& deadline) noexcept;

}  // namespace rkutils::internal

#endif
