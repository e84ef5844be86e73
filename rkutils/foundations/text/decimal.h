// Numbers in decimal, read.
#ifndef RKUTILS_FOUNDATIONS_TEXT_DECIMAL_H
#define RKUTILS_FOUNDATIONS_TEXT_DECIMAL_H

#include <rkutils/foundations/text/ascii.h>

#include <cstdint>

namespace rkutils::text {

// The number that a text begins with: white space, one sign and digits, whatever follows them; 0
// where there is none. As atoi() on the target, which wraps in 32 bits where a number is too large:
// the standard leaves that open, other C libraries do otherwise, and these texts are not ours.
constexpr std::int32_t read_decimal(const char* text) noexcept {
  while (is_white(*text)) ++text;
  const bool negative = *text == '-';
  if (negative || *text == '+') ++text;
  std::uint32_t magnitude = 0;
  for (; is_digit(*text); ++text) {
    magnitude = magnitude * 10 + static_cast<std::uint32_t>(*text - '0');
  }
  return static_cast<std::int32_t>(negative ? 0 - magnitude : magnitude);
}

}  // namespace rkutils::text

#endif
