#include <rkutils/foundations/file/system_calls.h>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace rkutils::file {

using internal::UniqueFd;

UniqueFd open_at(int directory, const char* name, int flags, mode_t mode) noexcept {
  for (;;) {
    const int descriptor = ::openat(directory, name, flags | O_CLOEXEC, mode);
    if (descriptor >= 0 || errno != EINTR) return UniqueFd(descriptor);
  }
}

UniqueFd open_to_read(const char* path) noexcept { return open_at(AT_FDCWD, path, O_RDONLY); }

ssize_t read_some(int descriptor, void* buffer, std::size_t size) noexcept {
  for (;;) {
    const ssize_t count = ::read(descriptor, buffer, size);
    if (count >= 0 || errno != EINTR) return count;
  }
}

ssize_t write_some(int descriptor, const void* bytes, std::size_t size) noexcept {
  for (;;) {
    const ssize_t count = ::write(descriptor, bytes, size);
    if (count >= 0 || errno != EINTR) return count;
  }
}

bool write_all(int descriptor, const void* bytes, std::size_t size) noexcept {
  const char* next = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t count = write_some(descriptor, next, size);
    if (count <= 0) return false;
    next += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool set_directory_mode(int directory, const char* name, mode_t mode) noexcept {
  if (::fchmodat(directory, name, mode, AT_SYMLINK_NOFOLLOW) == 0) return true;
  // Kernels before 6.6 leave that to the C library, which needs /proc for it.
  const UniqueFd opened = open_at(directory, name, kListed | O_NOFOLLOW);
  return opened && ::fchmod(opened.get(), mode) == 0;
}

bool is_same_file(const struct stat& a, const struct stat& b) noexcept {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace rkutils::file
