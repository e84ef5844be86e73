#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/file_turn.h>
#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/internal/uninterrupted.h>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>

namespace rkutils::internal {
namespace {

constexpr int kPauseUs = 1000;

// A FIFO or a terminal must not keep us, or become ours.
constexpr int kOnlyForTheLock = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

}  // namespace

FileTurn::FileTurn(const char* path, int timeout_ms) noexcept
    : file_(uninterrupted([path] { return ::open(path, kOnlyForTheLock); })) {
  const Deadline deadline(timeout_ms);
  while (!file_ || ::flock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
    error_ = errno;
    if (error_ != EWOULDBLOCK || deadline.remaining_us() == 0) return;
    error_ = 0;
    pause_us(kPauseUs);
  }
}

FileTurn::~FileTurn() {
  const ErrnoRestorer keep_errno;
  if (file_ && error_ == 0) ::flock(file_.get(), LOCK_UN);
}

}  // namespace rkutils::internal
