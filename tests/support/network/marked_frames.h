// Frames that leave with a firewall mark.
#ifndef TESTS_SUPPORT_NETWORK_MARKED_FRAMES_H
#define TESTS_SUPPORT_NETWORK_MARKED_FRAMES_H

#include <rkutils/internal/unique_fd.h>

#include <cstdint>
#include <string>

namespace support {

// Counts the frames with a mark on an interface of the host that the thread is in, from
// construction on. A frame has no mark any more when it comes in at another host.
class MarkedFrames {
 public:
  MarkedFrames(const std::string& interface, std::uint32_t mark);

  // Those since the last call.
  [[nodiscard]] int count() const;

 private:
  rkutils::internal::UniqueFd socket_;
};

}  // namespace support

#endif
