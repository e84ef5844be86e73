// The addresses of hosts.
#ifndef RKUTILS_NETWORK_HOST_ADDRESS_H
#define RKUTILS_NETWORK_HOST_ADDRESS_H

#include <cstdint>
#include <optional>

namespace rkutils::network {

// The first IPv4 address of a host, in host order. A dotted address is its own; a name is looked up
// as gethostbyname(3) does it, which may block. Several threads may do so at once.
[[nodiscard]] std::optional<std::uint32_t> find_ipv4_address(const char* host) noexcept;

}  // namespace rkutils::network

#endif
