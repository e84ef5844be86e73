// A host that answers pings as a test wants.
#ifndef TESTS_SUPPORT_NETWORK_ECHO_RESPONDER_H
#define TESTS_SUPPORT_NETWORK_ECHO_RESPONDER_H

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "support/network/echo.h"
#include "support/network/frame_socket.h"
#include "support/network/host.h"

namespace support {

// Calls `answer` on a thread of its own for each echo request that comes in on an interface of a
// host, whomever it is for, in place of the host's kernel. It sends what it likes, when it likes:
//
//     const EchoResponder late(neighbour, "eth0", [](const Echo& request, const FrameSocket& wire) {
//       pause_us(200000);
//       wire.send(make_frame(reply_to(request)));
//     });
//
// The destructor ends it, when `answer` has returned. Then the kernel answers again. What `answer`
// throws ends the program.
class EchoResponder {
 public:
  using Answer = std::function<void(const Echo& request, const FrameSocket& wire)>;

  EchoResponder(const Host& host, const std::string& interface, Answer answer);
  ~EchoResponder();
  EchoResponder(const EchoResponder&) = delete;
  EchoResponder& operator=(const EchoResponder&) = delete;

  // The requests until now, answered or just being answered.
  [[nodiscard]] int requests() const { return requests_; }

 private:
  void serve();

  const Host& host_;
  const FrameSocket wire_;
  const Answer answer_;
  std::atomic<int> requests_{0};
  std::atomic<bool> ends_{false};
  std::thread thread_;
};

}  // namespace support

#endif
