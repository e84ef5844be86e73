#include <rkutils/internal/unix_address.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace rkutils::internal {

bool make_unix_address(const char* path, sockaddr_un& address) noexcept {
  address = {};
  address.sun_family = AF_UNIX;
  const std::size_t length = ::strnlen(path, sizeof address.sun_path);
  if (length == 0) {
    errno = EINVAL;
    return false;
  }
  if (length == sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(address.sun_path, path, length);
  return true;
}

socklen_t unix_address_length(const sockaddr_un& address) noexcept {
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) +
                                ::strnlen(address.sun_path, sizeof address.sun_path));
}

}  // namespace rkutils::internal
