// Socket addresses as bytes. Records come from buffers of any alignment, and what is behind the
// address need not be there: no member of the system's structures is touched.
#ifndef RKUTILS_NETWORK_ADDRESS_RECORD_H
#define RKUTILS_NETWORK_ADDRESS_RECORD_H

#include <cstddef>
#include <cstring>

#include <netinet/in.h>
#include <sys/socket.h>

namespace rkutils::network {

using Byte = unsigned char;

inline const Byte* bytes_of(const sockaddr* record) noexcept {
  return reinterpret_cast<const Byte*>(record);
}
inline Byte* bytes_of(sockaddr* record) noexcept { return reinterpret_cast<Byte*>(record); }

inline sa_family_t family_of(const Byte* record) noexcept {
  sa_family_t family = 0;
  std::memcpy(&family, record + offsetof(sockaddr, sa_family), sizeof family);
  return family;
}

inline void set_family(Byte* record, int family) noexcept {
  const auto value = static_cast<sa_family_t>(family);
  std::memcpy(record + offsetof(sockaddr, sa_family), &value, sizeof value);
}

// Where a record has its address.
struct AddressField {
  std::size_t offset;
  std::size_t size;  // 0: there is none

  constexpr explicit operator bool() const noexcept { return size != 0; }
};

constexpr AddressField address_field(int family) noexcept {
  switch (family) {
    case AF_INET:
      return {offsetof(sockaddr_in, sin_addr), sizeof(in_addr)};
    case AF_INET6:
      return {offsetof(sockaddr_in6, sin6_addr), sizeof(in6_addr)};
    default:
      return {0, 0};
  }
}

}  // namespace rkutils::network

#endif
