#include <rkutils/network/ping/packet.h>

#include <algorithm>

namespace rkutils::ping {
namespace {

using namespace network;

constexpr std::size_t kEthernetHeaderSize = 14;
constexpr std::size_t kEthernetSource = 6;
constexpr std::size_t kEthernetType = 12;

constexpr std::uint8_t kTimeToLive = 64;
constexpr std::uint16_t kDoNotFragment = 0x4000;
constexpr std::uint16_t kTypeIpv4 = 0x0800;

// What is less counts as too short. The longest IP header, of 60 bytes, leaves room for an ICMP
// header in it.
constexpr std::size_t kSmallestIcmpPacket = 76;

// What little-endian hosts have always written into the length of an IP packet, whatever its length.
constexpr std::uint16_t kLengthInHostOrder = 48;

void put_little16(std::uint8_t* bytes, std::uint16_t value) noexcept {
  bytes[0] = static_cast<std::uint8_t>(value);
  bytes[1] = static_cast<std::uint8_t>(value >> 8U);
}

std::uint16_t little16(const std::uint8_t* bytes) noexcept {
  return static_cast<std::uint16_t>(bytes[1] << 8U | bytes[0]);
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
  const std::uint8_t* const icmp = packet + ip_header_size(packet);
  return IcmpPacket{icmp[0] == kEchoReply, echo_of(icmp)};
}

void write_ip_request(std::uint8_t* packet, std::size_t size, Endpoints endpoints,
                      Echo echo) noexcept {
  std::fill_n(packet, size, std::uint8_t{0});
  put_ip_header(packet, endpoints, kTimeToLive);
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
  put_ip_header(ip, endpoints, kTimeToLive);
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
