// Sockets to the kernel's routing service (netlink(7)).
#ifndef RKUTILS_NETWORK_ROUTE_NETLINK_H
#define RKUTILS_NETWORK_ROUTE_NETLINK_H

#include <rkutils/internal/unique_fd.h>

#include <cstddef>
#include <cstdint>

namespace rkutils::network::route {

[[nodiscard]] internal::UniqueFd open_netlink_socket() noexcept;

// The kernel chooses a port id for 0. `groups` has a bit for each multicast group.
bool bind_netlink_socket(int socket, std::uint32_t port, std::uint32_t groups) noexcept;

// Sends one message to the kernel, which has acted on it and queued its answer when this returns. A
// signal does not end it.
bool send_to_kernel(int socket, const void* message, std::size_t size) noexcept;

}  // namespace rkutils::network::route

#endif
