#include <rkutils/foundations/format/converter.h>

namespace rkutils::format {
namespace {

std::int64_t signed_value(Length length, Arguments& arguments) noexcept {
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

std::uint64_t unsigned_value(Length length, Arguments& arguments) noexcept {
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

unsigned count_decimal_digits(std::uint64_t value) noexcept {
  constexpr unsigned kStep = 10000;
  unsigned digits = 1;
  for (; value >= kStep; value /= kStep) digits += 4;
  if (value >= 1000) return digits + 3;
  if (value >= 100) return digits + 2;
  return value >= 10 ? digits + 1 : digits;
}

void set_prefix(Number& number, char first, char second) noexcept {
  number.prefix[0] = first;
  number.prefix[1] = second;
  number.prefix_length = second == '\0' ? 1 : 2;
}

}  // namespace

unsigned count_digits(std::uint64_t value, unsigned base) noexcept {
  if (base == 10) return count_decimal_digits(value);
  if (value == 0) return 1;
  const auto bits = static_cast<unsigned>(64 - __builtin_clzll(value));
  const unsigned bits_per_digit = base == 16 ? 4 : 3;
  return (bits + bits_per_digit - 1) / bits_per_digit;
}

Number signed_number(const Conversion& conversion, Arguments& arguments) noexcept {
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

Number unsigned_number(const Conversion& conversion, Arguments& arguments) noexcept {
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

Number pointer(Arguments& arguments) noexcept {
  Number number = {};
  number.magnitude = reinterpret_cast<std::uintptr_t>(arguments.next<void*>());
  number.base = 16;
  set_prefix(number, '0', 'x');
  return number;
}

void store_count(const Conversion& conversion, Arguments& arguments, std::uint64_t count) noexcept {
  switch (conversion.length) {
    case Length::kChar:
      *arguments.next<signed char*>() = static_cast<signed char>(count);
      break;
    case Length::kShort:
      *arguments.next<short*>() = static_cast<short>(count);
      break;
    case Length::kInt:
      *arguments.next<int*>() = static_cast<int>(count);
      break;
    case Length::kLong:
      *arguments.next<long*>() = static_cast<long>(count);
      break;
    case Length::kLongLong:
      *arguments.next<long long*>() = static_cast<long long>(count);
      break;
  }
}

}  // namespace rkutils::format
