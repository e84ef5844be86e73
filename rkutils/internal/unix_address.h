// Addresses of local (AF_UNIX) sockets.
#ifndef RKUTILS_INTERNAL_UNIX_ADDRESS_H
#define RKUTILS_INTERNAL_UNIX_ADDRESS_H

#include <sys/socket.h>
#include <sys/un.h>

namespace rkutils::internal {

// Fills `address` with `path`, all bytes after it zero. False, with an address of the empty path,
// when the path and its NUL do not fit (errno ENAMETOOLONG: a cut path would name another socket)
// or there is none (EINVAL: binding would pick an address at random).
[[nodiscard]] bool make_unix_address(const char* path, sockaddr_un& address) noexcept;

// The address length that ends with the path's last character, without its NUL.
[[nodiscard]] socklen_t unix_address_length(const sockaddr_un& address) noexcept;

// `address` as the socket calls take it.
[[nodiscard]] inline const sockaddr* as_sockaddr(const sockaddr_un& address) noexcept {
  return static_cast<const sockaddr*>(static_cast<const void*>(&address));
}

}  // namespace rkutils::internal

#endif
