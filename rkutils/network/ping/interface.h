// What must be known of an interface before packets can be made for it.
#ifndef RKUTILS_NETWORK_PING_INTERFACE_H
#define RKUTILS_NETWORK_PING_INTERFACE_H

#include <rkutils/network/ping/context.h>

namespace rkutils::ping {

// Fills in what the context has of the interface: its index and hardware address, and the address
// and netmask, both from these texts or, if they are NULL, from the kernel. Makes sure that a
// gateway that is not empty has an address. False, logged, when anything fails; of an invalid text
// there is then a socket left open.
[[nodiscard]] bool look_at_interface(Context& context, const char* source,
                                     const char* netmask) noexcept;

// 1 if the interface is point-to-point or has no ARP, 0 if not or, logged, if that is not known; -1,
// logged, for NULL.
[[nodiscard]] int is_point_to_point(const char* interface) noexcept;

}  // namespace rkutils::ping

#endif
