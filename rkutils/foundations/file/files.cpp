// Single files: writing one line, and removing.

#include <rkutils/file.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/memory.h>

#include <cerrno>
#include <cstddef>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using rkutils::internal::ErrnoRestorer;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueFd;

// In one write(2) up to 4095 characters: files of /proc and /sys take a value in one piece only.
bool write_line(int descriptor, const char* text) {
  char line[4096];
  const std::size_t length = strlcpy(line, text, sizeof line);
  if (length >= sizeof line) {
    return rkutils::file::write_all(descriptor, text, length) &&
           rkutils::file::write_all(descriptor, "\n", 1);
  }
  line[length] = '\n';
  return rkutils::file::write_all(descriptor, line, length + 1);
}

}  // namespace

int dropfile(const char* path) {
  if (path == nullptr || ::access(path, R_OK) != 0) return -1;
  ::unlink(path);
  return 0;
}

int writefile(const char* path, const char* text) {
  if (path == nullptr || text == nullptr) return -1;
  const PostponedCancellation postponed;
  if (*text == '\0') {
    dropfile(path);
    return 0;
  }
  errno = 0;
  UniqueFd file = rkutils::file::open_at(AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC);
  if (!file) {
    const ErrnoRestorer keep_errno;
    ::syslog(LOG_ERR, "unable to open %s for writing", path);
    return -1;
  }
  if (!write_line(file.get(), text)) return -1;
  if (::close(file.release()) != 0) return -1;
  errno = 0;  // also where a call was interrupted, and repeated
  return 0;
}

int delete_regular_file(const char* path) {
  struct stat status;
  if (path == nullptr || ::lstat(path, &status) != 0) return 0;
  if (!S_ISREG(status.st_mode)) return -1;
  return ::unlink(path);
}
