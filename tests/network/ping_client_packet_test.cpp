// The packets of PingClient as bytes.

#include <rkutils/network/ping_client_packet.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include <gmock/gmock.h>

#include "support/network/echo.h"
#include "support/rounds.h"

namespace {

using rkutils::network::Echo;
using rkutils::network::EchoRequest;
using rkutils::network::has_numbers;
using rkutils::network::make_echo_request;
using support::Bytes;
using support::checksum_by_definition;
using testing::ElementsAre;

TEST(PingClientRequest, IsMadeByteForByte) {
  EXPECT_THAT(make_echo_request({0xc0000201, 0xc6336402}, {0x1234, 0xfedc}),
              ElementsAre(0x45, 0, 0, 28, 0, 0, 0, 0, 128, 1, 0x4e, 0xaa, 192, 0, 2, 1, 198, 51,
                          100, 2, 8, 0, 0xe6, 0xee, 0x12, 0x34, 0xfe, 0xdc));
}

// All that depends on the arguments, and both checksums, beside what is reckoned by the standards.
TEST(PingClientRequest, HasItsAddressesNumbersAndChecksums) {
  std::mt19937 random(1);
  for (int i = 0; i < support::rounds(10000); ++i) {
    const auto source = static_cast<std::uint32_t>(random());
    const auto target = static_cast<std::uint32_t>(random());
    const Echo numbers = {static_cast<std::uint16_t>(random()),
                          static_cast<std::uint16_t>(random())};
    const EchoRequest request = make_echo_request({source, target}, numbers);
    const auto number_at = [&](std::size_t offset, std::size_t size) {
      std::uint32_t number = 0;
      for (; size > 0; --size) number = number << 8U | request[offset++];
      return number;
    };
    EXPECT_EQ(number_at(12, 4), source);
    EXPECT_EQ(number_at(16, 4), target);
    EXPECT_EQ(number_at(24, 2), numbers.identifier);
    EXPECT_EQ(number_at(26, 2), numbers.sequence);
    EXPECT_EQ(checksum_by_definition(request.data() + 20, 8), 0);
    EXPECT_EQ(checksum_by_definition(request.data(), 28), 0);
    EXPECT_EQ(checksum_by_definition(request.data(), 20), 0);
  }
}

// A packet of its own allocation, so that reading beyond it is noticed.
class PingClientReply : public testing::Test {
 protected:
  // With an IP header of so many words before the eight bytes of ICMP.
  static Bytes packet(std::size_t words) {
    Bytes bytes(words * 4, 0xee);
    if (words > 0) bytes[0] = static_cast<std::uint8_t>(0x40 | words);
    const Bytes icmp = {0, 0, 0xaa, 0xbb, 0x12, 0x34, 0xfe, 0xdc};
    bytes.insert(bytes.end(), icmp.begin(), icmp.end());
    return bytes;
  }

  static constexpr Echo kNumbers = {0x1234, 0xfedc};

  static bool is_taken(const Bytes& bytes) {
    return has_numbers(bytes.data(), bytes.size(), kNumbers);
  }
};

TEST_F(PingClientReply, IsFoundBehindAnIpHeaderOfAnyLength) {
  for (std::size_t words = 0; words <= 15; ++words) EXPECT_TRUE(is_taken(packet(words))) << words;
}

TEST_F(PingClientReply, MayBeOfAnyVersionAndTypeAndGoOn) {
  Bytes bytes = packet(5);
  bytes[0] = 0xf5;
  bytes[20] = 8;
  bytes[21] = 77;
  bytes.resize(200);
  EXPECT_TRUE(is_taken(bytes));
}

TEST_F(PingClientReply, HasBothNumbers) {
  for (std::size_t offset = 24; offset < 28; ++offset) {
    for (unsigned bit = 1; bit < 0x100; bit <<= 1U) {
      Bytes bytes = packet(5);
      bytes[offset] = static_cast<std::uint8_t>(bytes[offset] ^ bit);
      EXPECT_FALSE(is_taken(bytes)) << offset;
    }
  }
}

TEST_F(PingClientReply, IsNotReadBeyondItsEnd) {
  for (std::size_t words = 0; words <= 15; ++words) {
    const Bytes whole = packet(words);
    for (std::size_t size = 0; size < whole.size(); ++size) {
      const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      EXPECT_FALSE(is_taken(cut)) << words << " words, " << size << " bytes";
      // What is behind the end does not count, even if it would be right.
      EXPECT_FALSE(has_numbers(whole.data(), size, kNumbers)) << words << " words, " << size;
    }
  }
  EXPECT_FALSE(has_numbers(nullptr, 0, {0, 0}));
}

}  // namespace
