// Whole Ethernet frames, as they are on an interface.
#ifndef TESTS_SUPPORT_NETWORK_FRAME_SOCKET_H
#define TESTS_SUPPORT_NETWORK_FRAME_SOCKET_H

#include <rkutils/internal/unique_fd.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "support/network/host.h"

namespace support {

using Bytes = std::vector<std::uint8_t>;

struct Frame {
  Bytes bytes;         // from the destination's hardware address on, without a checksum at the end
  bool outgoing;       // sent by the host; otherwise received
  std::timespec time;  // when, by CLOCK_REALTIME
};

// Sends and receives on one interface of a host, from whatever host the caller is in. It gets what
// the host sends and receives there, also to others, but what it has sent itself. A loopback
// interface shows each frame twice: going out and coming in. The host's loopback must be up when it
// is made.
class FrameSocket {
 public:
  FrameSocket(const Host& host, const std::string& interface);

  // Sends a frame as it is, addresses and all. Throws std::system_error.
  void send(const Bytes& frame) const;

  // The next frame, in their order; nothing when none has come after so many milliseconds. Throws
  // std::system_error, and std::runtime_error when frames were lost because nobody fetched them: there is room
  // for some hundred, and for thousands where the tests run as root.
  [[nodiscard]] std::optional<Frame> receive(int timeout_ms) const;

 private:
  rkutils::internal::UniqueFd socket_;
};

}  // namespace support

#endif
