#include "storage_media.h"

#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string_view>
#include <tuple>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using rkutils::internal::UniqueFd;

auto fields_of(const Medium& medium) {
  return std::tie(medium.type, medium.index, medium.device, medium.partition, medium.mountpoint,
                  medium.size, medium.total, medium.available);
}

// A text field: what stands behind its end are zeros.
template <std::size_t Size>
std::string text_of(const char (&field)[Size]) {
  const std::string_view bytes(field, Size);
  std::string text(bytes.substr(0, bytes.find('\0')));
  EXPECT_LT(text.size(), Size);
  EXPECT_EQ(bytes.find_first_not_of('\0', text.size()), std::string_view::npos) << text;
  return text;
}

std::string contents_of(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string stripped(const std::string& text) {
  const char* const kWhite = " \t\n\v\f\r";
  const std::size_t begin = text.find_first_not_of(kWhite);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(kWhite) - begin + 1);
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// The disk that a block device stands for, or nothing.
std::optional<Medium> medium_named(const std::string& name) {
  Medium medium;
  medium.partition = name;
  for (const char* const known :
       {"mmcblk0p3", "mmcblk0p4", "mmcblk1p1", "mmcblk1p3", "mmcblk1p4"}) {
    if (name == known) medium.device = name.substr(0, 7);
  }
  if (name == "mtdblock3") medium.device = name;
  if (!medium.device.empty()) return medium;
  if (name.size() != 3 || name.compare(0, 2, "sd") != 0) return std::nullopt;
  medium.device = name;
  if (::access(("/sys/class/block/" + name + "1").c_str(), R_OK) == 0) medium.partition += "1";
  return medium;
}

// The USB port that a link leads to, or -1.
int port_of(const std::string& link) {
  for (int port = 0; port < 2; ++port) {
    const std::string file = "/proc/sysinfo/usbport" + std::to_string(port) + "/usbName";
    std::istringstream names(stripped(contents_of(file)).substr(0, 62));
    for (std::string name; std::getline(names, name);) {
      std::replace(name.begin(), name.end(), ':', '.');
      if (!name.empty() && contains(link, "/" + name + "/")) return port;
    }
  }
  return -1;
}

// Finds kind and index; false for a block device that is no medium.
bool classify(Medium& medium, int hardware_type) {
  std::error_code error;
  std::string link = fs::read_symlink("/sys/class/block/" + medium.partition, error);
  if (error) return false;
  link = link.substr(0, 255);
  if (contains(link, "/mtd")) {
    medium.type = 2;
  } else if (contains(link, "/mmc_host")) {
    const bool is_card = medium.partition == "mmcblk1p1" && hardware_type == 18;
    medium.type = is_card ? 8 : medium.partition.back() == '4' ? 4 : 2;
  } else if (contains(link, "/ata1") || contains(link, "/ata2")) {
    medium.type = 8;
    medium.index = 1;
  } else if (contains(link, "/usb")) {
    const int port = port_of(link);
    medium.type = port < 0 ? 8 : 16;
    medium.index = std::max(port, 0);
  } else {
    return false;
  }
  return true;
}

std::string mount_point_of(const std::string& partition) {
  std::istringstream lines(contents_of("/proc/mounts"));
  for (std::string line; std::getline(lines, line);) {
    const std::size_t first = line.find(' ');
    if (line.size() > 254 || line.substr(0, first) != "/dev/" + partition) continue;
    const std::string point = line.substr(first + 1, line.find(' ', first + 1) - first - 1);
    if (point.size() <= 63) return point == "/overlay" ? "/" : point;
  }
  return "";
}

}  // namespace

bool operator==(const Medium& a, const Medium& b) { return fields_of(a) == fields_of(b); }

std::ostream& operator<<(std::ostream& stream, const Medium& medium) {
  return stream << "\n{type " << medium.type << " index " << medium.index << " device "
                << medium.device << " partition " << medium.partition << " at \""
                << medium.mountpoint << "\" size " << medium.size << " total " << medium.total
                << " available " << medium.available << "}";
}

void ListRelease::operator()(StorageList* list) const {
  old_free_storage(list);
  std::free(list);
}

std::vector<StorageEntry*> entries_of(StorageList* list) {
  std::vector<StorageEntry*> entries;
  list_node* node;
  list_for_each (node, &list->entries) {
    EXPECT_EQ(node->prev->next, node);
    EXPECT_EQ(node->next->prev, node);
    entries.push_back(list_entry(node, StorageEntry, links));
  }
  return entries;
}

std::vector<Medium> listed(std::uint32_t mask) {
  const OwnedList list(old_get_storage(mask));
  if (!list) {
    ADD_FAILURE() << "no list";
    return {};
  }
  std::vector<Medium> media;
  for (const StorageEntry* entry : entries_of(list.get())) {
    media.push_back(Medium{entry->type, entry->index, text_of(entry->device),
                           text_of(entry->partition), text_of(entry->mountpoint), entry->size,
                           entry->total, entry->available});
  }
  EXPECT_EQ(list->count, media.size());
  EXPECT_EQ(list->typeMask, mask == 0 ? 255 : mask);
  return media;
}

std::string listed_names(std::uint32_t mask) {
  std::string names;
  for (const Medium& medium : listed(mask)) {
    names += (names.empty() ? "" : " ") + medium.partition;
  }
  return names;
}

std::vector<Medium> expected_media(std::uint32_t mask, int hardware_type,
                                   std::uint64_t (*size_of)(const std::string& device)) {
  std::vector<Medium> media;
  std::error_code none;
  for (const fs::directory_entry& entry : fs::directory_iterator("/sys/class/block", none)) {
    std::optional<Medium> medium = medium_named(entry.path().filename());
    if (!medium || !classify(*medium, hardware_type)) continue;
    if (mask != 0 && (medium->type & mask) == 0) continue;
    medium->mountpoint = mount_point_of(medium->partition);
    medium->size = size_of(medium->device);
    struct statfs usage = {};
    if (!medium->mountpoint.empty() && ::statfs(medium->mountpoint.c_str(), &usage) == 0) {
      medium->total = std::uint64_t{usage.f_blocks} * static_cast<std::uint64_t>(usage.f_bsize);
      medium->available = std::uint64_t{usage.f_bavail} * static_cast<std::uint64_t>(usage.f_bsize);
    }
    media.push_back(*medium);
  }
  std::stable_sort(media.begin(), media.end(), [](const Medium& a, const Medium& b) {
    return std::tie(a.type, a.index) < std::tie(b.type, b.index);
  });
  return media;
}

std::uint64_t opened_size(const std::string& device) {
  const UniqueFd disk(::open(("/dev/" + device).c_str(), O_RDONLY | O_CLOEXEC));
  if (!disk) return 0;
  std::uint64_t size = 0;
  // Not ioctl(): the C libraries differ in the type of the request.
  return ::syscall(SYS_ioctl, disk.get(), BLKGETSIZE64, &size) == 0 ? size : kAllBits;
}
