// A file that is written in few pieces.
#ifndef RKUTILS_HARDWARE_LOG_BUFFERED_FILE_H
#define RKUTILS_HARDWARE_LOG_BUFFERED_FILE_H

#include <rkutils/internal/unique_fd.h>

#include <cstddef>
#include <string_view>
#include <utility>

namespace rkutils::log {

// Collects text until its buffer is full: of a stream it has what the log needs, without the heap.
class BufferedFile {
 public:
  explicit BufferedFile(internal::UniqueFd file) noexcept : file_(std::move(file)) {}

  // False when writing failed; errno tells why.
  [[nodiscard]] bool add(std::string_view text) noexcept;

  // Writes what is left, and returns when the medium has all of it.
  [[nodiscard]] bool commit() noexcept;

  // False when that failed, which tells of late failures to write; errno tells why.
  [[nodiscard]] bool close() noexcept;

 private:
  [[nodiscard]] bool flush() noexcept;

  internal::UniqueFd file_;
  std::size_t used_ = 0;
  char buffer_[4096];
};

}  // namespace rkutils::log

#endif
