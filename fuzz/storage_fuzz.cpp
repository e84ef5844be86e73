// Where the kernel says that block devices hang, and where they are mounted.

#include <rkutils/list.h>
#include <rkutils/storage.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/statfs.h>
#include <unistd.h>

#include "support/kernel_folder.h"
#include "support/put_file.h"
#include "surroundings.h"
#include "target.h"

namespace {

namespace fs = std::filesystem;

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;

constexpr std::uint64_t kUnknown = UINT64_MAX;

// ---- What there is to be found

struct Medium {
  std::string device;
  std::string partition;
  std::uint32_t type = 0;
  int index = 0;
};

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

bool is_on_port(const std::string& link, const std::string& contents) {
  constexpr std::size_t kSize = 1024;
  constexpr std::size_t kMost = 62;
  std::string names = fuzz::small_file_text(contents, kSize).substr(0, kMost);
  std::replace(names.begin(), names.end(), ':', '.');
  for (std::string_view left = names; !left.empty();) {
    const std::string name(left.substr(0, left.find('\n')));
    if (!name.empty() && contains(link, "/" + name + "/")) return true;
    left.remove_prefix(std::min(name.size() + 1, left.size()));
  }
  return false;
}

class Machine {
 public:
  Machine() : sys_("/sys"), proc_("/proc") {
    sys_.make_folder("class/block");
    clear();
    proc_.put("sysinfo/dwhw", "18\n");
    mounts_.emplace(proc_, "mounts");
    for (int port = 0; port < 2; ++port) {
      ports_[port].emplace(proc_, "sysinfo/usbport" + std::to_string(port) + "/usbName");
    }
    // Two that links may lead to.
    support::put("/tmp/usb1/1-1.2/sda1", "");
    support::put("/tmp/ata1/sdb1", "");
  }

  void clear() const {
    for (const auto& entry : fs::directory_iterator(blocks())) fs::remove_all(entry.path());
  }

  // Links and texts from the input.
  void put_input(Input& input) {
    static const char* const kNames[] = {
        "sda",       "sda1",      "sdb",       "sdb1",      "sdc",       "mmcblk0p3", "mmcblk0p4",
        "mmcblk1p1", "mmcblk1p3", "mmcblk1p4", "mtdblock3", "mmcblk0p1", "sdaa",      "sd"};
    constexpr std::size_t kMostLinks = 8;
    const std::size_t links = input.below(kMostLinks + 1);
    for (std::size_t i = 0; i < links; ++i) {
      const fs::path link = blocks() / kNames[input.below(std::size(kNames))];
      const std::string text = fuzz::text_of(input.until('\n'));
      if (!text.empty()) static_cast<void>(::symlink(text.c_str(), link.c_str()));
    }
    for (std::size_t port = 0; port < 2; ++port) {
      port_texts_[port] = input.until('\x1c');
      ports_[port]->put(port_texts_[port]);
    }
    mounts_text_ = input.rest();
    mounts_->put(mounts_text_);
  }

  // In the order of a list.
  [[nodiscard]] std::vector<Medium> media(std::uint32_t mask) const {
    std::vector<Medium> media;
    for (const auto& entry : fs::directory_iterator(blocks())) {
      const std::optional<Medium> medium = medium_of(entry.path().filename());
      if (medium && (medium->type & mask) != 0) media.push_back(*medium);
    }
    std::stable_sort(media.begin(), media.end(), [](const Medium& a, const Medium& b) {
      return a.type != b.type ? a.type < b.type : a.index < b.index;
    });
    return media;
  }

  [[nodiscard]] std::string mount_point_of(const std::string& partition) const {
    constexpr std::size_t kLongestLine = 255;
    constexpr std::size_t kLongestPoint = 63;
    for (std::string_view left = mounts_text_; !left.empty();) {
      const std::string_view line = fuzz::piece_of(left, left.size());
      left.remove_prefix(line.size());
      const std::string text = fuzz::text_of(line.substr(0, kLongestLine + 1));
      const std::string device = "/dev/" + partition;
      if (text.size() > kLongestLine || text.substr(0, device.size()) != device) continue;
      const std::string behind = text.substr(device.size());
      if (!behind.empty() && behind[0] != ' ' && behind[0] != '\n') continue;
      std::string point = behind.substr(std::min<std::size_t>(1, behind.size()));
      point.erase(std::min(point.find_first_of(" \n"), point.size()));
      if (point == "/overlay") point = "/";
      if (point.size() <= kLongestPoint) return point;
    }
    return "";
  }

 private:
  [[nodiscard]] fs::path blocks() const { return sys_.at("class/block"); }

  [[nodiscard]] std::optional<Medium> medium_of(const std::string& name) const {
    Medium medium;
    medium.partition = name;
    medium.device = name.substr(0, name.find('p'));
    if (name.size() == 3 && name.substr(0, 2) == "sd") {
      medium.device = name;
      if (::access((blocks() / (name + "1")).c_str(), R_OK) == 0) medium.partition = name + "1";
    } else if (name != "mtdblock3" && name != "mmcblk0p3" && name != "mmcblk0p4" &&
               name != "mmcblk1p1" && name != "mmcblk1p3" && name != "mmcblk1p4") {
      return std::nullopt;
    }
    if (!classify(medium)) return std::nullopt;
    return medium;
  }

  [[nodiscard]] bool classify(Medium& medium) const {
    constexpr std::size_t kLongestLink = 255;
    const std::string link =
        fs::read_symlink(blocks() / medium.partition).string().substr(0, kLongestLink);
    if (contains(link, "/mtd")) {
      medium.type = STORAGE_TYPE_FLASH;
    } else if (contains(link, "/mmc_host")) {
      const bool is_data = medium.partition == "mmcblk0p4" || medium.partition == "mmcblk1p4";
      medium.type = is_data                           ? STORAGE_TYPE_DATA
                    : medium.partition == "mmcblk1p1" ? STORAGE_TYPE_EXTERNAL
                                                      : STORAGE_TYPE_FLASH;
    } else if (contains(link, "/ata1") || contains(link, "/ata2")) {
      medium.type = STORAGE_TYPE_EXTERNAL;
      medium.index = 1;
    } else if (contains(link, "/usb")) {
      medium.type = STORAGE_TYPE_USB;
      if (is_on_port(link, port_texts_[0])) return true;
      medium.index = 1;
      if (is_on_port(link, port_texts_[1])) return true;
      medium.type = STORAGE_TYPE_EXTERNAL;
      medium.index = 0;
    }
    return medium.type != 0;
  }

  const support::KernelFolder sys_;
  const support::KernelFolder proc_;
  std::optional<fuzz::InputFile> mounts_;
  std::optional<fuzz::InputFile> ports_[2];
  std::string mounts_text_;
  std::string port_texts_[2];
};

// ---- A list beside it

struct FreeList {
  void operator()(StorageList* list) const {
    old_free_storage(list);
    std::free(list);
  }
};

// All bytes behind the text are zero.
template <std::size_t kSize>
void check_field(const char (&field)[kSize], std::string expected, const char* what) {
  expected.resize(kSize);
  expect_equal(std::string(field, kSize), expected, what);
}

void check_usage(const StorageEntry& entry) {
  struct statfs usage = {};
  const bool known = *entry.mountpoint != '\0' && ::statfs(entry.mountpoint, &usage) == 0;
  const std::uint64_t total =
      known ? usage.f_blocks * static_cast<std::uint64_t>(usage.f_bsize) : kUnknown;
  expect_equal(entry.total, total, "the file system's size");
  expect_equal(entry.available != kUnknown, known, "whether its usage is known");
}

void check_entry(const Machine& machine, const StorageEntry& entry, const Medium& expected) {
  check_field(entry.device, expected.device, "the device");
  check_field(entry.partition, expected.partition, "the partition");
  check_field(entry.mountpoint, machine.mount_point_of(expected.partition), "the mount point");
  expect_equal(entry.type, expected.type, "the kind");
  expect_equal(entry.index, expected.index, "the index");
  expect_equal(entry.size, std::uint64_t{0}, "the size of a disk that cannot be opened");
  check_usage(entry);
}

void check(const Machine& machine, std::uint32_t mask) {
  const std::vector<Medium> media = machine.media(mask == 0 ? 255 : mask);
  const std::unique_ptr<StorageList, FreeList> list(old_get_storage(mask));
  expect(list != nullptr, "there is a list");
  expect_equal(std::size_t{list->count}, media.size(), "the number of media");
  list_node* node = nullptr;
  auto expected = media.begin();
  list_for_each (node, &list->entries) {
    expect(expected != media.end(), "there is no other medium");
    check_entry(machine, *list_entry(node, StorageEntry, links), *expected++);
  }
}

}  // namespace

// A mask; how many links there are, for each the number of its name, and its text in the rest of a line; the
// names of two USB ports, each with a file separator, 0x1c, behind it; and the mounts.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Machine machine;
  Input input(data, size);
  const std::uint32_t mask = input.byte();
  machine.put_input(input);
  {
    const fuzz::NothingLeftOpen nothing_left_open;
    check(machine, mask);
  }
  machine.clear();
  return 0;
}
