// Taking turns by a file.
#ifndef RKUTILS_INTERNAL_FILE_TURN_H
#define RKUTILS_INTERNAL_FILE_TURN_H

#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/internal/unique_fd.h>

namespace rkutils::internal {

// An advisory lock (flock(2)) on a file or a folder, from construction to destruction: for a step
// that one process at a time may do, and that one which dies at it must not keep from the others. A
// program may lock the file for reasons of its own, so it is not waited for without an end.
//
// Who comes while others wait does not go first, even if it is free just then: who takes one turn
// after the other would keep them from it, since they look for it only now and then.
//
// Not for a file that is the program's: closing it ends all locks of fcntl(2) that the process has
// on it.
class FileTurn {
 public:
  // Waits up to `timeout_ms`.
  FileTurn(const char* path, int timeout_ms) noexcept;

  // Ends the turn at once, also where a child that was forked meanwhile has the descriptor too.
  ~FileTurn();
  FileTurn(const FileTurn&) = delete;
  FileTurn& operator=(const FileTurn&) = delete;

  // Why it is not had; 0 if it is. EWOULDBLOCK: others have it all the time.
  [[nodiscard]] int error() const noexcept { return error_; }

  // Whether there was something to lock, at least.
  [[nodiscard]] bool has_file() const noexcept { return static_cast<bool>(file_); }

 private:
  void wait(const Deadline& deadline) noexcept;

  UniqueFd file_;
  int error_ = 0;
};

}  // namespace rkutils::internal

#endif
