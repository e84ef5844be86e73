// One question to the kernel about a route, from the address to the name of the interface. All steps
// log their failures, at LOG_DEBUG.
#ifndef RKUTILS_NETWORK_ROUTE_QUERY_H
#define RKUTILS_NETWORK_ROUTE_QUERY_H

#include <rkutils/internal/unique_fd.h>
#include <rkutils/network/route/messages.h>

#include <cstddef>
#include <cstdint>

#include <linux/netlink.h>
#include <sys/socket.h>

namespace rkutils::network::route {

struct RouteQuery {
  internal::UniqueFd socket;
  std::uint32_t sequence = 0;   // the last one that was used
  sockaddr_nl local = {};       // the socket's own address
  char address_text[128] = {};  // what is asked for, for the log
  Byte address[16] = {};        // the same in network order
  int address_length = 0;       // of it: 4 or 16
};
// Core dumps are read by this order.
static_assert(offsetof(RouteQuery, socket) == 0 && sizeof(internal::UniqueFd) == 4);
static_assert(offsetof(RouteQuery, sequence) == 4);
static_assert(offsetof(RouteQuery, local) == 8);
static_assert(offsetof(RouteQuery, address_text) == 20);
static_assert(offsetof(RouteQuery, address) == 148);
static_assert(offsetof(RouteQuery, address_length) == 164);

// Logs why a query fails. Returns false.
bool refuse(const char* reason) noexcept;

// Takes the address of a record that is of this family, and nothing else from it. False, and nothing
// logged, for a family that has none.
[[nodiscard]] bool set_address(RouteQuery& query, int family, const sockaddr* record) noexcept;

// Makes the request for the query's address.
[[nodiscard]] bool prepare(const RouteQuery& query, int family, RouteMessage& message) noexcept;

// Asks the kernel, over a socket that it opens, and writes the name of the interface to a buffer of
// IF_NAMESIZE bytes.
[[nodiscard]] bool look_up(RouteQuery& query, int family, char* interface) noexcept;

}  // namespace rkutils::network::route

#endif
