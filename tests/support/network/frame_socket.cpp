#include "support/network/frame_socket.h"

#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/internal/wait_readable.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

namespace support {
namespace {

using rkutils::internal::Deadline;
using rkutils::internal::UniqueFd;
using rkutils::internal::wait_readable;

[[noreturn]] void fail(const std::string& step) {
  throw std::system_error(errno, std::generic_category(), step);
}

UniqueFd open_on(const std::string& interface) {
  // Without a protocol: nothing comes in before it is bound to its interface.
  UniqueFd socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) fail("socket for frames");
  const int yes = 1;
  if (::setsockopt(socket.get(), SOL_SOCKET, SO_TIMESTAMPNS, &yes, sizeof yes) != 0) {
    fail("time stamps of frames");
  }
  // Only root may have that much; others get what there is.
  const int room = 8 << 20;
  if (::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room) != 0) {
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
  }
  sockaddr_ll address = {};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
  if (address.sll_ifindex == 0) fail("index of " + interface);
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fail("bind to " + interface);
  }
  return socket;
}

void check_that_none_was_lost(int socket) {
  tpacket_stats statistics = {};
  socklen_t size = sizeof statistics;
  if (::getsockopt(socket, SOL_PACKET, PACKET_STATISTICS, &statistics, &size) != 0) {
    fail("statistics of frames");
  }
  if (statistics.tp_drops != 0) throw std::runtime_error("frames were lost");
}

std::timespec time_of(msghdr& message) {
  std::timespec time = {};
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
       part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_TIMESTAMPNS) {
      std::memcpy(&time, CMSG_DATA(part), sizeof time);
    }
  }
  return time;
}

// Nothing when none is there.
std::optional<Frame> receive_now(int socket) {
  Bytes bytes(65536);
  iovec buffer = {bytes.data(), bytes.size()};
  sockaddr_ll address = {};
  alignas(cmsghdr) std::array<char, 256> control = {};
  msghdr message = {};
  message.msg_name = &address;
  message.msg_namelen = sizeof address;
  message.msg_iov = &buffer;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  const ssize_t length = ::recvmsg(socket, &message, 0);
  if (length < 0) {
    // An interface that goes down says so once, and may come up again.
    if (errno == EAGAIN || errno == EINTR || errno == ENETDOWN) return std::nullopt;
    fail("receive a frame");
  }
  bytes.resize(static_cast<std::size_t>(length));
  return Frame{std::move(bytes), address.sll_pkttype == PACKET_OUTGOING, time_of(message)};
}

}  // namespace

FrameSocket::FrameSocket(const Host& host, const std::string& interface)
    : socket_(host.run([&] { return open_on(interface); })) {}

void FrameSocket::send(const Bytes& frame) const {
  if (::send(socket_.get(), frame.data(), frame.size(), 0) != static_cast<ssize_t>(frame.size())) {
    fail("send a frame");
  }
}

std::optional<Frame> FrameSocket::receive(int timeout_ms) const {
  const Deadline deadline(timeout_ms);
  for (;;) {
    std::optional<Frame> frame = receive_now(socket_.get());
    check_that_none_was_lost(socket_.get());
    if (frame) return frame;
    if (!wait_readable(socket_.get(), deadline)) return std::nullopt;
  }
}

}  // namespace support
