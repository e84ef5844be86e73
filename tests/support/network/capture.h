// What goes over an interface.
#ifndef TESTS_SUPPORT_NETWORK_CAPTURE_H
#define TESTS_SUPPORT_NETWORK_CAPTURE_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "support/network/frame_socket.h"

namespace support {

// Collects every frame that a host sends and receives on an interface, from construction on.
//
//     Capture capture(router, "wan0");
//     ... something sends ...
//     const Frame request = capture.wait_for([](const Frame& frame) { return frame.outgoing; });
class Capture {
 public:
  using Condition = std::function<bool(const Frame&)>;

  Capture(const Host& host, const std::string& interface) : socket_(host, interface) {}

  // All that fulfil the condition until now. Throws when frames were lost, as FrameSocket does.
  std::vector<Frame> frames(const Condition& condition);

  // The first that fulfils the condition of those after the one that this returned last, waiting
  // for it. Throws std::runtime_error when none has come after so many milliseconds.
  Frame wait_for(const Condition& condition, int timeout_ms = 10000);

 private:
  FrameSocket socket_;
  std::vector<Frame> frames_;
  std::size_t next_ = 0;  // of what wait_for() has not seen
};

}  // namespace support

#endif
