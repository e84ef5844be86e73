// A ping with an Ethernet frame, past the kernel's routing.
#ifndef RKUTILS_NETWORK_PING_FRAME_PING_H
#define RKUTILS_NETWORK_PING_FRAME_PING_H

#include <rkutils/network/ping/context.h>

#include <cstdint>

namespace rkutils::ping {

// Sends one request for the context's target to the next hop, whose hardware address the context
// has, with the firewall mark if it is not NULL, and waits for the reply. What happens is logged.
// The socket is closed by an answer alone.
[[nodiscard]] bool ping_with_frame(Context& context, const std::uint32_t* mark) noexcept;

// The waiting: for the reply to the frame that the context's socket has sent last.
[[nodiscard]] bool await_frame_reply(Context& context) noexcept;

}  // namespace rkutils::ping

#endif
