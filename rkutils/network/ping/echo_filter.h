// What the kernel lets through to the socket that waits for a frame.
#ifndef RKUTILS_NETWORK_PING_ECHO_FILTER_H
#define RKUTILS_NETWORK_PING_ECHO_FILTER_H

#include <array>
#include <cstdint>

#include <linux/filter.h>

namespace rkutils::ping {

using EchoFilter = std::array<sock_filter, 13>;

// Of Ethernet frames with an ICMP echo reply of this identifier the first 96 bytes, of others
// nothing (bpf(4) of the BSDs, packet(7)).
[[nodiscard]] EchoFilter make_echo_filter(std::uint16_t identifier) noexcept;

}  // namespace rkutils::ping

#endif
