// Requests to the kernel about an interface by its name (netdevice(7)).
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

// The same for a request that asks, with nothing but the name in it: the record with the answer.
template <int kRequest>
[[nodiscard]] std::optional<ifreq> ask_interface(int socket, const char* interface) noexcept {
  ifreq request = request_about(interface);
  if (!send_request<kRequest>(socket, request)) return std::nullopt;
  return request;
}

}  // namespace rkutils::network

#endif
