// copy_file() and copy_directory().

#include <rkutils/file.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "file_fixture.h"
#include "support/allocation_faults.h"
#include "support/failing_calls.h"
#include "support/open_descriptors.h"
#include "support/rounds.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using support::SystemCall;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

// Text without a period that a cut or a repeated piece could hide in.
std::string varied_text(std::size_t length) {
  std::string text(length, '\0');
  std::uint32_t state = 1;
  for (char& byte : text) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<char>(state >> 24);
  }
  return text;
}

class CopyFile : public FileTest {
 protected:
  int copy(const std::string& source, const std::string& destination) {
    return copy_file(at(source).c_str(), at(destination).c_str());
  }
};

TEST_F(CopyFile, CopiesTheContentsAndNotTheMode) {
  put(at("one"), "text");
  ::chmod(at("one").c_str(), 0700);
  EXPECT_EQ(copy("one", "two"), 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("one", "file 700 text"), Pair("two", "file 644 text")));
}

TEST_F(CopyFile, CreatesWithMode0666LessTheUmask) {
  put(at("one"), "text");
  ::umask(0);
  EXPECT_EQ(copy("one", "two"), 0);
  EXPECT_EQ(mode_of(at("two")), 0666U);
}

TEST_F(CopyFile, ReplacesTheContentsOfAFile) {
  put(at("one"), "text");
  put(at("two"), "a longer text");
  ::chmod(at("two").c_str(), 0600);
  EXPECT_EQ(copy("one", "two"), 0);
  EXPECT_EQ(tree().at("two"), "file 600 text");
}

class CopyFileSize : public FileTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(CopyFileSize, IsCopiedWhole) {
  const std::string text = varied_text(GetParam());
  put(at("one"), text);
  make_folders(at("disk"));
  ASSERT_EQ(::mount("tmpfs", at("disk").c_str(), "tmpfs", 0, nullptr), 0);
  int same_disk = -1;
  int other_disk = -1;
  support::run_on_small_stack([&] {
    same_disk = copy_file(at("one").c_str(), at("two").c_str());
    other_disk = copy_file(at("one").c_str(), at("disk/two").c_str());
  });
  EXPECT_EQ(same_disk, 0);
  EXPECT_EQ(other_disk, 0);
  EXPECT_TRUE(contents_of(at("two")) == text);
  EXPECT_TRUE(contents_of(at("disk/two")) == text);
  ::umount2(at("disk").c_str(), MNT_DETACH);
}

INSTANTIATE_TEST_SUITE_P(Edges, CopyFileSize,
                         testing::Values(0, 1, 1023, 1024, 1025, 16383, 16384, 16385, 1000000,
                                         std::max(2000000, support::rounds(20000000))));

TEST_F(CopyFile, ReadsFilesThatTheKernelMakesUp) {
  EXPECT_EQ(copy_file("/proc/filesystems", at("two").c_str()), 0);
  EXPECT_EQ(contents_of(at("two")), contents_of("/proc/filesystems"));
}

TEST_F(CopyFile, ReadsFilesThatHoldLessThanTheySay) {
  const std::string source = "/sys/kernel/fscaps";  // says 4096 bytes
  if (!exists(source)) GTEST_SKIP() << "this kernel has no " << source;
  EXPECT_EQ(copy_file(source.c_str(), at("two").c_str()), 0);
  EXPECT_EQ(contents_of(at("two")), contents_of(source));
}

TEST_F(CopyFile, CopiesALargeFileFromAnotherKindOfDisk) {
  const std::string source = std::filesystem::read_symlink("/proc/self/exe");
  EXPECT_EQ(copy_file(source.c_str(), at("two").c_str()), 0);
  EXPECT_TRUE(contents_of(at("two")) == contents_of(source));
}

TEST_F(CopyFile, CopiesALargeFileThatTheKernelMakesUp) {
  // These say what they hold; the one describes the kernel's types, the other an ARM board.
  std::string source = "/sys/kernel/btf/vmlinux";
  if (!exists(source)) source = "/sys/firmware/fdt";
  if (!exists(source)) GTEST_SKIP() << "this kernel has no such file";
  EXPECT_EQ(copy_file(source.c_str(), at("two").c_str()), 0);
  EXPECT_TRUE(contents_of(at("two")) == contents_of(source));
}

TEST_F(CopyFile, FollowsLinksAtBothEnds) {
  put(at("one"), "text");
  make_link("one", at("from"));
  make_link("two", at("to"));
  EXPECT_EQ(copy("from", "to"), 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("from", "link one"), Pair("one", "file 644 text"),
                                  Pair("to", "link two"), Pair("two", "file 644 text")));
}

TEST_F(CopyFile, CreatesTheFolderOfTheDestination) {
  put(at("one"), "text");
  EXPECT_EQ(copy("one", "a/b/two"), 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("a", "dir 555"), Pair("a/b", "dir 555"),
                                  Pair("a/b/two", "file 644 text"), Pair("one", "file 644 text")));
}

TEST_F(CopyFile, MakesADirectoryOfWhatIsInItsFoldersPlace) {
  put(at("one"), "text");
  put(at("file"), "text");
  make_link("nowhere", at("dangling"));
  make_fifo(at("fifo"));
  for (const std::string name : {"file", "dangling", "fifo"}) {
    EXPECT_EQ(copy("one", name + "/two"), 0);
    EXPECT_EQ(tree().at(name), "dir 555");
    EXPECT_EQ(contents_of(at(name + "/two")), "text");
  }
}

TEST_F(CopyFile, LooksThroughALinkToItsFolder) {
  put(at("one"), "text");
  make_folders(at("folder"));
  make_link("folder", at("link"));
  EXPECT_EQ(copy("one", "link/two"), 0);
  EXPECT_EQ(tree().at("link"), "link folder");
  EXPECT_EQ(contents_of(at("folder/two")), "text");
}

TEST_F(CopyFile, TakesRelativePaths) {
  std::filesystem::current_path(folder_);
  put("one", "text");
  EXPECT_EQ(copy_file("one", "two"), 0);
  EXPECT_EQ(copy_file("./two", "a/three"), 0);
  EXPECT_EQ(contents_of("a/three"), "text");
}

TEST_F(CopyFile, WithoutASourceHasMadeTheFolderAndNothingElse) {
  EXPECT_EQ(copy("missing", "a/two"), -1);
  EXPECT_THAT(tree(), ElementsAre(Pair("a", "dir 555")));
}

TEST_F(CopyFile, FailsWhereTheSourceIsNotReadable) {
  put(at("one"), "text");
  ::chmod(at("one").c_str(), 0200);
  int result = 0;
  run_without_override([&] { result = copy("one", "two"); });
  EXPECT_EQ(result, -1);
  EXPECT_FALSE(exists(at("two")));
}

TEST_F(CopyFile, FailsWhereTheDestinationCannotBeOpened) {
  put(at("one"), "text");
  make_folders(at("folder"));
  EXPECT_EQ(copy("one", "folder"), -1);
  EXPECT_EQ(copy("one", "folder/"), -1);
  EXPECT_EQ(copy("one", "1/2/3/4/5/6/7/8/9/10/11/two"), -1);
  make_folders(at("disk"));
  TinyDisk disk(at("disk"));
  disk.make_read_only();
  EXPECT_EQ(copy("one", "disk/two"), -1);
  EXPECT_EQ(copy("one", "disk/a/two"), -1);
}

TEST_F(CopyFile, RefusesNullAndEmptyPaths) {
  put(at("one"), "text");
  const std::string one = at("one");
  const std::string two = at("a/two");
  EXPECT_EQ(copy_file(nullptr, two.c_str()), -1);
  EXPECT_EQ(copy_file("", two.c_str()), -1);
  EXPECT_EQ(copy_file(one.c_str(), nullptr), -1);
  EXPECT_EQ(copy_file(one.c_str(), ""), -1);
  EXPECT_THAT(tree(), ElementsAre(Pair("one", "file 644 text")));
}

TEST_F(CopyFile, DoesNotTellOfAFullDisk) {
  make_folders(at("disk"));
  const TinyDisk disk(at("disk"));
  for (const std::size_t size : {TinyDisk::kSize + 1, std::size_t{1000000}}) {
    const std::string text = varied_text(size);
    put(at("one"), text);
    EXPECT_EQ(copy("one", "disk/two"), 0);
    const std::string copied = contents_of(at("disk/two"));
    EXPECT_EQ(copied.size(), TinyDisk::kSize);
    EXPECT_TRUE(copied == text.substr(0, copied.size()));
  }
  put(at("small"), "text");
  EXPECT_EQ(copy("small", "disk/three"), 0);
  EXPECT_EQ(contents_of(at("disk/three")), "");
}

TEST_F(CopyFile, CopiesADirectoryAsAnEmptyFile) {
  make_folders(at("folder/a"));
  EXPECT_EQ(copy("folder", "two"), 0);
  EXPECT_EQ(tree().at("two"), "file 644 ");
}

TEST_F(CopyFile, WaitsForAFifosWriter) {
  make_fifo(at("fifo"));
  std::thread writer([&] { put(at("fifo"), varied_text(100000)); });
  EXPECT_EQ(copy("fifo", "two"), 0);
  writer.join();
  EXPECT_TRUE(contents_of(at("two")) == varied_text(100000));
}

TEST_F(CopyFile, OntoItselfIsRefusedAndChangesNothing) {
  put(at("one"), "text");
  make_folders(at("folder"));
  make_link("one", at("link"));
  ASSERT_EQ(::link(at("one").c_str(), at("hard").c_str()), 0);
  const Tree before = tree();
  for (const char* name : {"one", "link", "hard", "./one", "folder/../one"}) {
    EXPECT_EQ(copy("one", name), -1) << name;
    EXPECT_EQ(copy(name, "one"), -1) << name;
  }
  EXPECT_EQ(tree(), before);
}

// Making a directory of the source would lose it.
TEST_F(CopyFile, IntoItselfIsRefusedAndChangesNothing) {
  put(at("one"), "text");
  make_link("one", at("link"));
  make_folders(at("folder/a"));
  make_link("folder/a", at("inside"));
  const Tree before = tree();
  EXPECT_EQ(copy("one", "one/two"), -1);
  EXPECT_EQ(copy("one", "one/a/b/two"), -1);
  EXPECT_EQ(copy("one", "link/two"), -1);
  EXPECT_EQ(copy("link", "link/two"), -1);
  EXPECT_EQ(copy("folder", "folder/two"), -1);
  EXPECT_EQ(copy("folder", "folder/a/b/c/two"), -1);
  EXPECT_EQ(copy("folder", "inside/two"), -1);
  EXPECT_EQ(tree(), before);
}

// What is missing before the ".." would be made, and then the path would lead to the source.
TEST_F(CopyFile, ToAPathThatGoesUpFromAMissingFolderIsRefusedAndChangesNothing) {
  put(at("one"), "text");
  put(at("file"), "text");
  make_folders(at("folder/a"));
  make_link("folder/a", at("link"));
  const Tree before = tree();
  EXPECT_EQ(copy("one", "missing/../one"), -1);
  EXPECT_EQ(copy("one", "missing/../one/two"), -1);
  EXPECT_EQ(copy("one", "missing/a/./../../one/two"), -1);
  EXPECT_EQ(copy("one", "file/../one/two"), -1);
  EXPECT_EQ(copy("one", "link/../one/two"), -1);  // the link would become a directory
  EXPECT_EQ(copy("folder", "missing/../folder/two"), -1);
  std::filesystem::current_path(folder_);
  EXPECT_EQ(copy_file("one", "missing/../one"), -1);
  EXPECT_EQ(copy_file("one", "missing/../one/two"), -1);
  EXPECT_EQ(tree(), before);
}

TEST_F(CopyFile, ToAPathThatGoesUpFromWhatIsThereIsAllowed) {
  put(at("one"), "text");
  make_folders(at("folder/a"));
  make_link("folder/a", at("link"));
  EXPECT_EQ(copy("one", "folder/a/../b/two"), 0);
  EXPECT_EQ(copy("one", "link/../two"), 0);
  EXPECT_EQ(contents_of(at("folder/b/two")), "text");
  EXPECT_EQ(contents_of(at("folder/two")), "text");
  EXPECT_EQ(tree().at("link"), "link folder/a");
}

TEST_F(CopyFile, OfADirectoryThroughALinkIntoItIsRefusedAndChangesNothing) {
  make_folders(at("folder/a"));
  make_folders(at("other"));
  make_link("folder/new", at("link"));
  make_link("../link", at("other/link to link"));
  make_link(at("folder/a/new"), at("absolute"));
  make_link("loop", at("loop"));
  const Tree before = tree();
  for (const char* name : {"link", "other/link to link", "absolute", "loop"}) {
    EXPECT_EQ(copy("folder", name), -1) << name;
  }
  EXPECT_EQ(tree(), before);
  put(at("one"), "text");
  EXPECT_EQ(copy("one", "other/link to link"), 0);
  EXPECT_EQ(contents_of(at("folder/new")), "text");
}

TEST_F(CopyFile, UnlinksWhatIsInItsFoldersPlaceAlsoBehindALink) {
  make_folders(at("folder"));
  put(at("folder/file"), "text");
  put(at("one"), "1");
  make_link("folder", at("link"));
  EXPECT_EQ(copy("one", "link/file/two"), 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("folder", "dir 755"), Pair("link", "dir 555"),
                                  Pair("link/file", "dir 555"), Pair("link/file/two", "file 644 1"),
                                  Pair("one", "file 644 1")));
}

// The kernel's ways to copy are left where they do not work.
TEST_F(CopyFile, CopiesWholeWhereTheKernelCannotOrGivesNothing) {
  const std::string text = varied_text(100000);
  put(at("one"), text);
  for (const int range : {EXDEV, ENOSYS, 0}) {
    for (const int sendfile : {EINVAL, 0}) {
      int result = -1;
      support::run_with_failing_calls(
          {{SystemCall::kCopyRange, range}, {SystemCall::kSendfile, sendfile}},
          [&] { result = copy("one", "two"); });
      EXPECT_EQ(result, 0);
      EXPECT_TRUE(contents_of(at("two")) == text) << range << " " << sendfile;
      std::filesystem::remove(at("two"));
    }
  }
}

TEST_F(CopyFile, LetsTheKernelCopyFromOneDiskToAnother) {
  const std::string text = varied_text(100000);
  put(at("one"), text);
  int result = -1;
  support::run_with_failing_calls({{SystemCall::kCopyRange, EXDEV}, {SystemCall::kRead, EIO}},
                                  [&] { result = copy("one", "two"); });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(contents_of(at("two")) == text);
}

TEST_F(CopyFile, GoesOnInTheKernelAfterAnInterruption) {
  const std::string text = varied_text(100000);
  put(at("one"), text);
  int result = -1;
  support::run_with_failing_calls({{SystemCall::kCopyRange, EINTR, 0, 1},
                                   {SystemCall::kSendfile, EIO},
                                   {SystemCall::kRead, EIO}},
                                  [&] { result = copy("one", "two"); });
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(contents_of(at("two")) == text);
}

// A FIFO takes what it has room for at once: a portion that is followed by a failure.
TEST_F(CopyFile, GoesOnWhereTheKernelFailsOrIsInterruptedAfterAPortion) {
  const std::string text = varied_text(300000);
  put(at("one"), text);
  make_fifo(at("fifo"));
  for (const int error : {EIO, EINTR}) {
    std::string received;
    std::thread reader([&] { received = contents_of(at("fifo")); });
    int result = -1;
    bool failed = false;
    support::run_with_failing_calls({{SystemCall::kSendfile, error, 1, 1, [&] { failed = true; }}},
                                    [&] { result = copy("one", "fifo"); });
    reader.join();
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(failed);
    EXPECT_TRUE(received == text) << error;
  }
}

// While the copy waits for a FIFO's data, all that it has open is there to be seen.
TEST_F(CopyFile, CopiesThoughCancelled) {
  for (const std::size_t size : {3U, 100000U}) {  // by hand, and in the kernel
    put(at("from"), std::string(size, 'x'));
    int result = -1;
    EXPECT_TRUE(support::finishes_though_cancelled(
        [&] { result = copy_file(at("from").c_str(), at("new/to").c_str()); }));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(contents_of(at("new/to")), std::string(size, 'x'));
  }
}

class CopyDescriptors : public FileTest {
 protected:
  template <typename Copy>
  static void expect_closed_on_exec(const std::string& fifo, std::size_t count, Copy copy) {
    make_fifo(fifo);
    const auto before = support::open_descriptors();
    int result = -1;
    std::thread copier([&] { result = copy(); });
    const int writer = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    std::map<int, std::string> open;
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (open.size() < count && std::chrono::steady_clock::now() < give_up) {
      open = support::open_descriptors();
      open.erase(writer);
      for (const auto& [descriptor, target] : before) open.erase(descriptor);
    }
    EXPECT_EQ(open.size(), count);
    for (const auto& [descriptor, target] : open) {
      EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << target;
    }
    ::close(writer);
    copier.join();
    EXPECT_EQ(result, 0);
  }
};

TEST_F(CopyDescriptors, OfAFileAreClosedOnExec) {
  expect_closed_on_exec(at("fifo"), 2,
                        [&] { return copy_file(at("fifo").c_str(), at("two").c_str()); });
}

TEST_F(CopyDescriptors, OfATreeAreClosedOnExec) {
  make_folders(at("from/a/b"));
  // Three levels on each side, and the file.
  expect_closed_on_exec(at("from/a/b/fifo"), 8,
                        [&] { return copy_directory(at("from").c_str(), at("to").c_str()); });
}

TEST_F(CopyFile, TakesPathsOf4095BytesAndNoLonger) {
  const std::string longest = path_of_length(folder_, 4095);
  const std::string folder = longest.substr(0, longest.rfind('/'));
  make_folders(folder);
  put(at("one"), "text");
  int result = -1;
  support::run_on_small_stack([&] { result = copy_file(at("one").c_str(), longest.c_str()); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(contents_of(longest), "text");
  EXPECT_EQ(copy_file(longest.c_str(), at("two").c_str()), 0);
  EXPECT_EQ(contents_of(at("two")), "text");
  const Tree before = tree();
  EXPECT_EQ(copy_file(at("one").c_str(), (longest + "e").c_str()), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(copy_file((longest + "e").c_str(), at("three").c_str()), -1);
  EXPECT_EQ(tree(), before);
}

TEST_F(CopyFile, WithoutADescriptorFails) {
  put(at("one"), "text");
  const std::string one = at("one");
  const std::string two = at("two");
  const support::NoMoreDescriptors none;
  EXPECT_EQ(copy_file(one.c_str(), two.c_str()), -1);
}

class CopyDirectory : public FileTest {
 protected:
  int copy(const std::string& source, const std::string& destination) {
    return copy_directory(at(source).c_str(), at(destination).c_str());
  }
};

TEST_F(CopyDirectory, CopiesATree) {
  make_folders(at("from/a/b"));
  make_folders(at("from/empty"));
  put(at("from/file"), "1");
  put(at("from/.hidden"), "2");
  put(at("from/a/b/file"), "3");
  ::chmod(at("from/a").c_str(), 0700);
  ::chmod(at("from/file").c_str(), 0600);
  EXPECT_EQ(copy("from", "to"), 0);
  EXPECT_THAT(tree_of(at("to")), ElementsAre(Pair(".hidden", "file 644 2"), Pair("a", "dir 755"),
                                             Pair("a/b", "dir 755"), Pair("a/b/file", "file 644 3"),
                                             Pair("empty", "dir 755"), Pair("file", "file 644 1")));
  EXPECT_EQ(mode_of(at("to")), 0755U);
}

TEST_F(CopyDirectory, GivesDirectoriesMode0755WhateverTheUmask) {
  make_folders(at("from/a"));
  for (const mode_t mask : {mode_t{0}, mode_t{077}, mode_t{0777}}) {
    ::umask(mask);
    const std::string to = "to" + std::to_string(mask);
    EXPECT_EQ(copy("from", to), 0);
    EXPECT_EQ(mode_of(at(to)), 0755U);
    EXPECT_EQ(mode_of(at(to + "/a")), 0755U);
  }
}

// The umask keeps the owner from opening the directory until it has its mode.
TEST_F(CopyDirectory, GivesOrdinaryUsersMode0755WhateverTheUmask) {
  make_folders(at("from/a/b"));
  for (const mode_t mask : {mode_t{0400}, mode_t{0700}, mode_t{0777}}) {
    ::umask(mask);
    const std::string to = "to" + std::to_string(mask);
    int result = -1;
    run_without_override([&] { result = copy("from", to); });
    EXPECT_EQ(result, 0) << mask;
    EXPECT_THAT(tree_of(at(to)), ElementsAre(Pair("a", "dir 755"), Pair("a/b", "dir 755")));
    EXPECT_EQ(mode_of(at(to)), 0755U);
  }
}

TEST_F(CopyDirectory, FailsWhereTheModeCannotBeSet) {
  make_folders(at("from/a"));
  put(at("from/file"), "text");
  int result = 0;
  support::run_with_failing_calls(
      {{SystemCall::kChangeModeByName, EPERM}, {SystemCall::kChangeModeByDescriptor, EPERM}},
      [&] { result = copy("from", "to"); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(mode_of(at("to")), 01505U);  // 0x755 less the umask and the set-group-id bit
  EXPECT_THAT(tree_of(at("to")), IsEmpty());
}

TEST_F(CopyDirectory, SetsTheModeWhereItCannotBeDoneByName) {
  make_folders(at("from/a"));
  int result = -1;
  support::run_with_failing_calls({{SystemCall::kChangeModeByName, EOPNOTSUPP}},
                                  [&] { result = copy("from", "to"); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(mode_of(at("to")), 0755U);
  EXPECT_EQ(mode_of(at("to/a")), 0755U);
}

TEST_F(CopyDirectory, TakesSlashesAtTheEnds) {
  make_folders(at("from/a"));
  EXPECT_EQ(copy("from//", "to//"), 0);
  EXPECT_EQ(mode_of(at("to")), 0755U);
  EXPECT_EQ(mode_of(at("to/a")), 0755U);
}

TEST_F(CopyDirectory, FailsWhereListingDoes) {
  make_folders(at("from/a"));
  int result = 0;
  support::run_with_failing_calls({{SystemCall::kList, EIO}}, [&] { result = copy("from", "to"); });
  EXPECT_EQ(result, -1);
  EXPECT_THAT(tree_of(at("to")), IsEmpty());
}

// While the copy waits for a FIFO's data, a directory above it is moved away, far enough down to
// have been closed.
TEST_F(CopyDirectory, FailsWhereItCannotFindBack) {
  for (const std::string side : {"from", "to"}) {
    std::string way;
    for (int i = 0; i < 35; ++i) way += "/d";
    make_folders(at("from" + way + "/d/d/d/d/d"));
    make_fifo(at("from" + way + "/d/d/d/d/d/fifo"));
    int result = 0;
    std::thread copier([&] { result = copy("from", "to"); });
    const std::string fifo = at("from" + way + "/d/d/d/d/d/fifo");
    const int writer = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(std::rename(at(side + way).c_str(), at("moved").c_str()), 0);
    ::close(writer);
    copier.join();
    EXPECT_EQ(result, -1) << side;
    std::filesystem::remove_all(at("from"));
    std::filesystem::remove_all(at("to"));
    std::filesystem::remove_all(at("moved"));
  }
}

TEST_F(CopyDirectory, KeepsWhatIsThereAndReplacesContents) {
  make_folders(at("from/a"));
  put(at("from/a/file"), "new");
  make_folders(at("to/a"));
  put(at("to/a/file"), "longer than new");
  put(at("to/a/other"), "other");
  ::chmod(at("to").c_str(), 0700);
  ::chmod(at("to/a").c_str(), 0711);
  EXPECT_EQ(copy("from", "to"), 0);
  EXPECT_THAT(tree_of(at("to")), ElementsAre(Pair("a", "dir 711"), Pair("a/file", "file 644 new"),
                                             Pair("a/other", "file 644 other")));
  EXPECT_EQ(mode_of(at("to")), 0700U);
}

TEST_F(CopyDirectory, CopiesLinksAsWhatTheyLeadTo) {
  make_folders(at("from"));
  make_folders(at("folder/a"));
  put(at("file"), "text");
  make_link("../file", at("from/link to file"));
  make_link("../folder", at("from/link to folder"));
  EXPECT_EQ(copy("from", "to"), 0);
  EXPECT_THAT(tree_of(at("to")), ElementsAre(Pair("link to file", "file 644 text"),
                                             Pair("link to folder", "file 644 ")));
}

TEST_F(CopyDirectory, FailsAtALinkThatLeadsNowhere) {
  make_folders(at("from"));
  make_link("nowhere", at("from/dangling"));
  EXPECT_EQ(copy("from", "to"), -1);
  EXPECT_THAT(tree_of(at("to")), IsEmpty());
}

TEST_F(CopyDirectory, LooksThroughTheLinksItIsGiven) {
  make_folders(at("source"));
  make_folders(at("destination"));
  put(at("source/file"), "text");
  make_link("source", at("from"));
  make_link("destination", at("to"));
  EXPECT_EQ(copy("from", "to"), 0);
  EXPECT_EQ(tree().at("to"), "link destination");
  EXPECT_EQ(contents_of(at("destination/file")), "text");
}

TEST_F(CopyDirectory, FollowsNoLinkInsideTheDestination) {
  make_folders(at("outside/a"));
  put(at("outside/file"), "outside");
  const Tree outside = tree_of(at("outside"));
  make_folders(at("files"));
  put(at("files/file"), "text");
  make_folders(at("folders/a"));
  put(at("folders/a/file"), "text");
  make_folders(at("to"));
  make_link("../outside/file", at("to/file"));
  make_link("../outside/a", at("to/a"));
  EXPECT_EQ(copy("files", "to"), -1);
  EXPECT_EQ(copy("folders", "to"), -1);
  EXPECT_EQ(tree_of(at("outside")), outside);
  EXPECT_EQ(tree().at("to/file"), "link ../outside/file");
}

// A directory of the destination that becomes a link while its files are copied.
TEST_F(CopyDirectory, TouchesNothingOutsideWhenTheDestinationChangesUnderneath) {
  make_folders(at("outside"));
  put(at("outside/file"), "outside");
  const Tree outside = tree_of(at("outside"));
  for (int i = 0; i < 20; ++i) {
    const std::string folder = "/a" + std::to_string(i);
    make_folders(at("from" + folder + "/folder"));
    put(at("from" + folder + "/file"), "text");
    make_folders(at("to" + folder));
  }
  make_link(at("outside"), at("link"));
  std::atomic<bool> stop = false;
  std::thread swapper([&] {
    for (int i = 0; !stop; i = (i + 1) % 20) {
      const std::string folder = at("to/a" + std::to_string(i));
      for (int twice = 0; twice < 2; ++twice) {
        exchange_paths(folder, at("link"));
      }
    }
  });
  for (int round = support::rounds(200); round > 0; --round) copy("from", "to");
  stop = true;
  swapper.join();
  EXPECT_EQ(tree_of(at("outside")), outside);
  EXPECT_EQ(copy("from", "to"), 0);
}

// A directory of the source that becomes a link after it was examined.
TEST_F(CopyDirectory, ReadsNothingOutsideWhenTheSourceChangesUnderneath) {
  make_folders(at("outside"));
  put(at("outside/secret"), "secret");
  for (int i = 0; i < 2; ++i) {
    const std::string folder = "from/a" + std::to_string(i);
    make_folders(at(folder + "/folder"));
    put(at(folder + "/file"), "text");
  }
  make_link(at("outside"), at("link"));
  std::atomic<bool> stop = false;
  std::thread swapper([&] {
    for (int i = 0; !stop; i = (i + 1) % 2) {
      const std::string folder = at("from/a" + std::to_string(i));
      for (int twice = 0; twice < 2; ++twice) exchange_paths(folder, at("link"));
    }
  });
  for (int round = support::rounds(2000); round > 0; --round) {
    copy("from", "to");
    for (const auto& [path, description] : tree_of(at("to"))) {
      EXPECT_THAT(path, Not(testing::HasSubstr("secret")));
    }
    std::filesystem::remove_all(at("to"));
  }
  stop = true;
  swapper.join();
}

TEST_F(CopyDirectory, OntoAFileFailsAndCopiesNothing) {
  make_folders(at("from"));
  put(at("from/file"), "text");
  put(at("to"), "before");
  make_fifo(at("fifo"));
  make_link("nowhere", at("dangling"));
  make_link("to", at("link"));
  const Tree before = tree();
  for (const char* name : {"to", "fifo", "dangling", "link"}) {
    EXPECT_EQ(copy("from", name), -1) << name;
  }
  EXPECT_EQ(tree(), before);
}

TEST_F(CopyDirectory, FailsWhereFilesAndDirectoriesClash) {
  make_folders(at("from/a"));
  make_folders(at("to"));
  put(at("to/a"), "text");
  EXPECT_EQ(copy("from", "to"), -1);
  make_folders(at("from2"));
  put(at("from2/a"), "text");
  make_folders(at("to2/a"));
  EXPECT_EQ(copy("from2", "to2"), -1);
  EXPECT_THAT(tree(), Contains(Pair("to/a", "file 644 text")));
}

TEST_F(CopyDirectory, WithoutASourceHasMadeTheDestination) {
  put(at("file"), "text");
  EXPECT_EQ(copy("missing", "to"), -1);
  EXPECT_EQ(tree().at("to"), "dir 755");
  EXPECT_EQ(copy("file", "to2"), -1);
  EXPECT_EQ(tree().at("to2"), "dir 755");
}

TEST_F(CopyDirectory, NeedsTheParentOfTheDestination) {
  make_folders(at("from"));
  EXPECT_EQ(copy("from", "no/to"), -1);
  EXPECT_THAT(tree(), ElementsAre(Pair("from", "dir 755")));
}

TEST_F(CopyDirectory, RefusesNullAndEmptyPaths) {
  make_folders(at("from"));
  const std::string from = at("from");
  const std::string to = at("to");
  EXPECT_EQ(copy_directory(nullptr, to.c_str()), -1);
  EXPECT_EQ(copy_directory(from.c_str(), nullptr), -1);
  EXPECT_EQ(copy_directory(from.c_str(), ""), -1);
  EXPECT_THAT(tree(), ElementsAre(Pair("from", "dir 755")));
  EXPECT_EQ(copy_directory("", to.c_str()), -1);
}

TEST_F(CopyDirectory, FailsOnAReadOnlyDisk) {
  make_folders(at("from/a"));
  make_folders(at("disk"));
  TinyDisk disk(at("disk"));
  make_folders(at("disk/to"));
  disk.make_read_only();
  EXPECT_EQ(copy("from", "disk/to"), -1);
  EXPECT_EQ(copy("from", "disk/new"), -1);
}

TEST_F(CopyDirectory, DoesNotTellOfAFullDisk) {
  make_folders(at("from"));
  put(at("from/file"), varied_text(TinyDisk::kSize + 1));
  make_folders(at("disk"));
  const TinyDisk disk(at("disk"));
  EXPECT_EQ(copy("from", "disk"), 0);
  EXPECT_EQ(contents_of(at("disk/file")).size(), TinyDisk::kSize);
}

TEST_F(CopyDirectory, FailsAtEntriesThatCannotBeExaminedOrRead) {
  make_folders(at("unsearched/a"));
  ::chmod(at("unsearched").c_str(), 0444);
  make_folders(at("unlisted"));
  ::chmod(at("unlisted").c_str(), 0300);
  make_folders(at("above/unlisted"));
  ::chmod(at("above/unlisted").c_str(), 0300);
  make_folders(at("unreadable"));
  put(at("unreadable/file"), "text");
  ::chmod(at("unreadable/file").c_str(), 0);
  for (const std::string from : {"unsearched", "unlisted", "above", "unreadable"}) {
    int result = 0;
    run_without_override([&] { result = copy(from, "to " + from); });
    EXPECT_EQ(result, -1) << from;
    EXPECT_TRUE(exists(at("to " + from)));
  }
}

TEST_F(CopyDirectory, OntoOrIntoItselfIsRefusedAndChangesNothing) {
  make_folders(at("from/a/b"));
  put(at("from/a/file"), "text");
  make_link("from", at("link"));
  make_link("from/a", at("inside"));
  const Tree before = tree();
  for (const char* name : {"from", "from/", "link", "from/new", "from/a", "from/a/b/new", "inside",
                           "inside/new", "link/new", "from/../from"}) {
    EXPECT_EQ(copy("from", name), -1) << name;
    EXPECT_EQ(copy("link", name), -1) << name;
  }
  std::filesystem::current_path(at("from/a"));
  EXPECT_EQ(copy_directory("..", "new"), -1);
  EXPECT_EQ(copy_directory(".", "."), -1);
  EXPECT_EQ(tree(), before);
}

TEST_F(CopyDirectory, OfAFileOntoItselfFailsAndChangesNothing) {
  make_folders(at("from"));
  make_folders(at("to"));
  put(at("from/file"), "text");
  ASSERT_EQ(::link(at("from/file").c_str(), at("to/file").c_str()), 0);
  const Tree hard_link = tree();
  EXPECT_EQ(copy("from", "to"), -1);
  EXPECT_EQ(tree(), hard_link);
  std::filesystem::remove(at("from/file"));
  make_link("../to/file", at("from/file"));
  const Tree link = tree();
  EXPECT_EQ(copy("from", "to"), -1);
  EXPECT_EQ(tree(), link);
}

TEST_F(CopyDirectory, OutOfItselfIsAllowed) {
  make_folders(at("top/from/a"));
  put(at("top/from/a/file"), "text");
  EXPECT_EQ(copy("top/from", "top"), 0);
  EXPECT_EQ(contents_of(at("top/a/file")), "text");
  EXPECT_EQ(copy("top/from", "top/fromage"), 0);
  EXPECT_EQ(contents_of(at("top/fromage/a/file")), "text");
}

TEST_F(CopyDirectory, EndsWhereAMountShowsTheDestinationInTheSource) {
  make_folders(at("from/mount"));
  make_folders(at("to"));
  ASSERT_EQ(::mount(at("to").c_str(), at("from/mount").c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(copy("from", "to"), -1);
  EXPECT_THAT(tree_of(at("to")), IsEmpty());
  ::umount2(at("from/mount").c_str(), MNT_DETACH);
}

TEST_F(CopyDirectory, CopiesADeepTreeWithASmallStackAndFewDescriptors) {
  // "/tmp/file-test/from", that often "/d", and "/f"
  const int deepest = std::max(500, support::rounds(2036));
  make_folders(at("from"));
  int directory = ::open(at("from").c_str(), O_PATH | O_CLOEXEC);
  for (int i = 0; i < deepest; ++i) {
    ASSERT_EQ(::mkdirat(directory, "d", 0755), 0);
    const int child = ::openat(directory, "d", O_PATH | O_CLOEXEC);
    ::close(directory);
    directory = child;
    ::close(::openat(directory, "f", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  }
  ::close(directory);
  rlimit before = {};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit few = {100, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);
  int result = -1;
  support::run_on_small_stack([&] { result = copy("from", "to"); });
  ::setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(result, 0);
  std::string folder = at("to");
  for (int i = 0; i < deepest; ++i) folder += "/d";
  EXPECT_TRUE(exists(folder + "/f"));
  EXPECT_EQ(delete_directory(at("from").c_str()), 0);
  EXPECT_EQ(delete_directory(at("to").c_str()), 0);
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(CopyDirectory, FailsAtAnEntryWhoseCopyWouldHaveAPathOf4096Bytes) {
  make_folders(at("from"));
  const std::string to = path_of_length(folder_, 4091);
  make_folders(to);
  put(at("from/abc"), "text");
  EXPECT_EQ(copy_directory(at("from").c_str(), to.c_str()), 0);
  EXPECT_EQ(contents_of(to + "/abc"), "text");
  put(at("from/abcd"), "text");
  EXPECT_EQ(copy_directory(at("from").c_str(), to.c_str()), -1);
  const int directory = ::open(to.c_str(), O_PATH | O_CLOEXEC);
  struct stat status;
  EXPECT_EQ(::fstatat(directory, "abcd", &status, 0), -1);
  ::close(directory);
}

TEST_F(CopyDirectory, FailsAtAnEntryWithAPathOf4096Bytes) {
  const std::string from = path_of_length(folder_, 4091);
  make_folders(from);
  const int directory = ::open(from.c_str(), O_PATH | O_CLOEXEC);
  ::close(::openat(directory, "abc", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  EXPECT_EQ(copy_directory(from.c_str(), at("to").c_str()), 0);
  EXPECT_TRUE(exists(at("to/abc")));
  ::close(::openat(directory, "abcd", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  EXPECT_EQ(copy_directory(from.c_str(), at("to").c_str()), -1);
  EXPECT_FALSE(exists(at("to/abcd")));
  ::close(directory);
}

TEST_F(CopyDirectory, RefusesADestinationOf4096Bytes) {
  make_folders(at("from"));
  EXPECT_EQ(copy_directory(at("from").c_str(), path_of_length(folder_, 4096).c_str()), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_THAT(tree(), ElementsAre(Pair("from", "dir 755")));
}

TEST_F(CopyDirectory, WithoutADescriptorFails) {
  make_folders(at("from/a"));
  make_folders(at("to"));
  const std::string from = at("from");
  const std::string to = at("to");
  const support::NoMoreDescriptors none;
  EXPECT_EQ(copy_directory(from.c_str(), to.c_str()), -1);
}

TEST_F(CopyDirectory, WithoutMemoryFails) {
  make_folders(at("from/a/b"));
  put(at("from/a/b/file"), "text");
  const std::string from = at("from");
  const std::string to = at("to");
  const auto descriptors = support::open_descriptors();
  for (unsigned long nth = 1;; ++nth) {
    int result = 0;
    bool happened = false;
    {
      const support::FailingAllocation no_memory(nth);
      result = copy_directory(from.c_str(), to.c_str());
      happened = no_memory.happened();
    }
    ASSERT_EQ(support::open_descriptors(), descriptors);
    if (!happened) {
      EXPECT_EQ(result, 0);
      EXPECT_GT(nth, 2U);
      break;
    }
    EXPECT_EQ(result, -1) << nth;
  }
  EXPECT_EQ(contents_of(at("to/a/b/file")), "text");
}

TEST_F(CopyDirectory, CopiesThoughCancelled) {
  make_folders(at("from/a/b"));
  put(at("from/a/b/file"), "abc");
  int result = -1;
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { result = copy_directory(at("from").c_str(), at("to").c_str()); }));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(tree_of(at("to")), tree_of(at("from")));
}

}  // namespace
