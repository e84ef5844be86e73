// What an interface's flags say of its being up.
#ifndef RKUTILS_NETWORK_INTERFACE_FLAGS_H
#define RKUTILS_NETWORK_INTERFACE_FLAGS_H

#include <net/if.h>

namespace rkutils::network {

// Switched on by an administrator, and able to carry traffic.
constexpr int kUpAndRunning = IFF_UP | IFF_RUNNING;

constexpr bool is_up(short flags) noexcept { return (flags & kUpAndRunning) == kUpAndRunning; }

// The flags with both set, or with neither.
constexpr short with_up(short flags, bool up) noexcept {
  return static_cast<short>(up ? flags | kUpAndRunning : flags & ~kUpAndRunning);
}

}  // namespace rkutils::network

#endif
