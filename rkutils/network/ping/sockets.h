// What the ways to ping do with sockets.
#ifndef RKUTILS_NETWORK_PING_SOCKETS_H
#define RKUTILS_NETWORK_PING_SOCKETS_H

#include <rkutils/network/socket_calls.h>

#include <array>

namespace rkutils::ping {

using network::open_icmp_socket;
using network::send_packet;
using network::send_to_host;
using network::set_option;

// An interface name as sockets are bound to it: at most 15 characters, zeros behind them. Of "%%"
// there is one percent sign, as when printf() copies it.
using DeviceName = std::array<char, 32>;
[[nodiscard]] DeviceName device_name(const char* interface) noexcept;

// Makes a socket send and receive through this interface alone. False: errno says why.
[[nodiscard]] bool bind_to_device(int socket, const char* interface) noexcept;

}  // namespace rkutils::ping

#endif
