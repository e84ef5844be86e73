#include <rkutils/network/host_address.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace rkutils::network {

// gethostbyname() would have the record where other threads write over it, or give it back to the
// allocator. How much room it needs shows when there is not enough.
std::optional<std::uint32_t> find_ipv4_address(const char* host) noexcept {
  constexpr std::size_t kRoom = 1024;
  constexpr std::size_t kMostRoom = 1024 * kRoom;
  for (std::size_t size = kRoom; size <= kMostRoom; size *= 2) {
    const std::unique_ptr<char[]> room(new (std::nothrow) char[size]);
    if (!room) return std::nullopt;
    hostent record = {};
    hostent* found = nullptr;
    int reason = 0;
    if (::gethostbyname_r(host, &record, room.get(), size, &found, &reason) == ERANGE) continue;
    if (found == nullptr || found->h_addrtype != AF_INET || found->h_addr_list[0] == nullptr) {
      return std::nullopt;
    }
    in_addr address = {};
    std::memcpy(&address, found->h_addr_list[0], sizeof address);
    return ntohl(address.s_addr);
  }
  return std::nullopt;
}

}  // namespace rkutils::network
