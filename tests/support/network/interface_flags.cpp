#include "support/network/interface_flags.h"

#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <system_error>

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace support {
namespace {

using rkutils::internal::UniqueFd;

// A request is an int in one C library and an unsigned long in another; as a constant it fits both.
template <int kRequest>
void request_flags(ifreq& request) {
  const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket || ::ioctl(socket.get(), kRequest, &request) != 0) {
    throw std::system_error(errno, std::generic_category(),
                            std::string("flags of ") + static_cast<char*>(request.ifr_name));
  }
}

ifreq current_flags(const std::string& interface) {
  ifreq request = {};
  interface.copy(static_cast<char*>(request.ifr_name), IFNAMSIZ - 1);
  request_flags<SIOCGIFFLAGS>(request);
  return request;
}

}  // namespace

short interface_flags(const std::string& interface) { return current_flags(interface).ifr_flags; }

void bring_up(const std::string& interface) {
  ifreq request = current_flags(interface);
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
  request_flags<SIOCSIFFLAGS>(request);
}

}  // namespace support
