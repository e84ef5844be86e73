// System calls that signals interrupt.
#ifndef RKUTILS_INTERNAL_UNINTERRUPTED_H
#define RKUTILS_INTERNAL_UNINTERRUPTED_H

#include <cerrno>

namespace rkutils::internal {

// What `call` returns, which is called again while it gives -1 and a signal is why. Otherwise errno
// is the call's own, and 0 if it leaves none.
template <typename Call>
auto uninterrupted(Call call) noexcept {
  for (;;) {
    errno = 0;
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

}  // namespace rkutils::internal

#endif
