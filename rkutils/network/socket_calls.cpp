#include <rkutils/network/socket_calls.h>

#include <cerrno>

#include <netinet/in.h>

namespace rkutils::network {

internal::UniqueFd open_icmp_socket() noexcept {
  return internal::UniqueFd(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
}

bool send_packet(int socket, const std::uint8_t* packet, std::size_t size, const sockaddr* address,
                 socklen_t address_size) noexcept {
  ssize_t sent = 0;
  do {
    errno = 0;
    sent = ::sendto(socket, packet, size, 0, address, address_size);
  } while (sent < 0 && errno == EINTR);
  return sent >= 0 && static_cast<std::size_t>(sent) == size;
}

bool send_to_host(int socket, const std::uint8_t* packet, std::size_t size,
                  std::uint32_t host) noexcept {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(host);
  return send_packet(socket, packet, size, reinterpret_cast<const sockaddr*>(&address),
                     sizeof address);
}

}  // namespace rkutils::network
