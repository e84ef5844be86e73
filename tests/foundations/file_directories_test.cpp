// create_directory() and empty_directory().

#include <rkutils/file.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
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
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using CreateDirectory = FileTest;

// "1/2/3" for 3.
std::string levels(int count) {
  std::string path = "1";
  for (int i = 2; i <= count; ++i) path += "/" + std::to_string(i);
  return path;
}

TEST_F(CreateDirectory, CreatesOneWithMode0555) {
  EXPECT_EQ(create_directory(at("a").c_str()), 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("a", "dir 555")));
}

TEST_F(CreateDirectory, CreatesThoseAboveItToo) {
  EXPECT_EQ(create_directory(at("a/b/c").c_str()), 0);
  EXPECT_THAT(tree(),
              ElementsAre(Pair("a", "dir 555"), Pair("a/b", "dir 555"), Pair("a/b/c", "dir 555")));
}

TEST_F(CreateDirectory, GivesMode0555WhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}, mode_t{0777}}) {
    ::umask(mask);
    const std::string path = at("a" + std::to_string(mask));
    EXPECT_EQ(create_directory((path + "/b").c_str()), 0);
    EXPECT_EQ(mode_of(path), 0555U);
    EXPECT_EQ(mode_of(path + "/b"), 0555U);
  }
}

// What is seen of the mode that a directory is created with: 0x755 less the umask, without the
// set-group-id bit, which mkdir(2) does not take.
TEST_F(CreateDirectory, SucceedsThoughTheModeCannotBeSet) {
  int result = -1;
  support::run_with_failing_calls(
      {{SystemCall::kChangeModeByName, EPERM}, {SystemCall::kChangeModeByDescriptor, EPERM}},
      [&] { result = create_directory(at("a/b").c_str()); });
  EXPECT_EQ(result, 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("a", "dir 1505"), Pair("a/b", "dir 1505")));
}

TEST_F(CreateDirectory, SetsTheModeWhereItCannotBeDoneByName) {
  int result = -1;
  support::run_with_failing_calls({{SystemCall::kChangeModeByName, EOPNOTSUPP}},
                                  [&] { result = create_directory(at("a/b").c_str()); });
  EXPECT_EQ(result, 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("a", "dir 555"), Pair("a/b", "dir 555")));
}

TEST_F(CreateDirectory, SetsTheModeThoughCancelled) {
  bool finished = false;
  support::run_with_failing_calls({{SystemCall::kChangeModeByName, EOPNOTSUPP}}, [&] {
    finished = support::finishes_though_cancelled([&] { create_directory(at("a/b").c_str()); });
  });
  EXPECT_TRUE(finished);
  EXPECT_THAT(tree(), ElementsAre(Pair("a", "dir 555"), Pair("a/b", "dir 555")));
}

// Between being created and getting its mode, the directory becomes a link.
TEST_F(CreateDirectory, SetsNoModeThroughALink) {
  put(at("target"), "text");
  const std::string path = at("a");
  const std::string link = at("link");
  std::atomic<bool> stop = false;
  std::thread swapper([&] {
    while (!stop) exchange_paths(path, link);
  });
  for (int round = support::rounds(20000); round > 0 && mode_of(at("target")) == 0644; --round) {
    make_link("target", link);
    create_directory((path + "///").c_str());
    while (exists(path) || exists(link)) {  // what is swapped meanwhile may stay
      std::remove(path.c_str());
      std::remove(link.c_str());
    }
  }
  stop = true;
  swapper.join();
  EXPECT_EQ(mode_of(at("target")), 0644U);
}

TEST_F(CreateDirectory, TakesNoSetGroupIdFromItsParent) {
  make_folders(at("a"));
  ::chmod(at("a").c_str(), 02755);
  EXPECT_EQ(create_directory(at("a/b").c_str()), 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("a", "dir 2755"), Pair("a/b", "dir 555")));
}

TEST_F(CreateDirectory, LeavesOnesThatExistAsTheyAre) {
  make_folders(at("a/b"));
  put(at("a/file"), "text");
  ::chmod(at("a").c_str(), 0700);
  const Tree before = tree();
  EXPECT_EQ(create_directory(at("a/b").c_str()), 0);
  EXPECT_EQ(tree(), before);
}

TEST_F(CreateDirectory, ReplacesAFileOnTheWay) {
  make_folders(at("a"));
  put(at("a/b"), "text");
  EXPECT_EQ(create_directory(at("a/b/c").c_str()), 0);
  EXPECT_THAT(tree(),
              ElementsAre(Pair("a", "dir 755"), Pair("a/b", "dir 555"), Pair("a/b/c", "dir 555")));
}

TEST_F(CreateDirectory, ReplacesAnythingThatIsNotADirectory) {
  make_fifo(at("fifo"));
  put(at("file"), "text");
  make_link("nowhere", at("dangling"));
  for (const char* name : {"fifo", "file", "dangling"}) {
    EXPECT_EQ(create_directory(at(name).c_str()), 0) << name;
  }
  EXPECT_THAT(tree(), ElementsAre(Pair("dangling", "dir 555"), Pair("fifo", "dir 555"),
                                  Pair("file", "dir 555")));
}

TEST_F(CreateDirectory, ReplacesALinkAndLeavesItsTarget) {
  make_folders(at("target/inside"));
  make_link("target", at("link"));
  EXPECT_EQ(create_directory(at("link/new").c_str()), 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("link", "dir 555"), Pair("link/new", "dir 555"),
                                  Pair("target", "dir 755"), Pair("target/inside", "dir 755")));
}

TEST_F(CreateDirectory, LooksThroughALinkWithASlashAfterIt) {
  make_folders(at("target"));
  make_link("target", at("link"));
  EXPECT_EQ(create_directory(at("link/").c_str()), 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("link", "link target"), Pair("target", "dir 755")));
}

TEST_F(CreateDirectory, FailsAtAFileOrDanglingLinkWithASlashAfterIt) {
  put(at("file"), "text");
  make_link("nowhere", at("link"));
  const Tree before = tree();
  for (const char* path : {"file/", "link/"}) {
    EXPECT_EQ(create_directory(at(path).c_str()), -1) << path;
    EXPECT_EQ(errno, EEXIST) << path;
  }
  EXPECT_EQ(tree(), before);
}

TEST_F(CreateDirectory, TakesRelativePathsAndManySlashes) {
  std::filesystem::current_path(folder_);
  EXPECT_EQ(create_directory("a"), 0);
  EXPECT_EQ(create_directory("./b//c///"), 0);
  EXPECT_EQ(create_directory("../file-test/d"), 0);
  EXPECT_EQ(create_directory("e/./f/../g"), 0);
  EXPECT_THAT(tree(),
              ElementsAre(Pair("a", "dir 555"), Pair("b", "dir 555"), Pair("b/c", "dir 555"),
                          Pair("d", "dir 555"), Pair("e", "dir 555"), Pair("e/f", "dir 555"),
                          Pair("e/g", "dir 555")));
}

TEST_F(CreateDirectory, FindsTheRootAndTheWorkingFolder) {
  std::filesystem::current_path(folder_);
  for (const char* path : {"/", "//", ".", "./", "..", "/.", "//tmp"}) {
    EXPECT_EQ(create_directory(path), 0) << path;
  }
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(CreateDirectory, RefusesNullAndTheEmptyPath) {
  EXPECT_EQ(create_directory(nullptr), -1);
  EXPECT_EQ(create_directory(""), -1);
}

TEST_F(CreateDirectory, CreatesNineMissingAncestors) {
  std::filesystem::current_path(folder_);
  EXPECT_EQ(create_directory(levels(10).c_str()), 0);
  EXPECT_EQ(tree().size(), 10U);
  EXPECT_EQ(mode_of(at(levels(10))), 0555U);
}

TEST_F(CreateDirectory, DoesNotCreateATenthAncestor) {
  std::filesystem::current_path(folder_);
  EXPECT_EQ(create_directory(levels(11).c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(CreateDirectory, DoesNotLookAtATenthAncestor) {
  std::filesystem::current_path(folder_);
  make_folders("target");
  make_link("target", "1");
  EXPECT_EQ(create_directory(levels(11).c_str()), 0);
  EXPECT_EQ(tree().at("1"), "link target");
  EXPECT_TRUE(exists(at("target/2/3/4/5/6/7/8/9/10/11")));
}

TEST_F(CreateDirectory, GoesOnFromWhatIsThere) {
  std::filesystem::current_path(folder_);
  make_folders("1/2/3");
  EXPECT_EQ(create_directory(levels(12).c_str()), 0);
  EXPECT_EQ(tree().size(), 12U);
}

TEST_F(CreateDirectory, StopsWhereMkdirFails) {
  make_folders(at("disk"));
  TinyDisk disk(at("disk"));
  disk.make_read_only();
  EXPECT_EQ(create_directory(at("disk/a/b").c_str()), -1);
  EXPECT_EQ(errno, EROFS);
  EXPECT_EQ(create_directory(at("disk").c_str()), 0);
}

TEST_F(CreateDirectory, LeavesWhatCouldBeCreated) {
  EXPECT_EQ(create_directory(at("a/" + std::string(256, 'x') + "/c").c_str()), -1);
  EXPECT_THAT(tree(), ElementsAre(Pair("a", "dir 555")));
}

// Mode 0555 binds whoever has not root's rights.
TEST_F(CreateDirectory, LetsAnOrdinaryUserCreateOneLevelOnly) {
  int one = -1;
  int two = 0;
  run_without_override([&] {
    one = create_directory(at("a").c_str());
    two = create_directory(at("b/c").c_str());
  });
  EXPECT_EQ(one, 0);
  EXPECT_EQ(two, -1);
  EXPECT_THAT(tree(), ElementsAre(Pair("a", "dir 555"), Pair("b", "dir 555")));
}

TEST_F(CreateDirectory, TakesAPathOf4095Bytes) {
  const std::string path = path_of_length(folder_, 4095);
  make_folders(path.substr(0, path.rfind('/')));
  int result = -1;
  support::run_on_small_stack([&] { result = create_directory(path.c_str()); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(mode_of(path), 0555U);
}

TEST_F(CreateDirectory, ChangesNothingForALongerPath) {
  const std::string path = path_of_length(folder_, 4096);
  make_folders(path.substr(0, 1000).substr(0, path.substr(0, 1000).rfind('/')));
  const Tree before = tree();
  EXPECT_EQ(create_directory(path.c_str()), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(tree(), before);
}

using EmptyDirectory = FileTest;

// Who deletes what is empty must not be told so of what is not known.
TEST_F(EmptyDirectory, IsNotOneThatCannotBeListed) {
  make_folders(at("a"));
  int result = -1;
  support::run_with_failing_calls({{SystemCall::kList, EIO}},
                                  [&] { result = empty_directory(at("a").c_str()); });
  EXPECT_EQ(result, 0);
}

TEST_F(EmptyDirectory, TellsWhetherThereIsAnEntry) {
  make_folders(at("a"));
  EXPECT_EQ(empty_directory(at("a").c_str()), 1);
  for (const char* name : {"a/file", "a/.hidden", "a/..."}) {
    put(at(name), "");
    EXPECT_EQ(empty_directory(at("a").c_str()), 0) << name;
    std::filesystem::remove(at(name));
  }
  make_link("nowhere", at("a/link"));
  EXPECT_EQ(empty_directory(at("a").c_str()), 0);
}

TEST_F(EmptyDirectory, TakesWhatCannotBeOpenedForEmpty) {
  put(at("file"), "text");
  EXPECT_EQ(empty_directory(at("missing").c_str()), 1);
  EXPECT_EQ(empty_directory(at("file").c_str()), 1);
  EXPECT_EQ(empty_directory(path_of_length(folder_, 4096).c_str()), 1);
}

TEST_F(EmptyDirectory, TakesAnUnreadableOneForEmpty) {
  make_folders(at("a/b"));
  ::chmod(at("a").c_str(), 0300);
  int result = 0;
  run_without_override([&] { result = empty_directory(at("a").c_str()); });
  EXPECT_EQ(result, 1);
  EXPECT_EQ(empty_directory(at("a").c_str()), 0);
}

TEST_F(EmptyDirectory, WithoutADescriptorOrMemoryIsEmpty) {
  make_folders(at("a/b"));
  const std::string path = at("a");
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(empty_directory(path.c_str()), 1);
  }
  int result = 0;
  {
    const support::FailingAllocation no_memory(1);
    result = empty_directory(path.c_str());
    EXPECT_TRUE(no_memory.happened());
  }
  EXPECT_EQ(result, 1);
}

TEST_F(EmptyDirectory, FollowsALink) {
  make_folders(at("a/b"));
  make_link("a", at("full"));
  make_link("a/b", at("empty"));
  EXPECT_EQ(empty_directory(at("full").c_str()), 0);
  EXPECT_EQ(empty_directory(at("empty").c_str()), 1);
}

TEST_F(EmptyDirectory, LooksThoughCancelled) {
  make_folders(at("a/b"));
  int result = -1;
  EXPECT_TRUE(
      support::finishes_though_cancelled([&] { result = empty_directory(at("a").c_str()); }));
  EXPECT_EQ(result, 0);
}

TEST_F(EmptyDirectory, RefusesNullAndTheEmptyPath) {
  EXPECT_EQ(empty_directory(nullptr), -1);
  EXPECT_EQ(empty_directory(""), -1);
}

}  // namespace
