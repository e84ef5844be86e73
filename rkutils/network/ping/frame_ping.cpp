#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/network/ping/address_text.h>
#include <rkutils/network/ping/echo_filter.h>
#include <rkutils/network/ping/frame_ping.h>
#include <rkutils/network/ping/limits.h>
#include <rkutils/network/ping/packet_source.h>
#include <rkutils/network/ping/sockets.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <syslog.h>

namespace rkutils::ping {
namespace {

// Lets the socket have nothing but replies with the context's identifier.
bool set_filter(const Context& context) noexcept {
  EchoFilter filter = make_echo_filter(context.identifier);
  const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
  return set_option(context.packet_socket.get(), SOL_SOCKET, SO_ATTACH_FILTER, program);
}

sockaddr_ll link_address(const Context& context) noexcept {
  sockaddr_ll address = {};
  address.sll_family = AF_PACKET;
  address.sll_ifindex = context.interface_index;
  return address;
}

// The address has no protocol, so the socket keeps the one it was opened with: all that the filter
// lets through.
bool bind_to_interface(const Context& context) noexcept {
  const sockaddr_ll address = link_address(context);
  return ::bind(context.packet_socket.get(), reinterpret_cast<const sockaddr*>(&address),
                sizeof address) == 0;
}

bool fail(const Context& context, const char* what) noexcept {
  ::syslog(LOG_ERR, "rawping[%s]: unable to %s (%s)", context.interface, what,
           std::strerror(errno));
  return false;
}

bool open_socket(Context& context, const std::uint32_t* mark) noexcept {
  context.packet_socket.reset(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)));
  if (!context.packet_socket) return fail(context, "open socket");
  if (!set_filter(context)) return fail(context, "set filter");
  if (mark != nullptr && !set_option(context.packet_socket.get(), SOL_SOCKET, SO_MARK, *mark)) {
    return fail(context, "set mark");
  }
  return bind_to_interface(context) || fail(context, "bind socket");
}

bool send_frame(const Context& context, const std::uint8_t* frame) noexcept {
  sockaddr_ll next_hop = link_address(context);
  next_hop.sll_hatype = ARPHRD_ETHER;
  next_hop.sll_pkttype = PACKET_OTHERHOST;
  next_hop.sll_halen = ETH_ALEN;
  std::copy(context.peer_mac.begin(), context.peer_mac.end(), next_hop.sll_addr);
  return send_packet(context.packet_socket.get(), frame, context.size,
                     reinterpret_cast<const sockaddr*>(&next_hop), sizeof next_hop);
}

bool is_answer(const Context& context, const std::uint8_t* bytes, std::size_t length) noexcept {
  const auto frame = read_frame(bytes, length);
  if (!frame) {
    ::syslog(LOG_DEBUG, "rawping[%s]: packet is too short (%d bytes, need %lu bytes)",
             context.interface, static_cast<int>(length),
             static_cast<unsigned long>(kSmallestFrame));
    return false;
  }
  if (frame->is_icmp) {
    ::syslog(LOG_DEBUG, "rawping[%s]: received packet (seq %d, id %d, need seq %d, id %d)",
             context.interface, frame->echo.sequence, frame->echo.identifier, context.sequence,
             context.identifier);
  }
  if (frame->link.destination != context.own_mac) {
    ::syslog(LOG_DEBUG, "rawping[%s]: not for us (%s != %s)", context.interface,
             text_of(frame->link.destination).c_str(), text_of(context.own_mac).c_str());
    return false;
  }
  if (frame->link.source != context.peer_mac) {
    ::syslog(LOG_DEBUG, "rawping[%s]: not from target (%s != %s)", context.interface,
             text_of(frame->link.source).c_str(), text_of(context.peer_mac).c_str());
    return false;
  }
  if (!frame->is_icmp) {
    ::syslog(LOG_DEBUG, "rawping[%s]: not an ICMP message (proto %d)", context.interface,
             frame->protocol);
    return false;
  }
  if (!frame->is_reply) {
    ::syslog(LOG_DEBUG, "rawping[%s]: not an ICMP REPLY message", context.interface);
    return false;
  }
  ::syslog(LOG_DEBUG, "rawping[%s]: RECEIVED raw reply (seq %d, id %d, need seq %d, id %d)",
           context.interface, frame->echo.sequence, frame->echo.identifier, context.sequence,
           context.identifier);
  return frame->echo == context.echo();
}

}  // namespace

bool await_frame_reply(Context& context) noexcept {
  if (!context.packet_socket) {
    ::syslog(LOG_ERR, "rawping[%s]: socket is not connected", context.interface);
    return false;
  }
  std::array<std::uint8_t, kLargestSize> buffer;
  PacketSource packets(context.packet_socket.get(), context.timeout_ms);
  while (const auto length = packets.next(buffer.data(), context.size)) {
    context.received_at = internal::monotonic_now();
    if (!is_answer(context, buffer.data(), *length)) continue;
    context.packet_socket.reset();
    ::syslog(LOG_DEBUG, "rawping[%s]: raw ping to %s succeeded", context.interface,
             context.target.name);
    return true;
  }
  if (packets.has_failed()) return fail(context, "receive reply");
  ::syslog(LOG_DEBUG, "rawping[%s]: received no valid raw reply from %s", context.interface,
           context.target.name);
  return false;
}

bool ping_with_frame(Context& context, const std::uint32_t* mark) noexcept {
  const int size = static_cast<int>(context.size);
  if (context.size < kSmallestFrame) {
    ::syslog(LOG_ERR, "rawping[%s]: raw buffer too short (%d < %lu)", context.interface, size,
             static_cast<unsigned long>(kSmallestFrame));
    return false;
  }
  ++context.sequence;
  std::array<std::uint8_t, kLargestSize> frame;
  write_frame_request(frame.data(), context.size, {context.own_mac, context.peer_mac},
                      {context.source, context.target.address}, context.echo());
  const auto destination = dotted(context.target.address);
  ::syslog(LOG_DEBUG, "rawping[%s]: generated raw echo packet for %s (id %d, seq %d)",
           context.interface, destination.c_str(), context.identifier, context.sequence);

  if (!open_socket(context, mark)) return false;
  context.sent_at = internal::monotonic_now();
  if (!send_frame(context, frame.data())) {
    ::syslog(LOG_ERR, "rawping[%s]: cannot send %d bytes to %s (%s)", context.interface, size,
             destination.c_str(), std::strerror(errno));
    return false;
  }
  ::syslog(LOG_DEBUG, "rawping[%s]: raw packet transmitted for %s (%d bytes)", context.interface,
           destination.c_str(), size);
  return await_frame_reply(context);
}

}  // namespace rkutils::ping
