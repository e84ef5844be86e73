// icmpping(): the kernel makes the packet.

#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/network/host_address.h>
#include <rkutils/network/ping/address_text.h>
#include <rkutils/network/ping/limits.h>
#include <rkutils/network/ping/packet.h>
#include <rkutils/network/ping/packet_source.h>
#include <rkutils/network/ping/sockets.h>
#include <rkutils/ping.h>

#include <array>
#include <cerrno>
#include <cstring>

#include <syslog.h>

namespace rkutils::ping {
namespace {

// Every call sends the same.
constexpr Echo kEcho = {0, 1};

bool send_request(int socket, const char* interface, std::uint32_t target) noexcept {
  const auto request = make_icmp_request(kEcho);
  if (!send_to_host(socket, request.data(), request.size(), target)) {
    ::syslog(LOG_ERR, "icmpping: packet transmission failed (%s)", std::strerror(errno));
    return false;
  }
  // The two numbers stand behind each other's names, as they always did.
  ::syslog(LOG_DEBUG, "icmpping: packet transmitted on %s for %s (%d bytes, id %d, seq %d)",
           interface, dotted(target).c_str(), static_cast<int>(request.size()), kEcho.sequence,
           kEcho.identifier);
  return true;
}

bool is_answer(const std::uint8_t* bytes, std::size_t length, const char* interface) noexcept {
  const auto packet = read_icmp_packet(bytes, length);
  if (!packet) {
    ::syslog(LOG_ERR, "icmpping: packet is too short");
    return false;
  }
  if (!packet->is_reply) {
    ::syslog(LOG_ERR, "icmpping: packet is not a reply");
    return false;
  }
  ::syslog(LOG_DEBUG, "icmpping: RECEIVED icmp reply on %s (seq %d, id %d, need seq %d, id %d)",
           interface, packet->echo.sequence, packet->echo.identifier, kEcho.sequence,
           kEcho.identifier);
  return packet->echo == kEcho;
}

bool await_reply(int socket, const char* interface, unsigned timeout_ms) noexcept {
  std::array<std::uint8_t, kLargestSize> buffer;
  PacketSource packets(socket, timeout_ms);
  while (const auto length = packets.next(buffer.data(), buffer.size())) {
    if (is_answer(buffer.data(), *length, interface)) return true;
  }
  if (packets.has_failed()) {
    ::syslog(LOG_ERR, "icmpping: unable to receive reply on %s (%s)", interface,
             std::strerror(errno));
  }
  return false;
}

bool ping_host(const char* interface, std::uint32_t target, unsigned timeout_ms) noexcept {
  const internal::UniqueFd socket = open_icmp_socket();
  if (!socket) {
    ::syslog(LOG_ERR, "icmpping: unable to open socket (%s)", std::strerror(errno));
    return false;
  }
  if (!bind_to_device(socket.get(), interface)) {
    ::syslog(LOG_ERR, "icmpping: can't bind to %s (%s)", interface, std::strerror(errno));
    return false;
  }
  return send_request(socket.get(), interface, target) &&
         await_reply(socket.get(), interface, timeout_ms);
}

}  // namespace
}  // namespace rkutils::ping

int icmpping(const char* interface, const char* target, unsigned timeout_ms) {
  const rkutils::internal::PostponedCancellation postponed;
  if (target == nullptr || *target == '\0') {
    ::syslog(LOG_ERR, "icmpping: no target given");
    return -1;
  }
  if (interface == nullptr || *interface == '\0') {
    ::syslog(LOG_ERR, "icmpping: no interface given");
    return -1;
  }
  const auto address = rkutils::network::find_ipv4_address(target);
  if (!address) {
    ::syslog(LOG_ERR, "icmpping[%s]: invalid target '%s'", interface, target);
    return -1;
  }
  return rkutils::ping::ping_host(interface, *address, rkutils::ping::timeout_within(timeout_ms))
             ? 0
             : -1;
}
