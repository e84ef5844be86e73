// The lines of a file, handed out where they lie in the read buffer.
#ifndef RKUTILS_FOUNDATIONS_FILE_LINE_SOURCE_H
#define RKUTILS_FOUNDATIONS_FILE_LINE_SOURCE_H

#include <rkutils/internal/unique_fd.h>

#include <cstddef>

namespace rkutils::file {

// Gives what fgets() with a buffer of one byte more than a piece would give, without copying it:
// each piece ends after its line feed or when it has its full length, so a longer line comes in
// several pieces; a NUL in the file ends a piece's text early, and what follows it in the piece is
// not seen. Signals do not end the reading.
//
//     UniqueFd file = open_to_read(path);
//     if (!file) return false;
//     LineSource lines(std::move(file), 1023);
//     while (char* const line = lines.next()) use(line);
class LineSource {
 public:
  // A piece has at most `piece_length` bytes, its line feed included: from 1 to kMaxPieceLength.
  static constexpr std::size_t kMaxPieceLength = 4096;
  LineSource(internal::UniqueFd file, std::size_t piece_length) noexcept;

  // The next piece, NUL-terminated, or NULL at the end of the file and when reading fails; a folder
  // cannot be read. The caller may change it up to its NUL. The next call makes it invalid.
  [[nodiscard]] char* next() noexcept;

  // The same, but of a longer line only its first piece: the rest is left out.
  [[nodiscard]] char* next_line() noexcept;

 private:
  static constexpr std::size_t kBufferSize = kMaxPieceLength;

  bool fill() noexcept;
  char* hand_out(std::size_t length) noexcept;

  const internal::UniqueFd file_;
  const std::size_t piece_length_;
  bool at_end_ = false;
  bool within_line_ = false;      // the piece handed out last has no line feed
  char* unread_ = buffer_;        // behind the piece handed out last
  char* filled_ = buffer_;        // behind the last byte read
  char behind_piece_ = '\0';      // what the NUL at `unread_` took the place of
  char buffer_[kBufferSize + 1];  // and room for a NUL
};

}  // namespace rkutils::file

#endif
