// Middle stage of the formatting engine: a conversion and its value become runs of characters. One
// converter serves measuring and writing, so that both always agree.
#ifndef RKUTILS_FOUNDATIONS_FORMAT_CONVERTER_H
#define RKUTILS_FOUNDATIONS_FORMAT_CONVERTER_H

#include <rkutils/foundations/format/parser.h>

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

// Digits of `value` in `base`, at least one.
unsigned count_digits(std::uint64_t value, unsigned base) noexcept;

// Takes the value of conversion d or i, and of u, o, x or X.
Number signed_number(const Conversion& conversion, Arguments& arguments) noexcept;
Number unsigned_number(const Conversion& conversion, Arguments& arguments) noexcept;
Number pointer(Arguments& arguments) noexcept;

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
void convert_string(const Conversion& conversion, const char* text, Writer& writer) noexcept {
  if (text == nullptr) text = "(null)";
  const std::size_t length = conversion.precision == Conversion::kNoPrecision
                                 ? std::strlen(text)
                                 : ::strnlen(text, static_cast<std::size_t>(conversion.precision));
  convert_text(conversion, text, length, writer);
}

template <typename Writer>
void convert_number(const Conversion& conversion, const Number& number, Writer& writer) noexcept {
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
void convert(const Conversion& conversion, Arguments& arguments, Writer& writer) noexcept {
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
