// The kernel's table of hardware addresses, /proc/net/arp (arp(7)).
#ifndef RKUTILS_NETWORK_PING_ARP_TABLE_H
#define RKUTILS_NETWORK_PING_ARP_TABLE_H

#include <rkutils/network/ping/packet.h>

#include <optional>

namespace rkutils::ping {

// The hardware address on a line of the table, if it is a complete entry for this very text. The
// interface on it is not looked at.
[[nodiscard]] std::optional<MacAddress> read_arp_line(const char* line,
                                                      const char* address) noexcept;

// The hardware address of the first complete entry for this text.
[[nodiscard]] std::optional<MacAddress> find_in_arp_table(const char* address) noexcept;

}  // namespace rkutils::ping

#endif
