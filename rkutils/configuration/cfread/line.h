// What one line of a configuration file says, without any file.
#ifndef RKUTILS_CONFIGURATION_CFREAD_LINE_H
#define RKUTILS_CONFIGURATION_CFREAD_LINE_H

#include <cstddef>

namespace rkutils::cfread {

// Bytes that are taken for a line, its line feed included; a longer one is several.
inline constexpr std::size_t kPieceLength = 1023;

// Bytes that a key and a value may have.
inline constexpr std::ptrdiff_t kMaxTextLength = 255;

enum class LineKind {
  kEntry,         // a key and a value, either of which may be empty: both of a blank line are
  kComment,       // nothing to be read
  kInclude,       // the value is the name of another file, possibly empty
  kUnterminated,  // no line feed or carriage return before the text's end
  kKeyTooLong,
  kValueTooLong,
};

struct Line {
  LineKind kind;
  const char* key = "";
  const char* value = "";
};

// Reads a line that has its line end still. Key and value are made in place: they point into
// `text`, which is of no use for anything else afterwards.
[[nodiscard]] Line parse_line(char* text) noexcept;

}  // namespace rkutils::cfread

#endif
