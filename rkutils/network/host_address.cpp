#include <rkutils/network/host_address.h>

#include <cstring>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace rkutils::network {

std::optional<std::uint32_t> find_ipv4_address(const char* host) noexcept {
  const hostent* const found = ::gethostbyname(host);
  if (found == nullptr || found->h_addrtype != AF_INET || found->h_addr_list[0] == nullptr) {
    return std::nullopt;
  }
  in_addr address = {};
  std::memcpy(&address, found->h_addr_list[0], sizeof address);
  return ntohl(address.s_addr);
}

}  // namespace rkutils::network
