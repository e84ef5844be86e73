// IpAddress: its values, how it is made, changed, compared and asked for them.

#include <rkutils/ip_address.h>

#include <cstdint>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "address_record.h"
#include "support/member_type.h"
#include "support/rounds.h"
#include "support/small_stack.h"

namespace {

using support::kIs;

constexpr unsigned long kAllOnes = 0xFFFFFFFFUL;

// Numbers with something above their 32 bits, where there is room for it.
constexpr unsigned long above(unsigned long number) {
  return static_cast<unsigned long>(0x700000000ULL | number);
}

std::string address_of(const IpAddress& address) {
  String text("before");
  return address.getIpAddrAsString(text).c_str();
}

std::string mask_of(const IpAddress& address) {
  String text("before");
  return address.getNetMaskAsString(text).c_str();
}

std::string network_of(const IpAddress& address) {
  String text("before");
  return address.getNetAddressAsString(text).c_str();
}

// Everything that there is in one.
std::string all_of(const IpAddress& address) {
  if (address.isEmpty()) return "empty";
  return address_of(address) + "/" + mask_of(address);
}

static_assert(std::is_trivially_destructible_v<IpAddress> && std::is_copy_assignable_v<IpAddress>);
static_assert(!std::is_polymorphic_v<IpAddress>);

static_assert(kIs<&IpAddress::getNetMaskSize, unsigned long (IpAddress::*)() const>);
static_assert(kIs<&IpAddress::getIpAddrAsString, String& (IpAddress::*)(String&) const>);
static_assert(kIs<&IpAddress::getNetMaskAsString, String& (IpAddress::*)(String&) const>);
static_assert(kIs<&IpAddress::getNetAddressAsString, String& (IpAddress::*)(String&) const>);
static_assert(kIs<&IpAddress::setIpAddrAsString, int (IpAddress::*)(String const&)>);
static_assert(kIs<&IpAddress::setNetMaskAsString, int (IpAddress::*)(String const&)>);
static_assert(kIs<&IpAddress::setNetMaskSize, int (IpAddress::*)(unsigned long)>);
static_assert(kIs<&IpAddress::isMaskValid, bool (IpAddress::*)(unsigned long&) const>);
static_assert(kIs<&IpAddress::EMPTY, IpAddress const& (*)()>);
static_assert(kIs<&IpAddress::s_getEndOfString, bool (*)(String const&, long)>);

// ---- Making ----

TEST(IpAddress, IsEmptyToBeginWith) {
  const IpAddress address;
  EXPECT_TRUE(address.isEmpty());
  EXPECT_EQ(address.getV4IpAddrAsBinaryUInt32(), 0U);
  EXPECT_EQ(address.getV4NetMaskAsBinaryUInt32(), kAllOnes);
  EXPECT_EQ(address.getV4NetAddrAsBinaryUInt32(), 0U);
  EXPECT_EQ(address.getNetMaskSize(), 0U);
}

TEST(IpAddress, PrintsNothingWhenEmpty) {
  const IpAddress address;
  EXPECT_EQ(address_of(address), "");
  EXPECT_EQ(mask_of(address), "");
  EXPECT_EQ(network_of(address), "");
}

TEST(IpAddress, IsMadeOfAText) {
  EXPECT_EQ(all_of(IpAddress("192.0.2.17")), "192.0.2.17/255.255.255.255");
  EXPECT_EQ(all_of(IpAddress("192.0.2.17/28")), "192.0.2.17/255.255.255.240");
  EXPECT_EQ(all_of(IpAddress("10.0.0.1/33")), "empty");
  EXPECT_EQ(all_of(IpAddress("")), "empty");
}

TEST(IpAddress, IsMadeOfTwoTexts) {
  EXPECT_EQ(all_of(IpAddress("192.0.2.17", "255.255.0.0")), "192.0.2.17/255.255.0.0");
  // The second counts.
  EXPECT_EQ(all_of(IpAddress("192.0.2.17/28", "255.255.0.0")), "192.0.2.17/255.255.0.0");
  // Nothing is left of what was good.
  EXPECT_EQ(all_of(IpAddress("192.0.2.17", "255.0.255.0")), "empty");
  EXPECT_EQ(all_of(IpAddress("192.0.2.17/28", "24")), "empty");
  EXPECT_EQ(all_of(IpAddress("192.0.2.256", "255.255.0.0")), "empty");
  EXPECT_EQ(all_of(IpAddress("", "")), "empty");
}

TEST(IpAddress, IsMadeOfTwoNumbers) {
  EXPECT_EQ(all_of(IpAddress(0xC0000211UL, 0xFFFFFF00UL)), "192.0.2.17/255.255.255.0");
  EXPECT_EQ(all_of(IpAddress(0UL, 0UL)), "0.0.0.0/0.0.0.0");
  EXPECT_EQ(all_of(IpAddress(0xC0000211UL, 0xFF00FF00UL)), "empty");
}

TEST(IpAddress, CopiesWhole) {
  const IpAddress address("192.0.2.17/28");
  const IpAddress copy(address);
  EXPECT_EQ(all_of(copy), "192.0.2.17/255.255.255.240");
  IpAddress assigned("10.0.0.1/8");
  EXPECT_EQ(&(assigned = address), &assigned);
  EXPECT_EQ(all_of(assigned), "192.0.2.17/255.255.255.240");
  const IpAddress& same = assigned;
  assigned = same;
  EXPECT_EQ(all_of(assigned), "192.0.2.17/255.255.255.240");
  assigned = IpAddress();
  EXPECT_TRUE(assigned.isEmpty());
  EXPECT_EQ(all_of(address), "192.0.2.17/255.255.255.240");
}

TEST(IpAddress, CanBeMadeEmptyAgain) {
  IpAddress address("192.0.2.17/28");
  address.init();
  EXPECT_TRUE(address.isEmpty());
  EXPECT_EQ(address.getV4IpAddrAsBinaryUInt32(), 0U);
  EXPECT_EQ(address.getV4NetMaskAsBinaryUInt32(), kAllOnes);
}

TEST(IpAddress, HasItsConstants) {
  EXPECT_EQ(IpAddress::ipv4McGrpAllRouters, 0xE0000002UL);
  EXPECT_EQ(IpAddress::ipv4McGrpAllHosts, 0xE0000001UL);
  EXPECT_EQ(IpAddress::ipv4McGrpUnspecified, 0xE0000000UL);
  EXPECT_EQ(IpAddress::ipv4Loopback, 0x7F000001UL);
  // They are objects too.
  for (const unsigned long* constant :
       {&IpAddress::ipv4McGrpAllRouters, &IpAddress::ipv4McGrpAllHosts,
        &IpAddress::ipv4McGrpUnspecified, &IpAddress::ipv4Loopback}) {
    EXPECT_NE(*constant, 0U);
  }
}

TEST(IpAddress, HasOneEmptyObjectForAll) {
  std::vector<const IpAddress*> seen(8);
  std::vector<std::thread> threads;
  threads.reserve(seen.size());
  for (const IpAddress*& one : seen) threads.emplace_back([&one] { one = &IpAddress::EMPTY(); });
  for (std::thread& thread : threads) thread.join();
  for (const IpAddress* one : seen) EXPECT_EQ(one, &IpAddress::EMPTY());
  EXPECT_TRUE(IpAddress::EMPTY().isEmpty());
  EXPECT_TRUE(IpAddress::EMPTY() == IpAddress());
}

// ---- Reading ----

TEST(IpAddress, TellsItsNumbersInHostOrder) {
  const IpAddress address("192.168.17.5/20");
  EXPECT_EQ(address.getV4IpAddrAsBinaryUInt32(), 0xC0A81105UL);
  EXPECT_EQ(address.getV4NetMaskAsBinaryUInt32(), 0xFFFFF000UL);
  EXPECT_EQ(address.getV4NetAddrAsBinaryUInt32(), 0xC0A81000UL);
  EXPECT_EQ(address.getNetMaskSize(), 20U);
  EXPECT_EQ(network_of(address), "192.168.16.0");
}

TEST(IpAddress, FillsNumbersAndReturnsThem) {
  const IpAddress address("192.168.17.5/20");
  unsigned long number = above(1);
  EXPECT_EQ(&address.getV4IpAddrAsBinaryUInt32(number), &number);
  EXPECT_EQ(number, 0xC0A81105UL);
  number = above(1);
  EXPECT_EQ(&address.getV4NetMaskAsBinaryUInt32(number), &number);
  EXPECT_EQ(number, 0xFFFFF000UL);
  number = above(1);
  EXPECT_EQ(&address.getV4NetAddrAsBinaryUInt32(number), &number);
  EXPECT_EQ(number, 0xC0A81000UL);
}

TEST(IpAddress, ReplacesTheTextsThatItReturns) {
  const IpAddress address("192.168.17.5/20");
  String text("something longer than an address can be");
  EXPECT_EQ(&address.getIpAddrAsString(text), &text);
  EXPECT_STREQ(text.c_str(), "192.168.17.5");
  EXPECT_EQ(text.length(), 12);
  EXPECT_EQ(&address.getNetMaskAsString(text), &text);
  EXPECT_STREQ(text.c_str(), "255.255.240.0");
  EXPECT_EQ(&address.getNetAddressAsString(text), &text);
  EXPECT_STREQ(text.c_str(), "192.168.16.0");
  EXPECT_EQ(&IpAddress().getIpAddrAsString(text), &text);
  EXPECT_EQ(text.length(), 0);
}

TEST(IpAddress, LeavesTheCopiesOfATextAlone) {
  String text("shared");
  const String copy = text;
  IpAddress("192.168.17.5").getIpAddrAsString(text);
  EXPECT_STREQ(copy.c_str(), "shared");
  String emptied = copy;
  IpAddress().getIpAddrAsString(emptied);
  EXPECT_STREQ(copy.c_str(), "shared");
  EXPECT_STREQ(emptied.c_str(), "");
}

// ---- Changing ----

TEST(IpAddress, TakesAnAddressAsANumber) {
  IpAddress address;
  EXPECT_EQ(address.setV4IpAddrAsBinaryUInt32(0xC0A81105UL), 0);
  EXPECT_EQ(all_of(address), "192.168.17.5/255.255.255.255");
  EXPECT_EQ(address.setNetMaskSize(24), 0);
  EXPECT_EQ(address.setV4IpAddrAsBinaryUInt32(0x0A000001UL), 0);
  EXPECT_EQ(all_of(address), "10.0.0.1/255.255.255.0");
}

TEST(IpAddress, IsNotEmptyWithAnAddressOfZero) {
  IpAddress address;
  EXPECT_EQ(address.setV4IpAddrAsBinaryUInt32(0), 0);
  EXPECT_FALSE(address.isEmpty());
  EXPECT_EQ(all_of(address), "0.0.0.0/255.255.255.255");
}

TEST(IpAddress, TakesAMaskAsANumberWithoutAnAddress) {
  IpAddress address;
  EXPECT_EQ(address.setV4NetMaskAsBinaryUInt32(0xFFFF0000UL), 0);
  EXPECT_FALSE(address.isEmpty());
  EXPECT_EQ(all_of(address), "0.0.0.0/255.255.0.0");
}

TEST(IpAddress, TakesAMaskAsATextWithoutAnAddress) {
  IpAddress address;
  EXPECT_EQ(address.setNetMaskAsString("255.255.255.255"), 0);
  EXPECT_FALSE(address.isEmpty());
  EXPECT_EQ(all_of(address), "0.0.0.0/255.255.255.255");
}

TEST(IpAddress, TakesASizeOnlyWithAnAddress) {
  IpAddress address;
  EXPECT_EQ(address.setNetMaskSize(24), -1);
  EXPECT_TRUE(address.isEmpty());
  address.setV4IpAddrAsBinaryUInt32(0x0A000001UL);
  for (unsigned long size = 0; size <= 32; ++size) {
    ASSERT_EQ(address.setNetMaskSize(size), 0);
    ASSERT_EQ(address.getV4NetMaskAsBinaryUInt32(), number_of(mask_bits(size, 32)));
    ASSERT_EQ(address.getNetMaskSize(), size);
    ASSERT_EQ(address.getV4IpAddrAsBinaryUInt32(), 0x0A000001UL);
  }
  for (const unsigned long size : {33UL, 64UL, 128UL, kAllOnes}) {
    EXPECT_EQ(address.setNetMaskSize(size), -1);
    EXPECT_EQ(address.getNetMaskSize(), 32U);
  }
}

TEST(IpAddress, CutsNumbersTo32Bits) {
  EXPECT_EQ(all_of(IpAddress(above(0xC0000211UL), above(0xFFFFFF00UL))),
            "192.0.2.17/255.255.255.0");
  IpAddress address;
  EXPECT_EQ(address.setV4IpAddrAsBinaryUInt32(above(0x0A000001UL)), 0);
  EXPECT_EQ(address.getV4IpAddrAsBinaryUInt32(), 0x0A000001UL);
  EXPECT_EQ(address.setV4NetMaskAsBinaryUInt32(above(0xFFFF0000UL)), 0);
  EXPECT_EQ(address.getV4NetMaskAsBinaryUInt32(), 0xFFFF0000UL);
  EXPECT_EQ(address.setNetMaskSize(above(8)), 0);
  EXPECT_EQ(address.getNetMaskSize(), 8U);
  unsigned long size = above(1);
  EXPECT_TRUE(IpAddress::s_isV4MaskValid(above(0xFF000000UL), size));
  EXPECT_EQ(size, 8U);
}

// ---- Masks ----

TEST(IpAddress, TakesEveryMask) {
  for (unsigned long ones = 0; ones <= 32; ++ones) {
    const unsigned long mask = number_of(mask_bits(ones, 32));
    unsigned long size = above(77);
    ASSERT_TRUE(IpAddress::s_isV4MaskValid(mask, size));
    ASSERT_EQ(size, ones);
    IpAddress address(0xC0000211UL, mask);
    ASSERT_EQ(address.getV4NetMaskAsBinaryUInt32(), mask);
    ASSERT_EQ(address.getNetMaskSize(), ones);
    size = above(77);
    ASSERT_TRUE(address.isMaskValid(size));
    ASSERT_EQ(size, ones);
    IpAddress other("10.0.0.1");
    ASSERT_EQ(other.setV4NetMaskAsBinaryUInt32(mask), 0);
    ASSERT_EQ(other.getV4NetMaskAsBinaryUInt32(), mask);
    IpAddress third("10.0.0.1");
    ASSERT_EQ(third.setNetMaskAsString(mask_of(address).c_str()), 0);
    ASSERT_TRUE(third == other);
  }
}

TEST(IpAddress, RefusesMasksWithAHole) {
  for_each_mask_with_one_hole(32, [](const Record& record) {
    const std::uint32_t mask = record.number();
    unsigned long size = 77;
    ASSERT_FALSE(IpAddress::s_isV4MaskValid(mask, size)) << std::hex << mask;
    ASSERT_EQ(size, 0U);
    ASSERT_TRUE(IpAddress(0xC0000211UL, mask).isEmpty()) << std::hex << mask;
    IpAddress address("10.0.0.1/20");
    const IpAddress before = address;
    ASSERT_EQ(address.setV4NetMaskAsBinaryUInt32(mask), -1) << std::hex << mask;
    const IpAddress printer(mask, kAllOnes);
    ASSERT_EQ(address.setNetMaskAsString(address_of(printer).c_str()), -1) << std::hex << mask;
    ASSERT_TRUE(address == before);
    IpAddress empty;
    ASSERT_EQ(empty.setV4NetMaskAsBinaryUInt32(mask), -1);
    ASSERT_TRUE(empty.isEmpty());
  });
}

TEST(IpAddress, HasNoValidMaskWhenEmpty) {
  unsigned long size = 77;
  EXPECT_FALSE(IpAddress().isMaskValid(size));
  EXPECT_EQ(size, 0U);
}

// ---- Comparing ----

TEST(IpAddress, IsEqualWithTheSameAddressAndMask) {
  const IpAddress address("192.0.2.17/28");
  EXPECT_TRUE(address == IpAddress(0xC0000211UL, 0xFFFFFFF0UL));
  EXPECT_FALSE(address != IpAddress(0xC0000211UL, 0xFFFFFFF0UL));
  EXPECT_FALSE(address == IpAddress("192.0.2.17/29"));
  EXPECT_TRUE(address != IpAddress("192.0.2.17/29"));
  EXPECT_FALSE(address == IpAddress("192.0.2.18/28"));
  EXPECT_TRUE(address != IpAddress("192.0.2.18/28"));
}

TEST(IpAddress, IsNotEqualToAnEmptyOneOfTheSameNumbers) {
  IpAddress zero;
  zero.setV4IpAddrAsBinaryUInt32(0);
  EXPECT_FALSE(zero == IpAddress());
  EXPECT_TRUE(zero != IpAddress());
  EXPECT_TRUE(IpAddress() == IpAddress());
}

TEST(IpAddress, ContainsTheAddressesOfItsNetwork) {
  std::mt19937 random(1);
  for (int i = support::rounds(50000); i > 0; --i) {
    const auto number = static_cast<std::uint32_t>(random());
    // Some that agree in many bits.
    const std::uint32_t other = number ^ static_cast<std::uint32_t>(random()) >> random() % 32;
    const std::size_t size = random() % 33;
    IpAddress network;
    network.setV4IpAddrAsBinaryUInt32(number);
    network.setNetMaskSize(size);
    // The other's own mask does not count.
    IpAddress host;
    host.setV4IpAddrAsBinaryUInt32(other);
    host.setNetMaskSize(random() % 33);
    ASSERT_EQ(network.contains(host),
              bits_of(number).substr(0, size) == bits_of(other).substr(0, size))
        << all_of(network) << " " << all_of(host);
  }
}

TEST(IpAddress, ContainsWhenEmptyNothingAndIsThenZero) {
  EXPECT_FALSE(IpAddress().contains(IpAddress()));
  EXPECT_FALSE(IpAddress().contains(IpAddress("0.0.0.0")));
  EXPECT_TRUE(IpAddress("0.0.0.0").contains(IpAddress()));
  EXPECT_TRUE(IpAddress("0.0.0.0/0").contains(IpAddress("192.0.2.17")));
  EXPECT_FALSE(IpAddress("10.0.0.0/8").contains(IpAddress()));
}

// ---- IPv6 ----

TEST(IpAddress, LeavesTheBuffersOfIpv6Alone) {
  const IpAddress address("192.0.2.17/28");
  const std::string before(16, '#');
  std::string buffer = before;
  auto* const bytes = reinterpret_cast<unsigned char*>(buffer.data());
  EXPECT_EQ(address.getV6IpAddrAsBinaryString(bytes), bytes);
  EXPECT_EQ(address.getV6NetAddrAsBinaryString(bytes), bytes);
  EXPECT_EQ(address.getV6NetMaskAsBinaryString(bytes), bytes);
  EXPECT_EQ(buffer, before);
  EXPECT_EQ(address.getV6IpAddrAsBinaryString(nullptr), nullptr);
  EXPECT_EQ(address.getV6NetAddrAsBinaryString(nullptr), nullptr);
  EXPECT_EQ(address.getV6NetMaskAsBinaryString(nullptr), nullptr);
}

TEST(IpAddress, RefusesIpv6) {
  IpAddress address("192.0.2.17/28");
  const unsigned char zeros[16] = {};
  EXPECT_EQ(address.setV6IpAddrAsBinaryString(zeros), -1);
  EXPECT_EQ(address.setV6NetMaskAsBinaryString(zeros), -1);
  EXPECT_EQ(address.setV6IpAddrAsBinaryString(nullptr), -1);
  EXPECT_EQ(address.setV6NetMaskAsBinaryString(nullptr), -1);
  EXPECT_EQ(all_of(address), "192.0.2.17/255.255.255.240");
  const unsigned long size = 64;
  EXPECT_FALSE(IpAddress::s_isV6MaskValid("ffff:ffff:ffff:ffff::", size));
  EXPECT_FALSE(IpAddress::s_isV6MaskValid(nullptr, size));
}

TEST(IpAddress, WorksOnASmallStack) {
  support::run_on_small_stack([] {
    EXPECT_EQ(all_of(IpAddress("192.0.2.17", "255.255.255.240")), "192.0.2.17/255.255.255.240");
  });
}

}  // namespace
