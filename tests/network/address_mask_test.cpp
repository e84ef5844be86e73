// strip_host_part_from_network_address(), netmask2cidr(), cidr2netmask(), net2cidr() and net2str().

#include <rkutils/address.h>

#include <climits>
#include <cstddef>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "address_record.h"
#include "support/rounds.h"

namespace {

// The C library's text of an address, given as its bits.
std::string text_of_bits(const std::string& bits) {
  const Record record = record_of_bits(bits);
  char text[ADDRESS_TEXT_SIZE];
  const bool v4 = bits.size() == 32;
  const char* const written =
      inet_ntop(v4 ? AF_INET : AF_INET6, record.bytes() + (v4 ? kIpv4Offset : kIpv6Offset), text,
                sizeof text);
  return written == nullptr ? "" : written;
}

std::string random_bits(std::size_t size, std::mt19937& random) {
  std::string bits;
  while (bits.size() < size) bits += bits_of(static_cast<std::uint32_t>(random()));
  return bits.substr(0, size);
}

std::string anded(std::string bits, const std::string& mask) {
  for (std::size_t i = 0; i < bits.size(); ++i) {
    if (mask[i] == '0') bits[i] = '0';
  }
  return bits;
}

// Of both kinds of addresses, by their number of bits.
class Masks : public testing::TestWithParam<std::size_t> {
 protected:
  [[nodiscard]] static std::size_t size() { return GetParam(); }
  [[nodiscard]] static int family() { return size() == 32 ? AF_INET : AF_INET6; }
  [[nodiscard]] static std::size_t record_size() { return size() == 32 ? kIpv4End : kIpv6End; }
};

INSTANTIATE_TEST_SUITE_P(Both, Masks, testing::Values(32, 128),
                         [](const auto& each) { return each.param == 32 ? "Ipv4" : "Ipv6"; });

// ---- cidr2netmask() and netmask2cidr() ----

TEST_P(Masks, OfEveryPrefixAreMadeAndRead) {
  for (std::size_t prefix = 0; prefix <= size(); ++prefix) {
    const Record expected = record_of_bits(mask_bits(prefix, size()));
    Record mask(record_size());
    ASSERT_EQ(cidr2netmask(static_cast<int>(prefix), mask, family()), 0) << prefix;
    ASSERT_EQ(mask.contents(), expected.contents()) << prefix;
    ASSERT_EQ(netmask2cidr(mask), static_cast<int>(prefix));
  }
}

TEST_P(Masks, AreMadeWithoutTouchingWhatIsBehindThem) {
  Record mask(sizeof(sockaddr_storage));
  ASSERT_EQ(cidr2netmask(17, mask, family()), 0);
  EXPECT_EQ(mask.contents(),
            record_of_bits(mask_bits(17, size())).contents() +
                std::string(mask.size() - record_size(), static_cast<char>(kUntouched)));
}

TEST_P(Masks, OfOtherPrefixesAreRefused) {
  const int bits = static_cast<int>(size());
  for (const int prefix : {-1, -bits, INT_MIN, bits + 1, 2 * bits, INT_MAX}) {
    Record mask(record_size());
    const std::string before = mask.contents();
    EXPECT_EQ(cidr2netmask(prefix, mask, family()), -1) << prefix;
    EXPECT_EQ(mask.contents(), before);
    EXPECT_EQ(cidr2netmask(prefix, nullptr, family()), -1);
  }
  EXPECT_EQ(cidr2netmask(24, nullptr, family()), -1);
}

TEST_P(Masks, WithOneHoleAreNone) {
  std::size_t count = 0;
  for_each_mask_with_one_hole(size(), [&count](const Record& mask) {
    ++count;
    ASSERT_EQ(netmask2cidr(mask), -1) << testing::PrintToString(mask.contents());
  });
  // All choices of where the hole begins, where it ends, and where the last one stands.
  EXPECT_EQ(count, (size() + 1) * size() * (size() - 1) / 6);
}

TEST_P(Masks, OfRandomBitsAreNone) {
  std::mt19937 random(1);
  for (int i = support::rounds(20000); i > 0; --i) {
    const std::string bits = random_bits(size(), random);
    const bool valid = bits.find("01") == std::string::npos;
    const int expected = valid ? static_cast<int>(bits.find('0')) : -1;
    ASSERT_EQ(netmask2cidr(record_of_bits(bits)), expected) << bits;
  }
}

TEST(Cidr2Netmask, RefusesOtherFamilies) {
  // The last two would be AF_INET and AF_INET6 in 16 bits.
  for (const int family :
       {AF_UNSPEC, AF_UNIX, AF_PACKET, -1, 0x10000 + AF_INET, AF_INET6 - 0x10000}) {
    Record mask(sizeof(sockaddr_storage));
    const std::string before = mask.contents();
    for (const int prefix : {0, 24}) EXPECT_EQ(cidr2netmask(prefix, mask, family), -1) << family;
    EXPECT_EQ(mask.contents(), before);
  }
}

TEST(Netmask2Cidr, KnowsSomeThatEverybodyDoes) {
  EXPECT_EQ(netmask2cidr(ipv4("255.255.255.0")), 24);
  EXPECT_EQ(netmask2cidr(ipv4("0.0.0.0")), 0);
  EXPECT_EQ(netmask2cidr(ipv4("255.255.255.255")), 32);
  EXPECT_EQ(netmask2cidr(ipv4("255.0.255.0")), -1);
  EXPECT_EQ(netmask2cidr(ipv6("ffff:ffff:ffff:ffff::")), 64);
  EXPECT_EQ(netmask2cidr(ipv6("ffff:0:ffff::")), -1);
}

TEST(Netmask2Cidr, RefusesOtherFamiliesAndNothing) {
  for (const int family : {AF_UNSPEC, AF_UNIX, AF_PACKET}) {
    EXPECT_EQ(netmask2cidr(Record(family, kFamilySize)), -1);
  }
  EXPECT_EQ(netmask2cidr(nullptr), -1);
}

// ---- strip_host_part_from_network_address() ----

TEST_P(Masks, AreLaidOverAddresses) {
  std::mt19937 random(1);
  for (int i = support::rounds(5000); i > 0; --i) {
    const std::string bits = random_bits(size(), random);
    // Any bits will do as a mask.
    const std::string mask = random_bits(size(), random);
    Record address = record_of_bits(bits);
    ASSERT_EQ(strip_host_part_from_network_address(address, record_of_bits(mask)), 1);
    ASSERT_EQ(address.contents(), record_of_bits(anded(bits, mask)).contents());
  }
}

TEST(StripHostPart, KeepsEverythingBesideTheAddress) {
  Record v4 = ipv4("192.0.2.17", sizeof(sockaddr_in));
  EXPECT_EQ(strip_host_part_from_network_address(v4, ipv4("255.255.255.240")), 1);
  EXPECT_EQ(v4.contents(), ipv4("192.0.2.16", sizeof(sockaddr_in)).contents());
  Record v6 = ipv6("2001:db8:1:2:3:4:5:6", sizeof(sockaddr_in6));
  EXPECT_EQ(strip_host_part_from_network_address(v6, ipv6("ffff:ffff:ffff::")), 1);
  EXPECT_EQ(v6.contents(), ipv6("2001:db8:1::", sizeof(sockaddr_in6)).contents());
}

TEST(StripHostPart, RefusesFamiliesThatDiffer) {
  Record v4 = ipv4("192.0.2.17");
  EXPECT_EQ(strip_host_part_from_network_address(v4, ipv6("::")), 0);
  EXPECT_EQ(v4.contents(), ipv4("192.0.2.17").contents());
  Record v6 = ipv6("2001:db8::1");
  EXPECT_EQ(strip_host_part_from_network_address(v6, ipv4("0.0.0.0")), 0);
  EXPECT_EQ(v6.contents(), ipv6("2001:db8::1").contents());
}

TEST(StripHostPart, RefusesOtherFamilies) {
  for (const int family : {AF_UNSPEC, AF_UNIX, AF_PACKET}) {
    Record record(family, sizeof(sockaddr_storage));
    const std::string before = record.contents();
    EXPECT_EQ(strip_host_part_from_network_address(record, Record(family, kFamilySize)), 0);
    EXPECT_EQ(record.contents(), before);
  }
}

TEST(StripHostPart, RefusesNothing) {
  Record address = ipv4("192.0.2.17");
  EXPECT_EQ(strip_host_part_from_network_address(address, nullptr), 0);
  EXPECT_EQ(address.contents(), ipv4("192.0.2.17").contents());
  EXPECT_EQ(strip_host_part_from_network_address(nullptr, address), 0);
  EXPECT_EQ(strip_host_part_from_network_address(nullptr, nullptr), 0);
}

// ---- net2cidr() ----

constexpr std::size_t kReadOfAddress = 16;

std::string cidr(const Record& address, const Record& mask) {
  char text[CIDR_TEXT_SIZE];
  char* const result = net2cidr(text, address, mask);
  EXPECT_TRUE(result == text || result == nullptr);
  return result == nullptr ? "(none)" : result;
}

TEST(Net2Cidr, IsExactForIpv4) {
  std::mt19937 random(1);
  for (std::size_t prefix = 0; prefix <= 32; ++prefix) {
    const Record mask = record_of_bits(mask_bits(prefix, 32));
    for (int i = support::rounds(50); i > 0; --i) {
      const std::string bits = random_bits(32, random);
      Record address(kReadOfAddress);
      std::memcpy(address.bytes(), record_of_bits(bits).bytes(), kIpv4End);
      ASSERT_EQ(cidr(address, mask),
                text_of_bits(anded(bits, mask_bits(prefix, 32))) + "/" + std::to_string(prefix));
    }
  }
}

TEST(Net2Cidr, TakesHalfOfAnIpv6Address) {
  std::mt19937 random(1);
  for (std::size_t prefix = 0; prefix <= 128; ++prefix) {
    const Record mask = record_of_bits(mask_bits(prefix, 128));
    for (int i = support::rounds(50); i > 0; --i) {
      const std::string bits = random_bits(128, random);
      Record address(kReadOfAddress);
      std::memcpy(address.bytes(), record_of_bits(bits).bytes(), kReadOfAddress);
      const std::string half = bits.substr(0, 64) + std::string(64, '0');
      const std::string expected =
          text_of_bits(anded(half, mask_bits(prefix, 128))) + "/" + std::to_string(prefix);
      ASSERT_EQ(cidr(address, mask), expected);
      // The other half does not count where there is one.
      ASSERT_EQ(cidr(record_of_bits(bits), mask), expected);
    }
  }
}

TEST(Net2Cidr, KnowsSomeThatEverybodyDoes) {
  EXPECT_EQ(cidr(ipv4("192.168.1.77", kReadOfAddress), ipv4("255.255.255.0")), "192.168.1.0/24");
  EXPECT_EQ(cidr(ipv4("10.1.2.3", kReadOfAddress), ipv4("0.0.0.0")), "0.0.0.0/0");
  EXPECT_EQ(cidr(ipv6("2001:db8:1:2:3:4:5:6"), ipv6("ffff:ffff:ffff::")), "2001:db8:1::/48");
  EXPECT_EQ(cidr(ipv6("2001:db8:1:2:3:4:5:6"), ipv6("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff")),
            "2001:db8:1:2::/128");
}

TEST(Net2Cidr, WritesTheLongestText) {
  // Three times four digits and colons, and what the zeros take.
  EXPECT_EQ(cidr(ipv6("ffff:ffff:ffff:ffff::", kReadOfAddress),
                 ipv6("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff")),
            "ffff:ffff:ffff:ffff::/128");
}

TEST(Net2Cidr, FailsWithoutTouchingTheText) {
  const Record v4 = ipv4("192.0.2.17", kReadOfAddress);
  const Record v4_mask = ipv4("255.255.255.0");
  const Record v6 = ipv6("2001:db8::1", kReadOfAddress);
  const Record v6_mask = ipv6("ffff::");
  const Record unix_address(AF_UNIX, kReadOfAddress);
  char text[CIDR_TEXT_SIZE] = "before";
  EXPECT_EQ(net2cidr(text, v4, v6_mask), nullptr);
  EXPECT_EQ(net2cidr(text, v6, v4_mask), nullptr);
  EXPECT_EQ(net2cidr(text, unix_address, unix_address), nullptr);
  EXPECT_EQ(net2cidr(text, v4, ipv4("255.0.255.0")), nullptr);
  EXPECT_EQ(net2cidr(text, v6, ipv6("ffff:0:ffff::")), nullptr);
  EXPECT_EQ(net2cidr(text, v6, ipv6("ffff::1")), nullptr);
  EXPECT_EQ(net2cidr(text, nullptr, v4_mask), nullptr);
  EXPECT_EQ(net2cidr(text, v4, nullptr), nullptr);
  EXPECT_EQ(net2cidr(text, nullptr, nullptr), nullptr);
  EXPECT_EQ(net2cidr(nullptr, v4, v4_mask), nullptr);
  EXPECT_STREQ(text, "before");
}

TEST(Net2Cidr, LeavesTheAddressAsItIs) {
  const Record address = ipv4("192.0.2.17", kReadOfAddress);
  const std::string before = address.contents();
  EXPECT_EQ(cidr(address, ipv4("255.255.0.0")), "192.0.0.0/16");
  EXPECT_EQ(address.contents(), before);
}

// ---- net2str() ----

std::string net(const Record& address, const Record& mask) {
  char text[NETWORK_TEXT_SIZE];
  char* const result = net2str(text, address, mask);
  EXPECT_TRUE(result == text || result == nullptr);
  return result == nullptr ? "(none)" : result;
}

TEST(Net2Str, WritesBothAsTheyAre) {
  EXPECT_EQ(net(ipv4("192.168.1.0"), ipv4("255.255.255.0")), "192.168.1.0/255.255.255.0");
  EXPECT_EQ(net(ipv4("192.168.1.17"), ipv4("255.0.255.0")), "192.168.1.17/255.0.255.0");
  EXPECT_EQ(net(ipv6("2001:db8::1"), ipv6("ffff:ffff::")), "2001:db8::1/ffff:ffff::");
  EXPECT_EQ(net(ipv4("192.168.1.17"), ipv6("::")), "192.168.1.17/::");
}

TEST(Net2Str, WritesTheLongestText) {
  const char* const longest = "2001:1db8:1001:1002:1003:1004:1005:1006";
  EXPECT_EQ(net(ipv6(longest), ipv6(longest)), std::string(longest) + "/" + longest);
}

TEST(Net2Str, WritesNothingForOtherFamilies) {
  const Record other(AF_UNIX, kFamilySize);
  EXPECT_EQ(net(other, ipv4("255.255.255.0")), "/255.255.255.0");
  EXPECT_EQ(net(ipv4("192.168.1.17"), other), "192.168.1.17/");
  EXPECT_EQ(net(other, other), "/");
}

TEST(Net2Str, FailsWithoutTouchingTheText) {
  const Record record = ipv4("192.0.2.17");
  char text[NETWORK_TEXT_SIZE] = "before";
  EXPECT_EQ(net2str(text, nullptr, record), nullptr);
  EXPECT_EQ(net2str(text, record, nullptr), nullptr);
  EXPECT_EQ(net2str(nullptr, record, record), nullptr);
  EXPECT_STREQ(text, "before");
}

}  // namespace
