#include <rkutils/internal/internet_checksum.h>

#include <array>
#include <cstring>
#include <random>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "support/network/echo.h"

namespace {

using rkutils::internal::internet_checksum;
using Bytes = std::vector<unsigned char>;

// The same sum by the definition.
std::uint16_t checksum_by_definition(const Bytes& data) {
  return htons(support::checksum_by_definition(data.data(), data.size()));
}

TEST(InternetChecksum, OfNothingIsAllOnes) { EXPECT_EQ(internet_checksum(nullptr, 0), 0xffffU); }

TEST(InternetChecksum, OfTheExampleInRfc1071) {
  const Bytes data = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
  EXPECT_EQ(internet_checksum(data.data(), data.size()), htons(0x220d));
}

TEST(InternetChecksum, TakesALastOddByteAsTheFirstOfAWord) {
  const Bytes data = {0x12, 0x34, 0x56};
  EXPECT_EQ(internet_checksum(data.data(), data.size()),
            htons(static_cast<std::uint16_t>(~0x6834U)));
}

TEST(InternetChecksum, OfAPacketThatCarriesItIsZero) {
  Bytes packet = {8, 0, 0, 0, 0x12, 0x34, 0, 1, 'a', 'b', 'c'};
  const std::uint16_t checksum = internet_checksum(packet.data(), packet.size());
  std::memcpy(&packet[2], &checksum, sizeof checksum);
  EXPECT_EQ(internet_checksum(packet.data(), packet.size()), 0U);
}

TEST(InternetChecksum, CarriesAsOftenAsNeeded) {
  const Bytes data(65536, 0xff);
  EXPECT_EQ(internet_checksum(data.data(), data.size()), 0U);
  // Folding the carry of this sum carries again.
  const Bytes twice = {0xff, 0xff, 0xff, 0xff, 0x00, 0x01};
  EXPECT_EQ(internet_checksum(twice.data(), twice.size()), checksum_by_definition(twice));
}

TEST(InternetChecksum, AgreesWithTheDefinitionAtEveryLengthAndAlignment) {
  std::mt19937 random(1);
  for (std::size_t length = 0; length <= 300; ++length) {
    for (std::size_t offset = 0; offset < 4; ++offset) {
      Bytes data(offset + length);
      for (unsigned char& byte : data) byte = static_cast<unsigned char>(random());
      const Bytes tail(data.begin() + static_cast<std::ptrdiff_t>(offset), data.end());
      ASSERT_EQ(internet_checksum(data.data() + offset, length), checksum_by_definition(tail))
          << "length " << length << ", offset " << offset;
    }
  }
}

}  // namespace
