// The way to an address, beside libmnl and ip(8).

#include <rkutils/internal/unique_fd.h>
#include <rkutils/route.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <syslog.h>

#include "network/rows.h"
#include "support/comparison.h"
#include "support/run_program.h"

namespace bench::network {
namespace {

using benchmark::State;
using rkutils::internal::UniqueFd;

constexpr const char* kAddress = "127.0.0.1";

in_addr target() {
  in_addr address = {};
  ::inet_pton(AF_INET, kAddress, &address);
  return address;
}

// In a router in service nobody keeps messages of that level: all log, and nothing is sent.
class WithoutDebugMessages {
 public:
  WithoutDebugMessages() : before_(::setlogmask(LOG_UPTO(LOG_INFO))) {}
  ~WithoutDebugMessages() { ::setlogmask(before_); }
  WithoutDebugMessages(const WithoutDebugMessages&) = delete;
  WithoutDebugMessages& operator=(const WithoutDebugMessages&) = delete;

 private:
  int before_;
};

template <typename LookUp>
void look_up(State& state, LookUp look_up) {
  const WithoutDebugMessages masked;
  std::array<char, IF_NAMESIZE> interface = {};
  for (auto _ : state) {
    interface = {};
    if (!look_up(interface.data()) || std::strcmp(interface.data(), "lo") != 0) {
      state.SkipWithError("not found");
    }
  }
}

void look_up_ours(State& state) {
  sockaddr_in record = {};
  record.sin_family = AF_INET;
  record.sin_addr = target();
  addrinfo address = {};
  address.ai_family = AF_INET;
  address.ai_addr = reinterpret_cast<sockaddr*>(&record);
  look_up(state, [&](char* interface) { return route_get_interface(&address, interface) == 0; });
}

// ---- libmnl ----

int take_interface(const nlattr* attribute, void* index) {
  if (mnl_attr_get_type(attribute) == RTA_OIF) {
    *static_cast<unsigned*>(index) = mnl_attr_get_u32(attribute);
  }
  return MNL_CB_OK;
}

int take_route(const nlmsghdr* message, void* index) {
  return mnl_attr_parse(message, sizeof(rtmsg), take_interface, index);
}

struct CloseSocket {
  void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
};

bool look_up_by_libmnl(in_addr address, char* interface) {
  std::array<char, INET_ADDRSTRLEN> text;
  ::inet_ntop(AF_INET, &address, text.data(), text.size());
  const std::unique_ptr<mnl_socket, CloseSocket> socket(
      mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
  if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) return false;
  ::syslog(LOG_DEBUG, "looking up route for %s", text.data());

  alignas(nlmsghdr) std::array<char, 8192> buffer;
  nlmsghdr* const request = mnl_nlmsg_put_header(buffer.data());
  request->nlmsg_type = RTM_GETROUTE;
  request->nlmsg_flags = NLM_F_REQUEST;
  request->nlmsg_seq = static_cast<std::uint32_t>(std::time(nullptr));
  auto* const route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)));
  route->rtm_family = AF_INET;
  route->rtm_dst_len = 32;
  mnl_attr_put_u32(request, RTA_DST, address.s_addr);
  const std::uint32_t sequence = request->nlmsg_seq;
  if (mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0) return false;
  const ssize_t received = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
  unsigned index = 0;
  if (received <= 0 || mnl_cb_run(buffer.data(), static_cast<std::size_t>(received), sequence,
                                  mnl_socket_get_portid(socket.get()), take_route, &index) < 0) {
    return false;
  }
  if (::if_indextoname(index, interface) == nullptr) return false;
  ::syslog(LOG_DEBUG, "%s goes to %s", text.data(), interface);
  return true;
}

// ---- the least that it takes ----

struct Request {
  nlmsghdr header;
  rtmsg route;
  rtattr attribute;
  in_addr address;
};

bool exchange(int socket, Request& request, std::array<char, 16384>& answer) {
  sockaddr_nl kernel = {};
  kernel.nl_family = AF_NETLINK;
  iovec bytes = {&request, sizeof request};
  msghdr message = {};
  message.msg_name = &kernel;
  message.msg_namelen = sizeof kernel;
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  if (::sendmsg(socket, &message, 0) < 0) return false;
  bytes = {answer.data(), answer.size()};
  return ::recvmsg(socket, &message, 0) > 0;
}

bool open_and_exchange(Request& request, std::array<char, 16384>& answer) {
  constexpr int kSendBuffer = 32768;
  constexpr int kReceiveBuffer = 1048576;
  const UniqueFd socket(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  sockaddr_nl local = {};
  local.nl_family = AF_NETLINK;
  socklen_t length = sizeof local;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
    return false;
  }
  ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&local), &length);
  ::syslog(LOG_DEBUG, "looking up route for %s", kAddress);
  return exchange(socket.get(), request, answer);
}

bool look_up_by_the_least(in_addr address, char* interface) {
  std::array<char, INET_ADDRSTRLEN> text;
  ::inet_ntop(AF_INET, &address, text.data(), text.size());
  Request request = {};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_GETROUTE;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.header.nlmsg_seq = static_cast<std::uint32_t>(std::time(nullptr));
  request.route.rtm_family = AF_INET;
  request.route.rtm_dst_len = 32;
  request.attribute.rta_len = sizeof(rtattr) + sizeof address;
  request.attribute.rta_type = RTA_DST;
  request.address = address;
  std::array<char, 16384> answer;
  if (!open_and_exchange(request, answer)) return false;
  // Where the kernel puts it, behind the table and the destination.
  std::uint32_t index = 0;
  for (std::size_t at = sizeof(nlmsghdr) + sizeof(rtmsg); index == 0;) {
    rtattr attribute = {};
    std::memcpy(&attribute, answer.data() + at, sizeof attribute);
    if (attribute.rta_type == RTA_OIF) {
      std::memcpy(&index, answer.data() + at + sizeof attribute, sizeof index);
    }
    at += RTA_ALIGN(attribute.rta_len);
  }
  if (::if_indextoname(index, interface) == nullptr) return false;
  ::syslog(LOG_DEBUG, "%s goes to %s", text.data(), interface);
  return true;
}

void look_up_by_ip(State& state) {
  for (auto _ : state) {
    const auto [output, status] = support::run_program({"ip", "route", "get", kAddress});
    if (status != 0 || output.find(" dev lo ") == std::string::npos) {
      state.SkipWithError("not found");
    }
  }
}

}  // namespace

void add_route_rows() {
  const in_addr address = target();
  compare("route_get_interface", look_up_ours,
          {peer("libmnl", 1.1,
                [=](State& state) {
                  look_up(state, [=](char* name) { return look_up_by_libmnl(address, name); });
                }),
           floor("a socket, an exchange, two log calls", 1.05, [=](State& state) {
             look_up(state, [=](char* name) { return look_up_by_the_least(address, name); });
           })});
  compare("route_get_interface, real time", look_up_ours,
          {peer("ip route get", 0.01, look_up_by_ip)}, Clock::kReal);
}

}  // namespace bench::network
