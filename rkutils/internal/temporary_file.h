// Temporary files.
#ifndef RKUTILS_INTERNAL_TEMPORARY_FILE_H
#define RKUTILS_INTERNAL_TEMPORARY_FILE_H

#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>

namespace rkutils::internal {

// mkostemp(3), close-on-exec, tried again while a signal interrupts it. Empty with errno when that
// fails.
[[nodiscard]] inline UniqueFd make_temporary_file(char* path) noexcept {
  constexpr std::string_view kPlaces = "XXXXXX";
  for (;;) {
    UniqueFd file(::mkostemp(path, O_CLOEXEC));
    if (file || errno != EINTR) return file;
    // Which have been filled in.
    kPlaces.copy(path + std::strlen(path) - kPlaces.size(), kPlaces.size());
  }
}

}  // namespace rkutils::internal

#endif
