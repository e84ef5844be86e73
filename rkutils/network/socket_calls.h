// What several families do with sockets.
#ifndef RKUTILS_NETWORK_SOCKET_CALLS_H
#define RKUTILS_NETWORK_SOCKET_CALLS_H

#include <rkutils/internal/unique_fd.h>

#include <cstddef>
#include <cstdint>

#include <sys/socket.h>

namespace rkutils::network {

// Opens a raw socket that gets every ICMP message. Without one errno says why.
[[nodiscard]] internal::UniqueFd open_icmp_socket() noexcept;

// setsockopt(). False: errno says why.
template <typename Value>
[[nodiscard]] bool set_option(int socket, int level, int option, const Value& value) noexcept {
  return ::setsockopt(socket, level, option, &value, sizeof value) == 0;
}

// Sends a packet, again where a signal ends it. False, when less than all of it went out: errno says
// why, or is 0.
[[nodiscard]] bool send_packet(int socket, const std::uint8_t* packet, std::size_t size,
                               const sockaddr* address, socklen_t address_size) noexcept;

// To an IPv4 address in host order.
[[nodiscard]] bool send_to_host(int socket, const std::uint8_t* packet, std::size_t size,
                                std::uint32_t host) noexcept;

}  // namespace rkutils::network

#endif
