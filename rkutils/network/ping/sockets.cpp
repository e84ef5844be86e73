#include <rkutils/network/ping/sockets.h>

#include <cstddef>

#include <sys/socket.h>

namespace rkutils::ping {

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

}  // namespace rkutils::ping
