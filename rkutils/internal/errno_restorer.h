// errno kept across a clean-up.
#ifndef RKUTILS_INTERNAL_ERRNO_RESTORER_H
#define RKUTILS_INTERNAL_ERRNO_RESTORER_H

#include <cerrno>

namespace rkutils::internal {

// Puts errno back, at the end of its scope, to the value that it had at the beginning.
class ErrnoRestorer {
 public:
  [[nodiscard]] ErrnoRestorer() noexcept : saved_(errno) {}
  ~ErrnoRestorer() { errno = saved_; }
  ErrnoRestorer(const ErrnoRestorer&) = delete;
  ErrnoRestorer& operator=(const ErrnoRestorer&) = delete;

 private:
  const int saved_;
};

}  // namespace rkutils::internal

#endif
