// The limits of what callers ask for.
#ifndef RKUTILS_NETWORK_PING_LIMITS_H
#define RKUTILS_NETWORK_PING_LIMITS_H

#include <rkutils/network/ping/packet.h>

#include <algorithm>
#include <cstddef>

namespace rkutils::ping {

// Of packets that are sent, and of what is looked at of those that come.
inline constexpr std::size_t kLargestSize = 1450;

constexpr unsigned timeout_within(unsigned timeout_ms) noexcept {
  return std::clamp(timeout_ms, 500U, 10000U);
}

// The bytes of a packet for a size that may be negative.
constexpr std::size_t size_within(int size) noexcept {
  return static_cast<std::size_t>(
      std::clamp(size, static_cast<int>(kSmallestIpPacket), static_cast<int>(kLargestSize)));
}

}  // namespace rkutils::ping

#endif
