// The packets of PingClient as bytes (RFC 791, RFC 792).
#ifndef RKUTILS_NETWORK_PING_CLIENT_PACKET_H
#define RKUTILS_NETWORK_PING_CLIENT_PACKET_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace rkutils::network {

// What an echo reply has in common with its request.
struct EchoNumbers {
  std::uint16_t identifier;
  std::uint16_t sequence;
};

using EchoRequest = std::array<std::uint8_t, 28>;

// An IP packet from one address to another, in host order. Its checksums are right.
[[nodiscard]] EchoRequest make_echo_request(std::uint32_t source, std::uint32_t target,
                                            EchoNumbers numbers) noexcept;

// Whether the ICMP message of an IP packet, of any type, has these numbers. False when the packet
// ends before them.
[[nodiscard]] bool has_numbers(const std::uint8_t* packet, std::size_t length,
                               EchoNumbers numbers) noexcept;

}  // namespace rkutils::network

#endif
