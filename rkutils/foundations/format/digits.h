// How many digits a number has.
#ifndef RKUTILS_FOUNDATIONS_FORMAT_DIGITS_H
#define RKUTILS_FOUNDATIONS_FORMAT_DIGITS_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace rkutils::format {

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
  // A bit is log10(2) digits, a little more than 1233 / 4096. That gives the digits less one, or one
  // more than that.
  const unsigned digits = count_bits(value) * 1233 / 4096;
  return value < kPowersOfTen[digits] ? digits : digits + 1;
}

// The same with digits of so many bits.
inline unsigned count_digits_of_bits(std::uint64_t value, unsigned bits) noexcept {
  return (count_bits(value) + bits - 1) / bits;
}

}  // namespace rkutils::format

#endif
