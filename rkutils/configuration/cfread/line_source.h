// The lines of a file, handed out where they lie in the read buffer.
#ifndef RKUTILS_CONFIGURATION_CFREAD_LINE_SOURCE_H
#define RKUTILS_CONFIGURATION_CFREAD_LINE_SOURCE_H

#include <rkutils/internal/unique_fd.h>

#include <cstddef>

namespace rkutils::cfread {

// Opens a file for reading; false descriptor when that fails.
[[nodiscard]] internal::UniqueFd open_file(const char* path) noexcept;

// Gives what fgets() with a buffer of 1024 bytes would give, without copying it: each piece ends
// after its line feed or when it has 1023 bytes, so a longer line comes in several pieces; a NUL in
// the file ends a piece's text early, and what follows it in the piece is not seen.
class LineSource {
 public:
  static constexpr std::size_t kPieceLength = 1023;

  explicit LineSource(internal::UniqueFd file) noexcept;

  // The next piece, NUL-terminated, or NULL at the end of the file and when reading fails; a folder
  // cannot be read. The caller may change it up to its NUL. The next call makes it invalid.
  [[nodiscard]] char* next() noexcept;

 private:
  static constexpr std::size_t kBufferSize = 4096;

  bool fill() noexcept;
  char* hand_out(std::size_t length) noexcept;

  const internal::UniqueFd file_;
  bool at_end_ = false;
  char* unread_ = buffer_;        // behind the piece handed out last
  char* filled_ = buffer_;        // behind the last byte read
  char behind_piece_ = '\0';      // what the NUL at `unread_` took the place of
  char buffer_[kBufferSize + 1];  // and room for a NUL
};

}  // namespace rkutils::cfread

#endif
