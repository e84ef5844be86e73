#include "support/network/frame_socket.h"

#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/internal/wait_readable.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace support {
namespace {

using rkutils::internal::Deadline;
using rkutils::internal::pause_us;
using rkutils::internal::UniqueFd;
using rkutils::internal::wait_readable;

[[noreturn]] void fail(const std::string& step) {
  throw std::system_error(errno, std::generic_category(), step);
}

void stamp(int socket) {
  const int yes = 1;
  if (::setsockopt(socket, SOL_SOCKET, SO_TIMESTAMPNS, &yes, sizeof yes) != 0) {
    fail("time stamps of frames");
  }
}

// It comes first, for nothing else was asked for. (Going on to a next part is not for warnings that are
// errors: musl's macro for it casts as they forbid.)
std::timespec stamp_of(const msghdr& message) {
  std::timespec time = {};
  cmsghdr* const part = CMSG_FIRSTHDR(&message);
  if (part != nullptr && part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_TIMESTAMPNS) {
    std::memcpy(&time, CMSG_DATA(part), sizeof time);
  }
  return time;
}

struct Packet {
  Bytes bytes;
  sockaddr_ll from;
  std::timespec time;
};

// Nothing when none is there.
std::optional<Packet> receive_now(int socket) {
  Packet packet = {Bytes(65536), {}, {}};
  iovec buffer = {packet.bytes.data(), packet.bytes.size()};
  alignas(cmsghdr) std::array<char, 256> control = {};
  msghdr message = {};
  message.msg_name = &packet.from;
  message.msg_namelen = sizeof packet.from;
  message.msg_iov = &buffer;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  const ssize_t length = ::recvmsg(socket, &message, MSG_DONTWAIT);
  if (length < 0) {
    // An interface that goes down says so once, and may come up again.
    if (errno == EAGAIN || errno == EINTR || errno == ENETDOWN) return std::nullopt;
    fail("receive a frame");
  }
  packet.bytes.resize(static_cast<std::size_t>(length));
  packet.time = stamp_of(message);
  return packet;
}

bool is_before(const std::timespec& a, const std::timespec& b) {
  return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

// The first socket that wants stamps makes the kernel begin with them, which it does a little later;
// until then a packet has the time of its fetching. Sends datagrams to itself until one has not.
void wait_for_stamps() {
  const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket) fail("socket for datagrams");
  stamp(socket.get());
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const name = reinterpret_cast<sockaddr*>(&address);
  if (::bind(socket.get(), name, size) != 0 || ::getsockname(socket.get(), name, &size) != 0) {
    fail("address of a datagram");
  }
  for (;;) {
    if (::sendto(socket.get(), "", 1, 0, name, size) != 1) fail("send a datagram");
    pause_us(1000);
    std::timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const std::optional<Packet> packet = receive_now(socket.get());
    if (packet && is_before(packet->time, now)) return;
  }
}

UniqueFd open_on(const std::string& interface) {
  // Without a protocol: nothing comes in before it is bound to its interface.
  UniqueFd socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
  if (!socket) fail("socket for frames");
  stamp(socket.get());
  wait_for_stamps();
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

std::optional<Frame> receive_frame(int socket) {
  std::optional<Packet> packet = receive_now(socket);
  if (!packet) return std::nullopt;
  return Frame{std::move(packet->bytes), packet->from.sll_pkttype == PACKET_OUTGOING, packet->time};
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
    std::optional<Frame> frame = receive_frame(socket_.get());
    check_that_none_was_lost(socket_.get());
    if (frame) return frame;
    if (!wait_readable(socket_.get(), deadline)) return std::nullopt;
  }
}

}  // namespace support
