#include <rkutils/internal/internet_checksum.h>
#include <rkutils/network/ping/packet.h>

#include <algorithm>
#include <cstring>

namespace rkutils::ping {
namespace {

// ---- The headers' fields ----

constexpr std::size_t kIpHeaderSize = 20;
constexpr std::size_t kIpLength = 2;
constexpr std::size_t kIpFragment = 6;
constexpr std::size_t kIpTimeToLive = 8;
constexpr std::size_t kIpProtocol = 9;
constexpr std::size_t kIpChecksum = 10;
constexpr std::size_t kIpSource = 12;
constexpr std::size_t kIpTarget = 16;

constexpr std::size_t kIcmpHeaderSize = 8;
constexpr std::size_t kIcmpChecksum = 2;
constexpr std::size_t kIcmpIdentifier = 4;
constexpr std::size_t kIcmpSequence = 6;

constexpr std::size_t kEthernetHeaderSize = 14;
constexpr std::size_t kEthernetSource = 6;
constexpr std::size_t kEthernetType = 12;

constexpr std::uint8_t kVersion4With5Words = 0x45;
constexpr std::uint8_t kTimeToLive = 64;
constexpr std::uint8_t kIcmp = 1;
constexpr std::uint8_t kEchoReply = 0;
constexpr std::uint8_t kEchoRequest = 8;
constexpr std::uint16_t kDoNotFragment = 0x4000;
constexpr std::uint16_t kTypeIpv4 = 0x0800;

// What is less counts as too short. The longest IP header, of 60 bytes, leaves room for an ICMP
// header in it.
constexpr std::size_t kSmallestIcmpPacket = 76;

// What little-endian hosts have always written into the length of an IP packet, whatever its length.
constexpr std::uint16_t kLengthInHostOrder = 48;

// ---- Numbers in either order ----

void put_network16(std::uint8_t* bytes, std::uint16_t value) noexcept {
  bytes[0] = static_cast<std::uint8_t>(value >> 8U);
  bytes[1] = static_cast<std::uint8_t>(value);
}

void put_network32(std::uint8_t* bytes, std::uint32_t value) noexcept {
  put_network16(bytes, static_cast<std::uint16_t>(value >> 16U));
  put_network16(bytes + 2, static_cast<std::uint16_t>(value));
}

void put_little16(std::uint8_t* bytes, std::uint16_t value) noexcept {
  bytes[0] = static_cast<std::uint8_t>(value);
  bytes[1] = static_cast<std::uint8_t>(value >> 8U);
}

std::uint16_t network16(const std::uint8_t* bytes) noexcept {
  return static_cast<std::uint16_t>(bytes[0] << 8U | bytes[1]);
}

std::uint16_t little16(const std::uint8_t* bytes) noexcept {
  return static_cast<std::uint16_t>(bytes[1] << 8U | bytes[0]);
}

// Over `length` bytes from the header on, in which the field is zero.
void put_checksum(std::uint8_t* header, std::size_t field, std::size_t length) noexcept {
  const std::uint16_t sum = internal::internet_checksum(header, length);
  std::memcpy(header + field, &sum, sizeof sum);
}

// ---- Headers, in memory that is zero ----

void put_echo(std::uint8_t* icmp, Echo echo) noexcept {
  put_network16(icmp + kIcmpIdentifier, echo.identifier);
  put_network16(icmp + kIcmpSequence, echo.sequence);
}

Echo echo_of(const std::uint8_t* icmp) noexcept {
  return {network16(icmp + kIcmpIdentifier), network16(icmp + kIcmpSequence)};
}

// All of an IP header but its length, flags and checksum.
void put_ip_header(std::uint8_t* ip, Endpoints endpoints) noexcept {
  ip[0] = kVersion4With5Words;
  ip[kIpTimeToLive] = kTimeToLive;
  ip[kIpProtocol] = kIcmp;
  put_network32(ip + kIpSource, endpoints.source);
  put_network32(ip + kIpTarget, endpoints.target);
}

}  // namespace

std::array<std::uint8_t, kIcmpRequestSize> make_icmp_request(Echo echo) noexcept {
  std::array<std::uint8_t, kIcmpRequestSize> icmp = {};
  icmp[0] = kEchoRequest;
  put_echo(icmp.data(), echo);
  put_checksum(icmp.data(), kIcmpChecksum, icmp.size());
  return icmp;
}

std::optional<IcmpPacket> read_icmp_packet(const std::uint8_t* packet,
                                           std::size_t length) noexcept {
  if (length < kSmallestIcmpPacket) return std::nullopt;
  const std::uint8_t* const icmp = packet + std::size_t{4} * (packet[0] & 0x0FU);
  return IcmpPacket{icmp[0] == kEchoReply, echo_of(icmp)};
}

void write_ip_request(std::uint8_t* packet, std::size_t size, Endpoints endpoints,
                      Echo echo) noexcept {
  std::fill_n(packet, size, std::uint8_t{0});
  put_ip_header(packet, endpoints);
  put_little16(packet + kIpLength, kLengthInHostOrder);
  put_checksum(packet, kIpChecksum, kIpHeaderSize);

  std::uint8_t* const icmp = packet + kIpHeaderSize;
  icmp[0] = kEchoRequest;
  // Both in the byte order of the hosts that this has always run on, where the kernel's and the
  // other formats' are the network's.
  put_little16(icmp + kIcmpIdentifier, echo.identifier);
  put_little16(icmp + kIcmpSequence, echo.sequence);
  put_checksum(icmp, kIcmpChecksum, kSmallestIpPacket - kIpHeaderSize);
}

std::optional<IpPacket> read_ip_packet(const std::uint8_t* packet, std::size_t length) noexcept {
  if (length < kSmallestIpPacket) return std::nullopt;
  const std::uint8_t* const icmp = packet + kIpHeaderSize;
  return IpPacket{packet[kIpProtocol] == kIcmp, icmp[0] == kEchoReply,
                  Echo{little16(icmp + kIcmpIdentifier), little16(icmp + kIcmpSequence)}};
}

void write_frame_request(std::uint8_t* frame, std::size_t size, const Link& link,
                         Endpoints endpoints, Echo echo) noexcept {
  std::fill_n(frame, size, std::uint8_t{0});
  std::copy(link.destination.begin(), link.destination.end(), frame);
  std::copy(link.source.begin(), link.source.end(), frame + kEthernetSource);
  put_network16(frame + kEthernetType, kTypeIpv4);

  std::uint8_t* const ip = frame + kEthernetHeaderSize;
  put_ip_header(ip, endpoints);
  put_network16(ip + kIpLength, static_cast<std::uint16_t>(size - kEthernetHeaderSize));
  put_network16(ip + kIpFragment, kDoNotFragment);
  put_checksum(ip, kIpChecksum, kIpHeaderSize);

  std::uint8_t* const icmp = ip + kIpHeaderSize;
  icmp[0] = kEchoRequest;
  put_echo(icmp, echo);
  put_checksum(icmp, kIcmpChecksum, kIcmpHeaderSize);  // what follows is zero
}

std::optional<Frame> read_frame(const std::uint8_t* frame, std::size_t length) noexcept {
  if (length < kSmallestFrame) return std::nullopt;
  Frame result = {};
  std::copy_n(frame, result.link.destination.size(), result.link.destination.begin());
  std::copy_n(frame + kEthernetSource, result.link.source.size(), result.link.source.begin());
  const std::uint8_t* const ip = frame + kEthernetHeaderSize;
  const std::uint8_t* const icmp = ip + kIpHeaderSize;
  result.protocol = ip[kIpProtocol];
  result.is_icmp = result.protocol == kIcmp;
  result.is_reply = icmp[0] == kEchoReply;
  result.echo = echo_of(icmp);
  return result;
}

}  // namespace rkutils::ping
