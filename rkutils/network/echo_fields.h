// What packets with an ICMP echo have in common: fields and how they are written (RFC 791, RFC 792).
#ifndef RKUTILS_NETWORK_ECHO_FIELDS_H
#define RKUTILS_NETWORK_ECHO_FIELDS_H

#include <rkutils/internal/internet_checksum.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rkutils::network {

// What a reply has in common with its request.
struct Echo {
  std::uint16_t identifier;
  std::uint16_t sequence;
};
constexpr bool operator==(Echo a, Echo b) noexcept {
  return a.identifier == b.identifier && a.sequence == b.sequence;
}

// Addresses in host order.
struct Endpoints {
  std::uint32_t source;
  std::uint32_t target;
};

// ---- The headers' fields ----

inline constexpr std::size_t kIpHeaderSize = 20;  // without options
inline constexpr std::size_t kIpLength = 2;
inline constexpr std::size_t kIpFragment = 6;
inline constexpr std::size_t kIpTimeToLive = 8;
inline constexpr std::size_t kIpProtocol = 9;
inline constexpr std::size_t kIpChecksum = 10;
inline constexpr std::size_t kIpSource = 12;
inline constexpr std::size_t kIpTarget = 16;

inline constexpr std::size_t kIcmpHeaderSize = 8;
inline constexpr std::size_t kIcmpChecksum = 2;
inline constexpr std::size_t kIcmpIdentifier = 4;
inline constexpr std::size_t kIcmpSequence = 6;

inline constexpr std::uint8_t kVersion4With5Words = 0x45;
inline constexpr std::uint8_t kIcmp = 1;
inline constexpr std::uint8_t kEchoReply = 0;
inline constexpr std::uint8_t kEchoRequest = 8;

// What the header of an IP packet says of its own length.
inline std::size_t ip_header_size(const std::uint8_t* ip) noexcept {
  return std::size_t{4} * (ip[0] & 0x0FU);
}

// ---- Numbers in network order ----

inline void put_network16(std::uint8_t* bytes, std::uint16_t value) noexcept {
  bytes[0] = static_cast<std::uint8_t>(value >> 8U);
  bytes[1] = static_cast<std::uint8_t>(value);
}

inline void put_network32(std::uint8_t* bytes, std::uint32_t value) noexcept {
  put_network16(bytes, static_cast<std::uint16_t>(value >> 16U));
  put_network16(bytes + 2, static_cast<std::uint16_t>(value));
}

inline std::uint16_t network16(const std::uint8_t* bytes) noexcept {
  return static_cast<std::uint16_t>(bytes[0] << 8U | bytes[1]);
}

// ---- Headers, in memory that is zero ----

// Over `length` bytes from the header on, in which the field is zero.
inline void put_checksum(std::uint8_t* header, std::size_t field, std::size_t length) noexcept {
  const std::uint16_t sum = internal::internet_checksum(header, length);
  std::memcpy(header + field, &sum, sizeof sum);
}

// All of an IP header but its length, flags and checksum.
inline void put_ip_header(std::uint8_t* ip, Endpoints endpoints,
                          std::uint8_t time_to_live) noexcept {
  ip[0] = kVersion4With5Words;
  ip[kIpTimeToLive] = time_to_live;
  ip[kIpProtocol] = kIcmp;
  put_network32(ip + kIpSource, endpoints.source);
  put_network32(ip + kIpTarget, endpoints.target);
}

inline void put_echo(std::uint8_t* icmp, Echo echo) noexcept {
  put_network16(icmp + kIcmpIdentifier, echo.identifier);
  put_network16(icmp + kIcmpSequence, echo.sequence);
}

inline Echo echo_of(const std::uint8_t* icmp) noexcept {
  return {network16(icmp + kIcmpIdentifier), network16(icmp + kIcmpSequence)};
}

}  // namespace rkutils::network

#endif
