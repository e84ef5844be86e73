#include <rkutils/internal/internet_checksum.h>

#include <cstring>

namespace rkutils::internal {

std::uint16_t internet_checksum(const void* data, std::size_t length) noexcept {
  const auto* bytes = static_cast<const unsigned char*>(data);
  // 64 bits take the carries of any length that fits into memory.
  std::uint64_t sum = 0;
  for (; length >= sizeof(std::uint16_t); length -= sizeof(std::uint16_t)) {
    std::uint16_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    sum += word;
    bytes += sizeof word;
  }
  if (length > 0) {
    std::uint16_t word = 0;
    std::memcpy(&word, bytes, length);
    sum += word;
  }
  while ((sum >> 16U) != 0) sum = (sum & 0xffffU) + (sum >> 16U);
  return static_cast<std::uint16_t>(~sum);
}

}  // namespace rkutils::internal
