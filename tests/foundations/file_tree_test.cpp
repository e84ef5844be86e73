// What the walks through trees are made of.

#include <rkutils/foundations/file/path_text.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/foundations/file/tree.h>
#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "file_fixture.h"
#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/open_descriptors.h"

namespace {

using rkutils::file::DirectoryChain;
using rkutils::file::EntryNames;
using rkutils::file::open_stream;
using rkutils::file::PathText;
using rkutils::internal::UniqueFd;
using testing::ElementsAre;

struct Parent {
  const char* name;
  std::string path;
  std::string parent;  // empty for "." and "/"
};

class ParentLength : public testing::TestWithParam<Parent> {};

TEST_P(ParentLength, IsThatOfDirname) {
  const std::string& path = GetParam().path;
  EXPECT_EQ(path.substr(0, rkutils::file::parent_length(path.c_str(), path.size())),
            GetParam().parent);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ParentLength,
    testing::Values(Parent{"Two", "a/b", "a"}, Parent{"Three", "a/b/c", "a/b"},
                    Parent{"SlashesAtTheEnd", "a/b//", "a"}, Parent{"SlashesBetween", "a//b", "a"},
                    Parent{"Absolute", "/a/b", "/a"}, Parent{"One", "a", ""},
                    Parent{"OneWithSlash", "a/", ""}, Parent{"BelowTheRoot", "/a", ""},
                    Parent{"BelowTheRootTwice", "//a//", ""}, Parent{"Root", "/", ""},
                    Parent{"Slashes", "//", ""}, Parent{"Dot", ".", ""},
                    Parent{"DotFirst", "./a", ""}, Parent{"DotAndSlashesFirst", ".//a", ""},
                    Parent{"DotInside", "a/./b", "a/."}, Parent{"DotDotFirst", "../a", ".."},
                    Parent{"HiddenFirst", ".a/b", ".a"}, Parent{"Empty", "", ""}),
    support::CaseName());

TEST(PathText, RefusesWhatDoesNotFit) {
  PathText path;
  EXPECT_TRUE(path.assign(std::string(4095, 'x').c_str()));
  EXPECT_EQ(path.get(), std::string(4095, 'x'));
  errno = 0;
  EXPECT_FALSE(path.assign(std::string(4096, 'y').c_str()));
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(path.get(), std::string(4095, 'x'));
}

TEST(PathText, GoesUpToTheFirstFolder) {
  PathText path;
  ASSERT_TRUE(path.assign("a/b"));
  EXPECT_TRUE(path.go_to_parent());
  EXPECT_STREQ(path.get(), "a");
  EXPECT_FALSE(path.go_to_parent());
  EXPECT_STREQ(path.get(), ".");
  ASSERT_TRUE(path.assign("/a"));
  EXPECT_FALSE(path.go_to_parent());
  EXPECT_STREQ(path.get(), "/");
}

TEST(PathText, DropsTheSlashesAtItsEndButNotTheRoot) {
  for (const auto& [given, expected] :
       {std::pair("a/b//", "a/b"), {"a/b", "a/b"}, {"/", "/"}, {"", ""}}) {
    PathText path;
    ASSERT_TRUE(path.assign(given));
    path.drop_slashes();
    EXPECT_STREQ(path.get(), expected);
    EXPECT_EQ(path.length(), std::strlen(expected));
  }
}

TEST(PathText, EndsWhereItIsToldAndIsWholeAgain) {
  PathText path;
  ASSERT_TRUE(path.assign("a//bc/d"));
  for (const auto& [length, expected] :
       {std::pair(1U, "a"), {5U, "a//bc"}, {7U, "a//bc/d"}, {5U, "a//bc"}, {7U, "a//bc/d"}}) {
    path.end_at(length);
    EXPECT_STREQ(path.get(), expected);
  }
}

TEST(PathText, IsCopiedAsItEnds) {
  PathText path;
  ASSERT_TRUE(path.assign("/a/bc/d"));
  path.end_at(2);
  PathText copy = path;
  path.end_at(5);
  EXPECT_STREQ(copy.get(), "/a");
  EXPECT_EQ(copy.length(), 2U);
  EXPECT_FALSE(copy.go_to_parent());
  EXPECT_STREQ(path.get(), "/a/bc");
  static_assert(!std::is_trivially_copyable_v<PathText>, "it would be passed among the arguments");
}

TEST(PathText, TellsWhetherItEndsInDotDot) {
  for (const auto& [given, expected] : {std::pair("..", true),
                                        {"a/..", true},
                                        {"/..", true},
                                        {"...", false},
                                        {"a..", false},
                                        {"../a", false},
                                        {".", false},
                                        {"", false}}) {
    PathText path;
    ASSERT_TRUE(path.assign(given));
    EXPECT_EQ(path.ends_in_dot_dot(), expected) << given;
  }
}

using PathTextTest = FileTest;

TEST_F(PathTextTest, FollowsALinkFromWhereItIs) {
  make_folders(at("a"));
  make_link("../b/c", at("a/relative"));
  make_link("/b/c", at("a/absolute"));
  make_link("c", at("one"));
  PathText path;
  ASSERT_TRUE(path.assign(at("a/relative").c_str()));
  ASSERT_TRUE(path.follow_link());
  EXPECT_EQ(path.get(), at("a/../b/c"));
  ASSERT_TRUE(path.assign(at("a/absolute").c_str()));
  ASSERT_TRUE(path.follow_link());
  EXPECT_STREQ(path.get(), "/b/c");
  std::filesystem::current_path(folder_);
  ASSERT_TRUE(path.assign("one"));
  ASSERT_TRUE(path.follow_link());
  EXPECT_STREQ(path.get(), "c");
  EXPECT_EQ(path.length(), 1U);
}

TEST_F(PathTextTest, DoesNotFollowWhatIsNoLinkOrTooLong) {
  put(at("file"), "text");
  const std::string folder = path_of_length(folder_, 4000);
  make_folders(folder);
  const std::string fits(94, 'x');
  make_link(fits, folder + "/fits");
  make_link(fits + "x", folder + "/too long");
  PathText path;
  for (const std::string& given : {at("file"), at("missing"), folder + "/too long"}) {
    ASSERT_TRUE(path.assign(given.c_str()));
    EXPECT_FALSE(path.follow_link());
    EXPECT_EQ(path.get(), given);
  }
  ASSERT_TRUE(path.assign((folder + "/fits").c_str()));
  ASSERT_TRUE(path.follow_link());
  EXPECT_EQ(path.get(), folder + "/" + fits);
}

using SetDirectoryMode = FileTest;

TEST_F(SetDirectoryMode, WhereItCannotBeDoneByNameDoesNotFollowALink) {
  make_folders(at("target"));
  make_link("target", at("link"));
  bool directory = false;
  bool link = true;
  support::run_with_failing_calls({{support::SystemCall::kChangeModeByName, EOPNOTSUPP}}, [&] {
    directory = rkutils::file::set_directory_mode(AT_FDCWD, at("target").c_str(), 0711);
    link = rkutils::file::set_directory_mode(AT_FDCWD, at("link").c_str(), 0700);
  });
  EXPECT_TRUE(directory);
  EXPECT_FALSE(link);
  EXPECT_EQ(mode_of(at("target")), 0711U);
}

UniqueFd open_folder(int directory, const std::string& name) {
  return UniqueFd(::openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

ino_t inode_of(int descriptor) {
  struct stat status = {};
  ::fstat(descriptor, &status);
  return status.st_ino;
}

class DirectoryChainTest : public FileTest {
 protected:
  // Enters 100 directories, each in the one before.
  void enter_100(DirectoryChain& chain) {
    for (int i = 0; i < 100; ++i) {
      inodes_.push_back(inode_of(chain.current()));
      ASSERT_EQ(::mkdirat(chain.current(), "d", 0755), 0);
      chain.enter(open_folder(chain.current(), "d"), 1);
    }
  }

  std::vector<ino_t> inodes_;
};

TEST_F(DirectoryChainTest, FindsBackUpWithFewDescriptors) {
  const std::size_t before = support::open_descriptors().size();
  DirectoryChain chain(open_folder(AT_FDCWD, folder_), folder_.size());
  enter_100(chain);
  EXPECT_LE(support::open_descriptors().size(), before + 33);
  while (!chain.at_top()) {
    ASSERT_TRUE(chain.leave());
    EXPECT_EQ(inode_of(chain.current()), inodes_.back());
    inodes_.pop_back();
  }
  EXPECT_TRUE(inodes_.empty());
}

TEST_F(DirectoryChainTest, DoesNotGoUpToWhereADirectoryWasMoved) {
  DirectoryChain chain(open_folder(AT_FDCWD, folder_), folder_.size());
  enter_100(chain);
  std::string folder = folder_;
  for (int i = 0; i < 60; ++i) folder += "/d";
  ASSERT_EQ(std::rename((folder + "/d").c_str(), at("moved").c_str()), 0);
  for (int i = 100; i > 61; --i) ASSERT_TRUE(chain.leave());
  EXPECT_EQ(inode_of(chain.current()), inodes_[61]);
  EXPECT_FALSE(chain.leave());
}

TEST_F(DirectoryChainTest, CountsTheLengthOfPaths) {
  DirectoryChain chain(open_folder(AT_FDCWD, folder_), 4000);
  EXPECT_TRUE(chain.fits(94));
  EXPECT_FALSE(chain.fits(95));
  make_folders(at("d"));
  chain.enter(open_folder(chain.current(), "d"), 90);
  EXPECT_TRUE(chain.fits(3));
  EXPECT_FALSE(chain.fits(4));
  ASSERT_TRUE(chain.leave());
  EXPECT_TRUE(chain.fits(94));
}

class EntryNamesTest : public FileTest {
 protected:
  static std::vector<std::string> rest_of(EntryNames& names) {
    std::vector<std::string> rest;
    while (const char* name = names.next()) rest.emplace_back(name);
    std::sort(rest.begin(), rest.end());
    return rest;
  }
};

TEST_F(EntryNamesTest, AreThoseOfTheDirectoryEnteredLast) {
  make_folders(at("a/b"));
  put(at("a/.hidden"), "");
  make_link("nowhere", at("a/link"));
  put(at("a/b/file"), "");
  const UniqueFd top = open_folder(AT_FDCWD, folder_);
  const UniqueFd a = open_folder(top.get(), "a");
  const UniqueFd b = open_folder(a.get(), "b");
  EntryNames names;
  ASSERT_TRUE(names.enter(open_stream(top.get())));
  EXPECT_STREQ(names.next(), "a");
  ASSERT_TRUE(names.enter(open_stream(a.get())));
  const std::string first = names.next();
  ASSERT_TRUE(names.enter(open_stream(b.get())));
  EXPECT_THAT(rest_of(names), ElementsAre("file"));
  names.leave();
  EXPECT_EQ(names.current(), first);
  std::vector<std::string> all = rest_of(names);
  all.push_back(first);
  EXPECT_THAT(all, testing::UnorderedElementsAre(".hidden", "b", "link"));
  names.leave();
  EXPECT_STREQ(names.current(), "a");
  EXPECT_EQ(names.next(), nullptr);
}

TEST_F(EntryNamesTest, AreNotThoseOfWhatCannotBeRead) {
  make_folders(at("a"));
  const UniqueFd top = open_folder(AT_FDCWD, folder_);
  EntryNames names;
  ASSERT_TRUE(names.enter(open_stream(top.get())));
  EXPECT_STREQ(names.next(), "a");
  EXPECT_FALSE(names.enter(open_stream(-1)));
  support::run_with_failing_calls({{support::SystemCall::kList, EIO}}, [&] {
    const UniqueFd a = open_folder(top.get(), "a");
    EXPECT_FALSE(names.enter(open_stream(a.get())));
  });
  EXPECT_STREQ(names.current(), "a");
  EXPECT_EQ(names.next(), nullptr);
}

}  // namespace
