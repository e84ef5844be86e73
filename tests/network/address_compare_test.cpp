// addr_differs(), route_differs() and is_link_local_address().

#include <rkutils/address.h>

#include <cstddef>
#include <cstring>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "address_record.h"

namespace {

// The bytes of a record that make a difference when they change.
std::set<std::size_t> bytes_that_count(const Record& record) {
  std::set<std::size_t> counting;
  for (std::size_t i = 0; i < record.size(); ++i) {
    for (const unsigned flip : {0x01U, 0x80U}) {
      Record other = record;
      other.bytes()[i] = static_cast<unsigned char>(other.bytes()[i] ^ flip);
      const int differs = addr_differs(record, other);
      EXPECT_EQ(addr_differs(other, record), differs);
      EXPECT_TRUE(differs == 0 || differs == 1) << differs;
      if (differs == 1) counting.insert(i);
    }
  }
  return counting;
}

std::set<std::size_t> range(std::size_t begin, std::size_t end) {
  std::set<std::size_t> all;
  for (std::size_t i = begin; i < end; ++i) all.insert(i);
  return all;
}

std::set<std::size_t> joined(std::set<std::size_t> one, const std::set<std::size_t>& other) {
  one.insert(other.begin(), other.end());
  return one;
}

TEST(AddrDiffers, IsByFamilyAndAddressOfIpv4) {
  EXPECT_EQ(bytes_that_count(ipv4("192.0.2.17", sizeof(sockaddr_in))),
            joined(range(0, kFamilySize), range(kIpv4Offset, kIpv4End)));
}

TEST(AddrDiffers, IsByFamilyAndAddressOfIpv6) {
  EXPECT_EQ(bytes_that_count(ipv6("2001:db8::1:2", sizeof(sockaddr_in6))),
            joined(range(0, kFamilySize), range(kIpv6Offset, kIpv6End)));
}

TEST(AddrDiffers, IsByFamilyAloneOfOthers) {
  for (const int family : {AF_UNSPEC, AF_UNIX, AF_PACKET, 0xFFFF}) {
    EXPECT_EQ(bytes_that_count(Record(family, sizeof(sockaddr_storage))), range(0, kFamilySize));
  }
}

TEST(AddrDiffers, NeedsNoMoreOfARecordThanItsAddress) {
  EXPECT_EQ(addr_differs(ipv4("192.0.2.17"), ipv4("192.0.2.17")), 0);
  EXPECT_EQ(addr_differs(ipv4("192.0.2.17"), ipv4("192.0.2.18")), 1);
  EXPECT_EQ(addr_differs(ipv6("2001:db8::1"), ipv6("2001:db8::1")), 0);
  EXPECT_EQ(addr_differs(ipv6("2001:db8::1"), ipv6("2001:db8::2")), 1);
  EXPECT_EQ(addr_differs(ipv4("192.0.2.17"), ipv6("2001:db8::1")), 1);
  EXPECT_EQ(addr_differs(Record(AF_UNIX, kFamilySize), Record(AF_UNIX, kFamilySize)), 0);
  EXPECT_EQ(addr_differs(Record(AF_UNIX, kFamilySize), ipv4("0.0.0.0")), 1);
}

TEST(AddrDiffers, OfNothingOnlyFromSomething) {
  const Record record = ipv4("0.0.0.0");
  EXPECT_EQ(addr_differs(record, nullptr), 1);
  EXPECT_EQ(addr_differs(nullptr, record), 1);
  EXPECT_EQ(addr_differs(nullptr, nullptr), 0);
}

// ---- Routes ----

constexpr std::size_t kSlot = 4;  // where the first one begins
constexpr std::size_t kSlotSize = 16;

static_assert(offsetof(address_route, address) == kSlot);
static_assert(sizeof(sockaddr) == kSlotSize && sizeof(address_route) == kSlot + 3 * kSlotSize);

const address_route* route(const Record& record) {
  return reinterpret_cast<const address_route*>(record.bytes());
}

// A route of these families.
Record route_of(int first, int second, int third) {
  Record record(sizeof(address_route));
  std::size_t offset = kSlot;
  for (const int family : {first, second, third}) {
    const auto value = static_cast<sa_family_t>(family);
    std::memcpy(record.bytes() + offset, &value, sizeof value);
    offset += kSlotSize;
  }
  return record;
}

std::set<std::size_t> route_bytes_that_count(const Record& record) {
  std::set<std::size_t> counting;
  for (std::size_t i = 0; i < record.size(); ++i) {
    Record other = record;
    other.bytes()[i] = static_cast<unsigned char>(other.bytes()[i] ^ 0x10U);
    const int differs = route_differs(route(record), route(other));
    EXPECT_TRUE(differs == 0 || differs == 1) << differs;
    if (differs == 1) counting.insert(i);
  }
  return counting;
}

TEST(RouteDiffers, IsByTheAddressesOfAllSlots) {
  std::set<std::size_t> expected;
  for (const std::size_t slot : {0U, 1U, 2U}) {
    const std::size_t begin = kSlot + slot * kSlotSize;
    expected = joined(expected, range(begin, begin + kFamilySize));
    expected = joined(expected, range(begin + kIpv4Offset, begin + kIpv4End));
  }
  EXPECT_EQ(route_bytes_that_count(route_of(AF_INET, AF_INET, AF_INET)), expected);
}

TEST(RouteDiffers, OfAnIpv6AddressReachesIntoTheNextSlot) {
  const std::set<std::size_t> families =
      joined(range(20, 20 + kFamilySize), range(36, 36 + kFamilySize));
  EXPECT_EQ(route_bytes_that_count(route_of(AF_INET6, AF_UNSPEC, AF_UNSPEC)),
            joined(families, joined(range(4, 4 + kFamilySize), range(12, 28))));
  EXPECT_EQ(route_bytes_that_count(route_of(AF_UNSPEC, AF_INET6, AF_UNSPEC)),
            joined(range(4, 4 + kFamilySize), joined(families, range(28, 44))));
}

TEST(RouteDiffers, OfAnIpv6AddressInTheLastSlotEndsWithTheRoute) {
  EXPECT_EQ(route_bytes_that_count(route_of(AF_UNSPEC, AF_UNSPEC, AF_INET6)),
            joined(joined(range(4, 4 + kFamilySize), range(20, 20 + kFamilySize)),
                   joined(range(36, 36 + kFamilySize), range(44, 52))));
}

TEST(RouteDiffers, OfNothingOnlyFromSomething) {
  const Record record = route_of(AF_UNSPEC, AF_UNSPEC, AF_UNSPEC);
  EXPECT_EQ(route_differs(route(record), nullptr), 1);
  EXPECT_EQ(route_differs(nullptr, route(record)), 1);
  EXPECT_EQ(route_differs(nullptr, nullptr), 0);
}

// ---- Link-local addresses ----

TEST(IsLinkLocalAddress, KnowsThePrefixAtItsEdges) {
  EXPECT_EQ(is_link_local_address(ipv6("fe7f:ffff::1")), 0);
  EXPECT_EQ(is_link_local_address(ipv6("fe80::")), 1);
  EXPECT_EQ(is_link_local_address(ipv6("fe80::1")), 1);
  EXPECT_EQ(is_link_local_address(ipv6("febf::1")), 1);
  EXPECT_EQ(is_link_local_address(ipv6("fec0::1")), 0);
  EXPECT_EQ(is_link_local_address(ipv6("::1")), 0);
}

TEST(IsLinkLocalAddress, TakesSomeGroupsToo) {
  EXPECT_EQ(is_link_local_address(ipv6("ff7f::1")), 0);
  EXPECT_EQ(is_link_local_address(ipv6("ff80::1")), 1);
  EXPECT_EQ(is_link_local_address(ipv6("ffbf::1")), 1);
  EXPECT_EQ(is_link_local_address(ipv6("ffc0::1")), 0);
}

TEST(IsLinkLocalAddress, IsByTenBitsButForTheEighth) {
  Record record(AF_INET6, kIpv6Offset + 2);  // no more of it is read
  for (unsigned first = 0; first <= 0xFFFF; ++first) {
    record.bytes()[kIpv6Offset] = static_cast<unsigned char>(first >> 8U);
    record.bytes()[kIpv6Offset + 1] = static_cast<unsigned char>(first);
    std::string bits = bits_of(first).substr(16, 10);
    bits[7] = '?';
    ASSERT_EQ(is_link_local_address(record), bits == "1111111?10" ? 1 : 0) << std::hex << first;
  }
}

TEST(IsLinkLocalAddress, DoesNotLookAtTheFamily) {
  for (const int family : {AF_UNSPEC, AF_INET, AF_UNIX}) {
    Record record = ipv6("fe80::1");
    const auto value = static_cast<sa_family_t>(family);
    std::memcpy(record.bytes(), &value, sizeof value);
    EXPECT_EQ(is_link_local_address(record), 1);
  }
}

TEST(IsLinkLocalAddress, OfNothingIsFalse) { EXPECT_EQ(is_link_local_address(nullptr), 0); }

}  // namespace
