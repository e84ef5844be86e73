#include <rkutils/foundations/format/parser.h>
#include <rkutils/foundations/text/ascii.h>

#include <climits>
#include <cstring>

namespace rkutils::format {
namespace {

const char* parse_flags(const char* format, Conversion& conversion) noexcept {
  for (;; ++format) {
    switch (*format) {
      case '-':
        conversion.left = true;
        break;
      case '+':
        conversion.plus = true;
        break;
      case ' ':
        conversion.space = true;
        break;
      case '#':
        conversion.alternate = true;
        break;
      case '0':
        conversion.zero = true;
        break;
      default:
        return format;
    }
  }
}

// Reads digits, possibly none, which make 0.
const char* parse_digits(const char* format, int& number, bool& too_large) noexcept {
  constexpr int kRadix = 10;
  number = 0;
  for (; text::is_digit(*format); ++format) {
    const int digit = *format - '0';
    if (number > (INT_MAX - digit) / kRadix) {
      too_large = true;
    } else {
      number = number * kRadix + digit;
    }
  }
  return format;
}

const char* parse_width(const char* format, Conversion& conversion) noexcept {
  conversion.takes_width = *format == '*';
  if (conversion.takes_width) return format + 1;
  return parse_digits(format, conversion.width, conversion.too_wide);
}

const char* parse_precision(const char* format, Conversion& conversion) noexcept {
  if (*format != '.') return format;
  ++format;
  conversion.takes_precision = *format == '*';
  if (conversion.takes_precision) return format + 1;
  return parse_digits(format, conversion.precision, conversion.too_wide);
}

const char* parse_length(const char* format, Conversion& conversion) noexcept {
  for (;; ++format) {
    if (*format == 'h') {
      conversion.length = conversion.length == Length::kShort ? Length::kChar : Length::kShort;
    } else if (*format == 'l') {
      conversion.length = conversion.length == Length::kLong ? Length::kLongLong : Length::kLong;
    } else {
      return format;
    }
  }
}

}  // namespace

const char* parse(const char* format, Conversion& conversion) noexcept {
  format = parse_flags(format, conversion);
  format = parse_width(format, conversion);
  format = parse_precision(format, conversion);
  format = parse_length(format, conversion);
  conversion.kind = *format;
  return conversion.kind == '\0' ? format : format + 1;
}

void take_width(Arguments& arguments, Conversion& conversion) noexcept {
  conversion.width = arguments.next<int>();
  if (conversion.width < 0) {
    conversion.left = true;
    conversion.too_wide = conversion.too_wide || conversion.width == INT_MIN;
    conversion.width = conversion.too_wide ? 0 : -conversion.width;
  }
}

void take_precision(Arguments& arguments, Conversion& conversion) noexcept {
  const int precision = arguments.next<int>();
  conversion.precision = precision < 0 ? Conversion::kNoPrecision : precision;
}

bool stores_count(const char* format) noexcept {
  while ((format = std::strchr(format, '%')) != nullptr) {
    Conversion conversion;
    format = parse(format + 1, conversion);
    if (conversion.kind == 'n') return true;
  }
  return false;
}

}  // namespace rkutils::format
