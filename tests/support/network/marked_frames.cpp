#include "support/network/marked_frames.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>

namespace support {
namespace {

void check(bool done, const char* step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

}  // namespace

MarkedFrames::MarkedFrames(const std::string& interface, std::uint32_t mark)
    : socket_(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
  check(static_cast<bool>(socket_), "packet socket");
  std::array<sock_filter, 4> filter = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_MARK)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, mark, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, 1),
      BPF_STMT(BPF_RET | BPF_K, 0),
  }};
  const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
  check(::setsockopt(socket_.get(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0,
        "filter of marks");
  sockaddr_ll address = {};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
  check(address.sll_ifindex != 0, interface.c_str());
  check(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
        "bind to an interface");
}

int MarkedFrames::count() const {
  int frames = 0;
  char byte = 0;
  while (::recv(socket_.get(), &byte, 1, MSG_DONTWAIT) >= 0) ++frames;
  return frames;
}

}  // namespace support
