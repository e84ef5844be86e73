// The kernel's table of hardware addresses: its lines, and which of them is found.

#include <rkutils/network/ping/arp_table.h>

#include <cstdio>
#include <optional>
#include <ostream>
#include <string>

#include <gmock/gmock.h>

#include "support/case_name.h"
#include "support/kernel_folder.h"
#include "support/open_descriptors.h"

namespace {

using rkutils::ping::find_in_arp_table;
using rkutils::ping::MacAddress;
using rkutils::ping::read_arp_line;
using testing::Optional;
using testing::Values;

constexpr char kHeading[] =
    "IP address       HW type     Flags       HW address            Mask     Device\n";
constexpr MacAddress kMac = {0x02, 0x00, 0x5E, 0xA0, 0xB0, 0xC0};

// ---- Lines ----

struct Case {
  const char* name;
  std::string line;
  const char* address;
  std::optional<MacAddress> found;
};
std::ostream& operator<<(std::ostream& out, const Case& each) { return out << each.name; }

class ArpLine : public testing::TestWithParam<Case> {};

TEST_P(ArpLine, GivesTheHardwareAddress) {
  EXPECT_EQ(read_arp_line(GetParam().line.c_str(), GetParam().address), GetParam().found);
}

constexpr char kGateway[] = "192.0.2.1";
constexpr std::nullopt_t kNone = std::nullopt;

INSTANTIATE_TEST_SUITE_P(
    Complete, ArpLine,
    Values(Case{"AsTheKernelWritesIt",
                "192.0.2.1        0x1         0x2         02:00:5e:a0:b0:c0     *        eth1\n",
                kGateway, kMac},
           Case{"Permanent", "192.0.2.1 0x1 0x6 02:00:5e:a0:b0:c0 * eth1\n", kGateway, kMac},
           Case{"OnAnyInterface", "192.0.2.1 0x1 0x2 02:00:5e:a0:b0:c0", kGateway, kMac},
           Case{"OfAnyType", "192.0.2.1 ether 0x2 02:00:5e:a0:b0:c0 * eth1\n", kGateway, kMac},
           Case{"FlagsInDecimals", "192.0.2.1 0x1 10 02:00:5e:a0:b0:c0\n", kGateway, kMac},
           Case{"FlagsInOctalDigits", "192.0.2.1 0x1 03 02:00:5e:a0:b0:c0\n", kGateway, kMac},
           Case{"ShortAndLargeDigits", "192.0.2.1 0x1 0x2 2:0:5E:A0:B0:C0\n", kGateway, kMac},
           Case{"MoreBehindSixParts", "192.0.2.1 0x1 0x2 02:00:5e:a0:b0:c0:99\n", kGateway, kMac},
           Case{"WordsAsLongAsALine",
                "192.0.2.1 " + std::string(200, 'x') + " 0x2 02:00:5e:a0:b0:c0\n", kGateway, kMac},
           Case{"ANameIsLookedForToo", "gateway 0x1 0x2 02:00:5e:a0:b0:c0\n", "gateway", kMac}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    No, ArpLine,
    Values(Case{"OtherAddress", "192.0.2.2 0x1 0x2 02:00:5e:a0:b0:c0 * eth1\n", kGateway, kNone},
           Case{"AddressThatGoesOn", "192.0.2.10 0x1 0x2 02:00:5e:a0:b0:c0\n", kGateway, kNone},
           Case{"AddressThatEndsEarly", "192.0.2. 0x1 0x2 02:00:5e:a0:b0:c0\n", kGateway, kNone},
           Case{"SpaceBeforeTheAddress", " 192.0.2.1 0x1 0x2 02:00:5e:a0:b0:c0\n", kGateway, kNone},
           Case{"TabBehindTheAddress", "192.0.2.1\t0x1 0x2 02:00:5e:a0:b0:c0\n", kGateway, kNone},
           Case{"OtherTextForTheAddress", "192.0.2.1 0x1 0x2 02:00:5e:a0:b0:c0\n", "192.0.2.01",
                kNone},
           Case{"Incomplete", "192.0.2.1 0x1 0x0 00:00:00:00:00:00 * eth1\n", kGateway, kNone},
           Case{"PermanentOnly", "192.0.2.1 0x1 0x4 02:00:5e:a0:b0:c0 * eth1\n", kGateway, kNone},
           Case{"PublishedOnly", "192.0.2.1 0x1 0xc 02:00:5e:a0:b0:c0 * eth1\n", kGateway, kNone},
           Case{"FlagsThatAreNoNumber", "192.0.2.1 0x1 x2 02:00:5e:a0:b0:c0\n", kGateway, kNone},
           Case{"OctalFlagsWithoutTheBit", "192.0.2.1 0x1 010 02:00:5e:a0:b0:c0\n", kGateway,
                kNone},
           Case{"FourthWord", "192.0.2.1 0x1 0x2 \n", kGateway, kNone},
           Case{"ThirdWord", "192.0.2.1 0x1\n", kGateway, kNone},
           Case{"SixParts", "192.0.2.1 0x1 0x2 02:00:5e:a0:b0 * eth1\n", kGateway, kNone},
           Case{"OtherSeparators", "192.0.2.1 0x1 0x2 02-00-5e-a0-b0-c0\n", kGateway, kNone},
           Case{"OtherDigits", "192.0.2.1 0x1 0x2 02:00:5e:a0:b0:g0\n", kGateway, kNone},
           Case{"Heading", kHeading, "IP", kNone}, Case{"Text", "", kGateway, kNone},
           Case{"TextBehindTheAddress", "192.0.2.1", kGateway, kNone}),
    support::CaseName());

// ---- The table ----

class ArpTable : public testing::Test {
 protected:
  // Looks the gateway up in a table of these lines.
  std::optional<MacAddress> find_in(const std::string& lines) const {
    proc_.put("net/arp", kHeading + lines);
    return find_in_arp_table(kGateway);
  }

 private:
  support::KernelFolder proc_{"/proc"};
};

TEST_F(ArpTable, FirstCompleteEntryCounts) {
  EXPECT_THAT(find_in("192.0.2.1 0x1 0x0 00:00:00:00:00:00 * eth0\n"
                      "192.0.2.2 0x1 0x2 02:00:00:00:00:02 * eth0\n"
                      "192.0.2.1 0x1 0x2 nothing * eth0\n"
                      "192.0.2.1 0x1 0x2 02:00:5e:a0:b0:c0 * eth1\n"
                      "192.0.2.1 0x1 0x2 02:00:00:00:00:01 * eth2\n"),
              Optional(kMac));
}

TEST_F(ArpTable, WithoutTheEntryHasNothing) {
  EXPECT_EQ(find_in(""), kNone);
  EXPECT_EQ(find_in("192.0.2.2 0x1 0x2 02:00:5e:a0:b0:c0 * eth1\n"), kNone);
}

TEST_F(ArpTable, LastLineNeedsNoEnd) {
  EXPECT_THAT(find_in("192.0.2.1 0x1 0x2 02:00:5e:a0:b0:c0"), Optional(kMac));
}

TEST_F(ArpTable, LinesAreCutAfter255Bytes) {
  const std::string entry = "192.0.2.1 0x1 0x2 02:00:5e:a0:b0:c0 * eth1\n";
  EXPECT_EQ(find_in(std::string(254, 'x') + entry), kNone);
  EXPECT_THAT(find_in(std::string(255, 'x') + entry), Optional(kMac));
  EXPECT_EQ(find_in(std::string(256, 'x') + entry), kNone);
}

TEST_F(ArpTable, LeavesNothingOpen) {
  const auto before = support::open_descriptors();
  find_in("192.0.2.1 0x1 0x2 02:00:5e:a0:b0:c0 * eth1\n");
  find_in("");
  EXPECT_EQ(support::open_descriptors(), before);
}

TEST(ArpTableFile, ThatIsNotThereHasNothing) {
  const support::KernelFolder proc("/proc");
  proc.make_folder("net");
  proc.put("net/arp", "");
  std::remove(proc.at("net/arp").c_str());
  EXPECT_EQ(find_in_arp_table(kGateway), kNone);
}

}  // namespace
