// What the ways to ping do with sockets.
#ifndef RKUTILS_NETWORK_PING_SOCKETS_H
#define RKUTILS_NETWORK_PING_SOCKETS_H

#include <rkutils/internal/unique_fd.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include <netinet/in.h>
#include <sys/socket.h>

namespace rkutils::ping {

// Opens a raw socket that gets every ICMP message. Without one errno says why.
[[nodiscard]] internal::UniqueFd open_icmp_socket() noexcept;

// An interface name as sockets are bound to it: at most 15 characters, zeros behind them. Of "%%"
// there is one percent sign, as when printf() copies it.
using DeviceName = std::array<char, 32>;
[[nodiscard]] DeviceName device_name(const char* interface) noexcept;

// Makes a socket send and receive through this interface alone. False: errno says why.
[[nodiscard]] bool bind_to_device(int socket, const char* interface) noexcept;

// setsockopt(). False: errno says why.
template <typename Value>
[[nodiscard]] bool set_option(int socket, int level, int option, const Value& value) noexcept {
  return ::setsockopt(socket, level, option, &value, sizeof value) == 0;
}

// Sends a packet. False, when less than all of it went out: errno says why, or is 0.
[[nodiscard]] bool send_packet(int socket, const std::uint8_t* packet, std::size_t size,
                               const sockaddr* address, socklen_t address_size) noexcept;

// To an address in host order.
[[nodiscard]] bool send_to_host(int socket, const std::uint8_t* packet, std::size_t size,
                                std::uint32_t host) noexcept;

}  // namespace rkutils::ping

#endif
