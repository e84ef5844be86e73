// The list of storage media beside what this machine really has: its own /sys and /proc, and its
// disks, asked by other programs.
//
// The board says in a file, whose path is in RKUTILS_MEDIA, which media it has; there they must be
// found, and are mounted. It has a line for each:
//
//     PLACE BYTES [+] [NUMBER[+]]...
//
//   PLACE     a text that the medium's link in /sys/class/block has: "/usb"
//   BYTES     its size
//   NUMBER    a partition that it has
//   +         it, or the partition before it, has an ext4 file system
//
// Other machines may have any media or none. Nothing is written to those.

#include <rkutils/storage.h>
#include <rkutils/systeminfo.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include "storage_media.h"
#include "support/in_child.h"
#include "support/kernel_folder.h"
#include "support/put_file.h"
#include "support/run_program.h"

namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

constexpr char kBlock[] = "/sys/class/block";

std::string contents_of(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool on_board() { return contents_of("/etc/os-release").rfind("ID=board\n", 0) == 0; }

support::Outcome run_shell(const std::string& command) {
  return support::run_program({"/bin/sh", "-c", "PATH=$PATH:/usr/sbin:/sbin; " + command});
}

// A disk's size as a program tells it; 0 where it cannot be opened.
std::uint64_t told_size(const std::string& device) {
  const auto [output, status] = run_shell("blockdev --getsize64 /dev/" + device + " 2> /dev/null");
  EXPECT_NE(status, 127) << "there is no blockdev";
  return status == 0 ? std::stoull(output) : 0;
}

// ---- What there must be ----

struct Partition {
  std::string number;  // "" for the whole disk
  bool has_files;
};

bool operator<(const Partition& a, const Partition& b) { return a.number < b.number; }

struct Listing {
  std::string place;
  std::uint64_t bytes = 0;
  std::set<Partition> partitions;
};

std::vector<Listing> required_media() {
  std::vector<Listing> media;
  const char* const path = std::getenv("RKUTILS_MEDIA");
  if (path == nullptr) return media;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    Listing listing;
    if (!(words >> listing.place >> listing.bytes)) continue;
    for (std::string word; words >> word;) {
      const bool has_files = word.back() == '+';
      if (has_files) word.pop_back();
      listing.partitions.insert({word, has_files});
    }
    media.push_back(listing);
  }
  return media;
}

// ---- What there is ----

struct Disk {
  std::string link;
  std::uint64_t bytes = 0;
  std::set<std::string> partitions;
};

// All disks of the machine by name. Those in several hardware parts, like the boot parts of a card,
// are several.
std::map<std::string, Disk> disks() {
  std::map<std::string, Disk> all;
  for (const fs::directory_entry& entry : fs::directory_iterator(kBlock)) {
    const fs::path& folder = entry.path();
    if (fs::exists(folder / "partition")) continue;
    Disk& disk = all[folder.filename()];
    disk.link = fs::read_symlink(folder);
    disk.bytes = std::stoull(contents_of(folder / "size")) * 512;
    for (const fs::directory_entry& inside : fs::directory_iterator(folder)) {
      const fs::path number = inside.path() / "partition";
      if (fs::exists(number))
        disk.partitions.insert(std::to_string(std::stoi(contents_of(number))));
    }
  }
  return all;
}

std::set<std::string> numbers_of(const Listing& listing) {
  std::set<std::string> numbers;
  for (const Partition& partition : listing.partitions) {
    if (!partition.number.empty()) numbers.insert(partition.number);
  }
  return numbers;
}

bool is(const Listing& listing, const Disk& disk) {
  return disk.link.find(listing.place) != std::string::npos && disk.bytes == listing.bytes &&
         disk.partitions == numbers_of(listing);
}

// The disk that is meant by each line of the list, by name; a line without one is missing. A disk
// is taken once.
std::map<std::string, Listing> find_required() {
  std::map<std::string, Disk> left = disks();
  std::map<std::string, Listing> found;
  for (const Listing& listing : required_media()) {
    const auto disk = std::find_if(left.begin(), left.end(), [&listing](const auto& candidate) {
      return is(listing, candidate.second);
    });
    if (disk == left.end()) continue;
    found.emplace(disk->first, listing);
    left.erase(disk);
  }
  return found;
}

// What the library is to list of it, with nothing mounted and nothing known of the hardware.
std::vector<Medium> media_on(const std::string& disk, const Listing& listing) {
  const std::set<std::string> numbers = numbers_of(listing);
  const bool is_mmc = disk.rfind("mmcblk", 0) == 0;
  const bool is_scsi = disk.rfind("sd", 0) == 0;
  std::vector<std::string> parts;
  if (disk == "mtdblock3" || (is_scsi && numbers.count("1") == 0)) parts = {""};
  if (is_scsi && numbers.count("1") != 0) parts = {"1"};
  if (disk == "mmcblk1" && numbers.count("1") != 0) parts.emplace_back("1");
  for (const char* const number : {"3", "4"}) {
    if ((disk == "mmcblk0" || disk == "mmcblk1") && numbers.count(number) != 0) {
      parts.emplace_back(number);
    }
  }
  std::vector<Medium> media;
  for (const std::string& part : parts) {
    Medium& medium = media.emplace_back();
    medium.type = is_scsi                 ? STORAGE_TYPE_EXTERNAL
                  : is_mmc && part == "4" ? STORAGE_TYPE_DATA
                                          : STORAGE_TYPE_FLASH;
    medium.index = listing.place.rfind("/ata", 0) == 0 ? 1 : 0;
    medium.device = disk;
    medium.partition = disk;
    medium.partition.append(is_mmc ? "p" : "").append(part);
    medium.size = listing.bytes;
  }
  return media;
}

// With the machine's own devices, where they may be seen: their names in /dev lead to them. Where a
// list says what there must be, waits until it is there.
class StorageOfThisMachine : public testing::Test {
 protected:
  StorageOfThisMachine() {
    fs::create_directories(kDevices);
    has_devices_ = ::mount("devtmpfs", kDevices, "devtmpfs", MS_NOSUID | MS_NOEXEC, nullptr) == 0;
    for (int waits = 0; waits < 300 && find_required().size() < required_media().size(); ++waits) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    for (const fs::directory_entry& entry : fs::directory_iterator(kBlock)) {
      add_name(entry.path().filename(), entry.path().filename());
    }
  }
  void SetUp() override {
    if (on_board()) {
      ASSERT_THAT(required_media(), Not(IsEmpty())) << "RKUTILS_MEDIA has no list";
    }
    ASSERT_EQ(find_required().size(), required_media().size()) << "some media are missing";
  }
  ~StorageOfThisMachine() override {
    for (const std::string& name : names_) fs::remove(name);
    if (has_devices_) ::umount2(kDevices, MNT_DETACH);
    fs::remove(kDevices);
  }

  // Another name for a device of the machine's.
  void add_name(const std::string& name, const std::string& device) {
    std::error_code taken;
    fs::create_symlink(std::string(kDevices) + "/" + device, "/dev/" + name, taken);
    if (!taken) names_.push_back("/dev/" + name);
  }

 private:
  static constexpr char kDevices[] = "/run/devices";

  bool has_devices_ = false;
  std::vector<std::string> names_;
};

TEST_F(StorageOfThisMachine, HasWhatTheBoardSays) {
  for (const auto& [name, listing] : find_required()) {
    EXPECT_EQ(told_size(name), listing.bytes) << name;
  }
}

TEST_F(StorageOfThisMachine, IsListed) {
  for (const std::uint32_t mask : {0U, STORAGE_TYPE_FLASH, STORAGE_TYPE_DATA, STORAGE_TYPE_EXTERNAL,
                                   STORAGE_TYPE_USB, STORAGE_TYPE_DATA | STORAGE_TYPE_EXTERNAL}) {
    EXPECT_EQ(listed(mask), expected_media(mask, dwhw(), told_size)) << mask;
  }
}

TEST_F(StorageOfThisMachine, ListsWhatTheBoardSays) {
  std::vector<Medium> required;
  for (const auto& [name, listing] : find_required()) {
    for (const Medium& medium : media_on(name, listing)) required.push_back(medium);
  }
  EXPECT_THAT(listed(), IsSupersetOf(required));
  if (on_board()) {
    EXPECT_EQ(listed().size(), required.size()) << "there are media that RKUTILS_MEDIA has not";
  }
}

// Every disk of the machine, whatever it is, under the name of one that the library knows.
TEST_F(StorageOfThisMachine, HasDisksOfTheSizesThatOthersTell) {
  const std::map<std::string, Disk> all = disks();
  const support::KernelFolder sys("/sys");
  sys.make_folder("class/block");
  for (const fs::directory_entry& entry : fs::directory_iterator(kBlock)) fs::remove(entry.path());
  ASSERT_THAT(listed(), IsEmpty());
  std::size_t count = 0;
  for (const auto& [disk, facts] : all) {
    const std::string name = std::string("sd") + static_cast<char>(128 + count % 128);
    fs::create_symlink("../usb1/" + name, fs::path(kBlock) / name);
    add_name(name, disk);
    const std::vector<Medium> media = listed();
    ASSERT_EQ(media.size(), 1U);
    EXPECT_EQ(media[0].size, opened_size(disk)) << disk;
    EXPECT_EQ(media[0].size, told_size(disk)) << disk;
    if (opened_size(disk) != 0) {
      EXPECT_EQ(media[0].size, facts.bytes) << disk;
    }
    ++count;
    fs::remove(fs::path(kBlock) / name);
    fs::remove("/dev/" + name);
  }
}

// ---- Ports and slots ----

// The name of the USB device that a link passes: "1-1.2" of ".../usb1/1-1/1-1.2/1-1.2:1.0/...".
std::string usb_name_in(const std::string& link) {
  const std::size_t colon = link.find(':', link.find("/usb"));
  const std::size_t slash = link.rfind('/', colon);
  return link.substr(slash + 1, colon - slash - 1);
}

TEST_F(StorageOfThisMachine, HasUsbDisksOnTheirPorts) {
  const support::KernelFolder proc("/proc");
  int count = 0;
  for (const auto& [name, listing] : find_required()) {
    if (listing.place.rfind("/usb", 0) != 0) continue;
    std::string port = usb_name_in(disks().at(name).link);
    ASSERT_NE(port, "");
    std::replace(port.begin(), port.end(), '.', ':');
    for (int index = 0; index < 2; ++index) {
      proc.put("sysinfo/usbport" + std::to_string(index) + "/usbName", port + "\n");
      proc.put("sysinfo/usbport" + std::to_string(1 - index) + "/usbName", "9-9\n");
      EXPECT_EQ(listed(), expected_media(0, dwhw(), told_size));
      const std::vector<Medium> media = listed(STORAGE_TYPE_USB);
      ASSERT_EQ(media.size(), 1U) << name;
      EXPECT_EQ(media[0].device, name);
      EXPECT_EQ(media[0].index, index);
    }
    ++count;
  }
  EXPECT_TRUE(!on_board() || count > 0) << "RKUTILS_MEDIA has no USB disk";
}

TEST_F(StorageOfThisMachine, HasAnSdCardOnItsHardware) {
  const support::KernelFolder proc("/proc");
  proc.put("sysinfo/dwhw", "18\n");
  const auto of_type = [](int type) {
    return support::in_child([type] {
      const std::vector<Medium> media = listed();
      const std::vector<Medium> expected = expected_media(0, type, told_size);
      return media == expected
                 ? "as expected: " + testing::PrintToString(media)
                 : testing::PrintToString(media) + " and not " + testing::PrintToString(expected);
    });
  };
  EXPECT_THAT(of_type(18), testing::StartsWith("as expected"));
  const std::map<std::string, Listing> required = find_required();
  const auto second = required.find("mmcblk1");
  EXPECT_TRUE(!on_board() || second != required.end()) << "the second card is missing";
  if (second != required.end()) {
    EXPECT_THAT(of_type(18),
                testing::HasSubstr("{type 8 index 0 device mmcblk1 partition mmcblk1p1"));
  }
  proc.put("sysinfo/dwhw", "17\n");
  EXPECT_THAT(of_type(17), testing::StartsWith("as expected"));
}

// ---- Mounted ----

struct Usage {
  std::uint64_t total_kib = 0;
  std::uint64_t available_kib = 0;
};
bool operator==(const Usage& a, const Usage& b) {
  return a.total_kib == b.total_kib && a.available_kib == b.available_kib;
}
std::ostream& operator<<(std::ostream& stream, const Usage& usage) {
  return stream << usage.available_kib << " of " << usage.total_kib << " KiB";
}

Usage told_usage(const std::string& folder) {
  const auto [output, status] = run_shell("df -P -k " + folder + " | tail -n 1");
  EXPECT_EQ(status, 0) << output;
  std::istringstream words(output);
  std::string device;
  std::uint64_t used = 0;
  Usage usage;
  words >> device >> usage.total_kib >> used >> usage.available_kib;
  EXPECT_TRUE(words) << output;
  return usage;
}

Usage listed_usage(const std::string& partition) {
  for (const Medium& medium : listed()) {
    if (medium.partition == partition) return {medium.total / 1024, medium.available / 1024};
  }
  ADD_FAILURE() << partition << " is not listed";
  return {};
}

std::string listed_mount_point(const std::string& partition) {
  for (const Medium& medium : listed()) {
    if (medium.partition == partition) return medium.mountpoint;
  }
  return "not listed";
}

// One medium's file system, which takes a file and is empty again.
void expect_usage(const std::string& partition) {
  const std::string folder = "/tmp/medium-" + partition;
  EXPECT_EQ(listed_mount_point(partition), "");
  fs::create_directory(folder);
  ASSERT_EQ(::mount(("/dev/" + partition).c_str(), folder.c_str(), "ext4", 0, nullptr), 0)
      << partition << ": " << std::strerror(errno);
  EXPECT_EQ(listed_mount_point(partition), folder);
  const Usage empty = listed_usage(partition);
  EXPECT_EQ(empty, told_usage(folder));
  EXPECT_NE(empty.total_kib, 0U);
  support::put(folder + "/file", std::string(200000, 'x'));
  ::sync();
  EXPECT_EQ(listed_usage(partition), told_usage(folder));
  EXPECT_LE(listed_usage(partition).available_kib + 200000 / 1024, empty.available_kib);
  EXPECT_EQ(listed_usage(partition).total_kib, empty.total_kib);
  EXPECT_EQ(listed(), expected_media(0, dwhw(), told_size));
  fs::remove(folder + "/file");
  ASSERT_EQ(::umount2(folder.c_str(), 0), 0);
  fs::remove(folder);
  EXPECT_EQ(listed_mount_point(partition), "");
}

TEST_F(StorageOfThisMachine, HasTheUsageThatOthersTell) {
  std::size_t mounted = 0;
  for (const auto& [name, listing] : find_required()) {
    for (const Medium& medium : media_on(name, listing)) {
      const std::string number =
          medium.partition == name ? "" : medium.partition.substr(medium.partition.size() - 1);
      const auto partition = listing.partitions.find({number, false});
      if (partition == listing.partitions.end() || !partition->has_files) continue;
      SCOPED_TRACE(medium.partition);
      expect_usage(medium.partition);
      ++mounted;
    }
  }
  EXPECT_TRUE(!on_board() || mounted > 0) << "RKUTILS_MEDIA has no file system";
}

}  // namespace
