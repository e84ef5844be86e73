// Taking turns by a file.
#ifndef RKUTILS_PROCESSES_LOCK_FILE_TURN_H
#define RKUTILS_PROCESSES_LOCK_FILE_TURN_H

#include <rkutils/internal/unique_fd.h>

namespace rkutils::processes {

// An advisory lock on a file, from construction to destruction: for a step that one process at a
// time may do, and that one which dies at it must not keep from the others. A program may lock the
// file for reasons of its own, so it is not waited for without an end.
//
// Not for a file that is the program's: closing it ends all locks of fcntl(2) that the process has
// on it.
class FileTurn {
 public:
  // Waits up to `timeout_ms`.
  FileTurn(const char* path, int timeout_ms) noexcept;

  // Why it is not had; 0 if it is.
  [[nodiscard]] int error() const noexcept { return error_; }

 private:
  internal::UniqueFd file_;
  int error_ = 0;
};

}  // namespace rkutils::processes

#endif
