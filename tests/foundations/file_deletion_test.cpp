// delete_directory() and delete_directory_contents().

#include <rkutils/file.h>
#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/inotify.h>
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

using namespace std::string_literals;

using rkutils::internal::UniqueFd;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// A tree with everything in it that a tree may hold, and a folder beside it that its links lead to.
class DeletionTest : public FileTest {
 protected:
  void plant() {
    make_folders(at("outside/folder"));
    put(at("outside/folder/file"), "outside");
    outside_ = tree_of(at("outside"));
    make_folders(at("top/a/b/c"));
    make_folders(at("top/empty"));
    put(at("top/file"), "text");
    put(at("top/.hidden"), "text");
    put(at("top/a/with space\n\xff"), "text");
    put(at("top/a/b/" + std::string(255, 'n')), "text");
    put(at("top/a/b/read only"), "text");
    ::chmod(at("top/a/b/read only").c_str(), 0);
    ::chmod(at("top/a/b").c_str(), 0555);
    make_fifo(at("top/a/fifo"));
    make_link("../outside/folder", at("top/link to folder"));
    make_link("../../outside/folder/file", at("top/a/link to file"));
    make_link("nowhere", at("top/a/b/dangling"));
    make_link(".", at("top/a/loop"));
  }
  void expect_outside_untouched() { EXPECT_EQ(tree_of(at("outside")), outside_); }

 private:
  Tree outside_;
};

using DeleteDirectory = DeletionTest;

TEST_F(DeleteDirectory, DeletesAllKindsOfEntriesAndNothingOutside) {
  plant();
  EXPECT_EQ(delete_directory(at("top").c_str()), 0);
  EXPECT_FALSE(exists(at("top")));
  expect_outside_untouched();
}

TEST_F(DeleteDirectory, DeletesASingleFileOfAnyKind) {
  put(at("file"), "text");
  make_fifo(at("fifo"));
  make_folders(at("empty"));
  make_link("nowhere", at("dangling"));
  for (const char* name : {"file", "fifo", "empty", "dangling"}) {
    EXPECT_EQ(delete_directory(at(name).c_str()), 0) << name;
  }
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(DeleteDirectory, RemovesALinkAlone) {
  make_folders(at("target/a"));
  for (const char* path : {"link", "link/", "link//"}) {
    make_link("target", at("link"));
    EXPECT_EQ(delete_directory(at(path).c_str()), 0) << path;
    EXPECT_THAT(tree(), ElementsAre(Pair("target", "dir 755"), Pair("target/a", "dir 755")));
  }
}

TEST_F(DeleteDirectory, TakesSlashesAtTheEnd) {
  make_folders(at("top/a"));
  EXPECT_EQ(delete_directory(at("top//").c_str()), 0);
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(DeleteDirectory, LeavesAFileNamedWithASlashAtTheEnd) {
  put(at("file"), "text");
  make_fifo(at("fifo"));
  const Tree before = tree();
  for (const char* path : {"file/", "file//", "fifo/"}) {
    EXPECT_EQ(delete_directory(at(path).c_str()), 0) << path;
  }
  EXPECT_EQ(tree(), before);
}

TEST_F(DeleteDirectory, SucceedsWhereThereIsNothing) {
  EXPECT_EQ(delete_directory(at("missing").c_str()), 0);
  EXPECT_EQ(delete_directory(at("no/one").c_str()), 0);
}

TEST_F(DeleteDirectory, RefusesNullAndTheEmptyPath) {
  EXPECT_EQ(delete_directory(nullptr), -1);
  EXPECT_EQ(delete_directory(""), -1);
}

TEST_F(DeleteDirectory, EmptiesTheWorkingFolderThatItCannotRemove) {
  make_folders(at("top/a"));
  std::filesystem::current_path(at("top"));
  EXPECT_EQ(delete_directory("."), 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("top", "dir 755")));
}

TEST_F(DeleteDirectory, SucceedsThoughAReadOnlyDiskKeepsAll) {
  make_folders(at("disk"));
  TinyDisk disk(at("disk"));
  make_folders(at("disk/a/b"));
  put(at("disk/a/b/file"), "text");
  disk.make_read_only();
  const Tree before = tree();
  EXPECT_EQ(delete_directory(at("disk/a").c_str()), 0);
  EXPECT_EQ(tree(), before);
}

TEST_F(DeleteDirectory, DeletesAroundWhatCannotBeRemoved) {
  make_folders(at("top/a/mount"));
  make_folders(at("top/b"));
  put(at("top/a/file"), "text");
  const TinyDisk disk(at("top/a/mount"));
  EXPECT_EQ(delete_directory(at("top").c_str()), 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("top", "dir 755"), Pair("top/a", "dir 755"),
                                  Pair("top/a/mount", "dir 755")));
}

TEST_F(DeleteDirectory, FailsAtAnEntryThatCannotBeExamined) {
  make_folders(at("top/a"));
  put(at("top/file"), "text");
  ::chmod(at("top").c_str(), 0444);
  const Tree before = tree();
  int result = 0;
  run_without_override([&] { result = delete_directory(at("top").c_str()); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(tree(), before);
}

TEST_F(DeleteDirectory, DoesNotTellOfFailuresFurtherDown) {
  make_folders(at("top/unlisted/a"));
  make_folders(at("top/unsearched/a"));
  make_folders(at("top/closed"));
  make_folders(at("top/unlisted empty"));
  make_folders(at("top/z"));
  ::chmod(at("top/unlisted").c_str(), 0300);
  ::chmod(at("top/unsearched").c_str(), 0444);
  ::chmod(at("top/closed").c_str(), 0);
  ::chmod(at("top/unlisted empty").c_str(), 0300);
  int result = -1;
  run_without_override([&] { result = delete_directory(at("top").c_str()); });
  EXPECT_EQ(result, 0);
  EXPECT_THAT(tree(),
              ElementsAre(Pair("top", "dir 755"), Pair("top/unlisted", "dir 300"),
                          Pair("top/unlisted/a", "dir 755"), Pair("top/unsearched", "dir 444"),
                          Pair("top/unsearched/a", "dir 755")));
}

// Also where the last descriptor goes for a directory that then cannot be listed.
TEST_F(DeleteDirectory, WithoutDescriptorsRemovesOnlyAnEmptyOne) {
  make_folders(at("top/a"));
  const std::string top = at("top");
  const std::string empty = at("empty");
  for (const unsigned spare : {0U, 1U}) {
    make_folders(empty);
    {
      const support::NoMoreDescriptors none(spare);
      EXPECT_EQ(delete_directory(top.c_str()), 0);
      EXPECT_EQ(delete_directory(empty.c_str()), 0);
    }
    EXPECT_THAT(tree(), ElementsAre(Pair("top", "dir 755"), Pair("top/a", "dir 755"))) << spare;
  }
}

TEST_F(DeleteDirectory, WithDescriptorsForOneLevelDeletesThatFar) {
  make_folders(at("top/a/b"));
  make_folders(at("top/empty"));
  put(at("top/file"), "text");
  const std::string top = at("top");
  {
    const support::NoMoreDescriptors none(2);
    EXPECT_EQ(delete_directory(top.c_str()), 0);
  }
  EXPECT_THAT(tree(), ElementsAre(Pair("top", "dir 755"), Pair("top/a", "dir 755"),
                                  Pair("top/a/b", "dir 755")));
}

TEST_F(DeleteDirectory, FailsWhereListingDoes) {
  make_folders(at("top"));
  int result = 0;
  support::run_with_failing_calls({{support::SystemCall::kList, EIO}},
                                  [&] { result = delete_directory(at("top").c_str()); });
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(exists(at("top")));
}

TEST_F(DeleteDirectory, WithoutMemoryFailsOrLeavesASubdirectory) {
  for (unsigned long nth = 1;; ++nth) {
    plant();
    const std::string path = at("top");
    bool happened = false;
    int result = 0;
    {
      const support::FailingAllocation no_memory(nth);
      result = delete_directory(path.c_str());
      happened = no_memory.happened();
    }
    expect_outside_untouched();
    if (!happened) {
      EXPECT_EQ(result, 0);
      EXPECT_FALSE(exists(path));
      EXPECT_GT(nth, 2U);
      break;
    }
    EXPECT_TRUE(result == 0 || result == -1);
    std::filesystem::remove_all(folder_);
    make_folders(folder_);
  }
}

// Makes names of one byte below a folder, by descriptor where the path becomes too long.
void make_chain(const std::string& folder, std::size_t count, const std::string& name) {
  int directory = ::open(folder.c_str(), O_PATH | O_CLOEXEC);
  for (std::size_t i = 0; i < count; ++i) {
    ASSERT_EQ(::mkdirat(directory, name.c_str(), 0755), 0);
    const int child = ::openat(directory, name.c_str(), O_PATH | O_CLOEXEC);
    ::close(directory);
    directory = child;
  }
  ::close(::openat(directory, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  ::close(directory);
}

// As deep as paths reach: "/tmp/file-test/top", 2035 times "/d" and "/file".
constexpr std::size_t kDeepest = 2035;

TEST_F(DeleteDirectory, DeletesADeepTreeWithASmallStackAndFewDescriptors) {
  make_folders(at("top"));
  make_chain(at("top"), kDeepest, "d");
  rlimit before = {};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit few = {64, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);
  int result = -1;
  support::run_on_small_stack([&] { result = delete_directory(at("top").c_str()); });
  ::setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(result, 0);
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(DeleteDirectory, GetsBackOutOfAnUnsearchableDirectoryDeepDown) {
  for (const int depth : {29, 30, 31, 32, 33, 40}) {
    std::string deep = at("top");
    for (int i = 0; i < depth; ++i) deep += "/d";
    make_folders(deep + "/x");
    ::chmod(deep.c_str(), 0444);
    // Whatever the order of the entries, some come after the one that is left.
    for (const char* name : {"aa", "mm", "zz"}) {
      make_folders(at("top/"s + name));
      put(at("top/d/"s + name), "");
    }
    int result = -1;
    run_without_override([&] { result = delete_directory(at("top").c_str()); });
    EXPECT_EQ(result, 0) << depth;
    EXPECT_EQ(tree().size(), static_cast<std::size_t>(depth) + 2) << depth;  // the way to "x"
    std::filesystem::remove_all(at("top"));
  }
}

// The C library lists a directory of this many entries in several calls. Of "top", which holds
// little, it takes one for the entries and one for their end.
TEST_F(DeleteDirectory, DeletesThoughCancelled) {
  make_folders(at("top/a/b"));
  put(at("top/a/b/file"), "abc");
  int result = -1;
  EXPECT_TRUE(
      support::finishes_though_cancelled([&] { result = delete_directory(at("top").c_str()); }));
  EXPECT_EQ(result, 0);
  EXPECT_THAT(tree(), IsEmpty());
}

class HalfListed : public DeletionTest {
 protected:
  HalfListed() {
    make_folders(at("top/sub"));
    for (int i = 0; i < kEntries; ++i) put(at("top/sub/" + std::to_string(i)), "");
  }

  // Deletes "top", but the second call that lists "sub" fails, after `meanwhile`.
  int delete_top(const std::function<void()>& meanwhile) {
    int result = -1;
    bool failed = false;
    support::run_with_failing_calls({{support::SystemCall::kList, EIO, 3, 1,
                                      [&] {
                                        failed = true;
                                        meanwhile();
                                      }}},
                                    [&] { result = delete_directory(at("top").c_str()); });
    EXPECT_TRUE(failed);
    return result;
  }

  // More than one call lists.
  static inline const int kEntries = std::max(500, support::rounds(5000));
};

// What was listed of it are no names of the directory above.
TEST_F(HalfListed, IsLeftWithoutDeletingWhatHasTheSameNamesAboveIt) {
  EXPECT_EQ(delete_top([&] {
              for (int i = 0; i < kEntries; ++i) put(at("top/" + std::to_string(i)), "");
            }),
            0);
  const auto entries = static_cast<std::size_t>(kEntries);
  EXPECT_EQ(tree_of(at("top/sub")).size(), entries);
  EXPECT_EQ(tree_of(at("top")).size(), entries * 2 + 1);
}

// Its name has moved in memory, to where there was room for those of its entries.
TEST_F(HalfListed, IsRemovedWhenItIsEmptyMeanwhile) {
  EXPECT_EQ(delete_top([&] {
              for (int i = 0; i < kEntries; ++i) {
                std::filesystem::remove(at("top/sub/" + std::to_string(i)));
              }
            }),
            0);
  EXPECT_THAT(tree(), IsEmpty());
}

// A directory above the one that is walked is moved away, far enough down to have been closed.
TEST_F(DeleteDirectory, FailsWhereItCannotFindBack) {
  constexpr int kDepth = 40;
  const int files = std::max(2000, support::rounds(20000));  // they give the mover time
  int result = 0;
  for (int attempt = 0; attempt < 20 && result == 0; ++attempt) {
    std::string moved = at("top");
    for (int i = 0; i < kDepth - 5; ++i) moved += "/d";
    const std::string deep = moved + "/d/d/d/d/d";
    make_folders(deep);
    for (int i = 0; i < files; ++i) put(deep + "/" + std::to_string(i), "");
    const UniqueFd events(::inotify_init1(IN_CLOEXEC));
    ASSERT_GE(::inotify_add_watch(events.get(), deep.c_str(), IN_DELETE), 0);
    std::thread mover([&] {
      char event[sizeof(inotify_event) + NAME_MAX + 1];
      EXPECT_GT(::read(events.get(), event, sizeof event), 0);
      std::rename(moved.c_str(), at("moved").c_str());  // in vain when it is all gone by then
    });
    result = delete_directory(at("top").c_str());
    mover.join();
    EXPECT_TRUE(result == -1 || !exists(at("moved")) || !exists(at("top")));
    if (result == -1) {
      EXPECT_TRUE(exists(at("moved")));
      EXPECT_TRUE(exists(at("top")));
    }
    std::filesystem::remove_all(at("top"));
    std::filesystem::remove_all(at("moved"));
  }
  EXPECT_EQ(result, -1);
}

TEST_F(DeleteDirectory, FindsItsWayInABroadTree) {
  for (int i = 0; i < 40; i += std::min(5, support::stride())) {
    const std::string path = at("top/" + std::string(static_cast<std::size_t>(i) * 2 + 1, 'x'));
    std::string deep = path;
    for (int level = 0; level < i + 5; ++level) {
      deep += "/d";
      make_folders(deep + "/side");
      put(deep + "/side/file", "text");
      put(deep + "/z", "text");
    }
  }
  EXPECT_EQ(delete_directory(at("top").c_str()), 0);
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(DeleteDirectory, RemovesEntriesWithPathsOf4095Bytes) {
  const std::string longest = path_of_length(at("top"), 4095);
  make_folders(longest.substr(0, longest.rfind('/')));
  put(longest, "text");
  EXPECT_EQ(delete_directory(at("top").c_str()), 0);
  EXPECT_THAT(tree(), IsEmpty());
}

TEST_F(DeleteDirectory, FailsAtAnEntryWithAPathOf4096Bytes) {
  const std::string folder = path_of_length(folder_, 4091);
  make_folders(folder);
  put(folder + "/abc", "fits");
  const int directory = ::open(folder.c_str(), O_PATH | O_CLOEXEC);
  ASSERT_EQ(::mkdirat(directory, "abcd", 0755), 0);
  EXPECT_EQ(delete_directory(folder.c_str()), -1);
  struct stat status;
  EXPECT_EQ(::fstatat(directory, "abcd", &status, 0), 0);
  // Further down it is not told, and what is too long stays with all above it.
  EXPECT_EQ(delete_directory(at(std::string(200, 'd')).c_str()), 0);
  EXPECT_EQ(::fstatat(directory, "abcd", &status, 0), 0);
  EXPECT_EQ(::unlinkat(directory, "abcd", AT_REMOVEDIR), 0);
  ::close(directory);
}

TEST_F(DeleteDirectory, TakesAPathThatIsTooLongForNothing) {
  const std::string longest = path_of_length(folder_, 4095);
  make_folders(longest);
  EXPECT_EQ(delete_directory((longest + "e").c_str()), 0);
  EXPECT_EQ(delete_directory_contents((longest + "e").c_str()), 0);
  EXPECT_TRUE(exists(longest));
  EXPECT_EQ(delete_directory(longest.c_str()), 0);
  EXPECT_FALSE(exists(longest));
}

// A directory that becomes a link between being examined and being opened must not be followed.
TEST_F(DeleteDirectory, TouchesNothingOutsideWhenTheTreeChangesUnderneath) {
  make_folders(at("outside/folder"));
  put(at("outside/file"), "outside");
  put(at("outside/folder/file"), "outside");
  const Tree outside = tree_of(at("outside"));
  for (int round = support::rounds(200); round > 0; --round) {
    for (int i = 0; i < 20; ++i) {
      const std::string folder = at("top/a" + std::to_string(i));
      make_folders(folder + "/folder");
      put(folder + "/file", "text");
    }
    make_link(at("outside"), at("link"));
    std::atomic<bool> stop = false;
    std::thread swapper([&] {
      for (int i = 0; !stop; i = (i + 1) % 20) {
        const std::string folder = at("top/a" + std::to_string(i));
        for (int twice = 0; twice < 2; ++twice) {
          exchange_paths(folder, at("link"));
        }
      }
    });
    delete_directory(at("top").c_str());
    stop = true;
    swapper.join();
    ASSERT_EQ(tree_of(at("outside")), outside) << round;
    std::filesystem::remove_all(at("top"));
    std::filesystem::remove_all(at("link"));
  }
}

using DeleteDirectoryContents = DeletionTest;

TEST_F(DeleteDirectoryContents, LeavesTheDirectoryEmpty) {
  plant();
  ::chmod(at("top").c_str(), 0750);
  EXPECT_EQ(delete_directory_contents(at("top").c_str()), 0);
  EXPECT_THAT(tree_of(at("top")), IsEmpty());
  EXPECT_EQ(mode_of(at("top")), 0750U);
  expect_outside_untouched();
}

TEST_F(DeleteDirectoryContents, FollowsTheLinkItIsGivenAndNoneInside) {
  plant();
  make_link("top", at("link"));
  EXPECT_EQ(delete_directory_contents(at("link").c_str()), 0);
  EXPECT_THAT(tree_of(at("top")), IsEmpty());
  EXPECT_EQ(tree().at("link"), "link top");
  expect_outside_untouched();
}

TEST_F(DeleteDirectoryContents, SucceedsForWhatCannotBeOpened) {
  put(at("file"), "text");
  EXPECT_EQ(delete_directory_contents(at("file").c_str()), 0);
  EXPECT_EQ(delete_directory_contents(at("missing").c_str()), 0);
  EXPECT_EQ(delete_directory_contents(""), 0);
  EXPECT_EQ(delete_directory_contents(nullptr), 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("file", "file 644 text")));
}

TEST_F(DeleteDirectoryContents, FailsAtAnEntryThatCannotBeExamined) {
  make_folders(at("top/a"));
  ::chmod(at("top").c_str(), 0444);
  int result = 0;
  run_without_override([&] { result = delete_directory_contents(at("top").c_str()); });
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(exists(at("top/a")));
}

TEST_F(DeleteDirectoryContents, DeletesADeepTreeWithASmallStack) {
  make_folders(at("top"));
  make_chain(at("top"), kDeepest, "d");
  int result = -1;
  support::run_on_small_stack([&] { result = delete_directory_contents(at("top").c_str()); });
  EXPECT_EQ(result, 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("top", "dir 755")));
}

TEST_F(DeleteDirectoryContents, DeletesThoughCancelled) {
  make_folders(at("top/a/b"));
  put(at("top/a/b/file"), "abc");
  int result = -1;
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { result = delete_directory_contents(at("top").c_str()); }));
  EXPECT_EQ(result, 0);
  EXPECT_THAT(tree(), ElementsAre(Pair("top", "dir 755")));
}

// The first allocation is fdopendir(3)'s, without which the directory cannot be opened.
TEST_F(DeleteDirectoryContents, WithoutMemoryToOpenFindsNothing) {
  make_folders(at("top/a"));
  const std::string path = at("top");
  int result = -1;
  {
    const support::FailingAllocation no_memory(1);
    result = delete_directory_contents(path.c_str());
    EXPECT_TRUE(no_memory.happened());
  }
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(exists(at("top/a")));
}

TEST_F(DeleteDirectoryContents, WithoutDescriptorsFindsNothing) {
  make_folders(at("top/a"));
  const std::string path = at("top");
  for (const unsigned spare : {0U, 1U}) {
    int result = -1;
    {
      const support::NoMoreDescriptors none(spare);
      result = delete_directory_contents(path.c_str());
    }
    EXPECT_EQ(result, 0) << spare;
    EXPECT_TRUE(exists(at("top/a")));
  }
}

TEST_F(DeleteDirectoryContents, FailsWhereListingDoes) {
  make_folders(at("top/a"));
  int result = 0;
  support::run_with_failing_calls({{support::SystemCall::kList, EIO}},
                                  [&] { result = delete_directory_contents(at("top").c_str()); });
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(exists(at("top/a")));
}

TEST_F(DeleteDirectoryContents, FailsAtAnEntryWithAPathOf4096Bytes) {
  const std::string folder = path_of_length(folder_, 4091);
  make_folders(folder);
  put(folder + "/abc", "fits");
  EXPECT_EQ(delete_directory_contents(folder.c_str()), 0);
  EXPECT_THAT(tree_of(folder), IsEmpty());
  const UniqueFd directory(::open(folder.c_str(), O_PATH | O_CLOEXEC));
  ASSERT_EQ(::mkdirat(directory.get(), "abcd", 0755), 0);
  EXPECT_EQ(delete_directory_contents(folder.c_str()), -1);
  EXPECT_EQ(::unlinkat(directory.get(), "abcd", AT_REMOVEDIR), 0);
}

}  // namespace
