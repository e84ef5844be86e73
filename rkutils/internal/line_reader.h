// Lines of a text file, in pieces of bounded length.
#ifndef RKUTILS_INTERNAL_LINE_READER_H
#define RKUTILS_INTERNAL_LINE_READER_H

#include <cstddef>
#include <cstdio>

namespace rkutils::internal {

// Reads a stream line by line into a buffer of the caller's, as fgets() does: a piece ends after
// its newline or when the buffer holds size - 1 characters, so a longer line arrives in several
// pieces. A NUL in the file ends a piece's text early, and what follows it in the piece is not
// seen.
//
// The size must be 2 at least, or no piece could hold anything.
//
//     char line[1024];
//     LineReader lines(stream.get(), line, sizeof line);
//     while (lines.next()) use(line);
class LineReader {
 public:
  LineReader(std::FILE* stream, char* buffer, std::size_t size) noexcept;

  // Reads the next piece into the buffer. False at the end of the file and when reading fails; the
  // buffer then holds the empty text.
  [[nodiscard]] bool next() noexcept;

  // Whether the piece just read has its newline: false for a piece of an over-long line that goes
  // on, and for a last line without one.
  [[nodiscard]] bool ended() const noexcept;

  // Removes the piece's newline, if there is one.
  void chomp() noexcept;

 private:
  std::FILE* const stream_;
  char* const buffer_;
  const std::size_t size_;
};

}  // namespace rkutils::internal

#endif
