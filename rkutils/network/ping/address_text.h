// Addresses as texts for messages.
#ifndef RKUTILS_NETWORK_PING_ADDRESS_TEXT_H
#define RKUTILS_NETWORK_PING_ADDRESS_TEXT_H

#include <rkutils/network/dotted_quad.h>
#include <rkutils/network/ping/packet.h>

#include <array>
#include <cstdint>
#include <cstdio>

namespace rkutils::ping {

template <std::size_t kSize>
struct AddressText {
  std::array<char, kSize> text;

  [[nodiscard]] const char* c_str() const noexcept { return text.data(); }
};

inline AddressText<network::kDottedQuadSize> dotted(std::uint32_t address) noexcept {
  AddressText<network::kDottedQuadSize> result;
  network::write_dotted_quad(address, result.text.data());
  return result;
}

inline AddressText<sizeof "00:00:00:00:00:00"> text_of(const MacAddress& address) noexcept {
  AddressText<sizeof "00:00:00:00:00:00"> result;
  std::snprintf(result.text.data(), result.text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", address[0],
                address[1], address[2], address[3], address[4], address[5]);
  return result;
}

}  // namespace rkutils::ping

#endif
