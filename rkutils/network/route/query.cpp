#include <rkutils/internal/errno_restorer.h>
#include <rkutils/network/address_record.h>
#include <rkutils/network/route/netlink.h>
#include <rkutils/network/route/query.h>
#include <rkutils/network/socket_calls.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/uio.h>
#include <syslog.h>

namespace rkutils::network::route {
namespace {

// The answer did not come, for the reason in errno.
bool refuse_answer() noexcept {
  const internal::ErrnoRestorer keep_errno;
  ::syslog(LOG_DEBUG, "rtq: netlink query failed: %s", std::strerror(errno));
  return false;
}

bool read_local_address(RouteQuery& query) noexcept {
  socklen_t length = sizeof query.local;
  return ::getsockname(query.socket.get(), reinterpret_cast<sockaddr*>(&query.local), &length) ==
             0 &&
         length == sizeof query.local && query.local.nl_family == AF_NETLINK;
}

// Receives one datagram, cut to the buffer, which it points into. False, with errno 0 where that
// does not tell why, when there is none that could be the kernel's.
template <std::size_t kSize>
bool receive(int socket, Byte (&buffer)[kSize], Datagram& datagram) noexcept {
  sockaddr_nl sender = {};
  iovec bytes = {buffer, sizeof buffer};
  msghdr message = {};
  message.msg_name = &sender;
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  ssize_t received = 0;
  do {
    message.msg_namelen = sizeof sender;
    errno = 0;
    received = ::recvmsg(socket, &message, 0);
  } while (received < 0 && (errno == EAGAIN || errno == EINTR));
  if (received <= 0 || message.msg_namelen != sizeof sender) return false;
  datagram = {{buffer, static_cast<std::size_t>(received)},
              sender.nl_pid,
              (message.msg_flags & MSG_TRUNC) != 0};
  return true;
}

bool open(RouteQuery& query) noexcept {
  constexpr int kSendBuffer = 32768;
  constexpr int kReceiveBuffer = 1048576;
  query.socket = open_netlink_socket();
  if (!query.socket) return refuse("unable to open netlink socket");
  const int socket = query.socket.get();
  if (!set_option(socket, SOL_SOCKET, SO_SNDBUF, kSendBuffer) ||
      !set_option(socket, SOL_SOCKET, SO_RCVBUF, kReceiveBuffer)) {
    return refuse("unable to set buffer size");
  }
  if (!bind_netlink_socket(socket, 0, 0)) return refuse("unable to bind netlink socket");
  if (!read_local_address(query)) return refuse("invalid netlink socket");
  return true;
}

// Sends the request with the next sequence number, and puts into its place what the kernel answers.
// Of a longer answer there is what fits; its header tells the whole length. When the answer is
// refused, errno is the kernel's reason, or 0 if it gave none.
bool exchange(RouteQuery& query, RouteMessage& message) noexcept {
  constexpr std::size_t kLongestDatagram = 16384;
  const int socket = query.socket.get();
  message.header.nlmsg_seq = ++query.sequence;
  if (!send_to_kernel(socket, &message, message.header.nlmsg_len)) {
    return refuse("unable to query netlink");
  }
  Byte buffer[kLongestDatagram];
  for (;;) {
    Datagram datagram = {};
    if (!receive(socket, buffer, datagram)) return refuse_answer();
    const auto [kind, answer] = find_answer(datagram, {query.local.nl_pid, query.sequence});
    if (kind == Reading::Kind::kNoAnswer) continue;
    if (kind == Reading::Kind::kMalformed) return refuse_answer();
    if (type_of(answer) == NLMSG_ERROR) {
      errno = error_of(answer);  // an acknowledgement is no answer either
      return refuse_answer();
    }
    std::memcpy(&message, answer.data, std::min(answer.size, sizeof message));
    return true;
  }
}

// Takes the interface from what the kernel has answered, which is no error.
bool read_answer(const RouteMessage& answer, char* interface) noexcept {
  if (answer.header.nlmsg_type != RTM_NEWROUTE) return refuse("no route received");
  if (answer.header.nlmsg_len < offsetof(RouteMessage, attributes)) return refuse("invalid answer");
  if (::if_indextoname(output_interface(answer), interface) == nullptr) {
    return refuse("no dest interface found");
  }
  return true;
}

}  // namespace

bool refuse(const char* reason) noexcept {
  ::syslog(LOG_DEBUG, "rtq: %s", reason);
  return false;
}

bool set_address(RouteQuery& query, int family, const sockaddr* record) noexcept {
  const AddressField field = address_field(family);
  if (!field) return false;
  std::memcpy(query.address, bytes_of(record) + field.offset, field.size);
  query.address_length = static_cast<int>(field.size);
  return ::inet_ntop(family, query.address, query.address_text, sizeof query.address_text) !=
         nullptr;
}

bool prepare(const RouteQuery& query, int family, RouteMessage& message) noexcept {
  const auto length = static_cast<std::size_t>(query.address_length);
  if (make_route_request(family, query.address, length, message)) return true;
  return refuse("maxlen exceeded");
}

bool look_up(RouteQuery& query, int family, char* interface) noexcept {
  if (!open(query)) return false;
  ::syslog(LOG_DEBUG, "looking up route for %s", query.address_text);
  RouteMessage message;
  if (!prepare(query, family, message) || !exchange(query, message) ||
      !read_answer(message, interface)) {
    return false;
  }
  ::syslog(LOG_DEBUG, "%s goes to %s", query.address_text, interface);
  return true;
}

}  // namespace rkutils::network::route
