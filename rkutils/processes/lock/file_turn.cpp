#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/processes/lock/file_turn.h>
#include <rkutils/processes/lock/uninterrupted.h>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>

namespace rkutils::processes {
namespace {

constexpr int kPauseUs = 1000;

// A FIFO or a terminal must not keep us, or become ours.
constexpr int kOnlyForTheLock = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

}  // namespace

FileTurn::FileTurn(const char* path, int timeout_ms) noexcept
    : file_(uninterrupted([path] { return ::open(path, kOnlyForTheLock); })) {
  const internal::Deadline deadline(timeout_ms);
  while (!file_ || ::flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
    error_ = errno;
    if (error_ != EWOULDBLOCK || deadline.remaining_us() == 0) return;
    error_ = 0;
    internal::pause_us(kPauseUs);
  }
}

}  // namespace rkutils::processes
