// The list of storage media: what is in it, in which order, and what becomes of it.

#include <rkutils/file.h>
#include <rkutils/storage.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "storage_fixture.h"
#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/for_nobody.h"
#include "support/in_child.h"
#include "support/rounds.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"
#include "support/without_override.h"

namespace {

namespace fs = std::filesystem;
using support::FailingCall;
using support::run_with_failing_calls;
using support::SystemCall;
using testing::ElementsAre;
using testing::IsEmpty;

using OldGetStorage = StorageTest;

TEST_F(OldGetStorage, IsAnEmptyListWithoutMedia) {
  const OwnedList list(old_get_storage(0));
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->entries.next, &list->entries);
  EXPECT_EQ(list->entries.prev, &list->entries);
  EXPECT_EQ(list->typeMask, 255U);
  EXPECT_EQ(list->count, 0U);
}

TEST_F(OldGetStorage, IsAnEmptyListWithoutTheFolder) {
  fs::remove_all(kBlock);
  EXPECT_THAT(listed(), IsEmpty());
  EXPECT_THAT(listed(STORAGE_TYPE_USB), IsEmpty());
  support::put(kBlock, "a file in its place");
  EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(OldGetStorage, IsAnEmptyListWhereTheFolderIsNotReadable) {
  add_device("mtdblock3", kMtd);
  ASSERT_EQ(listed_names(), "mtdblock3");
  ::chmod(kBlock, 0300);
  std::string names = "not called";
  support::run_without_override([&] { names = listed_names(); });
  EXPECT_EQ(names, "");
}

TEST_F(OldGetStorage, IsAnEmptyListWhereTheFolderCannotBeListed) {
  add_device("mtdblock3", kMtd);
  std::vector<Medium> media = expected();
  run_with_failing_calls({{SystemCall::kList, EIO}}, [&] { media = listed(); });
  EXPECT_THAT(media, IsEmpty());
}

TEST_F(OldGetStorage, TellsAllAboutAMedium) {
  add_device("sdb", kAta2);
  add_device("sdb1", std::string(kAta2) + "/sdb");
  EXPECT_THAT(listed(), ElementsAre(Medium{8, 1, "sdb", "sdb1", "", 0, kAllBits, kAllBits}));
  add_device("mmcblk0p4", kMmc0);
  add_disk("mmcblk0");
  EXPECT_THAT(listed(),
              ElementsAre(Medium{4, 0, "mmcblk0", "mmcblk0p4", "", kAllBits, kAllBits, kAllBits},
                          Medium{8, 1, "sdb", "sdb1", "", 0, kAllBits, kAllBits}));
}

// ---- Names ----

struct Name {
  const char* name;
  const char* partition;
  const char* device;  // nullptr: not listed
};

class OldGetStorageName : public StorageTest, public testing::WithParamInterface<Name> {};

TEST_P(OldGetStorageName, TellsWhetherItIsAMedium) {
  add_device(GetParam().partition, kUsb);
  const std::vector<Medium> media = listed();
  ASSERT_EQ(media.size(), GetParam().device == nullptr ? 0U : 1U);
  for (const Medium& medium : media) {
    EXPECT_EQ(medium.device, GetParam().device);
    EXPECT_EQ(medium.partition, GetParam().partition);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, OldGetStorageName,
    testing::Values(
        Name{"Mmc0Third", "mmcblk0p3", "mmcblk0"}, Name{"Mmc0Fourth", "mmcblk0p4", "mmcblk0"},
        Name{"Mmc1First", "mmcblk1p1", "mmcblk1"}, Name{"Mmc1Third", "mmcblk1p3", "mmcblk1"},
        Name{"Mmc1Fourth", "mmcblk1p4", "mmcblk1"}, Name{"Mtd3", "mtdblock3", "mtdblock3"},
        Name{"FirstDisk", "sda", "sda"}, Name{"LastDisk", "sdz", "sdz"},
        Name{"DiskOfACapital", "sdA", "sdA"}, Name{"DiskOfANumber", "sd1", "sd1"},
        Name{"DiskOfAnUnsignedByte", "sd\xff", "sd\xff"}, Name{"Mmc0", "mmcblk0", nullptr},
        Name{"Mmc0First", "mmcblk0p1", nullptr}, Name{"Mmc0Second", "mmcblk0p2", nullptr},
        Name{"Mmc0Fifth", "mmcblk0p5", nullptr}, Name{"Mmc1", "mmcblk1", nullptr},
        Name{"Mmc1Second", "mmcblk1p2", nullptr}, Name{"Mmc1Fifth", "mmcblk1p5", nullptr},
        Name{"Mmc2Third", "mmcblk2p3", nullptr}, Name{"Mmc0ThirtyThird", "mmcblk0p33", nullptr},
        Name{"Mmc0BootPart", "mmcblk0boot0", nullptr}, Name{"MmcInCapitals", "MMCBLK0P3", nullptr},
        Name{"Mtd2", "mtdblock2", nullptr}, Name{"Mtd33", "mtdblock33", nullptr},
        Name{"Mtd", "mtdblock", nullptr}, Name{"PartitionWithoutItsDisk", "sda1", nullptr},
        Name{"DiskOfTwoLetters", "sdaa", nullptr}, Name{"DiskOfNone", "sd", nullptr},
        Name{"OldDisk", "hda", nullptr}, Name{"CdDrive", "sr0", nullptr},
        Name{"Beginning", "s", nullptr}, Name{"Loop", "loop0", nullptr}),
    support::CaseName());

TEST_F(OldGetStorage, ListsADisksFirstPartitionInsteadOfTheDisk) {
  add_device("sdb", kUsb);
  add_device("sdb1", kUsb);
  add_device("sdb2", kUsb);
  EXPECT_THAT(listed(), ElementsAre(Medium{8, 0, "sdb", "sdb1"}));
}

TEST_F(OldGetStorage, ListsADiskWithoutAFirstPartition) {
  add_device("sdb", kUsb);
  add_device("sdb2", kUsb);
  add_device("sdb11", kUsb);
  add_device("sda1", kUsb);
  EXPECT_THAT(listed(), ElementsAre(Medium{8, 0, "sdb", "sdb"}));
}

TEST_F(OldGetStorage, TakesAPartitionWhoseLinkLeadsNowhereForNone) {
  add_device("sdb", kUsb);
  add_link("sdb1", "../../devices/usb9/sdb1");
  EXPECT_THAT(listed(), ElementsAre(Medium{8, 0, "sdb", "sdb"}));
}

TEST_F(OldGetStorage, AsksForTheRealUserWhetherThereIsAPartition) {
  add_device("sdb", kUsb);
  add_device("sdb1", kUsb);
  ::chmod((std::string(kBlock) + "/sdb1").c_str(), 0700);
  std::string names;
  support::run_for_nobody([&] { names = listed_names(); });
  EXPECT_EQ(names, "sdb");
  EXPECT_EQ(listed_names(), "sdb1");
}

TEST_F(OldGetStorage, LeavesOutWhatHasNoLink) {
  support::put(std::string(kBlock) + "/mtdblock3", "");
  add_device("sda", kUsb);
  EXPECT_EQ(listed_names(), "sda");
  // The partition is there, and so the disk is not looked at.
  support::put(std::string(kBlock) + "/sda1", "");
  EXPECT_EQ(listed_names(), "");
}

// ---- Masks and order ----

class OldGetStorageMask : public StorageTest {
 protected:
  OldGetStorageMask() {
    add_device("sda", kUsb);
    add_device("sdc", kAta1);
    add_device("mmcblk0p4", kMmc0);
    add_device("mmcblk0p3", kMmc0);
    set_port(1, "1-1");
  }
};

TEST_F(OldGetStorageMask, OfZeroIsAllKinds) {
  EXPECT_EQ(listed_names(0), "mmcblk0p3 mmcblk0p4 sdc sda");
  EXPECT_EQ(listed_names(255), "mmcblk0p3 mmcblk0p4 sdc sda");
}

TEST_F(OldGetStorageMask, IsTheKindsToBeListed) {
  EXPECT_EQ(listed_names(STORAGE_TYPE_FLASH), "mmcblk0p3");
  EXPECT_EQ(listed_names(STORAGE_TYPE_DATA), "mmcblk0p4");
  EXPECT_EQ(listed_names(STORAGE_TYPE_EXTERNAL), "sdc");
  EXPECT_EQ(listed_names(STORAGE_TYPE_USB), "sda");
  EXPECT_EQ(listed_names(STORAGE_TYPE_USB | STORAGE_TYPE_FLASH), "mmcblk0p3 sda");
  EXPECT_EQ(listed_names(0xFFFFFFFF), "mmcblk0p3 mmcblk0p4 sdc sda");
}

TEST_F(OldGetStorageMask, OfOtherBitsListsNothing) {
  for (const std::uint32_t mask : {1U, 32U, 64U, 128U, 256U, 0x80000000U, ~30U}) {
    EXPECT_EQ(listed_names(mask), "") << mask;
  }
}

TEST_F(OldGetStorageMask, OfOneKindIsWhatTheListHasOfIt) {
  for (std::uint32_t mask = 0; mask < 32; ++mask) EXPECT_EQ(listed(mask), expected(mask)) << mask;
}

TEST_F(OldGetStorage, IsInTheOrderOfKindAndIndex) {
  const std::vector<std::string> order = {"mtdblock3", "mmcblk1p4", "sdc", "sdd", "sdb", "sda"};
  const std::vector<std::string> places = {kMtd,       kMmc1,        "x/usb7/7",
                                           "x/ata1/1", "x/usb1/1-1", "x/usb1/1-2"};
  set_port(0, "1-1");
  set_port(1, "1-2");
  std::vector<std::size_t> added = {0, 1, 2, 3, 4, 5};
  int count = 0;
  do {
    if (count++ % 37 != 0) continue;
    for (const fs::directory_entry& entry : fs::directory_iterator(kBlock)) fs::remove(entry);
    for (const std::size_t i : added) add_device(order[i], places[i]);
    ASSERT_EQ(listed_names(), "mtdblock3 mmcblk1p4 sdc sdd sdb sda");
  } while (std::next_permutation(added.begin(), added.end()));
  EXPECT_EQ(count, 720);
}

std::string names_in(const char* folder) {
  std::string names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    names += (names.empty() ? "" : " ") + entry.path().filename().string();
  }
  return names;
}

// However the kernel orders a folder, adding the same in both orders gives two lists.
TEST_F(OldGetStorage, HasEqualMediaInTheOrderOfTheirDiscovery) {
  for (const char* const first : {"sdc", "sda"}) {
    for (const fs::directory_entry& entry : fs::directory_iterator(kBlock)) fs::remove(entry);
    add_device(first, kAta1);
    add_device("sdb", kAta2);
    add_device(std::string(first) == "sdc" ? "sda" : "sdc", kAta1);
    const std::string order = names_in(kBlock);
    EXPECT_NE(order, "");
    EXPECT_EQ(listed_names(), order);
  }
}

TEST_F(OldGetStorage, ListsAllPossibleDisks) {
  std::size_t count = 0;
  for (int letter = 1; letter < 256; letter += support::stride()) {
    if (letter == '/') continue;
    add_device(std::string("sd") + static_cast<char>(letter), kUsb);
    ++count;
  }
  EXPECT_EQ(listed().size(), count);
  EXPECT_EQ(listed(), expected());
}

// ---- Sizes ----

constexpr auto kSizeRequest = static_cast<std::uint32_t>(BLKGETSIZE64);

// A disk that tells its size, or fails to.
class OldGetStorageSize : public StorageTest {
 protected:
  OldGetStorageSize() {
    add_device("sda", kUsb);
    add_device("sda1", kUsb);
    add_disk("sda");
  }

  // The size of the only medium while ioctl(2) is answered so.
  static std::uint64_t size_though(const FailingCall& control) {
    std::vector<Medium> media;
    run_with_failing_calls({control}, [&] { media = listed(); });
    EXPECT_EQ(media.size(), 1U);
    return media.empty() ? 1 : media.front().size;
  }

  static std::uint64_t size_told(std::uint64_t size) {
    FailingCall answer = {SystemCall::kControl, 0};
    answer.decide = [size](const support::CallArguments& arguments) -> std::optional<std::int64_t> {
      if (static_cast<std::uint32_t>(arguments[1]) != kSizeRequest) return -EINVAL;
      *support::pointer_to<std::uint64_t>(arguments[2]) = size;
      return 0;
    };
    return size_though(answer);
  }
};

TEST_F(OldGetStorageSize, IsWhatTheDiskTells) {
  for (const std::uint64_t size :
       {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{0xFFFFFFFF}, std::uint64_t{1} << 32,
        std::uint64_t{0x123456789ABCDEF0}, kAllBits - 1}) {
    EXPECT_EQ(size_told(size), size);
  }
}

TEST_F(OldGetStorageSize, IsZeroForADiskThatCannotBeOpened) {
  ::chmod("/dev/sda", 0200);
  std::vector<Medium> media;
  support::run_without_override([&] { media = listed(); });
  EXPECT_THAT(media, ElementsAre(Medium{8, 0, "sda", "sda1", "", 0}));
  fs::remove("/dev/sda");
  EXPECT_THAT(listed(), ElementsAre(Medium{8, 0, "sda", "sda1", "", 0}));
  // That of the partition is not asked.
  add_disk("sda1");
  EXPECT_THAT(listed(), ElementsAre(Medium{8, 0, "sda", "sda1", "", 0}));
}

TEST_F(OldGetStorageSize, IsAllBitsWhereTheDiskDoesNotTell) {
  EXPECT_THAT(listed(), ElementsAre(Medium{8, 0, "sda", "sda1", "", kAllBits}));
  EXPECT_EQ(size_though({SystemCall::kControl, EIO}), kAllBits);
  fs::remove("/dev/sda");
  fs::create_directory("/dev/sda");
  EXPECT_THAT(listed(), ElementsAre(Medium{8, 0, "sda", "sda1", "", kAllBits}));
  fs::remove("/dev/sda");
}

// A failing request may have written something.
TEST_F(OldGetStorageSize, IsAllBitsWhateverAFailureLeaves) {
  FailingCall answer = {SystemCall::kControl, 0};
  answer.decide = [](const support::CallArguments& arguments) -> std::optional<std::int64_t> {
    *support::pointer_to<std::uint64_t>(arguments[2]) = 5;
    return -EIO;
  };
  EXPECT_EQ(size_though(answer), kAllBits);
}

TEST_F(OldGetStorageSize, IsAskedAgainAfterASignal) {
  int calls = 0;
  FailingCall answer = {SystemCall::kControl, 0};
  answer.decide = [&calls](const support::CallArguments& arguments) -> std::optional<std::int64_t> {
    if (++calls < 3) return -EINTR;
    *support::pointer_to<std::uint64_t>(arguments[2]) = 4096;
    return 0;
  };
  EXPECT_EQ(size_though(answer), 4096U);
  EXPECT_EQ(calls, 3);
}

// The folder is opened first, and then the list of mounts.
TEST_F(OldGetStorageSize, IsAskedAfterOpeningTheDiskAgain) {
  std::vector<Medium> media;
  run_with_failing_calls({{SystemCall::kOpen, EINTR, 2, 3}}, [&] { media = listed(); });
  EXPECT_THAT(media, ElementsAre(Medium{8, 0, "sda", "sda1", "", kAllBits}));
}

TEST_F(OldGetStorageSize, IsThatOfADiskThatIsListedDespiteSignals) {
  for (const SystemCall call : {SystemCall::kOpen, SystemCall::kList}) {
    std::vector<Medium> media;
    run_with_failing_calls({{call, EINTR, 0, 2}}, [&] { media = listed(); });
    EXPECT_THAT(media, ElementsAre(Medium{8, 0, "sda", "sda1", "", kAllBits}));
  }
}

TEST_F(OldGetStorageSize, IsAskedOfTheDiskOpenedToBeReadAndCloseOnExec) {
  std::string path;
  int status_flags = -1;
  int descriptor_flags = -1;
  FailingCall answer = {SystemCall::kControl, 0};
  answer.decide = [&](const support::CallArguments& arguments) -> std::optional<std::int64_t> {
    const int disk = static_cast<int>(arguments[0]);
    path = fs::read_symlink("/proc/self/fd/" + std::to_string(disk));
    status_flags = ::fcntl(disk, F_GETFL);
    descriptor_flags = ::fcntl(disk, F_GETFD);
    return 0;
  };
  EXPECT_EQ(size_though(answer), 0U);
  EXPECT_EQ(path, "/dev/sda");
  EXPECT_EQ(status_flags & O_ACCMODE, O_RDONLY);
  EXPECT_EQ(descriptor_flags, FD_CLOEXEC);
}

TEST_F(OldGetStorageSize, IsAskedOfWhatIsListedAlone) {
  int calls = 0;
  FailingCall answer = {SystemCall::kControl, 0};
  answer.decide = [&calls](const support::CallArguments&) -> std::optional<std::int64_t> {
    ++calls;
    return 0;
  };
  std::vector<Medium> media;
  run_with_failing_calls({answer}, [&] { media = listed(STORAGE_TYPE_USB); });
  EXPECT_THAT(media, IsEmpty());
  EXPECT_EQ(calls, 0);
}

// ---- What may run out or come between ----

class OldGetStorageOfThree : public StorageTest {
 protected:
  OldGetStorageOfThree() {
    add_device("sda", kUsb);
    add_device("mmcblk0p4", kMmc0);
    add_device("mtdblock3", kMtd);
    add_disk("sda");
    add_disk("mmcblk0");
    add_disk("mtdblock3");
    proc_.put("mounts", "/dev/sda / tmpfs rw 0 0\n");
  }
};

TEST_F(OldGetStorageOfThree, IsNullWithoutMemoryAndKeepsNone) {
  std::vector<unsigned long> with_a_list;
  with_a_list.reserve(16);  // not among what is counted
  unsigned long nth = 1;
  for (;; ++nth) {
    const long unfreed_before = support::unfreed_count();
    {
      const support::FailingAllocation failing(nth);
      const OwnedList list(old_get_storage(0));
      if (!failing.happened()) {
        EXPECT_EQ(list->count, 3U);
        break;
      }
      if (list != nullptr) {
        EXPECT_EQ(list->count, 0U);
        with_a_list.push_back(nth);
      }
    }
    EXPECT_EQ(support::unfreed_count(), unfreed_before) << nth;
  }
  // The list, the C library's listing of the folder, and the three entries. That the folder cannot
  // be opened is no failure.
  EXPECT_EQ(nth - 1, 5U);
  EXPECT_THAT(with_a_list, ElementsAre(2U));
}

TEST_F(OldGetStorageOfThree, AllocatesTheListAndItsEntries) {
  const long unfreed_before = support::unfreed_count();
  StorageList* const list = old_get_storage(0);
  EXPECT_EQ(support::unfreed_count(), unfreed_before + 4);
  old_free_storage(list);
  EXPECT_EQ(support::unfreed_count(), unfreed_before + 1);
  std::free(list);
  EXPECT_EQ(support::unfreed_count(), unfreed_before);
}

TEST_F(OldGetStorageOfThree, IsAnEmptyListWithoutDescriptors) {
  const support::NoMoreDescriptors none;
  const OwnedList list(old_get_storage(0));
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->count, 0U);
}

TEST_F(OldGetStorageOfThree, NeedsTwoDescriptors) {
  std::vector<Medium> media;
  {
    const support::NoMoreDescriptors none(1);
    media = listed();
  }
  EXPECT_THAT(media, ElementsAre(Medium{2, 0, "mtdblock3", "mtdblock3"},
                                 Medium{4, 0, "mmcblk0", "mmcblk0p4"}, Medium{8, 0, "sda", "sda"}));
  {
    const support::NoMoreDescriptors none(2);
    media = listed();
  }
  EXPECT_EQ(media, expected());
  EXPECT_EQ(media.back().mountpoint, "/");
}

TEST_F(OldGetStorageOfThree, WorksOnASmallStack) {
  std::vector<Medium> media;
  support::run_on_small_stack([&] {
    const OwnedList list(old_get_storage(0));
    EXPECT_EQ(list->count, 3U);
  });
}

TEST_F(OldGetStorageOfThree, FinishesThoughItsThreadIsCancelled) {
  std::string names;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { names = listed_names(); }));
  EXPECT_EQ(names, "mtdblock3 mmcblk0p4 sda");
}

TEST_F(OldGetStorageOfThree, OpensNothingForOtherPrograms) {
  set_port(0, "9-9");
  const std::vector<int> read = support::descriptor_flags_at(SystemCall::kRead, [] { listed(); });
  const std::vector<int> list = support::descriptor_flags_at(SystemCall::kList, [] { listed(); });
  EXPECT_THAT(read, testing::AllOf(testing::SizeIs(testing::Ge(4U)), testing::Each(FD_CLOEXEC)));
  EXPECT_THAT(list, testing::AllOf(Not(IsEmpty()), testing::Each(FD_CLOEXEC)));
}

TEST_F(OldGetStorageOfThree, LeavesReadfilesResultAlone) {
  set_port(0, "9-9");
  set_port(1, "8-8");
  proc_.put("sysinfo/dwhw", "18\n");
  const std::string text = support::in_child([] {
    const char* const result = readfile("/proc/sys/kernel/ostype");
    return listed_names() + ": " + result;
  });
  EXPECT_EQ(text, "mtdblock3 mmcblk0p4 sda: Linux");
}

TEST_F(OldGetStorageOfThree, OverwritesReadfilesResultForTheHardwareTypeOfAnMmcDevice) {
  add_device("mmcblk1p1", kMmc1);
  proc_.put("sysinfo/dwhw", "18\n");
  const std::string text = support::in_child([] {
    const char* const result = readfile("/proc/sys/kernel/ostype");
    listed();
    return std::string(result);
  });
  EXPECT_EQ(text, "18");
}

TEST_F(OldGetStorageOfThree, GivesEachCallItsOwnList) {
  const OwnedList first(old_get_storage(0));
  fs::remove(std::string(kBlock) + "/sda");
  const OwnedList second(old_get_storage(0));
  EXPECT_EQ(first->count, 3U);
  EXPECT_EQ(second->count, 2U);
  EXPECT_EQ(entries_of(first.get()).size(), 3U);
}

// ---- Looking for one ----

class OldGetStorageDevice : public StorageTest {
 protected:
  OldGetStorageDevice() {
    add_device("mtdblock3", kMtd);
    add_device("sda", kAta1);
    add_device("sdb", kAta2);
    add_device("sdc", kUsb);
    add_device("sdd", "x/usb2/2-2");
    set_port(1, "2-2");
    list_.reset(old_get_storage(0));
  }

  std::string partition(std::uint32_t type, std::uint32_t index) {
    const StorageEntry* const entry = old_get_storage_device(list_.get(), type, index);
    return entry == nullptr ? "none" : entry->partition;
  }

  OwnedList list_;
};

TEST_F(OldGetStorageDevice, IsOfThatKindAndIndex) {
  EXPECT_EQ(partition(STORAGE_TYPE_FLASH, 0), "mtdblock3");
  EXPECT_EQ(partition(STORAGE_TYPE_EXTERNAL, 0), "sdc");
  EXPECT_EQ(partition(STORAGE_TYPE_USB, 1), "sdd");
}

TEST_F(OldGetStorageDevice, IsTheFirstOfItsKindAndIndex) {
  const std::vector<StorageEntry*> entries = entries_of(list_.get());
  ASSERT_EQ(entries.size(), 5U);
  EXPECT_EQ(entries[2]->index, 1);
  EXPECT_EQ(entries[3]->index, 1);
  EXPECT_EQ(old_get_storage_device(list_.get(), STORAGE_TYPE_EXTERNAL, 1), entries[2]);
}

TEST_F(OldGetStorageDevice, IsNullForAnyOther) {
  EXPECT_EQ(partition(STORAGE_TYPE_FLASH, 1), "none");
  EXPECT_EQ(partition(STORAGE_TYPE_DATA, 0), "none");
  EXPECT_EQ(partition(STORAGE_TYPE_USB, 0), "none");
  EXPECT_EQ(partition(STORAGE_TYPE_USB, 2), "none");
  EXPECT_EQ(partition(STORAGE_TYPE_EXTERNAL, 0xFFFFFFFF), "none");
  EXPECT_EQ(partition(STORAGE_TYPE_EXTERNAL, 0x10001), "none");
  EXPECT_EQ(partition(0, 0), "none");
}

TEST_F(OldGetStorageDevice, TakesOneKindAndNotSeveral) {
  EXPECT_EQ(partition(STORAGE_TYPE_FLASH | STORAGE_TYPE_EXTERNAL, 0), "none");
  EXPECT_EQ(partition(255, 0), "none");
}

TEST_F(OldGetStorageDevice, IsNullWithoutAList) {
  EXPECT_EQ(old_get_storage_device(nullptr, STORAGE_TYPE_FLASH, 0), nullptr);
}

TEST_F(OldGetStorageDevice, IsNullInAnEmptyList) {
  old_free_storage(list_.get());
  EXPECT_EQ(partition(STORAGE_TYPE_FLASH, 0), "none");
}

// Programs may have an index that is below 0 in an entry of their own.
TEST_F(OldGetStorageDevice, ComparesAnIndexAsItsBits) {
  entries_of(list_.get()).front()->index = -1;
  EXPECT_EQ(partition(STORAGE_TYPE_FLASH, 0xFFFFFFFF), "mtdblock3");
}

// ---- Releasing ----

using OldFreeStorage = OldGetStorageOfThree;

TEST_F(OldFreeStorage, LeavesAnEmptyListThatTheCallerFrees) {
  StorageList* const list = old_get_storage(6);
  ASSERT_EQ(list->count, 2U);
  old_free_storage(list);
  EXPECT_EQ(list->entries.next, &list->entries);
  EXPECT_EQ(list->entries.prev, &list->entries);
  EXPECT_EQ(list->count, 0U);
  EXPECT_EQ(list->typeMask, 6U);
  old_free_storage(list);
  EXPECT_EQ(list->count, 0U);
  std::free(list);
}

TEST_F(OldFreeStorage, TakesNull) { old_free_storage(nullptr); }

}  // namespace
