#include <rkutils/network/ping/sockets.h>

#include <cerrno>

namespace rkutils::ping {

internal::UniqueFd open_icmp_socket() noexcept {
  return internal::UniqueFd(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
}

DeviceName device_name(const char* interface) noexcept {
  constexpr std::size_t kMostCharacters = 15;
  DeviceName name = {};
  for (std::size_t i = 0; i < kMostCharacters && *interface != '\0'; ++i) {
    if (interface[0] == '%' && interface[1] == '%') ++interface;
    name[i] = *interface++;
  }
  return name;
}

bool bind_to_device(int socket, const char* interface) noexcept {
  return set_option(socket, SOL_SOCKET, SO_BINDTODEVICE, device_name(interface));
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

}  // namespace rkutils::ping
