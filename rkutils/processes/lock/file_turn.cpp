#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/processes/lock/file_turn.h>

#include <cerrno>

#include <sys/file.h>

namespace rkutils::processes {

FileTurn::FileTurn(const char* path, int timeout_ms) noexcept : file_(file::open_to_read(path)) {
  constexpr int kPauseUs = 1000;
  const internal::Deadline deadline(timeout_ms);
  while (!file_ || ::flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
    error_ = errno;
    if (error_ != EWOULDBLOCK || deadline.remaining_us() == 0) return;
    error_ = 0;
    internal::pause_us(kPauseUs);
  }
}

}  // namespace rkutils::processes
