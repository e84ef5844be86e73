#include <rkutils/network/ping/address_text.h>
#include <rkutils/network/ping/ip_ping.h>
#include <rkutils/network/ping/limits.h>
#include <rkutils/network/ping/packet_source.h>
#include <rkutils/network/ping/sockets.h>

#include <array>
#include <cerrno>
#include <cstring>

#include <netinet/in.h>
#include <syslog.h>

namespace rkutils::ping {
namespace {

constexpr int kOn = 1;

bool open_socket(Context& context) noexcept {
  if (!context.ip_socket) context.ip_socket = open_icmp_socket();
  const int socket = context.ip_socket.get();
  if (socket < 0) {
    ::syslog(LOG_ERR, "rawping[%s]: unable to open socket (%s)", context.interface,
             std::strerror(errno));
    return false;
  }
  if (!set_option(socket, IPPROTO_IP, IP_HDRINCL, kOn)) return false;
  if (!bind_to_device(socket, context.interface)) {
    ::syslog(LOG_ERR, "rawping[%s]: can't bind to device (%s)", context.interface,
             std::strerror(errno));
    return false;
  }
  if (!set_option(socket, IPPROTO_IP, IP_HDRINCL, kOn)) {
    ::syslog(LOG_ERR, "rawping[%s]: can't configure socket (%s)", context.interface,
             std::strerror(errno));
    return false;
  }
  return true;
}

bool is_answer(const Context& context, const std::uint8_t* bytes, std::size_t length) noexcept {
  ::syslog(LOG_DEBUG, "rawping[%s]: received ip packet (%d bytes)\n", context.interface,
           static_cast<int>(length));
  const auto packet = read_ip_packet(bytes, length);
  if (!packet) {
    ::syslog(LOG_DEBUG, "rawping[%s]: packet is too short (%d bytes, need %ld bytes)",
             context.interface, static_cast<int>(length), static_cast<long>(kSmallestIpPacket));
    return false;
  }
  if (!packet->is_icmp) {
    ::syslog(LOG_DEBUG, "rawping[%s]: not an ICMP message", context.interface);
    return false;
  }
  if (!packet->is_reply) {
    ::syslog(LOG_DEBUG, "rawping[%s]: not an ICMP REPLY message", context.interface);
    return false;
  }
  ::syslog(LOG_DEBUG, "rawping[%s]: RECEIVED ip reply (seq %d, id %d, need seq %d, id %d)",
           context.interface, packet->echo.sequence, packet->echo.identifier, context.sequence,
           context.identifier);
  return packet->echo == context.echo();
}

}  // namespace

bool await_ip_reply(Context& context, const Host& host) noexcept {
  if (!context.ip_socket) {
    ::syslog(LOG_ERR, "rawping[%s]: socket is not connected", context.interface);
    return false;
  }
  std::array<std::uint8_t, kLargestSize> buffer;
  PacketSource packets(context.ip_socket.get(), context.timeout_ms);
  while (const auto length = packets.next(buffer.data(), context.size)) {
    ::clock_gettime(CLOCK_REALTIME, &context.received_at);
    if (!is_answer(context, buffer.data(), *length)) continue;
    context.ip_socket.reset();
    ::syslog(LOG_DEBUG, "rawping[%s]: ip ping to %s succeeded", context.interface, host.name);
    return true;
  }
  if (packets.has_failed()) {
    ::syslog(LOG_ERR, "rawping[%s]: unable to receive reply (%s)", context.interface,
             std::strerror(errno));
  } else {
    ::syslog(LOG_DEBUG, "rawping[%s]: received no valid ip reply from %s", context.interface,
             host.name);
  }
  return false;
}

bool ping_with_ip_packet(Context& context, const Host& host) noexcept {
  const int size = static_cast<int>(context.size);
  if (context.size < kSmallestIpPacket) {
    ::syslog(LOG_ERR, "rawping[%s]: ip buffer too short (%d < %lu)", context.interface, size,
             static_cast<unsigned long>(kSmallestIpPacket));
    return false;
  }
  ++context.sequence;
  std::array<std::uint8_t, kLargestSize> packet;
  write_ip_request(packet.data(), context.size, {context.source, host.address}, context.echo());
  const auto destination = dotted(host.address);
  ::syslog(LOG_DEBUG, "rawping[%s]: generated ip echo packet for %s", context.interface,
           destination.c_str());

  if (!open_socket(context)) return false;
  ::clock_gettime(CLOCK_REALTIME, &context.sent_at);
  if (!send_to_host(context.ip_socket.get(), packet.data(), context.size, host.address)) {
    ::syslog(LOG_ERR, "rawping[%s]: unable to send %d bytes to %s (%s)", context.interface, size,
             destination.c_str(), std::strerror(errno));
    return false;
  }
  ::syslog(LOG_DEBUG, "rawping[%s]: ip packet transmitted for %s (%d bytes)", context.interface,
           destination.c_str(), size);
  return await_ip_reply(context, host);
}

}  // namespace rkutils::ping
