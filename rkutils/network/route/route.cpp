#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/network/route/messages.h>
#include <rkutils/network/route/netlink.h>
#include <rkutils/network/route/query.h>
#include <rkutils/route.h>

#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netdb.h>
#include <unistd.h>

namespace internal = rkutils::internal;
namespace route = rkutils::network::route;

namespace {

// The index of the interface of that name; 0 if there is none.
unsigned index_of(const char* interface) {
  // Some C libraries cut a longer name, and find an interface of what is left.
  if (::strnlen(interface, IF_NAMESIZE) == IF_NAMESIZE) return 0;
  return ::if_nametoindex(interface);
}

}  // namespace

int route_get_interface(const addrinfo* address, char* interface) {
  if (address == nullptr || address->ai_addr == nullptr || interface == nullptr) return -1;
  const internal::PostponedCancellation postponed;
  const std::unique_ptr<route::RouteQuery> query(new (std::nothrow) route::RouteQuery);
  if (!query) {
    route::refuse("no mem for request");
    return -1;
  }
  if (!route::set_address(*query, address->ai_family, address->ai_addr)) return -1;
  query->sequence = static_cast<std::uint32_t>(std::time(nullptr));
  return route::look_up(*query, address->ai_family, interface) ? 0 : -1;
}

int ip_utils_set_multipath_flags(const char* interface, int exclude, int backup) {
  if (interface == nullptr) return -1;
  const internal::PostponedCancellation postponed;
  const unsigned index = index_of(interface);
  if (index == 0) return -1;
  const internal::UniqueFd socket = route::open_netlink_socket();
  if (!socket) return -1;
  // Where another thread does the same, or the program has a socket with its process id as well,
  // the id is taken: the kernel then chooses another when the message is sent.
  route::bind_netlink_socket(socket.get(), static_cast<std::uint32_t>(::getpid()), RTMGRP_LINK);
  const route::LinkRequest request = route::make_link_request(index, exclude != 0, backup != 0);
  route::send_to_kernel(socket.get(), &request, sizeof request);
  return 0;
}
