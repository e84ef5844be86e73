// Requests to the kernel about an interface by its name (netdevice(7)).
// What the kernel tells of an interface by its name (netdevice(7)).
#ifndef RKUTILS_NETWORK_INTERFACE_REQUEST_H
#define RKUTILS_NETWORK_INTERFACE_REQUEST_H

#include <rkutils/memory.h>

#include <cerrno>
#include <optional>

#include <net/if.h>
#include <sys/ioctl.h>

namespace rkutils::network {

// The record of a request, zero behind the name. A name that is too long for the kernel is cut.
[[nodiscard]] inline ifreq request_about(const char* interface) noexcept {
  ifreq request = {};
  strlcpy(request.ifr_name, interface, sizeof request.ifr_name);
  return request;
}

// Makes a request, SIOCGIFFLAGS for one, on a socket of any sort. The record has the answer, if it
// is one that asks. False when the kernel refuses, and errno says why.
//
// A template, since the C libraries differ in the number's type.
template <int kRequest>
[[nodiscard]] bool send_request(int socket, ifreq& request) noexcept {
  int result;
  do {
    result = ::ioctl(socket, kRequest, &request);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// Asks with an ioctl of the SIOCGIF… kind, on a socket of any sort. A name that is too long for the
// kernel is cut. Without an answer errno says why.
template <int kRequest>
[[nodiscard]] std::optional<ifreq> ask_interface(int socket, const char* interface) noexcept {
  ifreq request = {};
  strlcpy(request.ifr_name, interface, sizeof request.ifr_name);
  if (::ioctl(socket, kRequest, &request) != 0) return std::nullopt;
  return request;
}

}  // namespace rkutils::network

#endif
