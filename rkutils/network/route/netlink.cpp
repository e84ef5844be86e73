#include <rkutils/network/route/netlink.h>

#include <cerrno>

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/uio.h>

namespace rkutils::network::route {
namespace {

sockaddr_nl netlink_address(std::uint32_t port, std::uint32_t groups) noexcept {
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_pid = port;
  address.nl_groups = groups;
  return address;
}

}  // namespace

internal::UniqueFd open_netlink_socket() noexcept {
  return internal::UniqueFd(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
}

bool bind_netlink_socket(int socket, std::uint32_t port, std::uint32_t groups) noexcept {
  const sockaddr_nl address = netlink_address(port, groups);
  return ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool send_to_kernel(int socket, const void* message, std::size_t size) noexcept {
  sockaddr_nl kernel = netlink_address(0, 0);
  iovec bytes = {const_cast<void*>(message), size};
  msghdr datagram = {};
  datagram.msg_name = &kernel;
  datagram.msg_namelen = sizeof kernel;
  datagram.msg_iov = &bytes;
  datagram.msg_iovlen = 1;
  ssize_t sent = 0;
  do {
    sent = ::sendmsg(socket, &datagram, 0);
  } while (sent < 0 && errno == EINTR);
  return sent >= 0;
}

}  // namespace rkutils::network::route
