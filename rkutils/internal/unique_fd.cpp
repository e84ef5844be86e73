#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/unique_fd.h>

#include <unistd.h>

namespace rkutils::internal {

void UniqueFd::reset(int descriptor) noexcept {
  if (descriptor_ >= 0) {
    const ErrnoRestorer keep_errno;
    ::close(descriptor_);
  }
  descriptor_ = descriptor;
}

}  // namespace rkutils::internal
