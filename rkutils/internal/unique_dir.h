// Directory streams, with an owner, and through signals.
#ifndef RKUTILS_INTERNAL_UNIQUE_DIR_H
#define RKUTILS_INTERNAL_UNIQUE_DIR_H

#include <rkutils/internal/errno_restorer.h>

#include <cerrno>
#include <memory>

#include <dirent.h>

namespace rkutils::internal {

struct DirCloser {
  void operator()(DIR* stream) const noexcept {
    const ErrnoRestorer keep_errno;
    ::closedir(stream);
  }
};

using UniqueDir = std::unique_ptr<DIR, DirCloser>;

// opendir(3), tried again while a signal interrupts it. NULL with errno when that fails.
[[nodiscard]] inline UniqueDir open_directory(const char* path) noexcept {
  for (;;) {
    UniqueDir stream(::opendir(path));
    if (stream || errno != EINTR) return stream;
  }
}

// readdir(3), likewise. NULL at the end, with errno 0, and when the list fails before.
[[nodiscard]] inline const dirent* next_entry(DIR* stream) noexcept {
  for (;;) {
    errno = 0;
    const dirent* const entry = ::readdir(stream);
    if (entry != nullptr || errno != EINTR) return entry;
  }
}

}  // namespace rkutils::internal

#endif
