// The packets of a ping, byte by byte, and what is read from those that come in answer.

#include <rkutils/network/ping/limits.h>
#include <rkutils/network/ping/packet.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

#include <gmock/gmock.h>

namespace {

using namespace rkutils::ping;
using testing::Each;
using testing::ElementsAreArray;

using Bytes = std::vector<std::uint8_t>;

constexpr Echo kEcho = {0x1234, 0xABCD};
constexpr Endpoints kEndpoints = {0xC0000201, 0xC6336407};  // 192.0.2.1, 198.51.100.7
constexpr Link kLink = {{0x02, 0x00, 0x5E, 0x10, 0x20, 0x30}, {0x02, 0x00, 0x5E, 0xA0, 0xB0, 0xC0}};

// Memory of just this size, in which nothing is zero.
Bytes used_memory(std::size_t size) { return Bytes(size, 0xA5); }

Bytes ip_request(std::size_t size, Echo echo = kEcho) {
  Bytes packet = used_memory(size);
  write_ip_request(packet.data(), packet.size(), kEndpoints, echo);
  return packet;
}

Bytes frame_request(std::size_t size) {
  Bytes frame = used_memory(size);
  write_frame_request(frame.data(), frame.size(), kLink, kEndpoints, kEcho);
  return frame;
}

Bytes head(const Bytes& bytes, std::size_t length) {
  return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
}
Bytes tail(const Bytes& bytes, std::size_t begin) {
  return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.end());
}

// The one's complement sum of big-endian words: 0xFFFF where the checksum among them is right.
std::uint32_t word_sum(const Bytes& bytes, std::size_t begin, std::size_t end) {
  std::uint32_t sum = 0;
  for (std::size_t i = begin; i < end; i += 2) {
    sum += bytes[i] * 256U + bytes[i + 1];
    if (sum > 0xFFFF) sum -= 0xFFFF;
  }
  return sum;
}

// ---- ICMP alone ----

TEST(IcmpRequest, HasItsNumbersInNetworkOrderAndZerosBehindThem) {
  const auto packet = make_icmp_request(kEcho);
  Bytes expected = {8, 0, 0x39, 0xFE, 0x12, 0x34, 0xAB, 0xCD};
  expected.resize(64);
  EXPECT_THAT(packet, ElementsAreArray(expected));
}

TEST(IcmpRequest, OfTheFirstPingIsAsEverySystemKnowsIt) {
  const auto packet = make_icmp_request({0, 1});
  Bytes expected = {8, 0, 0xF7, 0xFE, 0, 0, 0, 1};
  expected.resize(64);
  EXPECT_THAT(packet, ElementsAreArray(expected));
}

// An echo reply behind an IP header of so many words.
Bytes icmp_reply(unsigned words, std::size_t size) {
  Bytes packet = used_memory(size);
  packet[0] = static_cast<std::uint8_t>(0x40U | words);
  const Bytes icmp = {0, 0, 0xFF, 0xFF, 0x12, 0x34, 0xAB, 0xCD};
  std::copy(icmp.begin(), icmp.end(), packet.data() + std::size_t{4} * words);
  return packet;
}

TEST(IcmpPacket, IsReadBehindAnIpHeaderOfAnyLength) {
  for (const unsigned words : {5U, 6U, 15U}) {
    const Bytes packet = icmp_reply(words, 76);
    const auto read = read_icmp_packet(packet.data(), packet.size());
    ASSERT_TRUE(read) << words;
    EXPECT_TRUE(read->is_reply) << words;
    EXPECT_EQ(read->echo.identifier, 0x1234) << words;
    EXPECT_EQ(read->echo.sequence, 0xABCD) << words;
  }
}

TEST(IcmpPacket, IsAReplyByItsTypeAlone) {
  Bytes packet = icmp_reply(5, 84);
  packet[20] = 8;
  EXPECT_FALSE(read_icmp_packet(packet.data(), packet.size())->is_reply);
  packet[20] = 0;
  packet[21] = 1;
  EXPECT_TRUE(read_icmp_packet(packet.data(), packet.size())->is_reply);
}

TEST(IcmpPacket, HasAtLeast76Bytes) {
  for (const std::size_t size : {0U, 1U, 20U, 28U, 75U}) {
    const Bytes packet = used_memory(size);
    EXPECT_FALSE(read_icmp_packet(packet.data(), packet.size())) << size;
  }
  // Whatever the header's length claims.
  const Bytes packet(76, 0xFF);
  EXPECT_TRUE(read_icmp_packet(packet.data(), packet.size()));
}

// ---- IP packets ----

TEST(IpRequest, HasItsLengthAndNumbersInTheOrderOfTheHost) {
  const Bytes packet = ip_request(48);
  Bytes expected = {0x45, 0, 0x30, 0x00, 0,   0, 0, 0, 64,   1,    0x5E, 0xC1, 192,  0,
                    2,    1, 198,  51,   100, 7, 8, 0, 0xF6, 0x41, 0x34, 0x12, 0xCD, 0xAB};
  expected.resize(48);
  EXPECT_THAT(packet, ElementsAreArray(expected));
}

TEST(IpRequest, HasTheSameHeadersWhateverItsSize) {
  for (const std::size_t size : {49U, 84U, 1450U}) {
    const Bytes packet = ip_request(size);
    EXPECT_EQ(head(packet, 48), ip_request(48)) << size;
    EXPECT_THAT(tail(packet, 48), Each(0)) << size;
  }
}

TEST(IpRequest, HasRightChecksumsForAllNumbers) {
  for (const unsigned number : {0U, 1U, 0x00FFU, 0xFF00U, 0xFFF7U, 0xFFFFU}) {
    const Bytes packet =
        ip_request(48, {static_cast<std::uint16_t>(number), static_cast<std::uint16_t>(~number)});
    EXPECT_EQ(word_sum(packet, 0, 20), 0xFFFF);
    EXPECT_EQ(word_sum(packet, 20, 48), 0xFFFF);
  }
}

TEST(IpPacket, IsTheReplyOnceItsTypeSaysSo) {
  Bytes packet = ip_request(48);
  const auto request = read_ip_packet(packet.data(), packet.size());
  ASSERT_TRUE(request);
  EXPECT_TRUE(request->is_icmp);
  EXPECT_FALSE(request->is_reply);
  EXPECT_TRUE(request->echo == kEcho);
  packet[20] = 0;
  EXPECT_TRUE(read_ip_packet(packet.data(), packet.size())->is_reply);
}

TEST(IpPacket, IsReadAtFixedPlaces) {
  Bytes packet = used_memory(48);
  packet[0] = 0x4F;  // which is the longest header
  packet[9] = 17;
  packet[20] = 0;
  packet[24] = 0x11;
  packet[25] = 0x22;
  packet[26] = 0x33;
  packet[27] = 0x44;
  const auto read = read_ip_packet(packet.data(), packet.size());
  ASSERT_TRUE(read);
  EXPECT_FALSE(read->is_icmp);
  EXPECT_TRUE(read->is_reply);
  EXPECT_EQ(read->echo.identifier, 0x2211);
  EXPECT_EQ(read->echo.sequence, 0x4433);
}

TEST(IpPacket, HasAtLeast48Bytes) {
  for (const std::size_t size : {0U, 20U, 28U, 47U}) {
    const Bytes packet = used_memory(size);
    EXPECT_FALSE(read_ip_packet(packet.data(), packet.size())) << size;
  }
}

// ---- Frames ----

TEST(FrameRequest, IsAllInNetworkOrderAndNotToBeFragmented) {
  const Bytes frame = frame_request(98);
  Bytes expected = {0x02, 0x00, 0x5E, 0xA0, 0xB0, 0xC0, 0x02, 0x00, 0x5E, 0x10, 0x20,
                    0x30, 0x08, 0x00, 0x45, 0,    0,    84,   0,    0,    0x40, 0x00,
                    64,   1,    0x4E, 0x6D, 192,  0,    2,    1,    198,  51,   100,
                    7,    8,    0,    0x39, 0xFE, 0x12, 0x34, 0xAB, 0xCD};
  expected.resize(98);
  EXPECT_THAT(frame, ElementsAreArray(expected));
}

TEST(FrameRequest, HasTheLengthOfItsIpPacket) {
  for (const std::size_t size : {42U, 48U, 269U, 270U, 1450U}) {
    const Bytes frame = frame_request(size);
    EXPECT_EQ(frame[16] * 256U + frame[17], size - 14) << size;
    EXPECT_EQ(word_sum(frame, 14, 34), 0xFFFF) << size;
    EXPECT_EQ(word_sum(frame, 34, 42), 0xFFFF) << size;
    EXPECT_THAT(tail(frame, 42), Each(0)) << size;
  }
}

TEST(Frame, IsReadWithItsLink) {
  Bytes bytes = frame_request(42);
  const auto request = read_frame(bytes.data(), bytes.size());
  ASSERT_TRUE(request);
  EXPECT_EQ(request->link.source, kLink.source);
  EXPECT_EQ(request->link.destination, kLink.destination);
  EXPECT_EQ(request->protocol, 1);
  EXPECT_TRUE(request->is_icmp);
  EXPECT_FALSE(request->is_reply);
  EXPECT_TRUE(request->echo == kEcho);
  bytes[34] = 0;
  bytes[23] = 17;
  const auto other = read_frame(bytes.data(), bytes.size());
  EXPECT_TRUE(other->is_reply);
  EXPECT_EQ(other->protocol, 17);
  EXPECT_FALSE(other->is_icmp);
}

TEST(Frame, HasAtLeast42Bytes) {
  for (const std::size_t size : {0U, 14U, 34U, 41U}) {
    const Bytes frame = used_memory(size);
    EXPECT_FALSE(read_frame(frame.data(), frame.size())) << size;
  }
}

TEST(Echo, IsTheSameOnlyIfBothNumbersAre) {
  EXPECT_TRUE((Echo{1, 2} == Echo{1, 2}));
  EXPECT_FALSE((Echo{1, 2} == Echo{1, 3}));
  EXPECT_FALSE((Echo{1, 2} == Echo{0, 2}));
  EXPECT_FALSE((Echo{1, 2} == Echo{2, 1}));
}

// ---- Limits ----

TEST(Limits, AreThoseOfTimesAndSizes) {
  EXPECT_EQ(timeout_within(0), 500U);
  EXPECT_EQ(timeout_within(499), 500U);
  EXPECT_EQ(timeout_within(501), 501U);
  EXPECT_EQ(timeout_within(10000), 10000U);
  EXPECT_EQ(timeout_within(10001), 10000U);
  EXPECT_EQ(timeout_within(UINT_MAX), 10000U);
  EXPECT_EQ(size_within(INT_MIN), 48U);
  EXPECT_EQ(size_within(-1), 48U);
  EXPECT_EQ(size_within(47), 48U);
  EXPECT_EQ(size_within(49), 49U);
  EXPECT_EQ(size_within(1450), 1450U);
  EXPECT_EQ(size_within(1451), 1450U);
  EXPECT_EQ(size_within(INT_MAX), 1450U);
}

}  // namespace
