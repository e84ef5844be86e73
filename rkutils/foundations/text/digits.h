// Digits of unsigned numbers, counted, and written from the last one. A division of 64 bits, or by
// a radix that the compiler does not know, is a slow call on a 32-bit processor: there is none per
// digit.
#ifndef RKUTILS_FOUNDATIONS_TEXT_DIGITS_H
#define RKUTILS_FOUNDATIONS_TEXT_DIGITS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

namespace rkutils::text {

// The powers of ten, but 0 for the first one: 0 has a digit too.
inline constexpr auto kPowersOfTen = [] {
  std::array<std::uint64_t, 20> powers = {};
  std::uint64_t power = 1;
  for (std::size_t i = 1; i < powers.size(); ++i) powers[i] = power *= 10;
  return powers;
}();

// The number of bits from the highest one that is set; 1 for 0.
inline unsigned count_bits(std::uint64_t value) noexcept {
  return static_cast<unsigned>(64 - __builtin_clzll(value | 1));
}

// Digits of `value` in base 10, at least one.
inline unsigned count_decimal_digits(std::uint64_t value) noexcept {
  // A bit is log10(2) digits, a little more than 1233 / 4096. That gives the digits less one, or
  // one more than that.
  const unsigned digits = count_bits(value) * 1233 / 4096;
  return value < kPowersOfTen[digits] ? digits : digits + 1;
}

// The same with digits of so many bits.
inline unsigned count_digits_of_bits(std::uint64_t value, unsigned bits) noexcept {
  return (count_bits(value) + bits - 1) / bits;
}

// Each function writes the digits of `value`, at least one, so that the last one lies before `end`,
// and returns the first.

inline char* write_decimal(char* end, std::uint32_t value) noexcept {
  // "00" to "99", so that two digits cost one division.
  static constexpr char kPairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  constexpr std::uint32_t kPairRadix = 100;
  while (value >= kPairRadix) {
    end -= 2;
    std::memcpy(end, &kPairs[std::size_t{value % kPairRadix} * 2], 2);
    value /= kPairRadix;
  }
  if (value >= 10) {
    end -= 2;
    std::memcpy(end, &kPairs[std::size_t{value} * 2], 2);
    return end;
  }
  *--end = static_cast<char>('0' + value);
  return end;
}

inline char* write_decimal(char* end, std::uint64_t value) noexcept {
  constexpr std::uint32_t kGroupRadix = 1000000000;
  constexpr std::ptrdiff_t kGroupDigits = 9;
  while (value > std::numeric_limits<std::uint32_t>::max()) {
    char* const group = end - kGroupDigits;
    char* digit = write_decimal(end, static_cast<std::uint32_t>(value % kGroupRadix));
    while (digit > group) *--digit = '0';
    end = group;
    value /= kGroupRadix;
  }
  return write_decimal(end, static_cast<std::uint32_t>(value));
}

// In digits of `bits` bits, 1 to 4.
template <typename Unsigned>
char* write_power_of_two(char* end, Unsigned value, unsigned bits, bool upper) noexcept {
  const char* const digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
  const unsigned mask = (1U << bits) - 1;
  do {
    *--end = digits[static_cast<unsigned>(value) & mask];
    value >>= bits;
  } while (value != 0);
  return end;
}

}  // namespace rkutils::text

#endif
