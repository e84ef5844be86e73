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

// The whole of it. Locks of this kind, too, end with the last descriptor of their file.
struct flock record_lock(short type) noexcept {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

// Those who wait have a lock to read, which excludes nobody: it only shows that they are there.
bool others_wait(int file) noexcept {
  struct flock lock = record_lock(F_WRLCK);
  return ::fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type == F_RDLCK;
}

void show_waiting(int file, bool waiting) noexcept {
  struct flock lock = record_lock(waiting ? F_RDLCK : F_UNLCK);
  ::fcntl(file, F_OFD_SETLK, &lock);
}

// 0, or why it could not be locked.
int lock_now(int file) noexcept { return ::flock(file, LOCK_EX | LOCK_NB) == 0 ? 0 : errno; }

}  // namespace

FileTurn::FileTurn(const char* path, int timeout_ms) noexcept
    : file_(uninterrupted([path] { return ::open(path, kOnlyForTheLock); })) {
  if (!file_) {
    error_ = errno;
    return;
  }
  const Deadline deadline(timeout_ms);
  const bool gives_way = timeout_ms > 0 && others_wait(file_.get());
  error_ = gives_way ? EWOULDBLOCK : lock_now(file_.get());
  if (error_ == EWOULDBLOCK) wait(deadline);
}

void FileTurn::wait(const Deadline& deadline) noexcept {
  show_waiting(file_.get(), true);
  while (error_ == EWOULDBLOCK && deadline.remaining_us() > 0) {
    pause_us(kPauseUs);
    error_ = lock_now(file_.get());
  }
  show_waiting(file_.get(), false);
}

FileTurn::~FileTurn() {
  const ErrnoRestorer keep_errno;
  if (file_ && error_ == 0) ::flock(file_.get(), LOCK_UN);
}

}  // namespace rkutils::internal
