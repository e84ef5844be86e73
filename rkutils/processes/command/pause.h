// Waiting for time to pass.
#ifndef RKUTILS_PROCESSES_COMMAND_PAUSE_H
#define RKUTILS_PROCESSES_COMMAND_PAUSE_H

#include <cerrno>
#include <ctime>

namespace rkutils::processes {

// Sleeps for so many milliseconds, less than 1000, in spite of signals.
inline void pause_ms(int duration_ms) noexcept {
  constexpr long kNanosecondsPerMs = 1000000;
  timespec left = {0, duration_ms * kNanosecondsPerMs};
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace rkutils::processes

#endif
