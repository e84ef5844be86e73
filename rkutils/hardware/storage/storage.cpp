// The list of storage media.

#include <rkutils/file.h>
#include <rkutils/foundations/file/line_source.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/hardware/storage/mount_line.h>
#include <rkutils/hardware/storage/place.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/uninterrupted.h>
#include <rkutils/internal/unique_dir.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/memory.h>
#include <rkutils/storage.h>
#include <rkutils/systeminfo.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/statfs.h>
#include <unistd.h>

namespace {

using rkutils::file::LineSource;
using rkutils::file::open_to_read;
using rkutils::internal::next_entry;
using rkutils::internal::open_directory;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::uninterrupted;
using rkutils::internal::UniqueDir;
using rkutils::internal::UniqueFd;
using rkutils::storage::Bus;

constexpr char kBlockDevices[] = "/sys/class/block";
constexpr char kMounts[] = "/proc/mounts";

constexpr std::uint32_t kAllTypes = 255;
constexpr std::uint64_t kUnknown = UINT64_MAX;

constexpr std::size_t kNameSize = sizeof StorageEntry::partition;
constexpr std::size_t kLinkSize = 256;
// Longer lines are passed over. The line feed counts.
constexpr std::size_t kMountLineLength = 255;

// The hardware type whose mmcblk1 is the slot for SD cards.
constexpr int kTypeWithCardSlot = 18;
constexpr std::int32_t kUsbPorts = 2;

struct ListFree {
  void operator()(StorageList* list) const noexcept {
    old_free_storage(list);
    std::free(list);
  }
};
using UniqueList = std::unique_ptr<StorageList, ListFree>;

// ---- What block devices are media ----

// A whole disk, and the block device on it that stands for it.
struct Medium {
  char device[kNameSize];
  char partition[kNameSize];
};

constexpr Medium kFixedMedia[] = {
    {"mmcblk0", "mmcblk0p3"}, {"mmcblk0", "mmcblk0p4"}, {"mmcblk1", "mmcblk1p3"},
    {"mmcblk1", "mmcblk1p4"}, {"mmcblk1", "mmcblk1p1"}, {"mtdblock3", "mtdblock3"},
};

// The path of something that belongs to a block device with one of the names above.
class DevicePath {
 public:
  DevicePath(const char* folder, const char* name) noexcept {
    std::snprintf(text_, sizeof text_, "%s/%s", folder, name);
  }

  [[nodiscard]] const char* c_str() const noexcept { return text_; }

 private:
  char text_[sizeof kBlockDevices + kNameSize];
};

bool is_scsi_disk(const char* name) {
  return std::strncmp(name, "sd", 2) == 0 && std::strlen(name) == 3;
}

// A disk's first partition, or the disk itself where it has none.
Medium scsi_medium(const char* disk) {
  Medium medium = {};
  strlcpy(medium.device, disk, sizeof medium.device);
  std::snprintf(medium.partition, sizeof medium.partition, "%s1", disk);
  if (::access(DevicePath(kBlockDevices, medium.partition).c_str(), R_OK) != 0) {
    strlcpy(medium.partition, disk, sizeof medium.partition);
  }
  return medium;
}

std::optional<Medium> medium_of(const char* block_device) {
  if (is_scsi_disk(block_device)) return scsi_medium(block_device);
  const Medium* const fixed = std::find_if(
      std::begin(kFixedMedia), std::end(kFixedMedia), [block_device](const Medium& medium) {
        return std::strcmp(medium.partition, block_device) == 0;
      });
  if (fixed == std::end(kFixedMedia)) return std::nullopt;
  return *fixed;
}

// ---- What kind of medium one is ----

struct Kind {
  std::uint32_t type;
  std::int32_t index;
};

// Lists are in the order of this.
std::uint32_t key_of(std::uint32_t type, std::int32_t index) {
  return type << 16 | static_cast<std::uint16_t>(index);
}

std::uint32_t mmc_type(const char* partition) {
  const auto is = [partition](const char* name) { return std::strcmp(partition, name) == 0; };
  if (is("mmcblk0p4") || is("mmcblk1p4")) return STORAGE_TYPE_DATA;
  if (is("mmcblk1p1") && dwhw() == kTypeWithCardSlot) return STORAGE_TYPE_EXTERNAL;
  return STORAGE_TYPE_FLASH;
}

Kind usb_kind(const char* link) {
  for (std::int32_t port = 0; port < kUsbPorts; ++port) {
    char path[] = "/proc/sysinfo/usbport0/usbName";
    std::snprintf(path, sizeof path, "/proc/sysinfo/usbport%d/usbName", static_cast<int>(port));
    char names[1024];
    readfile_r(path, names, sizeof names);
    if (rkutils::storage::is_on_port(link, names)) return {STORAGE_TYPE_USB, port};
  }
  return {STORAGE_TYPE_EXTERNAL, 0};
}

std::optional<Kind> kind_of(const Medium& medium) {
  char link[kLinkSize];
  const DevicePath path(kBlockDevices, medium.partition);
  const ssize_t length = ::readlink(path.c_str(), link, sizeof link - 1);
  if (length < 0) return std::nullopt;
  link[length] = '\0';
  switch (rkutils::storage::bus_of(link)) {
    case Bus::kMtd:
      return Kind{STORAGE_TYPE_FLASH, 0};
    case Bus::kMmc:
      return Kind{mmc_type(medium.partition), 0};
    case Bus::kSata:
      return Kind{STORAGE_TYPE_EXTERNAL, 1};
    case Bus::kUsb:
      return usb_kind(link);
    case Bus::kOther:
      break;
  }
  return std::nullopt;
}

// ---- What there is to know about it ----

// Writes where the partition is mounted to the entry, unless that does not fit.
bool record_mount_point(StorageEntry& entry, std::string_view mount_point) {
  if (mount_point == "/overlay") mount_point = "/";
  if (mount_point.size() >= sizeof entry.mountpoint) return false;
  std::memcpy(entry.mountpoint, mount_point.data(), mount_point.size());
  return true;
}

void find_mount_point(StorageEntry& entry) {
  UniqueFd mounts = open_to_read(kMounts);
  if (!mounts) return;
  LineSource lines(std::move(mounts), kMountLineLength + 1);
  while (const char* const text = lines.next_line()) {
    const std::string_view line = text;
    if (line.size() > kMountLineLength) continue;
    const auto mount_point = rkutils::storage::mount_point_in(line, entry.partition);
    if (mount_point && record_mount_point(entry, *mount_point)) return;
  }
}

// A template, since the C libraries differ in the type of the request.
template <typename Request>
bool ask(int (*control)(int, Request, ...), int disk, std::uint64_t& size) {
  return uninterrupted([&] { return control(disk, static_cast<Request>(BLKGETSIZE64), &size); }) ==
         0;
}

std::uint64_t size_of(const char* device) {
  const UniqueFd disk = open_to_read(DevicePath("/dev", device).c_str());
  if (!disk) return 0;
  std::uint64_t size = 0;
  return ask(::ioctl, disk.get(), size) ? size : kUnknown;
}

void find_usage(StorageEntry& entry) {
  struct statfs usage = {};
  if (uninterrupted([&] { return ::statfs(entry.mountpoint, &usage); }) != 0) return;
  const auto block_size = static_cast<std::uint64_t>(usage.f_bsize);
  entry.total = usage.f_blocks * block_size;
  entry.available = usage.f_bavail * block_size;
}

// ---- The list ----

StorageEntry* to_entry(list_node* node) { return list_entry(node, StorageEntry, links); }

// Behind those of the same key.
void insert(StorageList& list, StorageEntry& entry) {
  const std::uint32_t key = key_of(entry.type, entry.index);
  list_node* behind;
  list_for_each (behind, &list.entries) {
    const StorageEntry* const other = to_entry(behind);
    if (key_of(other->type, other->index) > key) break;
  }
  list_add_tail(&entry.links, behind);
  ++list.count;
}

// False when there is no memory.
bool add(StorageList& list, const Medium& medium) {
  const std::optional<Kind> kind = kind_of(medium);
  if (!kind || (kind->type & list.typeMask) == 0) return true;
  auto* const entry = static_cast<StorageEntry*>(zalloc(sizeof(StorageEntry)));
  if (entry == nullptr) return false;
  entry->type = kind->type;
  entry->index = kind->index;
  strlcpy(entry->device, medium.device, sizeof entry->device);
  strlcpy(entry->partition, medium.partition, sizeof entry->partition);
  entry->total = kUnknown;
  entry->available = kUnknown;
  find_mount_point(*entry);
  entry->size = size_of(entry->device);
  if (*entry->mountpoint != '\0') find_usage(*entry);
  insert(list, *entry);
  return true;
}

}  // namespace

StorageList* old_get_storage(uint32_t mask) {
  const PostponedCancellation postponed;
  UniqueList list(static_cast<StorageList*>(zalloc(sizeof(StorageList))));
  if (!list) return nullptr;
  list_init(&list->entries);
  list->typeMask = mask == 0 ? kAllTypes : mask;
  const UniqueDir block_devices = open_directory(kBlockDevices);
  if (!block_devices) return list.release();
  while (const dirent* const found = next_entry(block_devices.get())) {
    const std::optional<Medium> medium = medium_of(found->d_name);
    if (medium && !add(*list, *medium)) return nullptr;
  }
  return list.release();
}

StorageEntry* old_get_storage_device(StorageList* list, uint32_t type, uint32_t index) {
  if (list == nullptr) return nullptr;
  list_node* node;
  list_for_each (node, &list->entries) {
    StorageEntry* const entry = to_entry(node);
    if (entry->type == type && static_cast<uint32_t>(entry->index) == index) return entry;
  }
  return nullptr;
}

void old_free_storage(StorageList* list) {
  if (list == nullptr) return;
  list_node* node;
  list_node* following;
  list_for_each_safe (node, following, &list->entries) {
    list_del(node);
    std::free(to_entry(node));
  }
  list->count = 0;
}
