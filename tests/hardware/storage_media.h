// Storage media as the library lists them, and as they are worked out for comparison.
#ifndef TESTS_HARDWARE_STORAGE_MEDIA_H
#define TESTS_HARDWARE_STORAGE_MEDIA_H

#include <rkutils/storage.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

constexpr std::uint64_t kAllBits = std::numeric_limits<std::uint64_t>::max();

// What an entry of the list says.
struct Medium {
  std::uint32_t type = 0;
  std::int32_t index = 0;
  std::string device = {};
  std::string partition = {};
  std::string mountpoint = {};
  std::uint64_t size = 0;
  std::uint64_t total = kAllBits;
  std::uint64_t available = kAllBits;
};
bool operator==(const Medium& a, const Medium& b);
std::ostream& operator<<(std::ostream& stream, const Medium& medium);

// Lists as programs release them.
struct ListRelease {
  void operator()(StorageList* list) const;
};
using OwnedList = std::unique_ptr<StorageList, ListRelease>;

std::vector<StorageEntry*> entries_of(StorageList* list);

// What the library lists. Checks on the way that the list is sound: its links both ways, its count,
// its mask, and that texts end and have zeros behind them.
std::vector<Medium> listed(std::uint32_t mask = 0);

// The partitions of what the library lists, in order: "sda1 sdb".
std::string listed_names(std::uint32_t mask = 0);

// The media that this machine has, worked out from its files by other means, with their sizes as
// `size_of` tells them of a whole disk's name.
std::vector<Medium> expected_media(std::uint32_t mask, int hardware_type,
                                   std::uint64_t (*size_of)(const std::string& device));

// The size of a disk as the kernel tells whoever has opened it: 0 for one that cannot be opened,
// and all bits set where it does not.
std::uint64_t opened_size(const std::string& device);

#endif
