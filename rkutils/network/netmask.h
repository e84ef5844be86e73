// Netmasks of 32 bits in host order: leading ones, then zeros.
#ifndef RKUTILS_NETWORK_NETMASK_H
#define RKUTILS_NETWORK_NETMASK_H

#include <cstdint>

namespace rkutils::network {

inline constexpr unsigned kMaskBits = 32;

// The mask of so many leading ones, 0 to 32.
constexpr std::uint32_t mask_of(unsigned ones) noexcept {
  return ones == 0 ? 0 : ~std::uint32_t{0} << (kMaskBits - ones);
}

// Whether no one stands behind a zero. A number's negative has the same lowest one, and above that
// every bit inverted: together they are all ones down to there.
constexpr bool is_mask(std::uint32_t word) noexcept { return (word | (0 - word)) == word; }

// The ones before the first zero.
constexpr unsigned leading_ones(std::uint32_t word) noexcept {
  return word == mask_of(kMaskBits) ? kMaskBits : static_cast<unsigned>(__builtin_clz(~word));
}

}  // namespace rkutils::network

#endif
