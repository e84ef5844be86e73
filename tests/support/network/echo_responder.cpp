#include "support/network/echo_responder.h"

#include <optional>
#include <utility>

namespace support {

EchoResponder::EchoResponder(const Host& host, const std::string& interface, Answer answer)
    : host_(host), wire_(host, interface), answer_(std::move(answer)) {
  host_.answer_pings(false);
  thread_ = std::thread([this] { serve(); });
}

EchoResponder::~EchoResponder() {
  ends_ = true;
  thread_.join();
  host_.answer_pings(true);
}

void EchoResponder::serve() {
  constexpr int kLook = 20;  // milliseconds, how long the destructor waits at most
  while (!ends_) {
    const std::optional<Frame> frame = wire_.receive(kLook);
    if (!frame || frame->outgoing || !is_echo_request(*frame)) continue;
    ++requests_;
    answer_(echo_in(*frame), wire_);
  }
}

}  // namespace support
