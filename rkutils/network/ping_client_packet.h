// The packets of PingClient as bytes (RFC 791, RFC 792).
#ifndef RKUTILS_NETWORK_PING_CLIENT_PACKET_H
#define RKUTILS_NETWORK_PING_CLIENT_PACKET_H

#include <rkutils/network/echo_fields.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace rkutils::network {

using EchoRequest = std::array<std::uint8_t, 28>;

// An IP packet. Its checksums are right.
[[nodiscard]] EchoRequest make_echo_request(Endpoints endpoints, Echo echo) noexcept;

// Whether the ICMP message of an IP packet, of any type, has these numbers. False when the packet
// ends before them.
[[nodiscard]] bool has_numbers(const std::uint8_t* packet, std::size_t length, Echo echo) noexcept;

}  // namespace rkutils::network

#endif
