#include "support/network/capture.h"

#include <rkutils/internal/monotonic_clock.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>

namespace support {

std::vector<Frame> Capture::frames(const Condition& condition) {
  while (std::optional<Frame> frame = socket_.receive(0)) frames_.push_back(std::move(*frame));
  std::vector<Frame> chosen;
  std::copy_if(frames_.begin(), frames_.end(), std::back_inserter(chosen), condition);
  return chosen;
}

Frame Capture::wait_for(const Condition& condition, int timeout_ms) {
  const rkutils::internal::Deadline deadline(timeout_ms);
  for (;;) {
    while (next_ != frames_.size()) {
      const Frame& frame = frames_[next_++];
      if (condition(frame)) return frame;
    }
    std::optional<Frame> frame = socket_.receive(deadline.remaining_ms());
    if (!frame) throw std::runtime_error("no such frame has come");
    frames_.push_back(std::move(*frame));
  }
}

}  // namespace support
