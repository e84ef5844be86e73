// Where media are mounted, and how full they are.

#include <rkutils/storage.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/statfs.h>
#include <sys/syscall.h>

#include "storage_fixture.h"
#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/run_program.h"

namespace {

namespace fs = std::filesystem;
using support::FailingCall;
using support::run_with_failing_calls;
using support::SystemCall;
using testing::ElementsAre;

// A disk with a first partition, under a name that no kernel gives, so that nothing of the
// machine's own is mounted from it.
class StorageMount : public StorageTest {
 protected:
  StorageMount() {
    add_device("sdQ", kUsb);
    add_device("sdQ1", kUsb);
  }

  // The list of mounts becomes the kernel's, with what is really mounted.
  void see_mounts() const {
    fs::remove(proc_.at("mounts"));
    fs::create_symlink("self/mounts", proc_.at("mounts"));
  }

  void set_mounts(const std::string& lines) const { proc_.put("mounts", lines); }

  static Medium medium() {
    const std::vector<Medium> media = listed();
    EXPECT_EQ(media.size(), 1U);
    EXPECT_EQ(media, expected());
    return media.empty() ? Medium() : media.front();
  }
  static std::string mount_point() { return medium().mountpoint; }
};

// ---- With real mounts ----

class StorageRealMount : public StorageMount {
 protected:
  StorageRealMount() { see_mounts(); }
};

TEST_F(StorageRealMount, IsNoneOfOthers) {
  EXPECT_EQ(medium(), (Medium{8, 0, "sdQ", "sdQ1", "", 0, kAllBits, kAllBits}));
  const Mount disk("/dev/sdQ", "/tmp/disk");
  const Mount second("/dev/sdQ2", "/tmp/second");
  const Mount tenth("/dev/sdQ10", "/tmp/tenth");
  const Mount shorter("sdQ1", "/tmp/shorter");
  const Mount relative("dev/sdQ1", "/tmp/relative");
  const Mount doubled("/dev//sdQ1", "/tmp/doubled");
  const Mount folder("/dev/sdQ1/", "/tmp/folder");
  const Mount beginning("/dev/sdQ", "/dev/sdQ1");
  const Mount empty("", "/tmp/empty");
  const Mount blank(" /dev/sdQ1", "/tmp/blank");
  EXPECT_EQ(medium(), (Medium{8, 0, "sdQ", "sdQ1", "", 0, kAllBits, kAllBits}));
}

TEST_F(StorageRealMount, OfThePartitionIsTold) {
  const Mount other("/dev/sdQ", "/tmp/disk");
  const Mount mount("/dev/sdQ1", "/tmp/stick");
  EXPECT_EQ(medium(), (Medium{8, 0, "sdQ", "sdQ1", "/tmp/stick", 0, Mount::kBytes, Mount::kBytes}));
}

TEST_F(StorageRealMount, OfADiskWithoutPartitionsIsTold) {
  fs::remove(std::string(kBlock) + "/sdQ1");
  const Mount mount("/dev/sdQ", "/tmp/stick");
  EXPECT_EQ(medium(), (Medium{8, 0, "sdQ", "sdQ", "/tmp/stick", 0, Mount::kBytes, Mount::kBytes}));
}

TEST_F(StorageRealMount, EndsWithBeingMounted) {
  {
    const Mount mount("/dev/sdQ1", "/tmp/stick");
    EXPECT_EQ(mount_point(), "/tmp/stick");
  }
  EXPECT_EQ(mount_point(), "");
}

TEST_F(StorageRealMount, TellsWhatIsUsed) {
  const Mount mount("/dev/sdQ1", "/tmp/stick");
  support::put("/tmp/stick/file", std::string(300000, 'x'));
  const Medium full = medium();
  EXPECT_EQ(full.total, Mount::kBytes);
  EXPECT_EQ(full.available, Mount::kBytes - 303104);  // whole pages of 4096 bytes
  const std::string told = support::run_program({"df", "-P", "-k", "/tmp/stick"}).output;
  EXPECT_THAT(told, testing::ContainsRegex("/dev/sdQ1 +1024 +296 +728 +29% /tmp/stick\n"));
}

TEST_F(StorageRealMount, IsTheFirstOfTwo) {
  const Mount first("/dev/sdQ1", "/tmp/b");
  const Mount second("/dev/sdQ1", "/tmp/a");
  EXPECT_EQ(mount_point(), "/tmp/b");
}

std::string folder_of_length(std::size_t length) {
  const std::string begin = "/tmp/";
  return begin + std::string(length - begin.size(), 'f');
}

TEST_F(StorageRealMount, MayHave63Characters) {
  const Mount mount("/dev/sdQ1", folder_of_length(63));
  EXPECT_EQ(mount_point(), folder_of_length(63));
  EXPECT_EQ(medium().total, Mount::kBytes);
}

TEST_F(StorageRealMount, IsPassedOverFrom64Characters) {
  const Mount mount("/dev/sdQ1", folder_of_length(64));
  const Mount longer("/dev/sdQ1", folder_of_length(200));
  EXPECT_EQ(medium(), (Medium{8, 0, "sdQ", "sdQ1"}));
  const Mount next("/dev/sdQ1", "/tmp/next");
  EXPECT_EQ(mount_point(), "/tmp/next");
}

TEST_F(StorageRealMount, OnTheOverlayIsTheRoot) {
  const Mount mount("/dev/sdQ1", "/overlay");
  const Medium overlay = medium();
  EXPECT_EQ(overlay.mountpoint, "/");
  struct statfs root = {};
  ASSERT_EQ(::statfs("/", &root), 0);
  EXPECT_EQ(overlay.total, std::uint64_t{root.f_blocks} * static_cast<std::uint64_t>(root.f_bsize));
  EXPECT_NE(overlay.total, Mount::kBytes);
}

TEST_F(StorageRealMount, OnTheOverlayMeansThatFolderAlone) {
  for (const char* const folder : {"/overlay2", "/tmp/overlay", "/overla"}) {
    const Mount mount("/dev/sdQ1", folder);
    EXPECT_EQ(mount_point(), folder);
  }
  {
    const Mount outer("tmpfs", "/overlay");
    const Mount mount("/dev/sdQ1", "/overlay/x");
    EXPECT_EQ(mount_point(), "/overlay/x");
  }
}

// As it was mounted first.
TEST_F(StorageRealMount, OnTheOverlayComesInItsTurn) {
  const Mount mount("/dev/sdQ1", "/tmp/stick");
  const Mount overlay("/dev/sdQ1", "/overlay");
  EXPECT_EQ(mount_point(), "/tmp/stick");
}

TEST_F(StorageRealMount, StandsAsTheKernelWritesIt) {
  const struct {
    const char* folder;
    const char* written;
  } kCases[] = {{"/tmp/a b", "/tmp/a\\040b"},
                {"/tmp/a\tb", "/tmp/a\\011b"},
                {"/tmp/a\nb", "/tmp/a\\012b"},
                {"/tmp/a\\b", "/tmp/a\\134b"},
                {"/tmp/ ", "/tmp/\\040"}};
  for (const auto& [folder, written] : kCases) {
    const Mount mount("/dev/sdQ1", folder);
    EXPECT_EQ(medium(), (Medium{8, 0, "sdQ", "sdQ1", written, 0, kAllBits, kAllBits}));
  }
}

TEST_F(StorageRealMount, MayHoldAnyOtherBytes) {
  const Mount mount("/dev/sdQ1", "/tmp/\xc3\xa4:=,%s\x01");
  EXPECT_EQ(mount_point(), "/tmp/\xc3\xa4:=,%s\x01");
  EXPECT_EQ(medium().total, Mount::kBytes);
}

// What the name reaches now counts, as it does for df.
TEST_F(StorageRealMount, HasTheUsageOfWhatLiesOverIt) {
  const Mount mount("/dev/sdQ1", "/tmp/stick");
  ASSERT_EQ(::mount("cover", "/tmp/stick", "tmpfs", 0, "size=2m"), 0);
  EXPECT_EQ(medium().total, 2 * Mount::kBytes);
  ::umount2("/tmp/stick", MNT_DETACH);
  EXPECT_EQ(medium().total, Mount::kBytes);
}

// An overlay tells its layers, so that its line is as long as their names.
TEST_F(StorageRealMount, WithALongLineIsPassedOver) {
  const std::string layers = "/tmp/" + std::string(100, 'l') + "/" + std::string(100, 'm');
  fs::create_directories(layers + "/lower");
  fs::create_directories(layers + "/more");
  fs::create_directory("/tmp/stick");
  const std::string options = "lowerdir=" + layers + "/lower:" + layers + "/more";
  ASSERT_EQ(::mount("/dev/sdQ1", "/tmp/stick", "overlay", MS_RDONLY, options.c_str()), 0);
  EXPECT_EQ(mount_point(), "");
  {
    const Mount next("/dev/sdQ1", "/tmp/next");
    EXPECT_EQ(mount_point(), "/tmp/next");
  }
  ::umount2("/tmp/stick", MNT_DETACH);
  fs::remove("/tmp/stick");
  fs::remove_all("/tmp/" + std::string(100, 'l'));
}

TEST_F(StorageRealMount, IsFoundAmongMany) {
  std::vector<std::unique_ptr<Mount>> others;
  others.reserve(100);
  for (int i = 0; i < 100; ++i) {
    others.push_back(
        std::make_unique<Mount>("/dev/sdR" + std::to_string(i), "/tmp/other" + std::to_string(i)));
  }
  const Mount mount("/dev/sdQ1", "/tmp/stick");
  EXPECT_EQ(mount_point(), "/tmp/stick");
  while (!others.empty()) others.pop_back();
}

TEST_F(StorageRealMount, IsEachMediumsOwn) {
  add_device("mtdblock3", kMtd);
  add_device("mmcblk0p4", kMmc0);
  const Mount data("/dev/mmcblk0p4", "/tmp/data");
  const Mount stick("/dev/sdQ1", "/tmp/stick");
  const std::vector<Medium> media = listed(STORAGE_TYPE_DATA | STORAGE_TYPE_EXTERNAL);
  ASSERT_EQ(media.size(), 2U);
  EXPECT_EQ(media[0].mountpoint, "/tmp/data");
  EXPECT_EQ(media[1].mountpoint, "/tmp/stick");
}

// ---- With lists of the test's own ----

struct Lines {
  const char* name;
  std::string text;
  const char* mount_point;
};

class StorageMountLine : public StorageMount, public testing::WithParamInterface<Lines> {};

TEST_P(StorageMountLine, TellsTheMountPoint) {
  set_mounts(GetParam().text);
  EXPECT_EQ(listed().at(0).mountpoint, GetParam().mount_point);
}

// A line of that length, its line feed included, about the disk.
std::string long_line(std::size_t length) {
  const std::string begin = "/dev/sdQ1 /a tmpfs ";
  return begin + std::string(length - begin.size() - 1, 'o') + "\n";
}

// A line that is too long, with this text behind the 256 bytes that tell.
std::string cut_line(const std::string& rest) { return std::string(256, 'x') + rest + "\n"; }

constexpr char kOther[] = "/dev/sdQ1 /b tmpfs rw 0 0\n";

INSTANTIATE_TEST_SUITE_P(
    Cases, StorageMountLine,
    testing::Values(
        Lines{"Plain", "/dev/sdQ1 /a tmpfs rw 0 0\n", "/a"},
        Lines{"Second", "tmpfs /t tmpfs rw 0 0\n/dev/sdQ1 /a tmpfs rw 0 0\n", "/a"},
        Lines{"NoLineFeed", "tmpfs /t tmpfs rw 0 0\n/dev/sdQ1 /a tmpfs rw 0 0", "/a"},
        Lines{"TwoFields", "/dev/sdQ1 /a\n", "/a"},
        Lines{"TwoFieldsAtTheEnd", "/dev/sdQ1 /a", "/a"}, Lines{"OneField", "/dev/sdQ1\n", ""},
        Lines{"OneFieldAtTheEnd", "/dev/sdQ1", ""}, Lines{"OneFieldAndASpace", "/dev/sdQ1 \n", ""},
        Lines{"EmptySecondField", "/dev/sdQ1  /a tmpfs\n", ""},
        Lines{"SpaceBefore", " /dev/sdQ1 /a tmpfs\n", ""},
        Lines{"Tabs", "/dev/sdQ1\t/a\ttmpfs\n", ""},
        Lines{"TabInTheSecond", "/dev/sdQ1 /a\t/b tmpfs\n", "/a\t/b"},
        Lines{"OtherFieldsOfItsName", "tmpfs /dev/sdQ1 /dev/sdQ1 /dev/sdQ1 0 0\n", ""},
        Lines{"Longer", "/dev/sdQ12 /a tmpfs\n", ""}, Lines{"Shorter", "/dev/sdQ /a tmpfs\n", ""},
        Lines{"NoFolder", "sdQ1 /a tmpfs\n", ""}, Lines{"OtherFolder", "/sys/sdQ1 /a tmpfs\n", ""},
        Lines{"FolderAlone", "/dev/ /a tmpfs\n", ""}, Lines{"OtherCase", "/dev/sdq1 /a t\n", ""},
        Lines{"BlankLines", "\n\n/dev/sdQ1 /a tmpfs\n", "/a"},
        Lines{"Overlay", "/dev/sdQ1 /overlay tmpfs\n", "/"},
        Lines{"OverlayAtTheEnd", "/dev/sdQ1 /overlay", "/"},
        Lines{"254Bytes", long_line(254) + kOther, "/a"},
        Lines{"255Bytes", long_line(255) + kOther, "/a"},
        Lines{"256Bytes", long_line(256) + kOther, "/b"},
        Lines{"257Bytes", long_line(257) + kOther, "/b"},
        Lines{"510Bytes", long_line(510) + kOther, "/b"},
        Lines{"511Bytes", long_line(511) + kOther, "/b"},
        Lines{"OneOf10000Bytes", long_line(10000), ""},
        Lines{"254BytesAtTheEnd", long_line(255).substr(0, 254), "/a"},
        Lines{"255BytesAtTheEnd", long_line(256).substr(0, 255), "/a"},
        Lines{"256BytesAtTheEnd", long_line(257).substr(0, 256), ""},
        Lines{"300BytesAtTheEnd", long_line(301).substr(0, 300), ""},
        Lines{"RestOfALongLine", cut_line("/dev/sdQ1 /a tmpfs"), ""},
        Lines{"RestBehindWhatMayBeALine", std::string(255, 'x') + "/dev/sdQ1 /a tmpfs\n", ""},
        Lines{"SecondRestOfALongLine", cut_line(cut_line("/dev/sdQ1 /a tmpfs")), ""},
        Lines{"BehindALongLine", cut_line("x") + kOther, "/b"},
        Lines{"BehindTwoLongLines", cut_line("") + cut_line("y") + kOther, "/b"},
        Lines{"63Characters", "/dev/sdQ1 /" + std::string(62, 'a') + " tmpfs\n",
              "/aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"},
        Lines{"64Characters", "/dev/sdQ1 /" + std::string(63, 'a') + " tmpfs\n" + kOther, "/b"},
        Lines{"Nul", std::string("tm\0pfs\n", 7) + kOther, "/b"},
        Lines{"NulAtTheBeginning", std::string("\0tmpfs\n", 7) + kOther, "/b"}),
    support::CaseName());

TEST_F(StorageMount, IsNoneWithoutAList) {
  fs::remove(proc_.at("mounts"));
  EXPECT_EQ(medium(), (Medium{8, 0, "sdQ", "sdQ1"}));
  proc_.make_folder("mounts");
  EXPECT_EQ(listed().at(0), (Medium{8, 0, "sdQ", "sdQ1"}));
}

TEST_F(StorageMount, IsNoneWhereTheListCannotBeRead) {
  set_mounts(kOther);
  std::vector<Medium> media;
  run_with_failing_calls({{SystemCall::kRead, EIO}}, [&] { media = listed(); });
  EXPECT_THAT(media, ElementsAre(Medium{8, 0, "sdQ", "sdQ1"}));
}

TEST_F(StorageMount, IsReadAgainAfterASignal) {
  set_mounts(kOther);
  std::vector<Medium> media;
  run_with_failing_calls({{SystemCall::kRead, EINTR, 0, 3}}, [&] { media = listed(); });
  EXPECT_EQ(media.at(0).mountpoint, "/b");
  // The folder of block devices is opened first.
  run_with_failing_calls({{SystemCall::kOpen, EINTR, 1, 3}}, [&] { media = listed(); });
  EXPECT_EQ(media.at(0).mountpoint, "/b");
}

// ---- Usage ----

// What statfs(2) answers, and how it was asked.
#ifdef SYS_statfs64
constexpr std::size_t kUsageArgument = 2;  // behind the record's size
#else
constexpr std::size_t kUsageArgument = 1;
#endif

class StorageUsage : public StorageMount {
 protected:
  StorageUsage() { set_mounts("/dev/sdQ1 / tmpfs rw 0 0\n"); }

  static Medium medium_though(const FailingCall& usage) {
    std::vector<Medium> media;
    run_with_failing_calls({usage}, [&] { media = listed(); });
    EXPECT_EQ(media.size(), 1U);
    return media.empty() ? Medium() : media.front();
  }

  static Medium medium_of(const std::function<void(struct statfs&)>& fill) {
    FailingCall answer = {SystemCall::kFileSystemUsage, 0};
    answer.decide = [&](const support::CallArguments& arguments) -> std::optional<std::int64_t> {
      EXPECT_STREQ(support::pointer_to<char>(arguments[0]), "/");
      auto& usage = *support::pointer_to<struct statfs>(arguments[kUsageArgument]);
      usage = {};
      fill(usage);
      return 0;
    };
    return medium_though(answer);
  }
};

TEST_F(StorageUsage, IsBlocksOfTheBlockSize) {
  const Medium medium = medium_of([](struct statfs& usage) {
    usage.f_bsize = 8192;
    usage.f_frsize = 512;
    usage.f_blocks = 1000;
    usage.f_bfree = 900;
    usage.f_bavail = 800;
  });
  EXPECT_EQ(medium.total, 8192000U);
  EXPECT_EQ(medium.available, 6553600U);
}

TEST_F(StorageUsage, MayBeAboveFourGigabytes) {
  const Medium medium = medium_of([](struct statfs& usage) {
    usage.f_bsize = 4096;
    usage.f_blocks = 0x40000001;
    usage.f_bavail = 0x3FFFFFFF;
  });
  EXPECT_EQ(medium.total, std::uint64_t{0x40000001000});
  EXPECT_EQ(medium.available, std::uint64_t{0x3FFFFFFF000});
}

TEST_F(StorageUsage, MayHaveMoreThanFourThousandMillionBlocks) {
  const Medium medium = medium_of([](struct statfs& usage) {
    usage.f_bsize = 512;
    usage.f_blocks = 0x100000003;
    usage.f_bavail = 0x100000001;
  });
  EXPECT_EQ(medium.total, std::uint64_t{0x20000000600});
  EXPECT_EQ(medium.available, std::uint64_t{0x20000000200});
}

TEST_F(StorageUsage, MayBeNothing) {
  const Medium medium = medium_of([](struct statfs& usage) { usage.f_bsize = 4096; });
  EXPECT_EQ(medium.total, 0U);
  EXPECT_EQ(medium.available, 0U);
}

TEST_F(StorageUsage, IsUnknownWhenItCannotBeTold) {
  EXPECT_EQ(medium_though({SystemCall::kFileSystemUsage, EIO}),
            (Medium{8, 0, "sdQ", "sdQ1", "/", 0, kAllBits, kAllBits}));
  set_mounts("/dev/sdQ1 /tmp/missing tmpfs rw 0 0\n");
  EXPECT_EQ(medium(), (Medium{8, 0, "sdQ", "sdQ1", "/tmp/missing", 0, kAllBits, kAllBits}));
}

TEST_F(StorageUsage, IsAskedAgainAfterASignal) {
  const Medium medium = medium_though({SystemCall::kFileSystemUsage, EINTR, 0, 3});
  EXPECT_NE(medium.total, kAllBits);
  EXPECT_EQ(medium.total, expected().at(0).total);
}

TEST_F(StorageUsage, IsNotAskedForWhatIsNotMounted) {
  set_mounts("");
  int calls = 0;
  FailingCall answer = {SystemCall::kFileSystemUsage, 0};
  answer.decide = [&calls](const support::CallArguments&) -> std::optional<std::int64_t> {
    ++calls;
    return 0;
  };
  EXPECT_EQ(medium_though(answer), (Medium{8, 0, "sdQ", "sdQ1"}));
  EXPECT_EQ(calls, 0);
}

}  // namespace
