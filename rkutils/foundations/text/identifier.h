// The numbers that tell one request from another.
#ifndef RKUTILS_FOUNDATIONS_TEXT_IDENTIFIER_H
#define RKUTILS_FOUNDATIONS_TEXT_IDENTIFIER_H

#include <cstdint>

namespace rkutils::text {

// Of a time in seconds and a random number, of which the lower 16 bits each count. Neither half is
// ever 65535.
constexpr std::uint32_t make_identifier(std::uint32_t time, std::uint32_t random) {
  constexpr std::uint32_t kLowBits = 0xffff;
  constexpr std::uint32_t kModulus = 65535;
  return (time & kLowBits) % kModulus << 16U | (random & kLowBits) % kModulus;
}

}  // namespace rkutils::text

#endif
