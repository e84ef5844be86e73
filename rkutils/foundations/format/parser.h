// First stage of the formatting engine: a conversion's text becomes a record.
#ifndef RKUTILS_FOUNDATIONS_FORMAT_PARSER_H
#define RKUTILS_FOUNDATIONS_FORMAT_PARSER_H

#include <cstdarg>

namespace rkutils::format {

// The values of a format, taken one after the other.
class Arguments {
 public:
  explicit Arguments(va_list values) noexcept { va_copy(values_, values); }
  ~Arguments() { va_end(values_); }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  template <typename Type>
  Type next() noexcept {
    return va_arg(values_, Type);
  }

 private:
  va_list values_;
};

enum class Length : unsigned char { kChar, kShort, kInt, kLong, kLongLong };

// "%-+ #0", width, precision, length and kind of one conversion.
struct Conversion {
  static constexpr int kNoPrecision = -1;

  bool left = false;
  bool plus = false;
  bool space = false;
  bool alternate = false;
  bool zero = false;
  bool too_wide = false;         // its width or precision is above INT_MAX
  bool takes_width = false;      // "*": a value before the conversion's own
  bool takes_precision = false;  // ".*": likewise, behind that of the width
  Length length = Length::kInt;
  char kind = '\0';  // the conversion's character; NUL where the format ends before it
  int width = 0;
  int precision = kNoPrecision;
};

// Reads the conversion that begins at `format`, after its percent sign. Returns where the format
// goes on.
const char* parse(const char* format, Conversion& conversion) noexcept;

// Take the value of a "*".
void take_width(Arguments& arguments, Conversion& conversion) noexcept;
void take_precision(Arguments& arguments, Conversion& conversion) noexcept;

// As parse(), for a conversion of its kind alone, or of "l" and its kind, as most are. NULL, with
// nothing read, for others: flags, digits, "." and "*" all come before the letters.
inline const char* parse_plain(const char* format, Conversion& conversion) noexcept {
  const bool is_long = *format == 'l';
  if (is_long) ++format;
  if (*format < 'A' || *format == 'h' || *format == 'l') return nullptr;
  if (is_long) conversion.length = Length::kLong;
  conversion.kind = *format;
  return format + 1;
}

// Whether a conversion in the rest of a format stores a count.
bool stores_count(const char* format) noexcept;

}  // namespace rkutils::format

#endif
