// Owner of a stdio stream.
#ifndef RKUTILS_INTERNAL_UNIQUE_FILE_H
#define RKUTILS_INTERNAL_UNIQUE_FILE_H

#include <rkutils/internal/errno_restorer.h>

#include <cstdio>
#include <memory>

namespace rkutils::internal {

// fclose() that keeps errno. Where the result of closing matters (a file just written), release the
// owner and call fclose() yourself.
struct FileCloser {
  void operator()(std::FILE* stream) const noexcept {
    const ErrnoRestorer keep_errno;
    std::fclose(stream);
  }
};

using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace rkutils::internal

#endif
