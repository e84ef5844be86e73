#include <rkutils/internal/unique_fd.h>
#include <rkutils/network/host_address.h>
#include <rkutils/network/interface_request.h>
#include <rkutils/network/ping/address_text.h>
#include <rkutils/network/ping/interface.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <syslog.h>

namespace rkutils::ping {
namespace {

using internal::UniqueFd;

// Questions about one interface, asked on one socket. What has no answer is logged.
class InterfaceQuery {
 public:
  InterfaceQuery(UniqueFd socket, const char* interface) noexcept
      : socket_(std::move(socket)), interface_(interface) {}

  template <int kRequest>
  [[nodiscard]] std::optional<ifreq> ask(const char* what) const noexcept {
    const auto answer = network::ask_interface<kRequest>(socket_.get(), interface_);
    if (!answer) {
      ::syslog(LOG_ERR, "rawping[%s]: can't get interface %s (%s)", interface_, what,
               std::strerror(errno));
    }
    return answer;
  }

  // An address in host order.
  template <int kRequest>
  [[nodiscard]] std::optional<std::uint32_t> ask_address(const char* what) const noexcept {
    const auto answer = ask<kRequest>(what);
    if (!answer) return std::nullopt;
    sockaddr_in address = {};
    std::memcpy(&address, &answer->ifr_addr, sizeof address);  // where a netmask is, too
    return ntohl(address.sin_addr.s_addr);
  }

  // The same from a dotted text that stands for the interface's answer.
  [[nodiscard]] std::optional<std::uint32_t> read_address(const char* what,
                                                          const char* text) noexcept {
    in_addr address = {};
    if (::inet_pton(AF_INET, text, &address) == 1) return ntohl(address.s_addr);
    ::syslog(LOG_ERR, "rawping[%s]: invalid %s '%s'", interface_, what, text);
    static_cast<void>(socket_.release());  // stays open, as it always did
    return std::nullopt;
  }

 private:
  UniqueFd socket_;
  const char* interface_;
};

bool check_gateway(const Context& context) noexcept {
  const char* const gateway = context.gateway_name;
  if (gateway == nullptr || *gateway == '\0' || network::find_ipv4_address(gateway)) return true;
  ::syslog(LOG_ERR, "rawping[%s]: invalid gateway '%s'", context.interface, gateway);
  return false;
}

}  // namespace

bool look_at_interface(Context& context, const char* source, const char* netmask) noexcept {
  UniqueFd socket(::socket(AF_INET, SOCK_PACKET | SOCK_CLOEXEC, 0));
  if (!socket) {
    ::syslog(LOG_ERR, "rawping[%s]: unable to create socket (%s)", context.interface,
             std::strerror(errno));
    return false;
  }
  InterfaceQuery query(std::move(socket), context.interface);

  const auto index = query.ask<SIOCGIFINDEX>("index");
  if (!index) return false;
  context.interface_index = index->ifr_ifindex;

  const auto own_address = source != nullptr ? query.read_address("source", source)
                                             : query.ask_address<SIOCGIFADDR>("address");
  if (!own_address) return false;
  context.source = *own_address;

  const auto own_netmask = netmask != nullptr ? query.read_address("netmask", netmask)
                                              : query.ask_address<SIOCGIFNETMASK>("netmask");
  if (!own_netmask) return false;
  context.netmask = *own_netmask;

  if (!check_gateway(context)) return false;

  const auto hardware = query.ask<SIOCGIFHWADDR>("hwaddr");
  if (!hardware) return false;
  std::memcpy(context.own_mac.data(), hardware->ifr_hwaddr.sa_data, context.own_mac.size());

  ::syslog(LOG_DEBUG, "rawping[%s]: interface runs %s/%s (%s)", context.interface,
           dotted(context.source).c_str(), dotted(context.netmask).c_str(),
           text_of(context.own_mac).c_str());
  return true;
}

int is_point_to_point(const char* interface) noexcept {
  if (interface == nullptr) {
    ::syslog(LOG_ERR, "no interface provided");
    return -1;
  }
  const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket) {
    ::syslog(LOG_ERR, "unable to create socket");
    return 0;
  }
  const auto answer = network::ask_interface<SIOCGIFFLAGS>(socket.get(), interface);
  if (!answer) {
    ::syslog(LOG_ERR, "unable to get flags for %s", interface);
    return 0;
  }
  return (answer->ifr_flags & (IFF_POINTOPOINT | IFF_NOARP)) != 0 ? 1 : 0;
}

}  // namespace rkutils::ping
