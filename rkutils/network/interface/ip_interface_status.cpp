// Interfaces asked about and changed, through the kernel. What the link manager says of them is in
// wan_link.cpp.

#include <rkutils/interface.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/network/interface/flags.h>
#include <rkutils/network/interface_request.h>

#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueFd;

// A request with the socket that it goes through, which a thread closes before it is cancelled.
class Request {
 public:
  // With a NULL for the name, as without a socket, all that is sent fails.
  explicit Request(const char* name)
      : socket_(name == nullptr ? -1 : ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
        record_(rkutils::network::request_about(name == nullptr ? "" : name)) {}

  template <int kNumber>
  [[nodiscard]] bool send() {
    return socket_ && rkutils::network::send_request<kNumber>(socket_.get(), record_);
  }

  // What to set, or what was found.
  ifreq* operator->() { return &record_; }

 private:
  const PostponedCancellation postponed_;
  const UniqueFd socket_;
  ifreq record_;
};

struct InterfaceListDeleter {
  void operator()(ifaddrs* list) const noexcept { ::freeifaddrs(list); }
};
using InterfaceList = std::unique_ptr<ifaddrs, InterfaceListDeleter>;

// NULL also when the kernel cannot be asked.
InterfaceList list_interfaces() {
  const PostponedCancellation postponed;
  ifaddrs* list = nullptr;
  return InterfaceList(::getifaddrs(&list) == 0 ? list : nullptr);
}

static_assert(sizeof(sockaddr_in) == sizeof(sockaddr));

sockaddr record_of(unsigned int address) {
  sockaddr_in ipv4 = {};
  ipv4.sin_family = AF_INET;
  ipv4.sin_addr.s_addr = htonl(address);
  sockaddr record;
  std::memcpy(&record, &ipv4, sizeof record);
  return record;
}

unsigned int address_in(const sockaddr& record) {
  sockaddr_in ipv4;
  std::memcpy(&ipv4, &record, sizeof ipv4);
  return ntohl(ipv4.sin_addr.s_addr);
}

template <int kNumber>
unsigned int get_address(const char* name) {
  Request request(name);
  return request.send<kNumber>() ? address_in(request->ifr_addr) : 0;
}

template <int kNumber>
int set_address(const char* name, unsigned int address) {
  Request request(name);
  request->ifr_addr = record_of(address);
  return request.send<kNumber>() ? 1 : 0;
}

}  // namespace

IpInterfaceStatus::~IpInterfaceStatus() = default;

int IpInterfaceStatus::isInterfaceAvailable(char const* name) const {
  if (name == nullptr) return 0;
  const InterfaceList list = list_interfaces();
  for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
    if (std::strstr(entry->ifa_name, name) != nullptr) return 1;
  }
  return 0;
}

int IpInterfaceStatus::isInterfaceUp(char const* name) const {
  Request request(name);
  return request.send<SIOCGIFFLAGS>() && rkutils::network::is_up(request->ifr_flags) ? 1 : 0;
}

int IpInterfaceStatus::setInterfaceUp(char const* name, int up) const {
  Request request(name);
  if (!request.send<SIOCGIFFLAGS>()) return 0;
  request->ifr_flags = rkutils::network::with_up(request->ifr_flags, up == 1);
  return request.send<SIOCSIFFLAGS>() ? 1 : 0;
}

int IpInterfaceStatus::setTxQueueLen(char const* name, unsigned int packets) const {
  Request request(name);
  request->ifr_qlen = static_cast<int>(packets);
  return request.send<SIOCSIFTXQLEN>() ? 1 : 0;
}

unsigned int IpInterfaceStatus::getIpV4Address(char const* name) const {
  return get_address<SIOCGIFADDR>(name);
}

int IpInterfaceStatus::setIpV4Address(char const* name, unsigned int address) const {
  return set_address<SIOCSIFADDR>(name, address);
}

// The kernel has a mask where it has an address: both are in the same place of the record.

unsigned int IpInterfaceStatus::getIpV4Mask(char const* name) const {
  return get_address<SIOCGIFNETMASK>(name);
}

int IpInterfaceStatus::setIpV4Mask(char const* name, unsigned int mask) const {
  return set_address<SIOCSIFNETMASK>(name, mask);
}
