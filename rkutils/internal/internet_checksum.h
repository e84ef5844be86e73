// The Internet checksum (RFC 1071), as in IP, ICMP and UDP headers.
#ifndef RKUTILS_INTERNAL_INTERNET_CHECKSUM_H
#define RKUTILS_INTERNAL_INTERNET_CHECKSUM_H

#include <cstddef>
#include <cstdint>

namespace rkutils::internal {

// The complement of the one's complement sum of the 16-bit words of `data`; a last odd byte counts
// as the first byte of a word whose second is zero. The words are read in host order and the result
// is one too, so it is stored into the packet as it is, on a host of either byte order. Of a packet
// that carries a right checksum the result is 0. `data` needs no alignment and is NULL only with
// length 0.
[[nodiscard]] std::uint16_t internet_checksum(const void* data, std::size_t length) noexcept;

}  // namespace rkutils::internal

#endif
