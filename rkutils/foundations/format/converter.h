// Middle stage of the formatting engine: a conversion and its value become runs of characters. One
// converter serves measuring and writing, so that both always agree.
#ifndef RKUTILS_FOUNDATIONS_FORMAT_CONVERTER_H
#define RKUTILS_FOUNDATIONS_FORMAT_CONVERTER_H

#include <rkutils/foundations/format/parser.h>
#include <rkutils/foundations/text/digits.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rkutils::format {

// An integer as it is printed.
struct Number {
  std::uint64_t magnitude;
  unsigned base = 10;
  bool upper = false;
  char prefix[2] = {};
  unsigned prefix_length = 0;
};

// Digits of `value` in `base`, 8, 10 or 16; at least one.
inline unsigned count_digits(std::uint64_t value, unsigned base) noexcept {
  if (base == 10) return text::count_decimal_digits(value);
  return text::count_digits_of_bits(value, base == 16 ? 4 : 3);
}

inline std::int64_t signed_value(Length length, Arguments& arguments) noexcept {
  switch (length) {
    case Length::kChar:
      return static_cast<signed char>(arguments.next<int>());
    case Length::kShort:
      return static_cast<short>(arguments.next<int>());
    case Length::kInt:
      return arguments.next<int>();
    case Length::kLong:
      return arguments.next<long>();
    case Length::kLongLong:
      break;
  }
  return arguments.next<long long>();
}

inline std::uint64_t unsigned_value(Length length, Arguments& arguments) noexcept {
  switch (length) {
    case Length::kChar:
      return static_cast<unsigned char>(arguments.next<unsigned>());
    case Length::kShort:
      return static_cast<unsigned short>(arguments.next<unsigned>());
    case Length::kInt:
      return arguments.next<unsigned>();
    case Length::kLong:
      return arguments.next<unsigned long>();
    case Length::kLongLong:
      break;
  }
  return arguments.next<unsigned long long>();
}

inline void set_prefix(Number& number, char first, char second) noexcept {
  number.prefix[0] = first;
  number.prefix[1] = second;
  number.prefix_length = second == '\0' ? 1 : 2;
}

// Takes the value of conversion d or i.
inline Number signed_number(const Conversion& conversion, Arguments& arguments) noexcept {
  const std::int64_t value = signed_value(conversion.length, arguments);
  Number number = {};
  // Negated as unsigned: the smallest value has no positive counterpart.
  number.magnitude =
      value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
  number.base = 10;
  if (value < 0) {
    set_prefix(number, '-', '\0');
  } else if (conversion.plus) {
    set_prefix(number, '+', '\0');
  } else if (conversion.space) {
    set_prefix(number, ' ', '\0');
  }
  return number;
}

// Takes the value of conversion u, o, x or X.
inline Number unsigned_number(const Conversion& conversion, Arguments& arguments) noexcept {
  Number number = {};
  number.magnitude = unsigned_value(conversion.length, arguments);
  if (conversion.kind == 'u') {
    number.base = 10;
  } else if (conversion.kind == 'o') {
    number.base = 8;
  } else {
    number.base = 16;
    number.upper = conversion.kind == 'X';
    if (conversion.alternate && number.magnitude != 0) set_prefix(number, '0', conversion.kind);
  }
  return number;
}

// Takes the value of conversion p.
inline Number pointer(Arguments& arguments) noexcept {
  Number number = {};
  number.magnitude = reinterpret_cast<std::uintptr_t>(arguments.next<void*>());
  number.base = 16;
  set_prefix(number, '0', 'x');
  return number;
}

// Stores `count` where conversion n points to.
void store_count(const Conversion& conversion, Arguments& arguments, std::uint64_t count) noexcept;

template <typename Writer>
void pad(int width, std::size_t used, Writer& writer) noexcept {
  const auto wanted = static_cast<std::size_t>(width);
  if (wanted > used) writer.repeat(' ', wanted - used);
}

template <typename Writer>
void convert_text(const Conversion& conversion, const char* bytes, std::size_t length,
                  Writer& writer) noexcept {
  if (!conversion.left) pad(conversion.width, length, writer);
  writer.text(bytes, length);
  if (conversion.left) pad(conversion.width, length, writer);
}

template <typename Writer>
[[gnu::always_inline]] inline void convert_string(const Conversion& conversion, const char* text,
                                                  Writer& writer) noexcept {
  if (text == nullptr) text = "(null)";
  const std::size_t length = conversion.precision == Conversion::kNoPrecision
                                 ? std::strlen(text)
                                 : ::strnlen(text, static_cast<std::size_t>(conversion.precision));
  convert_text(conversion, text, length, writer);
}

template <typename Writer>
[[gnu::always_inline]] inline void convert_number(const Conversion& conversion,
                                                  const Number& number, Writer& writer) noexcept {
  // A precision of 0 prints 0 as nothing.
  const bool nothing = number.magnitude == 0 && conversion.precision == 0;
  const unsigned digits = nothing ? 0 : count_digits(number.magnitude, number.base);

  std::size_t zeros = 0;
  if (conversion.precision > static_cast<int>(digits)) {
    zeros = static_cast<std::size_t>(conversion.precision) - digits;
  }
  const bool begins_with_zero = zeros > 0 || (number.magnitude == 0 && !nothing);
  if (conversion.kind == 'o' && conversion.alternate && !begins_with_zero) zeros = 1;
  const std::size_t fixed = number.prefix_length + digits;
  if (conversion.zero && !conversion.left && conversion.precision == Conversion::kNoPrecision &&
      static_cast<std::size_t>(conversion.width) > fixed) {
    zeros = static_cast<std::size_t>(conversion.width) - fixed;
  }

  if (!conversion.left) pad(conversion.width, fixed + zeros, writer);
  writer.text(number.prefix, number.prefix_length);
  writer.repeat('0', zeros);
  writer.number(number.magnitude, number.base, number.upper, digits);
  if (conversion.left) pad(conversion.width, fixed + zeros, writer);
}

// Prints one conversion, taking its value.
template <typename Writer>
[[gnu::always_inline]] inline void convert(const Conversion& conversion, Arguments& arguments,
                                           Writer& writer) noexcept {
  switch (conversion.kind) {
    case 'd':
    case 'i':
      convert_number(conversion, signed_number(conversion, arguments), writer);
      break;
    case 'u':
    case 'o':
    case 'x':
    case 'X':
      convert_number(conversion, unsigned_number(conversion, arguments), writer);
      break;
    case 'p':
      convert_number(conversion, pointer(arguments), writer);
      break;
    case 'c': {
      const auto character = static_cast<char>(arguments.next<int>());
      convert_text(conversion, &character, 1, writer);
      break;
    }
    case 's':
      convert_string(conversion, arguments.next<const char*>(), writer);
      break;
    case 'n':
      store_count(conversion, arguments, writer.count());
      break;
    case '\0':
      break;
    default:
      writer.text(&conversion.kind, 1);
      break;
  }
}

}  // namespace rkutils::format

#endif
