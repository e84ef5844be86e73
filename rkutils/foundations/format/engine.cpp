// The entry points of the formatting engine.

#include <rkutils/foundations/format/converter.h>
#include <rkutils/foundations/format/parser.h>
#include <rkutils/foundations/format/writer.h>
#include <rkutils/text.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace {

using rkutils::format::Arguments;
using rkutils::format::Conversion;
using rkutils::format::CountingWriter;
using rkutils::format::WindowWriter;

// The next percent sign, or the end of the format. There are mostly few characters before it, fewer
// than a call of strchrnul() is worth.
const char* find_percent(const char* format) noexcept {
  constexpr int kFew = 8;
  for (int i = 0; i < kFew; ++i, ++format) {
    if (*format == '%' || *format == '\0') return format;
  }
  return ::strchrnul(format, '%');
}

// Out of line, which leaves the loop below with what the compiler makes of conversions that have no
// options: much less.
template <typename Writer>
[[gnu::noinline]] void convert_with_options(const Conversion& conversion, Arguments& arguments,
                                            Writer& writer) noexcept {
  rkutils::format::convert(conversion, arguments, writer);
}

// Prints `format`. Stops early when the writer is full and no count is wanted any more. False, with
// errno EOVERFLOW, when the text is longer than an int can tell.
template <typename Writer>
bool print(const char* format, Arguments& arguments, Writer& writer) noexcept {
  for (;;) {
    if (writer.full() && !rkutils::format::stores_count(format)) return true;
    if (writer.count() > INT_MAX) break;
    if (*format == '\0') return true;
    const char* const percent = find_percent(format);
    if (percent > format) {
      writer.text(format, static_cast<std::size_t>(percent - format));
      format = percent;
      continue;
    }
    Conversion conversion;
    if (const char* const rest = rkutils::format::parse_plain(percent + 1, conversion)) {
      rkutils::format::convert(conversion, arguments, writer);
      format = rest;
      continue;
    }
    format = rkutils::format::parse(percent + 1, conversion);
    if (conversion.takes_width) rkutils::format::take_width(arguments, conversion);
    if (conversion.takes_precision) rkutils::format::take_precision(arguments, conversion);
    if (conversion.too_wide) break;
    convert_with_options(conversion, arguments, writer);
  }
  errno = EOVERFLOW;
  return false;
}

}  // namespace

int vsnxprintf(char* buf, size_t skip, size_t size, const char* fmt, va_list ap) {
  if (size == 0) return 0;
  Arguments arguments(ap);
  WindowWriter writer(buf, skip, size - 1);
  // A window may hold more than the result can tell.
  if (!print(fmt, arguments, writer) || writer.end() - buf > INT_MAX) {
    errno = EOVERFLOW;
    buf[0] = '\0';
    return -1;
  }
  *writer.end() = '\0';
  return static_cast<int>(writer.end() - buf);
}

int snxprintf(char* buf, size_t skip, size_t size, const char* fmt, ...) {
  va_list values;
  va_start(values, fmt);
  const int stored = vsnxprintf(buf, skip, size, fmt, values);
  va_end(values);
  return stored;
}

int vstrlenf(const char* fmt, va_list ap) {
  Arguments arguments(ap);
  CountingWriter writer;
  return print(fmt, arguments, writer) ? static_cast<int>(writer.count()) : -1;
}

int strlenf(const char* fmt, ...) {
  va_list values;
  va_start(values, fmt);
  const int length = vstrlenf(fmt, values);
  va_end(values);
  return length;
}
