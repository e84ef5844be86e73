// A ping with an IP packet, which the kernel routes.
#ifndef RKUTILS_NETWORK_PING_IP_PING_H
#define RKUTILS_NETWORK_PING_IP_PING_H

#include <rkutils/network/ping/context.h>

namespace rkutils::ping {

// Sends one request to the host, which need not be the context's target, and waits for its reply.
// What happens is logged. The socket is closed by an answer alone.
[[nodiscard]] bool ping_with_ip_packet(Context& context, const Host& host) noexcept;

// The waiting: for the reply to the packet that the context's socket has sent last.
[[nodiscard]] bool await_ip_reply(Context& context, const Host& host) noexcept;

}  // namespace rkutils::ping

#endif
