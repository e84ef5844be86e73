// Sizes and orders that other programs and the target's ABI count on.

#include <rkutils/rkutils.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>
#include <pthread.h>

namespace {

#if UINTPTR_MAX == UINT32_MAX
// In bytes as the router's programs know them.
static_assert(sizeof(long) == 4 && sizeof(std::size_t) == 4);
static_assert(sizeof(list_node) == 8);
static_assert(sizeof(configd_query) == 1288 && offsetof(configd_query, value) == 264);
static_assert(sizeof(mem_stream) == 8);
static_assert(sizeof(String) == 4);
static_assert(offsetof(String::StringBuffer, chars) == 12);
static_assert(sizeof(INStringHashTable) == 12 && sizeof(INUInt32HashTable) == 12);
static_assert(sizeof(pthread_mutex_t) == 24);  // what the shared memory of a named lock holds
static_assert(sizeof(CSemaphore) == 4 + sizeof(std::string) + 12);
static_assert(sizeof(CRecursiveSemaphore) == 8);
static_assert(sizeof(CDynamicModule) == 8 + sizeof(std::string));
static_assert(sizeof(ProcessEntry) == 20 && sizeof(ProcessControl) == 12);
static_assert(sizeof(Md5HashContext) == 96 && sizeof(Sha1HashContext) == 100);
static_assert(sizeof(HmacContext) == 140);
static_assert(sizeof(StorageList) == 16);
static_assert(offsetof(StorageEntry, type) == 8 && offsetof(StorageEntry, device) == 16);
static_assert(offsetof(StorageEntry, mountpoint) == 80 && offsetof(StorageEntry, size) == 144);
static_assert(sizeof(StorageEntry) == 168);
#endif
#ifdef __arm__
static_assert(sizeof(time_t) == 8 && alignof(std::int64_t) == 8 && alignof(StorageEntry) == 8);
#endif

TEST(Layout, OfATimeDifference) {
  static_assert(offsetof(time_difference, seconds) == 0);
  static_assert(offsetof(time_difference, nanoseconds) == 4);
  static_assert(sizeof(time_difference) == 8);
}

TEST(Layout, OfAString) {
  static_assert(sizeof(String) == sizeof(void*));
  static_assert(offsetof(String::StringBuffer, refCount) == 0);
  static_assert(offsetof(String::StringBuffer, capacity) == 4);
  static_assert(offsetof(String::StringBuffer, length) == 8);
  static_assert(offsetof(String::StringBuffer, chars) == 12);
}

TEST(Layout, OfAHashTable) {
  static_assert(sizeof(INStringHashTable) == sizeof(void*) + 8);
  static_assert(sizeof(INUInt32HashTable) == sizeof(void*) + 8);
}

// What members come behind the table of virtual ones is in the tests of the classes.
TEST(Layout, OfADigest) {
  constexpr auto kSize = [](std::size_t members) {
    return (sizeof(void*) + members + sizeof(void*) - 1) / sizeof(void*) * sizeof(void*);
  };
  static_assert(sizeof(Md5HashContext) == kSize(16 + 8 + 64 + 4));
  static_assert(sizeof(Sha1HashContext) == kSize(20 + 8 + 64 + 4));
  static_assert(sizeof(HmacContext) == kSize(sizeof(void*) + 64 + 64 + 4));
}

TEST(Layout, OfAnEvent) {
  static_assert(offsetof(rkevent_record, event) == 0);
  static_assert(offsetof(rkevent_record, parameter) == 4);
  static_assert(offsetof(rkevent_record, text) == 8);
  static_assert(sizeof(rkevent_record) == 136);
  static_assert(std::is_trivial_v<rkevent_record> && std::is_standard_layout_v<rkevent_record>);
}

TEST(Layout, OfAStatusOfInputsAndOutputs) {
  static_assert(offsetof(DioStatus, count) == 0);
  static_assert(offsetof(DioStatus, bits) == 4);
  static_assert(sizeof(DioStatus) == 16);
  static_assert(offsetof(DioStatusAll, in) == 0);
  static_assert(offsetof(DioStatusAll, out) == 16);
  static_assert(sizeof(DioStatusAll) == 32);
  static_assert(std::is_trivial_v<DioStatusAll> && std::is_standard_layout_v<DioStatusAll>);
}

TEST(Layout, OfAFrequency) {
  static_assert(offsetof(DioFrequency, value) == 0);
  static_assert(offsetof(DioFrequency, first) == sizeof(long));
  static_assert(offsetof(DioFrequency, second) == 2 * sizeof(long));
  static_assert(sizeof(DioFrequency) == 3 * sizeof(long));  // 12 bytes on the target
}

TEST(Layout, OfAListOfMedia) {
  static_assert(offsetof(StorageList, entries) == 0);
  static_assert(offsetof(StorageList, typeMask) == 2 * sizeof(void*));
  static_assert(offsetof(StorageList, count) == 2 * sizeof(void*) + 4);
  static_assert(sizeof(StorageList) == 2 * sizeof(void*) + 8);
  static_assert(std::is_trivial_v<StorageList> && std::is_standard_layout_v<StorageList>);
}

TEST(Layout, OfAMedium) {
  constexpr std::size_t kLinks = 2 * sizeof(void*);
  static_assert(offsetof(StorageEntry, links) == 0);
  static_assert(offsetof(StorageEntry, type) == kLinks);
  static_assert(offsetof(StorageEntry, index) == kLinks + 4);
  static_assert(offsetof(StorageEntry, device) == kLinks + 8);
  static_assert(offsetof(StorageEntry, partition) == kLinks + 40);
  static_assert(offsetof(StorageEntry, mountpoint) == kLinks + 72);
  static_assert(offsetof(StorageEntry, size) == kLinks + 136);
  static_assert(offsetof(StorageEntry, total) == kLinks + 144);
  static_assert(offsetof(StorageEntry, available) == kLinks + 152);
  static_assert(sizeof(StorageEntry) == kLinks + 160);
  static_assert(std::is_trivial_v<StorageEntry> && std::is_standard_layout_v<StorageEntry>);
  static_assert(STORAGE_TYPE_FLASH == 2 && STORAGE_TYPE_DATA == 4);
  static_assert(STORAGE_TYPE_EXTERNAL == 8 && STORAGE_TYPE_USB == 16);
}

TEST(Layout, OfAShortMessage) {
  static_assert(offsetof(CSimpleSMS, address) == 0);
  static_assert(offsetof(CSimpleSMS, received) == sizeof(std::string));
  static_assert(offsetof(CSimpleSMS, text) == 2 * sizeof(std::string));
  static_assert(sizeof(CSimpleSMS) == 3 * sizeof(std::string));
}

TEST(Layout, OfAQuery) {
  static_assert(offsetof(configd_query, links) == 0);
  static_assert(offsetof(configd_query, key) == 2 * sizeof(void*));
  static_assert(offsetof(configd_query, value) == 2 * sizeof(void*) + 256);
  static_assert(sizeof(configd_query) == 2 * sizeof(void*) + 256 + 1024);
  static_assert(std::is_trivial_v<configd_query> && std::is_standard_layout_v<configd_query>);
}

TEST(Layout, OfAConfigurationEntry) {
  static_assert(offsetof(cfread_entry, index) == 0);
  static_assert(offsetof(cfread_entry, key) == sizeof(void*));
  static_assert(offsetof(cfread_entry, value) == 2 * sizeof(void*));
  static_assert(offsetof(cfread_entry, int_value) == 3 * sizeof(void*));
  static_assert(sizeof(cfread_entry) == 4 * sizeof(void*));  // 16 bytes on the target
}

TEST(Layout, OfAConfigurationTable) {
  static_assert(offsetof(cfread_table, count) == 0);
  static_assert(offsetof(cfread_table, size) == 4);
  static_assert(offsetof(cfread_table, entries) == 8);
  static_assert(offsetof(cfread_table, filename) == 8 + sizeof(void*));
  static_assert(offsetof(cfread_table, callback) == 8 + 2 * sizeof(void*));
  static_assert(offsetof(cfread_table, userdata) == 8 + 3 * sizeof(void*));
  static_assert(offsetof(cfread_table, report_empty) == 8 + 4 * sizeof(void*));
}

TEST(Layout, OfALineOfAFile) {
  static_assert(offsetof(file_line, links) == 0);
  static_assert(offsetof(file_line, text) == 2 * sizeof(void*));
  static_assert(sizeof(file_line) == 3 * sizeof(void*));
}

TEST(Layout, OfARoute) {
  static_assert(offsetof(address_route, id) == 0);
  static_assert(offsetof(address_route, address) == 4);
  static_assert(sizeof(address_route) == 52);
}

TEST(Layout, OfAnIpInterfaceStatus) {
  static_assert(sizeof(IpInterfaceStatus) == sizeof(void*));  // no more than its virtual table
}

TEST(Layout, OfAnIpAddress) {
  static_assert(sizeof(IpAddress) == 36 && alignof(IpAddress) == 4);
  static_assert(std::is_standard_layout_v<IpAddress> && std::is_trivially_copyable_v<IpAddress>);
  // A kind, an address and a mask.
  const auto words = [](const IpAddress& address) {
    std::array<std::uint32_t, 9> all;
    std::memcpy(all.data(), &address, sizeof address);
    return all;
  };
  constexpr std::uint32_t kOnes = 0xFFFFFFFF;
  EXPECT_EQ(words(IpAddress()),
            (std::array<std::uint32_t, 9>{0, 0, 0, 0, 0, kOnes, kOnes, kOnes, kOnes}));
  EXPECT_EQ(
      words(IpAddress("192.0.2.1/24")),
      (std::array<std::uint32_t, 9>{1, 0xC0000201, 0, 0, 0, 0xFFFFFF00, kOnes, kOnes, kOnes}));
}

TEST(Layout, OfACommandToTheModem) {
  static_assert(offsetof(wwanmd_buffer, data) == 0);
  static_assert(offsetof(wwanmd_buffer, length) == 8192);
  static_assert(offsetof(wwanmd_buffer, timeout) == 8196);
  static_assert(sizeof(wwanmd_buffer) == 8200);
  static_assert(std::is_trivial_v<wwanmd_buffer> && std::is_standard_layout_v<wwanmd_buffer>);
}

TEST(Layout, OfAListNode) {
  static_assert(offsetof(list_node, next) == 0);
  static_assert(sizeof(list_node) == 2 * sizeof(void*));
}

TEST(Layout, OfALock) {
  constexpr std::size_t kFields = sizeof(void*) + sizeof(std::string) + 3 * sizeof(int);
  static_assert(sizeof(CSemaphore) - kFields < sizeof(void*));
  static_assert(sizeof(CRecursiveSemaphore) == 2 * sizeof(void*));
  static_assert(sizeof(CRecursiveSemaphore::CSemaphoreOptions) == 1);
}

TEST(Layout, OfAModule) {
  static_assert(sizeof(CDynamicModule) == 2 * sizeof(void*) + sizeof(std::string));
}

TEST(Layout, OfAMemoryStream) {
  static_assert(offsetof(mem_stream, buf) == 0);
  static_assert(offsetof(mem_stream, buf_size) == sizeof(void*));
  static_assert(sizeof(mem_stream) == 2 * sizeof(void*));
}

}  // namespace
