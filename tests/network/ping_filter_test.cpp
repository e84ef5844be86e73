// What the kernel lets through with the filter of a frame's ping: the filter as it is, and what it
// makes of frames.

#include <rkutils/internal/unique_fd.h>
#include <rkutils/network/ping/echo_filter.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

#include <gmock/gmock.h>
#include <sys/socket.h>

#include "support/case_name.h"

namespace {

using rkutils::internal::UniqueFd;
using rkutils::ping::EchoFilter;
using rkutils::ping::make_echo_filter;
using testing::ElementsAreArray;
using testing::Values;

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t kIdentifier = 0xA1B2;

TEST(EchoFilter, IsThisProgram) {
  // Code, instructions passed over if so and if not, value.
  using Instruction = std::array<std::uint32_t, 4>;
  const std::array<Instruction, 13> expected = {{
      {0x28, 0, 0, 12},
      {0x15, 0, 10, 0x0800},
      {0x30, 0, 0, 23},
      {0x15, 0, 8, 1},
      {0x28, 0, 0, 20},
      {0x45, 6, 0, 0x1FFF},
      {0xB1, 0, 0, 14},
      {0x50, 0, 0, 14},
      {0x15, 0, 3, 0},
      {0x48, 0, 0, 18},
      {0x15, 0, 1, 0x7FFF},
      {0x06, 0, 0, 96},
      {0x06, 0, 0, 0},
  }};
  std::vector<Instruction> program;
  for (const sock_filter& each : make_echo_filter(0x7FFF)) {
    program.push_back({each.code, each.jt, each.jf, each.k});
  }
  EXPECT_THAT(program, ElementsAreArray(expected));
}

// An echo reply of our identifier in a frame, the IP header of so many words.
Bytes reply_frame(std::size_t words = 5, std::size_t size = 60) {
  Bytes frame(size, 0xEE);
  frame[12] = 0x08;
  frame[13] = 0x00;
  frame[14] = static_cast<std::uint8_t>(0x40U | words);
  frame[20] = 0x40;
  frame[21] = 0x00;
  frame[23] = 1;
  const std::size_t icmp = 14 + 4 * words;
  frame[icmp] = 0;
  frame[icmp + 4] = kIdentifier >> 8U;
  frame[icmp + 5] = kIdentifier & 0xFFU;
  return frame;
}

Bytes changed(Bytes frame, std::size_t at, std::uint8_t value) {
  frame[at] = value;
  return frame;
}

Bytes cut(Bytes frame, std::size_t size) {
  frame.resize(size);
  return frame;
}

struct Case {
  const char* name;
  Bytes frame;
  std::size_t length;  // that comes through; 0: nothing does
};
std::ostream& operator<<(std::ostream& out, const Case& each) { return out << each.name; }

// The kernel runs the same filter for sockets of any family.
class EchoFilterOnASocket : public testing::TestWithParam<Case> {
 protected:
  EchoFilterOnASocket() {
    std::array<int, 2> ends = {};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    sender_ = UniqueFd(ends[0]);
    receiver_ = UniqueFd(ends[1]);
    EchoFilter filter = make_echo_filter(kIdentifier);
    const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
    EXPECT_EQ(::setsockopt(ends[1], SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program), 0);
  }

  UniqueFd sender_;
  UniqueFd receiver_;
};

TEST_P(EchoFilterOnASocket, Takes) {
  const Bytes& frame = GetParam().frame;
  ::send(sender_.get(), frame.data(), frame.size(), 0);
  Bytes received(2048);
  const ssize_t length = ::recv(receiver_.get(), received.data(), received.size(), MSG_DONTWAIT);
  received.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
  EXPECT_EQ(received, cut(frame, GetParam().length));
}

INSTANTIATE_TEST_SUITE_P(
    Frames, EchoFilterOnASocket,
    Values(Case{"Reply", reply_frame(), 60}, Case{"ReplyWithOptions", reply_frame(15, 90), 90},
           Case{"SmallestReply", reply_frame(5, 42), 42}, Case{"Of96Bytes", reply_frame(5, 96), 96},
           Case{"Of97BytesThoseUpTo96", reply_frame(5, 97), 96},
           Case{"Of1450BytesThoseUpTo96", reply_frame(5, 1450), 96},
           Case{"NoOtherEthernetType", changed(reply_frame(), 13, 0x06), 0},
           Case{"NoOtherProtocol", changed(reply_frame(), 23, 17), 0},
           Case{"NoLaterFragment", changed(reply_frame(), 21, 0x01), 0},
           Case{"NoLateFragment", changed(reply_frame(), 20, 0x10), 0},
           Case{"TheFirstFragment", changed(reply_frame(), 20, 0x20), 60},
           Case{"NoRequest", changed(reply_frame(), 34, 8), 0},
           Case{"NoUnreachable", changed(reply_frame(), 34, 3), 0},
           Case{"NoIdentifierOfAnotherFirstByte", changed(reply_frame(), 38, 0xA2), 0},
           Case{"NoIdentifierOfAnotherSecondByte", changed(reply_frame(), 39, 0xB1), 0},
           Case{"AnySequence", changed(reply_frame(), 40, 0x77), 60},
           Case{"NoFrameThatEndsBeforeTheIdentifier", cut(reply_frame(), 39), 0},
           Case{"NoFrameWithoutAnIpHeader", cut(reply_frame(), 14), 0}),
    support::CaseName());

}  // namespace
