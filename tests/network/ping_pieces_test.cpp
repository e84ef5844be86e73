// The parts of a ping that real packets and the public functions do not come to.

#include <rkutils/internal/unique_fd.h>
#include <rkutils/network/ping/address_text.h>
#include <rkutils/network/ping/context.h>
#include <rkutils/network/ping/frame_ping.h>
#include <rkutils/network/ping/interface.h>
#include <rkutils/network/ping/ip_ping.h>
#include <rkutils/network/ping/packet.h>
#include <rkutils/network/ping/sockets.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <syslog.h>

#include "support/stopped_clock.h"
#include "support/syslog_collector.h"

namespace {

using namespace rkutils::ping;
using rkutils::internal::UniqueFd;
using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;

support::LogLine progress(const std::string& text) { return {LOG_DEBUG, "rawping[eth0]: " + text}; }
support::LogLine err(const std::string& text) { return {LOG_ERR, text}; }

constexpr MacAddress kOwnMac = {2, 0, 0, 0, 0, 1};
constexpr MacAddress kPeerMac = {2, 0, 0, 0, 0, 2};
constexpr Host kHost = {"target", 0xC6336407};

// A ping whose packet was sent; what it receives comes through a pair of sockets.
class PingPieces : public testing::Test {
 protected:
  PingPieces() {
    context_.interface = "eth0";
    context_.target = kHost;
    context_.timeout_ms = 500;
    context_.size = 48;
    context_.identifier = 0x1234;
    context_.sequence = 1;
    context_.own_mac = kOwnMac;
    context_.peer_mac = kPeerMac;
  }

  UniqueFd socket_to(const std::vector<Bytes>& packets) {
    std::array<int, 2> ends = {};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    sender_ = UniqueFd(ends[0]);
    for (const Bytes& packet : packets) ::send(ends[0], packet.data(), packet.size(), 0);
    return UniqueFd(ends[1]);
  }

  void TearDown() override { EXPECT_THAT(log_.take(), IsEmpty()); }

  support::SyslogCollector log_;
  const support::StoppedClock clock_;
  Context context_ = {};
  UniqueFd sender_;
};

TEST_F(PingPieces, IpPacketsOfOtherProtocolsArePassedOver) {
  Bytes packet(48);
  write_ip_request(packet.data(), packet.size(), {1, 2}, context_.echo());
  packet[9] = 17;
  const Bytes no_reply_either = packet;
  packet[20] = 0;
  context_.ip_socket = socket_to({packet, no_reply_either});
  EXPECT_FALSE(await_ip_reply(context_, kHost));
  const auto received = progress("received ip packet (48 bytes)\n");
  const auto passed_over = progress("not an ICMP message");
  EXPECT_THAT(log_.take(), ElementsAre(received, passed_over, received, passed_over,
                                       progress("received no valid ip reply from target")));
}

TEST_F(PingPieces, FramesOfOtherProtocolsArePassedOver) {
  Bytes frame(48);
  write_frame_request(frame.data(), frame.size(), {kPeerMac, kOwnMac}, {1, 2}, context_.echo());
  frame[23] = 17;
  const Bytes no_reply_either = frame;
  frame[34] = 0;
  context_.packet_socket = socket_to({frame, no_reply_either});
  EXPECT_FALSE(await_frame_reply(context_));
  const auto passed_over = progress("not an ICMP message (proto 17)");
  EXPECT_THAT(log_.take(), ElementsAre(passed_over, passed_over,
                                       progress("received no valid raw reply from target")));
}

TEST_F(PingPieces, OfFramesTheFirstThatIsWrongIsTold) {
  Bytes from_others(48);
  write_frame_request(from_others.data(), from_others.size(), {{2, 0, 0, 0, 0, 3}, kOwnMac}, {1, 2},
                      context_.echo());
  from_others[23] = 17;
  Bytes for_others = from_others;
  for_others[5] = 9;
  context_.packet_socket = socket_to({for_others, from_others});
  EXPECT_FALSE(await_frame_reply(context_));
  EXPECT_THAT(log_.take(),
              ElementsAre(progress("not for us (02:00:00:00:00:09 != 02:00:00:00:00:01)"),
                          progress("not from target (02:00:00:00:00:03 != 02:00:00:00:00:02)"),
                          progress("received no valid raw reply from target")));
}

TEST_F(PingPieces, WaitingNeedsASocket) {
  EXPECT_FALSE(await_ip_reply(context_, kHost));
  EXPECT_FALSE(await_frame_reply(context_));
  EXPECT_THAT(log_.take(), ElementsAre(err("rawping[eth0]: socket is not connected"),
                                       err("rawping[eth0]: socket is not connected")));
}

TEST_F(PingPieces, PacketsHaveALeastSize) {
  context_.size = 47;
  EXPECT_FALSE(ping_with_ip_packet(context_, kHost));
  context_.size = 41;
  EXPECT_FALSE(ping_with_frame(context_, nullptr));
  EXPECT_THAT(log_.take(), ElementsAre(err("rawping[eth0]: ip buffer too short (47 < 48)"),
                                       err("rawping[eth0]: raw buffer too short (41 < 42)")));
  EXPECT_EQ(context_.sequence, 1);
}

TEST_F(PingPieces, NoInterfaceIsNeitherPointToPointNorNot) {
  EXPECT_EQ(is_point_to_point(nullptr), -1);
  EXPECT_EQ(is_point_to_point("missing0"), 0);
  EXPECT_EQ(is_point_to_point("lo"), 0);
  EXPECT_THAT(log_.take(),
              ElementsAre(err("no interface provided"), err("unable to get flags for missing0")));
}

// All 32 bytes.
std::string as_bytes(const DeviceName& name) { return std::string(name.begin(), name.end()); }
std::string padded(std::string text) {
  text.resize(32);
  return text;
}

TEST(DeviceName, IsCutAfter15CharactersAndFilledWithZeros) {
  EXPECT_EQ(as_bytes(device_name("eth0")), padded("eth0"));
  EXPECT_EQ(as_bytes(device_name("")), padded(""));
  EXPECT_EQ(as_bytes(device_name("123456789012345")), padded("123456789012345"));
  EXPECT_EQ(as_bytes(device_name("1234567890123456")), padded("123456789012345"));
  EXPECT_EQ(as_bytes(device_name(std::string(100, 'x').c_str())), padded(std::string(15, 'x')));
}

TEST(DeviceName, HasOnePercentSignForTwoAndNothingElseOfAFormat) {
  EXPECT_EQ(as_bytes(device_name("%%")), padded("%"));
  EXPECT_EQ(as_bytes(device_name("a%%b%%%%c")), padded("a%b%%c"));
  EXPECT_EQ(as_bytes(device_name("%s%n%d")), padded("%s%n%d"));
  EXPECT_EQ(as_bytes(device_name("%")), padded("%"));
  EXPECT_EQ(as_bytes(device_name("%%%")), padded("%%"));
  EXPECT_EQ(as_bytes(device_name("12345678901234%%%%")), padded("12345678901234%"));
}

TEST(AddressText, IsDottedOrHexadecimal) {
  EXPECT_STREQ(dotted(0xC6336407).c_str(), "198.51.100.7");
  EXPECT_STREQ(dotted(0xFFFFFFFF).c_str(), "255.255.255.255");
  EXPECT_STREQ(text_of(MacAddress{0, 1, 0x0A, 0xBC, 0xDE, 0xFF}).c_str(), "00:01:0a:bc:de:ff");
}

}  // namespace
