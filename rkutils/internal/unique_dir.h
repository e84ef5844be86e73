// Owner of a directory stream.
#ifndef RKUTILS_INTERNAL_UNIQUE_DIR_H
#define RKUTILS_INTERNAL_UNIQUE_DIR_H

#include <rkutils/internal/errno_restorer.h>

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

}  // namespace rkutils::internal

#endif
