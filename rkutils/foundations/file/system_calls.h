// System calls of the file utilities, repeated where a signal interrupts them.
#ifndef RKUTILS_FOUNDATIONS_FILE_SYSTEM_CALLS_H
#define RKUTILS_FOUNDATIONS_FILE_SYSTEM_CALLS_H

#include <rkutils/internal/unique_fd.h>

#include <cstddef>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace rkutils::file {

// How directories are opened: to be listed, and only to reach what is in them.
constexpr int kListed = O_RDONLY | O_DIRECTORY;
constexpr int kPassed = O_PATH | O_DIRECTORY;

// The mode that a directory has for the moment until it gets its final one. Hexadecimal, where one
// expects octal: deliberately kept.
constexpr mode_t kCreationMode = 0x755;

// Opens `name` relative to `directory` (AT_FDCWD: the working folder), close-on-exec. A file that
// is created gets `mode` less the umask. Opening a FIFO waits for its other end.
[[nodiscard]] internal::UniqueFd open_at(int directory, const char* name, int flags,
                                         mode_t mode = 0666) noexcept;

// Opens a file for reading, likewise.
[[nodiscard]] internal::UniqueFd open_to_read(const char* path) noexcept;

// read(2): the number of bytes, 0 at the end, -1 when it failed.
[[nodiscard]] ssize_t read_some(int descriptor, void* buffer, std::size_t size) noexcept;

// write(2): the number of bytes, which may be less than `size`; -1 when it failed.
[[nodiscard]] ssize_t write_some(int descriptor, const void* bytes, std::size_t size) noexcept;

// Writes all of it, however many pieces the kernel takes it in. On failure a part may be written.
[[nodiscard]] bool write_all(int descriptor, const void* bytes, std::size_t size) noexcept;

// Gives a directory its mode whatever the umask; where the kernel or the C library can do it by
// name, also one that its owner may not read. A link that has come into its place is not followed:
// that fails.
[[nodiscard]] bool set_directory_mode(int directory, const char* name, mode_t mode) noexcept;

// Whether the two are one file, under whatever names.
[[nodiscard]] bool is_same_file(const struct stat& a, const struct stat& b) noexcept;

}  // namespace rkutils::file

#endif
