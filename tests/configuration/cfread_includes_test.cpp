// Files that include others, and themselves.

#include <rkutils/cfread.h>

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <syslog.h>

#include "cfread_fixture.h"
#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/open_descriptors.h"
#include "support/small_stack.h"

namespace {

using namespace std::string_literals;

using testing::ElementsAre;
using testing::SizeIs;

class CfreadIncludes : public CfreadTest {
 protected:
  void expect_entries(const std::string& path, const Entries& expected) {
    const Table table = open_table(path);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(entries_of(*table), expected);
  }

  void expect_failure(const std::string& path, const std::string& message) {
    EXPECT_EQ(open_table(path), nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(err(message)));
  }
};

TEST_F(CfreadIncludes, AreReadInTheirPlace) {
  put(at("b.conf"), "a=2\nb=2\nc=2\n");
  expect_entries(file("a.conf", "a=1\nb=1\ninclude b.conf\nb=3\n"),
                 {{"a", "2"}, {"b", "3"}, {"c", "2"}});
}

TEST_F(CfreadIncludes, AreFoundInTheFolderOfTheIncludingFile) {
  make_folders(at("etc/parts/more"));
  put(at("etc/parts/b.conf"), "b=1\ninclude more/c.conf\n");
  put(at("etc/parts/more/c.conf"), "c=1\ninclude ../d.conf\n");
  put(at("etc/parts/d.conf"), "d=1\n");
  put(at("b.conf"), "wrong=1\n");
  make_folders(at("etc"));
  expect_entries(file("etc/a.conf", "include parts/b.conf\na=1\n"),
                 {{"a", "1"}, {"b", "1"}, {"c", "1"}, {"d", "1"}});
}

TEST_F(CfreadIncludes, AreUsedAsTheyAreWhenTheyBeginWithASlash) {
  make_folders(at("elsewhere"));
  put(at("elsewhere/b.conf"), "b=1\n");
  expect_entries(file("a.conf", "include " + at("elsewhere/b.conf") + "\n"), {{"b", "1"}});
}

TEST_F(CfreadIncludes, OfAFileWithoutAFolderAreFoundInTheWorkingFolder) {
  put(at("b.conf"), "b=1\n");
  put(at("a.conf"), "include b.conf\ninclude missing\n");
  std::filesystem::current_path(folder_);
  EXPECT_EQ(open_table("a.conf"), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(err("cfread: unable to open ./missing")));
}

TEST_F(CfreadIncludes, OfAFileInTheRootFolderAreFoundThere) {
  put("/cfread-root.conf", "include missing\n");
  expect_failure("/cfread-root.conf", "cfread: unable to open //missing");
  std::filesystem::remove("/cfread-root.conf");
}

TEST_F(CfreadIncludes, AreStrippedOfWhiteSpace) {
  put(at("b c.conf"), "b=1\n");
  expect_entries(file("a.conf", "include \t b c.conf \t\r\n"), {{"b", "1"}});
}

// It ends an entry, but is a character of a name like any other.
TEST_F(CfreadIncludes, KeepACarriageReturnInsideAName) {
  put(at("a\rb"), "b=1\n");
  expect_entries(file("a.conf", "include a\rb\n"), {{"b", "1"}});
}

TEST_F(CfreadIncludes, KeepHighBytesInAName) {
  put(at("\xc3\xa4.conf"), "b=1\n");
  expect_entries(file("a.conf", "include \xc3\xa4.conf\n"), {{"b", "1"}});
}

TEST_F(CfreadIncludes, AreNoneBehindAHighByte) {
  expect_entries(file("a.conf", "\xffinclude missing=1\n\xff#x=2\n"),
                 {{"includemissing", "1"}, {"#x", "2"}});
}

TEST_F(CfreadIncludes, MayStandOnALastLineWithoutALineEnd) {
  put(at("b.conf"), "b=1\n");
  expect_entries(file("a.conf", "include b.conf"), {{"b", "1"}});
}

TEST_F(CfreadIncludes, WithoutANameFail) {
  expect_failure(file("a.conf", "include \n"), "cfread: no include file given in " + at("a.conf"));
  expect_failure(file("a.conf", "include  \t\r\n"),
                 "cfread: no include file given in " + at("a.conf"));
}

TEST_F(CfreadIncludes, OfMissingFilesFailTheIncludingFile) {
  put(at("b.conf"), "include missing.conf\n");
  expect_failure(file("a.conf", "include b.conf\na=1\n"),
                 "cfread: unable to open " + at("missing.conf"));
}

TEST_F(CfreadIncludes, WithABadLineFailTheIncludingFile) {
  put(at("b.conf"), "b=1\nbad");
  expect_failure(file("a.conf", "a=1\n\ninclude b.conf\n"),
                 "cfread: non-terminated entry in " + at("b.conf") + " at line 2");
}

TEST_F(CfreadIncludes, OfFoldersAreEmpty) {
  make_folders(at("folder"));
  expect_entries(file("a.conf", "include folder\ninclude /\na=1\n"), {{"a", "1"}});
}

TEST_F(CfreadIncludes, AreNotCountedInLineNumbers) {
  put(at("b.conf"), "b=1\nb=2\nb=3\n");
  // The bad line is the 6th.
  expect_failure(file("a.conf", "a=1\ninclude b.conf\n# c\ninclude b.conf\n\nbad"),
                 "cfread: non-terminated entry in " + at("a.conf") + " at line 4");
}

TEST_F(CfreadIncludes, LeaveTheNameOfTheIncludingFileToLaterMessages) {
  put(at("b.conf"), "include c.conf\nbad");
  put(at("c.conf"), "c=1\n");
  expect_failure(file("a.conf", "include b.conf\n"),
                 "cfread: non-terminated entry in " + at("b.conf") + " at line 1");
  put(at("b.conf"), "include c.conf\ninclude \n");
  expect_failure(at("a.conf"), "cfread: no include file given in " + at("b.conf"));
}

TEST_F(CfreadIncludes, NameTheirFileWhenAnEntryFindsNoMemory) {
  put(at("b.conf"), "b=2\n");
  const std::string path = file("a.conf", "a=1\ninclude b.conf\n");
  // Table, open file, slots, three for "a", open file.
  {
    const support::FailingAllocation failing(8);
    EXPECT_EQ(open_table(path), nullptr);
  }
  EXPECT_THAT(log_.take(),
              ElementsAre(err("cfread: unable to add entry 'b' in " + at("b.conf")),
                          err("cfread: unable to add entry in " + at("b.conf") + " at line 1")));
}

TEST_F(CfreadIncludes, NameTheIncludingFileWhenALaterEntryFindsNoMemory) {
  put(at("b.conf"), "b=2\n");
  const std::string path = file("a.conf", "a=1\ninclude b.conf\nc=3\n");
  {
    const support::FailingAllocation failing(11);
    EXPECT_EQ(open_table(path), nullptr);
  }
  EXPECT_THAT(log_.take(),
              ElementsAre(err("cfread: unable to add entry 'c' in " + at("a.conf")),
                          err("cfread: unable to add entry in " + at("a.conf") + " at line 2")));
}

TEST_F(CfreadIncludes, MayBeReadTwice) {
  put(at("b.conf"), "b=1\n");
  expect_entries(file("a.conf", "include b.conf\ninclude b.conf\n"), {{"b", "1"}});
}

TEST_F(CfreadIncludes, TakeAJoinedPathOf510BytesAndNoLongerOne) {
  const std::string path = path_of_length(folder_, 510);
  make_folders(path.substr(0, path.rfind('/')));
  put(path, "b=1\n");
  put(path + "e", "b=1\n");
  const std::string name = path.substr(folder_.size() + 1);
  expect_entries(file("a.conf", "include " + name + "\n"), {{"b", "1"}});
  expect_failure(file("a.conf", "include " + name + "e\n"), "cfread: unable to open " + path + "e");
}

TEST_F(CfreadIncludes, TakeAPathOf511BytesAndNoLongerOne) {
  const std::string path = path_of_length(folder_, 511);
  make_folders(path.substr(0, path.rfind('/')));
  put(path, "b=1\n");
  put(path + "e", "b=1\n");
  expect_entries(file("a.conf", "include " + path + "\n"), {{"b", "1"}});
  expect_failure(file("a.conf", "include " + path + "e\n"), "cfread: unable to open " + path + "e");
}

TEST_F(CfreadIncludes, NeverOpenACutPath) {
  const std::string longest = "include " + std::string(1014, 'x') + "\n";
  EXPECT_EQ(longest.size(), 1023U);
  expect_failure(file("a.conf", longest), "cfread: unable to open " + at(std::string(1014, 'x')));
  // A longer one is cut before it is read.
  expect_failure(file("a.conf", "include " + std::string(3000, 'x') + "\n"),
                 "cfread: unable to open " + at(std::string(1015, 'x')));
}

TEST_F(CfreadIncludes, AreDelimitedByTheEndOfALongLine) {
  put(at("b.conf"), "b=1\n");
  // The rest of the line is one more line, of spaces.
  expect_entries(file("a.conf", "include b.conf" + std::string(1500, ' ') + "\n"), {{"b", "1"}});
}

// A line is cut behind its 1023rd byte.
TEST_F(CfreadIncludes, NeverOpenANameThatTheEndOfALongLineMayHaveCut) {
  put(at("b.conf"), "b=1\n");
  for (const std::string& name : {"b.conf"s, at("b.conf")}) {
    const std::string line = std::string(1014 - name.size(), ' ') + name;
    expect_entries(file("a.conf", "include " + line + " .d\n"), {{"b", "1"}});
    expect_failure(file("a.conf", "include  " + line + ".d\n"),
                   "cfread: unable to open " + at("b.conf"));
  }
}

TEST_F(CfreadIncludes, EndAtANul) {
  put(at("b.conf"), "b=1\n");
  expect_entries(file("a.conf", "include b.conf\0.d\na=1\n"s), {{"a", "1"}, {"b", "1"}});
}

TEST_F(CfreadIncludes, MakeMessagesWithTheWholePathOfALongOne) {
  const std::string path = path_of_length(folder_, 511);
  make_folders(path.substr(0, path.rfind('/')));
  put(path, "bad");
  expect_failure(path, "cfread: non-terminated entry in " + path + " at line 1");
  put(path, "include \n");
  expect_failure(path, "cfread: no include file given in " + path);
}

// A limit on descriptors for as long as it lives.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t limit) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    rlimit limits = before_;
    limits.rlim_cur = std::min(limit, limits.rlim_max);
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limits), 0);
  }
  ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  rlimit before_ = {};
};

class CfreadIncludeCycle : public CfreadIncludes, public testing::WithParamInterface<rlim_t> {};

TEST_P(CfreadIncludeCycle, EndsWithAFileThatCannotBeOpened) {
  const DescriptorLimit limit(GetParam());
  const std::string path = file("a.conf", "a=1\ninclude a.conf\n");
  support::run_on_small_stack([&] { EXPECT_EQ(open_table(path), nullptr); });
  EXPECT_THAT(log_.take(), ElementsAre(err("cfread: unable to open " + path)));
}

TEST_P(CfreadIncludeCycle, OfTwoFilesEndsLikewise) {
  const DescriptorLimit limit(GetParam());
  put(at("a.conf"), "include b.conf\n");
  put(at("b.conf"), "include a.conf\n");
  support::run_on_small_stack([&] { EXPECT_EQ(open_table(at("a.conf")), nullptr); });
  const auto log = log_.take();
  ASSERT_THAT(log, SizeIs(1));
  EXPECT_THAT(log[0].text, testing::MatchesRegex("cfread: unable to open .*/[ab].conf"));
}

// A program that has not logged anything yet connects to the log when it does.
TEST_P(CfreadIncludeCycle, LeavesADescriptorToTheFirstMessageOfAProgram) {
  const std::string path = file("a.conf", "include " + at("a.conf") + "\n");
  EXPECT_EQ(exit_status_of([&] {
              const DescriptorLimit limit(GetParam());
              ::closelog();
              ::openlog(nullptr, 0, LOG_USER);
              open_table(path);
            }),
            kDidNotExit);
  EXPECT_THAT(log_.take(), ElementsAre(err("cfread: unable to open " + path)));
}

int keep_20(const char* key, const char* value, void* userdata) {
  auto* const passed = static_cast<Passed*>(userdata);
  keep_all(key, value, passed);
  return passed->size() >= 20 ? 1 : 0;
}

TEST_P(CfreadIncludeCycle, EndsAsACallbackWants) {
  const DescriptorLimit limit(GetParam());
  // The 20th entry ends its file, and each of the others goes on with its last line, which ends it.
  const std::string path = file("a.conf", "a=1\ninclude a.conf\nend=1\n");
  Passed passed;
  EXPECT_EQ(cfread_parse_with_callback(path.c_str(), keep_20, &passed, false), 0);
  Passed expected(20, {"a", "1"});
  expected.insert(expected.end(), 19, {"end", "1"});
  EXPECT_EQ(passed, expected);
}

// The hard limit of the machine applies; where it is lower the cycle is shorter.
INSTANTIATE_TEST_SUITE_P(Limits, CfreadIncludeCycle, testing::Values(1024, 20000),
                         testing::PrintToStringParamName());

struct BadEnd {
  const char* name;
  std::string text;
  std::string message;  // but for the file
};

class CfreadIncludesOfABadEnd : public CfreadIncludes,
                                public testing::WithParamInterface<BadEnd> {};

// Of two files the second takes the last descriptor.
TEST_P(CfreadIncludesOfABadEnd, LeaveADescriptorToTheFirstMessageOfAProgram) {
  const std::string path = file("a.conf", "include b.conf\n");
  put(at("b.conf"), GetParam().text);
  EXPECT_EQ(exit_status_of([&] {
              ::closelog();
              ::openlog(nullptr, 0, LOG_USER);
              const support::NoMoreDescriptors no_more(2);
              open_table(path);
            }),
            kDidNotExit);
  const auto log = log_.take();
  ASSERT_THAT(log, SizeIs(1));
  EXPECT_EQ(log[0].text.substr(0, GetParam().message.size()), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CfreadIncludesOfABadEnd,
    testing::Values(BadEnd{"MissingFile", "include c.conf\n", "cfread: unable to open "},
                    BadEnd{"NoName", "include \n", "cfread: no include file given in "},
                    BadEnd{"BadLine", "bad", "cfread: non-terminated entry in "}),
    support::CaseName());

TEST_F(CfreadIncludes, NestDeeplyOnASmallStack) {
  const DescriptorLimit limit(4096);
  for (int depth = 0; depth < 900; ++depth) {
    const std::string number = std::to_string(depth);
    put(at(number), "include " + std::to_string(depth + 1) + "\nkey" + number + "=1\n");
  }
  put(at("900"), "key900=1\n");
  support::run_on_small_stack([&] {
    const Table table = open_table(at("0"));
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->count, 901);
    // The innermost comes first.
    EXPECT_STREQ(table->entries[0]->key, "key900");
    EXPECT_STREQ(table->entries[900]->key, "key0");
  });
}

TEST_F(CfreadIncludes, ThatMakeAPathLongerAndLongerEndWhenItDoesNotFit) {
  make_folders(at("d"));
  put(at("d/a.conf"), "include ../d/a.conf\n");
  EXPECT_EQ(open_table(at("d/a.conf")), nullptr);
  const auto log = log_.take();
  ASSERT_THAT(log, SizeIs(1));
  const std::string prefix = "cfread: unable to open ";
  EXPECT_EQ(log[0].text.substr(0, prefix.size()), prefix);
  const std::size_t length = log[0].text.size() - prefix.size();
  EXPECT_GT(length, 510U);
  EXPECT_LE(length, 510U + std::string("/../d").size());
}

TEST_F(CfreadIncludes, WithoutMemoryForAFileFail) {
  put(at("b.conf"), "b=2\n");
  const std::string path = file("a.conf", "include b.conf\n");
  {
    const support::FailingAllocation failing(2);
    EXPECT_EQ(open_table(path), nullptr);
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("cfread: unable to open " + path)));
  {
    const support::FailingAllocation failing(3);
    EXPECT_EQ(open_table(path), nullptr);
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("cfread: unable to open " + at("b.conf"))));
}

}  // namespace
