// What kind of medium a block device is.

#include <rkutils/storage.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "storage_fixture.h"
#include "support/case_name.h"
#include "support/in_child.h"
#include "support/without_override.h"

namespace {

using namespace std::string_literals;

std::string kinds_of(const std::vector<Medium>& media) {
  std::string kinds;
  for (const Medium& medium : media) {
    if (!kinds.empty()) kinds += ' ';
    kinds +=
        medium.partition + ":" + std::to_string(medium.type) + "," + std::to_string(medium.index);
  }
  return kinds;
}

std::string listed_kinds() { return kinds_of(listed()); }

using StorageKind = StorageTest;

struct Link {
  const char* name;
  const char* partition;
  std::string text;
  const char* kind;  // type and index; "" for no medium
};

class StorageKindLink : public StorageTest, public testing::WithParamInterface<Link> {};

TEST_P(StorageKindLink, IsToldFromTheLink) {
  add_link(GetParam().partition, GetParam().text);
  const std::string kind = GetParam().kind;
  EXPECT_EQ(listed_kinds(), kind.empty() ? "" : GetParam().partition + ":"s + kind);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StorageKindLink,
    testing::Values(
        Link{"Flash", "mtdblock3", "../../devices/spi0/mtd/mtd3/mtdblock3", "2,0"},
        Link{"FlashByItsBeginning", "mtdblock3", "../../devices/virtual/mtdx", "2,0"},
        Link{"FlashWithoutASlash", "mtdblock3", "mtd/mtdblock3", "2,0"},
        Link{"NoFlash", "mtdblock3", "../../devices/virtual/block/3", ""},
        Link{"FlashInCapitals", "mtdblock3", "../../devices/MTD/3", ""},
        Link{"FlashUnderAnyName", "sda", "../../devices/spi0/mtd/mtd3/sda", "2,0"},
        Link{"FlashBeforeMmc", "mmcblk0p4", "../../devices/mmc_host/mmc0/mtd/x", "2,0"},
        Link{"FlashBeforeSata", "sda", "../../devices/ata1/mtd/sda", "2,0"},
        Link{"FlashBeforeUsb", "sda", "../../devices/usb1/mtd/sda", "2,0"},
        Link{"Mmc", "mmcblk0p3", "../../devices/soc/mmc_host/mmc0/x", "2,0"},
        Link{"MmcOfTheSecond", "mmcblk1p3", "../../devices/soc/mmc_host/mmc1/x", "2,0"},
        Link{"MmcData", "mmcblk0p4", "../../devices/soc/mmc_host/mmc0/x", "4,0"},
        Link{"MmcDataOfTheSecond", "mmcblk1p4", "../../devices/soc/mmc_host/mmc1/x", "4,0"},
        Link{"MmcUnderAnotherName", "mtdblock3", "../../devices/mmc_host/mmc1/x", "2,0"},
        Link{"MmcDiskUnderAnotherName", "sda", "../../devices/mmc_host/mmc1/x", "2,0"},
        Link{"MmcByItsBeginning", "sda", "/mmc_hosts", "2,0"},
        Link{"MmcWithoutASlash", "sda", "mmc_host/sda", ""},
        Link{"MmcNotWhole", "sda", "../mmc_hos/mmc", ""},
        Link{"MmcBeforeSata", "mmcblk0p4", "../ata1/mmc_host/x", "4,0"},
        Link{"MmcBeforeUsb", "mmcblk0p4", "../usb1/mmc_host/x", "4,0"},
        Link{"Sata1", "sda", "../../devices/pci0/ata1/host0/block/sda", "8,1"},
        Link{"Sata2", "sda", "../../devices/pci0/ata2/host1/block/sda", "8,1"},
        Link{"Sata10", "sda", "../../devices/pci0/ata10/host1/block/sda", "8,1"},
        Link{"Sata3", "sda", "../../devices/pci0/ata3/host1/block/sda", ""},
        Link{"SataWithoutANumber", "sda", "../../devices/pci0/ata/host1/block/sda", ""},
        Link{"SataWithoutASlash", "sda", "ata1/sda", ""},
        Link{"SataUnderAnotherName", "mmcblk0p4", "../ata1/x", "8,1"},
        Link{"SataBeforeUsb", "sda", "../usb1/1-1/ata1/x", "8,1"},
        Link{"Sata2BeforeUsb", "sda", "../usb1/1-1/ata2/x", "8,1"},
        Link{"Usb", "sda", "../../devices/ehci/usb1/1-1/block/sda", "8,0"},
        Link{"UsbByItsBeginning", "sda", "../usbmisc", "8,0"},
        Link{"UsbUnderAnotherName", "mmcblk0p4", "../usb1/x", "8,0"},
        Link{"UsbWithoutASlash", "sda", "usb1/sda", ""},
        Link{"UsbInCapitals", "sda", "../USB1/sda", ""},
        Link{"Virtual", "sda", "../../devices/virtual/block/sda", ""},
        Link{"Short", "sda", "x", ""}),
    support::CaseName());

TEST_F(StorageKind, OfMmcPartitionsDependsOnTheHardwareType) {
  for (const char* name : {"mmcblk0p3", "mmcblk0p4"}) add_device(name, kMmc0);
  for (const char* name : {"mmcblk1p1", "mmcblk1p3", "mmcblk1p4"}) add_device(name, kMmc1);
  const std::string others[] = {"17\n", "19\n", "0\n", "-18\n", "none\n", ""};
  const auto sorted_kinds = [] {
    std::vector<Medium> media = listed();
    std::sort(media.begin(), media.end(),
              [](const Medium& a, const Medium& b) { return a.partition < b.partition; });
    return kinds_of(media);
  };
  const std::string plain = "mmcblk0p3:2,0 mmcblk0p4:4,0 mmcblk1p1:2,0 mmcblk1p3:2,0 mmcblk1p4:4,0";
  EXPECT_EQ(support::in_child(sorted_kinds), plain);
  for (const std::string& type : others) {
    proc_.put("sysinfo/dwhw", type);
    EXPECT_EQ(support::in_child(sorted_kinds), plain) << type;
  }
  proc_.put("sysinfo/dwhw", "18\n");
  EXPECT_EQ(support::in_child(sorted_kinds),
            "mmcblk0p3:2,0 mmcblk0p4:4,0 mmcblk1p1:8,0 mmcblk1p3:2,0 mmcblk1p4:4,0");
}

TEST_F(StorageKind, OfAnSdCardIsInTheMask) {
  add_device("mmcblk1p1", kMmc1);
  proc_.put("sysinfo/dwhw", "18\n");
  const auto by_mask = [] {
    return listed_names(STORAGE_TYPE_EXTERNAL) + "," + listed_names(STORAGE_TYPE_FLASH);
  };
  EXPECT_EQ(support::in_child(by_mask), "mmcblk1p1,");
  proc_.put("sysinfo/dwhw", "17\n");
  EXPECT_EQ(support::in_child(by_mask), ",mmcblk1p1");
}

// The hardware type matters for media of MMC only.
TEST_F(StorageKind, OfADiskDoesNotDependOnTheHardwareType) {
  add_device("mmcblk1p1", kMtd);
  proc_.put("sysinfo/dwhw", "18\n");
  EXPECT_EQ(support::in_child(listed_kinds), "mmcblk1p1:2,0");
}

// ---- Long links ----

// A text of that length, which ends so.
std::string long_link(std::size_t length, const std::string& end) {
  const std::string begin = "../";
  return begin + std::string(length - begin.size() - end.size(), 'x') + end;
}

TEST_F(StorageKind, IsLookedForIn255BytesOfTheLink) {
  for (const std::string& part : {"/mtd"s, "/mmc_host"s, "/ata1"s, "/ata2"s, "/usb"s}) {
    for (const std::size_t length : {254U, 255U, 256U, 257U, 1000U, 4000U}) {
      std::filesystem::remove(std::string(kBlock) + "/sda");
      add_link("sda", long_link(length, part));
      EXPECT_EQ(listed().size(), length <= 255 ? 1U : 0U) << part << length;
    }
  }
}

TEST_F(StorageKind, IsToldFromTheBeginningOfALongerLink) {
  add_link("sda", "../ata1" + long_link(1000, "/mtd"));
  EXPECT_EQ(listed_kinds(), "sda:8,1");
}

TEST_F(StorageKind, HasItsPortIn255BytesOfTheLink) {
  set_port(1, "1-1.2\n");
  for (const std::size_t length : {254U, 255U, 256U, 257U}) {
    std::filesystem::remove(std::string(kBlock) + "/sda");
    add_link("sda", "../usb1" + long_link(length - 7, "/1-1.2/"));
    EXPECT_EQ(listed_kinds(), length <= 255 ? "sda:16,1" : "sda:8,0") << length;
  }
}

// ---- USB ports ----

using StorageUsbPort = StorageTest;

struct Ports {
  const char* name;
  std::string port0;
  std::string port1;
  const char* kind;
};

class StorageUsbPortName : public StorageTest, public testing::WithParamInterface<Ports> {
 protected:
  static constexpr char kLink[] =
      "../../devices/platform/ehci.0/usb1/1-1/1-1.2/1-1.2.3/1-1.2.3:1.0/block/sda";
};

TEST_P(StorageUsbPortName, IsToldFromItsNames) {
  add_link("sda", kLink);
  set_port(0, GetParam().port0);
  set_port(1, GetParam().port1);
  EXPECT_EQ(listed_kinds(), "sda:"s + GetParam().kind);
}

// 62 characters with the text at their end, in lines.
std::string names_of_62(const std::string& end) {
  return std::string(61 - end.size(), 'x') + "\n" + end;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, StorageUsbPortName,
    testing::Values(
        Ports{"First", "1-1.2\n", "9-9\n", "16,0"}, Ports{"Second", "9-9\n", "1-1.2\n", "16,1"},
        Ports{"Both", "1-1\n", "1-1.2\n", "16,0"}, Ports{"Neither", "9-9\n", "9-8\n", "8,0"},
        Ports{"NoLineFeed", "9-9", "1-1.2", "16,1"}, Ports{"ColonsForDots", "1-1:2:3", "", "16,0"},
        Ports{"ColonsAndDots", "", "1-1.2:3", "16,1"},
        // A colon of the link's has no name.
        Ports{"ColonInTheLink", "1-1.2.3:1.0", "", "8,0"}, Ports{"TheBus", "", "usb1", "16,1"},
        Ports{"Controller", "ehci:0", "", "16,0"}, Ports{"SeveralParts", "1-1/1-1:2", "", "16,0"},
        Ports{"BeginningOfAPart", "1-1.", "1-1.2.", "8,0"}, Ports{"EndOfAPart", "-1", "1.2", "8,0"},
        Ports{"LastPart", "sda", "", "8,0"}, Ports{"FirstPart", "..", "", "16,0"},
        Ports{"OtherCase", "USB1", "", "8,0"}, Ports{"SecondLine", "9-9\n1-1\n", "", "16,0"},
        Ports{"ThirdLine", "", "9-9\n9-8\n1-1\n", "16,1"},
        Ports{"LinesAcross", "9-9\n8-8", "7-7\n1-1", "16,1"},
        Ports{"BlankLines", "\n\n9-9\n\n\n1-1\n", "", "16,0"},
        Ports{"WhiteSpaceAround", " \t\r\n 1-1 \r\n\n", "", "16,0"},
        Ports{"SpaceBehindAName", "1-1 \n9-9", "", "8,0"},
        Ports{"SpaceBeforeAName", "9-9\n 1-1", "", "8,0"},
        Ports{"CarriageReturn", "1-1\r\n9-9\n", "", "8,0"}, Ports{"Empty", "", "", "8,0"},
        Ports{"WhiteSpace", " \n\t\n", "\n", "8,0"},
        Ports{"SixtyTwoCharacters", names_of_62("1-1"), "", "16,0"},
        Ports{"SixtyTwoCharactersAndALineFeed", names_of_62("1-1") + "\n", "", "16,0"},
        Ports{"SixtyTwoBehindWhiteSpace", "  \n" + names_of_62("1-1"), "", "16,0"},
        Ports{"SixtyThreeCharacters", "x" + names_of_62("1-1"), "", "8,0"},
        Ports{"CutToAName", names_of_62("1-1") + ".9", "", "16,0"},
        Ports{"NotCutToAName", names_of_62("1-1.2.3").substr(1) + ".9", "", "8,0"},
        Ports{"LineBehindSixtyTwo", names_of_62("9-9") + "\n1-1\n", "", "8,0"},
        Ports{"LongLine", std::string(62, 'x') + "\n1-1\n", "", "8,0"},
        Ports{"ManyLines", "1-1\n" + std::string(5000, '\n') + "9-9\n", "", "16,0"},
        Ports{"BeginsWithNul",
              "\0"
              "1-1\n1-1"s,
              "", "16,0"},
        Ports{"NulInALine",
              "1-1\0"
              ".2\n9-9"s,
              "", "8,0"}),
    support::CaseName());

TEST_F(StorageUsbPort, IsExternalWithoutFilesOfPorts) {
  add_device("sda", kUsb);
  EXPECT_EQ(listed_kinds(), "sda:8,0");
  proc_.make_folder("sysinfo/usbport0/usbName");
  EXPECT_EQ(listed_kinds(), "sda:8,0");
}

TEST_F(StorageUsbPort, IsExternalWhereThePortsAreNotReadable) {
  add_device("sda", kUsb);
  set_port(0, "1-1");
  set_port(1, "1-1.2");
  ::chmod(proc_.at("sysinfo/usbport0/usbName").c_str(), 0200);
  std::string kinds;
  support::run_without_override([&] { kinds = listed_kinds(); });
  EXPECT_EQ(kinds, "sda:16,1");
  ::chmod(proc_.at("sysinfo/usbport1/usbName").c_str(), 0200);
  support::run_without_override([&] { kinds = listed_kinds(); });
  EXPECT_EQ(kinds, "sda:8,0");
}

TEST_F(StorageUsbPort, KnowsTwoPorts) {
  add_device("sda", kUsb);
  set_port(2, "1-1");
  set_port(3, "usb1");
  EXPECT_EQ(listed_kinds(), "sda:8,0");
}

// Its partition's link decides, not the disk's.
TEST_F(StorageUsbPort, IsThatOfThePartition) {
  add_device("sda", kUsb);
  add_device("sda1", kAta1);
  EXPECT_EQ(listed_kinds(), "sda1:8,1");
}

TEST_F(StorageUsbPort, MakesItsKind) {
  add_device("sda", kUsb);
  add_device("sdb", "x/usb5/5-5");
  set_port(0, "1-1");
  EXPECT_EQ(listed_names(STORAGE_TYPE_USB), "sda");
  EXPECT_EQ(listed_names(STORAGE_TYPE_EXTERNAL), "sdb");
}

TEST_F(StorageUsbPort, MayBeSharedByDisksOnOnePort) {
  add_device("sda", kUsb);
  add_device("sdb", kUsb);
  set_port(1, "1-1");
  EXPECT_EQ(listed(), expected());
  EXPECT_EQ(listed(STORAGE_TYPE_USB).size(), 2U);
}

}  // namespace
