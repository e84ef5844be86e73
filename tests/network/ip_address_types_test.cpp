// What IpAddress tells about addresses and masks, beside a model of bits in texts.

#include <rkutils/ip_address.h>

#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "address_record.h"
#include "support/rounds.h"

namespace {

// All answers for one object, in one text that tells those that are true.
std::string answers(const IpAddress& address) {
  std::string all;
  const auto add = [&all](bool holds, const char* name) {
    if (holds) all += (all.empty() ? "" : " ") + std::string(name);
  };
  add(address.isV4ClassA(), "A");
  add(address.isV4ClassB(), "B");
  add(address.isV4ClassC(), "C");
  add(address.isV4ClassD(), "D");
  add(address.isV4ClassE(), "E");
  add(address.isV4ClassABC(), "ABC");
  add(address.isLoopback(), "loopback");
  add(address.isLocalGroup(), "local-group");
  add(address.isHostType(), "host");
  add(address.isDefGwType(), "default-gateway");
  add(address.isLimBcType(), "limited-broadcast");
  add(address.isNetType(), "net");
  add(address.isIfaceType(), "interface");
  add(address.isDirBcType(), "directed-broadcast");
  add(address.isValidAddress(), "valid");
  return all;
}

bool all_are(const std::string& bits, char bit) {
  return bits.find_first_not_of(bit) == std::string::npos;
}

// The same as one reads it off the bits.
std::string expected_answers(std::uint32_t number, std::size_t size) {
  const std::string bits = bits_of(number);
  const std::string network = bits.substr(0, size);
  const std::string host = bits.substr(size);
  const std::uint32_t first_octet = number_of(bits.substr(0, 8));
  const bool unicast = first_octet >= 1 && first_octet <= 223;
  const bool sized =
      unicast && size >= 2 && size <= 30 && !all_are(network, '0') && !all_are(network, '1');
  std::string all;
  const auto add = [&all](bool holds, const char* name) {
    if (holds) all += (all.empty() ? "" : " ") + std::string(name);
    return holds;
  };
  add(bits.substr(0, 1) == "0", "A");
  add(bits.substr(0, 2) == "10", "B");
  add(bits.substr(0, 3) == "110", "C");
  add(bits.substr(0, 4) == "1110", "D");
  add(bits.substr(0, 4) == "1111", "E");
  add(bits.substr(0, 3) != "111", "ABC");
  add(first_octet == 127, "loopback");
  add(bits.substr(0, 24) == "111000000000000000000000", "local-group");
  const bool any_host = add(unicast && size == 32, "host");
  const bool default_gateway = add(size == 0 && number == 0, "default-gateway");
  const bool limited = add(all_are(bits, '1'), "limited-broadcast");
  const bool net = add((sized && all_are(host, '0')) || default_gateway, "net");
  const bool interface = add(sized && !all_are(host, '0') && !all_are(host, '1'), "interface");
  const bool directed = add(sized && all_are(host, '1'), "directed-broadcast");
  add(any_host || net || interface || limited || directed, "valid");
  return all;
}

void expect_answers(std::uint32_t number) {
  for (std::size_t size = 0; size <= 32; ++size) {
    const IpAddress address(number, number_of(mask_bits(size, 32)));
    ASSERT_FALSE(address.isEmpty());
    ASSERT_EQ(answers(address), expected_answers(number, size))
        << std::hex << number << std::dec << "/" << size;
  }
}

TEST(IpAddressTypes, AreRightAtTheBordersOfTheClasses) {
  for (const std::uint32_t border :
       {0x00000000U, 0x01000000U, 0x7F000000U, 0x7F000001U, 0x80000000U, 0xC0000000U, 0xE0000000U,
        0xE0000001U, 0xE0000100U, 0xF0000000U}) {
    for (const std::uint32_t distance : {0U, 1U, 2U, 255U, 256U, 0x10000U, 0x1000000U}) {
      ASSERT_NO_FATAL_FAILURE(expect_answers(border + distance));
      ASSERT_NO_FATAL_FAILURE(expect_answers(border - distance));
    }
  }
}

TEST(IpAddressTypes, AreRightAtTheBordersOfEveryNetwork) {
  std::mt19937 random(1);
  for (std::size_t size = 0; size <= 32; ++size) {
    const std::string some = bits_of(static_cast<std::uint32_t>(random())).substr(0, size);
    const std::size_t left = 32 - size;
    const std::string some_host = bits_of(static_cast<std::uint32_t>(random())).substr(0, left);
    for (const std::string& network : {std::string(size, '0'), std::string(size, '1'), some}) {
      for (const std::string& host : {std::string(left, '0'), std::string(left, '1'), some_host}) {
        ASSERT_NO_FATAL_FAILURE(expect_answers(number_of(network + host)));
      }
    }
  }
}

TEST(IpAddressTypes, AreRightForRandomAddresses) {
  std::mt19937 random(1);
  for (int i = support::rounds(3000); i > 0; --i) {
    ASSERT_NO_FATAL_FAILURE(expect_answers(static_cast<std::uint32_t>(random())));
  }
}

TEST(IpAddressTypes, AreNoneOfAnEmptyObject) { EXPECT_EQ(answers(IpAddress()), ""); }

TEST(IpAddressTypes, OfAddressesThatEverybodyKnows) {
  EXPECT_EQ(answers(IpAddress("192.168.1.1/24")), "C ABC interface valid");
  EXPECT_EQ(answers(IpAddress("192.168.1.0/24")), "C ABC net valid");
  EXPECT_EQ(answers(IpAddress("192.168.1.255/24")), "C ABC directed-broadcast valid");
  EXPECT_EQ(answers(IpAddress("192.168.1.1")), "C ABC host valid");
  EXPECT_EQ(answers(IpAddress("0.0.0.0/0")), "A ABC default-gateway net valid");
  EXPECT_EQ(answers(IpAddress("255.255.255.255")), "E limited-broadcast valid");
  EXPECT_EQ(answers(IpAddress("255.255.255.255/8")), "E limited-broadcast valid");
  EXPECT_EQ(answers(IpAddress("127.0.0.1/8")), "A ABC loopback interface valid");
  EXPECT_EQ(answers(IpAddress("172.16.0.1/12")), "B ABC interface valid");
  EXPECT_EQ(answers(IpAddress("224.0.0.1")), "D local-group");
  EXPECT_EQ(answers(IpAddress("239.255.255.255/24")), "D");
  EXPECT_EQ(answers(IpAddress("0.0.0.1/8")), "A ABC");
}

TEST(IpAddressTypes, OfNetworksWithoutRoomForHosts) {
  EXPECT_EQ(answers(IpAddress("192.168.1.0/31")), "C ABC");
  EXPECT_EQ(answers(IpAddress("192.168.1.1/31")), "C ABC");
  EXPECT_EQ(answers(IpAddress("192.168.1.0/32")), "C ABC host valid");
  EXPECT_EQ(answers(IpAddress("192.168.1.0/30")), "C ABC net valid");
  EXPECT_EQ(answers(IpAddress("64.0.0.0/1")), "A ABC");
  EXPECT_EQ(answers(IpAddress("64.0.0.0/2")), "A ABC net valid");
  EXPECT_EQ(answers(IpAddress("192.0.0.1/2")), "C ABC");  // a network part of ones
}

TEST(IpAddressTypes, OfTheConstants) {
  EXPECT_TRUE(IpAddress(IpAddress::ipv4Loopback, 0xFF000000UL).isLoopback());
  for (const unsigned long group : {IpAddress::ipv4McGrpAllHosts, IpAddress::ipv4McGrpAllRouters,
                                    IpAddress::ipv4McGrpUnspecified}) {
    EXPECT_TRUE(IpAddress(group, 0xFFFFFFFFUL).isLocalGroup());
  }
}

}  // namespace
