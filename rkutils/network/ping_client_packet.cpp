#include <rkutils/network/ping_client_packet.h>

namespace rkutils::network {

static_assert(EchoRequest().size() == kIpHeaderSize + kIcmpHeaderSize);

EchoRequest make_echo_request(Endpoints endpoints, Echo echo) noexcept {
  constexpr std::uint8_t kTimeToLive = 128;
  EchoRequest request = {};
  std::uint8_t* const ip = request.data();
  put_ip_header(ip, endpoints, kTimeToLive);
  put_network16(ip + kIpLength, static_cast<std::uint16_t>(request.size()));

  std::uint8_t* const icmp = ip + kIpHeaderSize;
  icmp[0] = kEchoRequest;
  put_echo(icmp, echo);
  put_checksum(icmp, kIcmpChecksum, kIcmpHeaderSize);

  // Over all of it, which gives what the header alone would: a message with its checksum adds
  // nothing.
  put_checksum(ip, kIpChecksum, request.size());
  return request;
}

bool has_numbers(const std::uint8_t* packet, std::size_t length, Echo echo) noexcept {
  if (length == 0) return false;
  const std::size_t header = ip_header_size(packet);
  return length >= header + kIcmpHeaderSize && echo_of(packet + header) == echo;
}

}  // namespace rkutils::network
