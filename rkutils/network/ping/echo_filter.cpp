#include <rkutils/network/ping/echo_filter.h>

namespace rkutils::ping {

EchoFilter make_echo_filter(std::uint16_t identifier) noexcept {
  // Offsets are those of a frame; the last instructions' take an IP header of any length into
  // account. A jump says how many instructions are passed over, if it is so and if not.
  return {{
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 12),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x0800, 0, 10),  // IPv4?
      BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 23),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 1, 0, 8),  // ICMP?
      BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 20),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, 0x1FFF, 6, 0),  // the middle or end of a packet?
      BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 14),
      BPF_STMT(BPF_LD | BPF_B | BPF_IND, 14),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 3),  // an echo reply?
      BPF_STMT(BPF_LD | BPF_H | BPF_IND, 18),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, identifier, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, 96),
      BPF_STMT(BPF_RET | BPF_K, 0),
  }};
}

}  // namespace rkutils::ping
