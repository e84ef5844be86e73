// Echo requests and what comes in answer to them, as bytes (RFC 791, RFC 792).
//
// There are three formats: ICMP alone, for which the kernel writes the IP header; an IP packet; and
// an Ethernet frame with one. Addresses are numbers in host order.
#ifndef RKUTILS_NETWORK_PING_PACKET_H
#define RKUTILS_NETWORK_PING_PACKET_H

#include <rkutils/network/echo_fields.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace rkutils::ping {

using network::Echo;
using network::Endpoints;

using MacAddress = std::array<std::uint8_t, 6>;

// ---- ICMP alone ----

inline constexpr std::size_t kIcmpRequestSize = 64;
[[nodiscard]] std::array<std::uint8_t, kIcmpRequestSize> make_icmp_request(Echo echo) noexcept;

// A packet as a raw socket gives it, its IP header before it.
struct IcmpPacket {
  bool is_reply;
  Echo echo;
};
// Nothing for a packet that is too short.
[[nodiscard]] std::optional<IcmpPacket> read_icmp_packet(const std::uint8_t* packet,
                                                         std::size_t length) noexcept;

// ---- IP packets ----

// Of both directions.
inline constexpr std::size_t kSmallestIpPacket = 48;

// Writes `size` bytes, at least kSmallestIpPacket.
void write_ip_request(std::uint8_t* packet, std::size_t size, Endpoints endpoints,
                      Echo echo) noexcept;

struct IpPacket {
  bool is_icmp;
  bool is_reply;
  Echo echo;
};
// Nothing for a packet that is too short. An IP header with options is not expected: the fields are
// taken from where they are without.
[[nodiscard]] std::optional<IpPacket> read_ip_packet(const std::uint8_t* packet,
                                                     std::size_t length) noexcept;

// ---- Ethernet frames ----

// Of both directions.
inline constexpr std::size_t kSmallestFrame = 42;

struct Link {
  MacAddress source;
  MacAddress destination;
};

// Writes `size` bytes, at least kSmallestFrame.
void write_frame_request(std::uint8_t* frame, std::size_t size, const Link& link,
                         Endpoints endpoints, Echo echo) noexcept;

struct Frame {
  Link link;
  std::uint8_t protocol;
  bool is_icmp;
  bool is_reply;
  Echo echo;
};
// Nothing for a frame that is too short. No options, as above.
[[nodiscard]] std::optional<Frame> read_frame(const std::uint8_t* frame,
                                              std::size_t length) noexcept;

}  // namespace rkutils::ping

#endif
