// What one call of rawping() knows.
#ifndef RKUTILS_NETWORK_PING_CONTEXT_H
#define RKUTILS_NETWORK_PING_CONTEXT_H

#include <rkutils/internal/unique_fd.h>
#include <rkutils/network/ping/packet.h>

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace rkutils::ping {

struct Host {
  const char* name;       // as it was passed
  std::uint32_t address;  // in host order
};

struct Context {
  const char* interface;
  Host target;
  const char* gateway_name;  // may be NULL
  unsigned timeout_ms;
  std::size_t size;  // of a packet, kLargestSize at most
  std::uint16_t identifier;

  // Of the interface; addresses in host order.
  int interface_index = 0;
  std::uint32_t source = 0;
  std::uint32_t netmask = 0;
  MacAddress own_mac = {};

  MacAddress peer_mac = {};  // of the next hop
  // An IP packet's stays open when there was no answer, and serves the next one.
  internal::UniqueFd ip_socket = {};
  internal::UniqueFd packet_socket = {};
  std::uint16_t sequence = 0;  // of the last packet
  std::timespec sent_at = {};
  std::timespec received_at = {};

  [[nodiscard]] Echo echo() const noexcept { return {identifier, sequence}; }
};

}  // namespace rkutils::ping

#endif
