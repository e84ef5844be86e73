// The table of the image's variables.

#include <rkutils/internal/unique_file.h>
#include <rkutils/systeminfo.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/for_nobody.h"
#include "support/interruption.h"
#include "support/open_descriptors.h"
#include "support/rounds.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"
#include "support/without_override.h"
#include "systeminfo_fixture.h"

namespace {

using namespace std::string_literals;

using rkutils::internal::UniqueFile;

struct TableFree {
  void operator()(systeminfo* table) const { systeminfo_free(table); }
};
using Table = std::unique_ptr<systeminfo, TableFree>;

// What a line holds at most, less the NUL.
constexpr std::size_t kLineLength = 1022;

class SysteminfoInit : public SysteminfoTest {
 protected:
  // The table of a file with these contents.
  static Table table_of(const std::string& contents) {
    put(kVariables, contents);
    return Table(systeminfo_init());
  }
};

std::string lines(int count) {
  std::string text;
  for (int i = 1; i <= count; ++i) {
    text += "NAME" + std::to_string(i) + "=" + std::to_string(i) + "\n";
  }
  return text;
}

TEST_F(SysteminfoInit, ReadsTheVariables) {
  const Table table = table_of("# made by the build\n\n  FIRST=1\nSECOND=\"a b\"\nTHIRD= c");
  ASSERT_NE(table, nullptr);
  EXPECT_STREQ(systeminfo_getvar(table.get(), "FIRST"), "1\n");
  EXPECT_STREQ(systeminfo_getvar(table.get(), "SECOND"), "a b");
  EXPECT_STREQ(systeminfo_getvar(table.get(), "THIRD"), " c");
}

TEST_F(SysteminfoInit, IsNullWithoutTheFile) { EXPECT_EQ(systeminfo_init(), nullptr); }

TEST_F(SysteminfoInit, IsNullForAFileThatIsNotReadable) {
  put(kVariables, "NAME=1\n");
  ::chmod(kVariables, 0200);
  systeminfo* table = nullptr;
  support::run_without_override([&] { table = systeminfo_init(); });
  EXPECT_EQ(table, nullptr);
}

TEST_F(SysteminfoInit, OpensTheFileForTheEffectiveUser) {
  put(kVariables, "NAME=1\n");
  ::chmod(kVariables, 0600);
  Table table;
  support::run_for_nobody([&] { table.reset(systeminfo_init()); });
  EXPECT_EQ(systeminfo_getint(table.get(), "NAME"), 1);
}

TEST_F(SysteminfoInit, IsNullWithoutADescriptor) {
  put(kVariables, "NAME=1\n");
  const support::NoMoreDescriptors none;
  EXPECT_EQ(systeminfo_init(), nullptr);
}

TEST_F(SysteminfoInit, IsAnEmptyTableForWhatHoldsNoVariable) {
  for (const std::string& contents : {""s, "\n\n"s, "# NAME=1\n"s, "NAME="s, "\0NAME=1\n"s}) {
    const Table table = table_of(contents);
    ASSERT_NE(table, nullptr);
    EXPECT_STREQ(systeminfo_getvar(table.get(), "NAME"), "");
  }
}

TEST_F(SysteminfoInit, IsAnEmptyTableForAFolder) {
  std::filesystem::create_directory(kVariables);
  const Table table(systeminfo_init());
  ASSERT_NE(table, nullptr);
  EXPECT_STREQ(systeminfo_getvar(table.get(), ""), "");
}

TEST_F(SysteminfoInit, Takes256Variables) {
  const Table table = table_of(lines(256) + "# NAME257=257\nNAME257\n\nNAME257=");
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(systeminfo_getint(table.get(), "NAME1"), 1);
  EXPECT_EQ(systeminfo_getint(table.get(), "NAME256"), 256);
}

TEST_F(SysteminfoInit, IsNullForA257thVariable) {
  EXPECT_EQ(table_of(lines(257)), nullptr);
  EXPECT_EQ(table_of(lines(256) + "NAME1=again\n"), nullptr);
}

TEST_F(SysteminfoInit, IsNullWithoutMemoryAndKeepsNone) {
  put(kVariables, lines(3));
  unsigned long without = 0;
  for (unsigned long nth = 1;; ++nth) {
    const long unfreed_before = support::unfreed_count();
    const support::FailingAllocation failing(nth);
    Table table(systeminfo_init());
    if (!failing.happened()) {
      EXPECT_NE(table, nullptr);
      table.reset();
      EXPECT_EQ(support::unfreed_count(), unfreed_before);
      break;
    }
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(support::unfreed_count(), unfreed_before) << nth;
    ++without;
  }
  // The table, and two texts for each of three variables.
  EXPECT_EQ(without, 1U + 6U);
}

TEST_F(SysteminfoInit, EndsReadingAtALineThatBeginsWithNul) {
  const Table table = table_of("A=1\n\nB=2\n\0\nC=3\n"s);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(systeminfo_getint(table.get(), "B"), 2);
  EXPECT_STREQ(systeminfo_getvar(table.get(), "C"), "");
}

TEST_F(SysteminfoInit, ReadsALineUpToANul) {
  const Table table = table_of("A=1\0xyz\nB\0=2\nC=\0\n\nD=4\n"s);
  ASSERT_NE(table, nullptr);
  EXPECT_STREQ(systeminfo_getvar(table.get(), "A"), "1");
  EXPECT_STREQ(systeminfo_getvar(table.get(), "B"), "");
  EXPECT_STREQ(systeminfo_getvar(table.get(), "C"), "");
  EXPECT_STREQ(systeminfo_getvar(table.get(), "D"), "4\n");
}

TEST_F(SysteminfoInit, ReadsALongLineInPieces) {
  const std::string longest = "A=" + std::string(kLineLength - 2, 'x');
  const Table table = table_of(longest + "B=1\n" + longest.substr(1) + "\nC=2\n");
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(systeminfo_getvar(table.get(), "A"), longest.substr(2));
  EXPECT_STREQ(systeminfo_getvar(table.get(), "B"), "1\n");
  // Just fits with its newline.
  EXPECT_EQ(systeminfo_getvar(table.get(), ""), longest.substr(2) + "\n");
  EXPECT_STREQ(systeminfo_getvar(table.get(), "C"), "2\n");
}

TEST_F(SysteminfoInit, SkipsAPieceThatEndsWithTheEquals) {
  const std::string name(kLineLength - 1, 'n');
  const Table table = table_of(name + "=value\n" + name.substr(1) + "=value\n");
  ASSERT_NE(table, nullptr);
  EXPECT_STREQ(systeminfo_getvar(table.get(), name.c_str()), "");
  EXPECT_STREQ(systeminfo_getvar(table.get(), name.c_str() + 1), "v");
}

TEST_F(SysteminfoInit, ReadsLinesOfEachLengthAroundThePieces) {
  for (std::size_t whole = 1; whole <= 3; ++whole) {
    for (std::size_t length = whole * kLineLength - 4; length <= whole * kLineLength + 4;
         ++length) {
      const std::string line = "A=" + std::string(length - 2, 'x');
      const Table table = table_of(line + "\nB=1\n");
      ASSERT_NE(table, nullptr);
      EXPECT_EQ(systeminfo_getvar(table.get(), "A"), (line + "\n").substr(0, kLineLength).substr(2))
          << length;
      EXPECT_STREQ(systeminfo_getvar(table.get(), "B"), "1\n") << length;
    }
  }
}

TEST_F(SysteminfoInit, ReadsAHugeFile) {
  const auto huge = static_cast<std::size_t>(std::max(1 << 20, support::rounds(8 << 20)));
  const Table table = table_of(std::string(huge, 'x') + std::string(huge / 8, '\n') + "A=1\n");
  ASSERT_NE(table, nullptr);
  EXPECT_STREQ(systeminfo_getvar(table.get(), "A"), "1\n");
}

// The variables of a file, by the rules and without the library.
std::vector<std::pair<std::string, std::string>> variables_of(const std::string& contents) {
  std::vector<std::pair<std::string, std::string>> variables;
  for (const std::string& piece : pieces_of(contents, kLineLength + 1)) {
    const std::size_t begin = std::min(piece.find_first_not_of(' '), piece.size());
    const std::size_t equals = piece.find('=', begin);
    if (piece.compare(begin, 1, "#") == 0 || equals == std::string::npos) continue;
    std::string value = piece.substr(equals + 1);
    if (value.empty()) continue;
    if (value[0] == '"') value = value.substr(1, value.find_first_of("\"\n", 1) - 1);
    variables.emplace_back(piece.substr(begin, equals - begin), value);
  }
  return variables;
}

TEST_F(SysteminfoInit, ReadsRandomFilesByTheRules) {
  int found = 0;
  for (const std::string& contents : random_files(support::rounds(2000))) {
    const Table table = table_of(contents);
    ASSERT_NE(table, nullptr);
    // What is no variable's name has no value; the first of each name counts.
    std::map<std::string, std::string> expected = {{"", ""}, {"a", ""}, {"b", ""}, {"#", ""}};
    std::set<std::string> seen;
    for (const auto& [name, value] : variables_of(contents)) {
      if (seen.insert(name).second) expected[name] = value;
    }
    found += static_cast<int>(seen.size());
    for (const auto& [name, value] : expected) {
      ASSERT_EQ(systeminfo_getvar(table.get(), name.c_str()), value)
          << testing::PrintToString(contents) << " " << name;
    }
  }
  EXPECT_GT(found, support::rounds(1000));
}

TEST_F(SysteminfoInit, EndsAtAFailingReadAndDropsTheLineThatItEnds) {
  put(kVariables, "A=1\nB=2");
  Table table;
  support::run_with_failing_calls({{support::SystemCall::kRead, EIO, 1}},
                                  [&] { table.reset(systeminfo_init()); });
  ASSERT_NE(table, nullptr);
  EXPECT_STREQ(systeminfo_getvar(table.get(), "A"), "1\n");
  EXPECT_STREQ(systeminfo_getvar(table.get(), "B"), "");
}

TEST_F(SysteminfoInit, KeepsTheVariablesWhenTheFileChanges) {
  const Table table = table_of("NAME=1\n");
  const Table later = table_of("NAME=2\n");
  std::filesystem::remove(kVariables);
  EXPECT_EQ(systeminfo_getint(table.get(), "NAME"), 1);
  EXPECT_EQ(systeminfo_getint(later.get(), "NAME"), 2);
}

TEST_F(SysteminfoInit, WorksOnASmallStack) {
  put(kVariables, lines(256));
  support::run_on_small_stack([] { EXPECT_NE(Table(systeminfo_init()), nullptr); });
}

TEST_F(SysteminfoInit, ReadsThoughCancelled) {
  put(kVariables, lines(2));
  Table table;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { table.reset(systeminfo_init()); }));
  EXPECT_NE(table, nullptr);
}

TEST_F(SysteminfoInit, WorksOnSeveralThreadsAtOnce) {
  put(kVariables, lines(256));
  std::array<std::thread, 4> threads;
  for (std::thread& thread : threads) {
    thread = std::thread([] {
      for (int round = 0; round < 50; ++round) {
        const Table table(systeminfo_init());
        EXPECT_EQ(systeminfo_getint(table.get(), "NAME200"), 200);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(SysteminfoInit, LeavesNoDescriptorToPrograms) {
  // The file is open as long as the writing end of a FIFO is.
  ASSERT_EQ(::mkfifo(kVariables, 0600), 0);
  Table table;
  std::thread reader([&] { table.reset(systeminfo_init()); });
  UniqueFile writer(std::fopen(kVariables, "we"));
  const int descriptor = wait_for_descriptor(kVariables, ::fileno(writer.get()));
  EXPECT_EQ(::fcntl(descriptor, F_GETFD), FD_CLOEXEC);
  std::fputs("NAME=1\n", writer.get());
  writer.reset();
  reader.join();
  EXPECT_EQ(systeminfo_getint(table.get(), "NAME"), 1);
}

TEST_F(SysteminfoInit, ReadsToTheEndThroughSignals) {
  ASSERT_EQ(::mkfifo(kVariables, 0600), 0);
  const support::Interruption interruption;
  Table table;
  std::thread reader([&] { table.reset(systeminfo_init()); });
  support::Interruption::send(reader);  // while it opens
  UniqueFile writer(std::fopen(kVariables, "we"));
  std::fputs("A=1\nB=", writer.get());
  std::fflush(writer.get());
  support::Interruption::send(reader);  // while it reads
  std::fputs("2\nC=3\n", writer.get());
  writer.reset();
  reader.join();
  EXPECT_EQ(systeminfo_getint(table.get(), "A"), 1);
  EXPECT_EQ(systeminfo_getint(table.get(), "B"), 2);
  EXPECT_EQ(systeminfo_getint(table.get(), "C"), 3);
}

using SysteminfoGetvar = SysteminfoInit;

TEST_F(SysteminfoGetvar, GivesTheFirstOfOneName) {
  const Table table = table_of("NAME=1\nOTHER=2\nNAME=3\n");
  EXPECT_STREQ(systeminfo_getvar(table.get(), "NAME"), "1\n");
}

TEST_F(SysteminfoGetvar, ComparesNamesExactly) {
  const Table table = table_of("NAME =1\nname=2\nNAMES=3\nNAM=4\n");
  EXPECT_STREQ(systeminfo_getvar(table.get(), "NAME"), "");
  EXPECT_STREQ(systeminfo_getvar(table.get(), "NAME "), "1\n");
}

TEST_F(SysteminfoGetvar, FindsTheEmptyName) {
  const Table table = table_of("=value\n");
  EXPECT_STREQ(systeminfo_getvar(table.get(), ""), "value\n");
}

TEST_F(SysteminfoGetvar, GivesTheTablesOwnText) {
  const Table table = table_of("NAME=1\nOTHER=2\n");
  const Table later = table_of("NAME=3\n");
  const char* const value = systeminfo_getvar(table.get(), "NAME");
  const char* const other = systeminfo_getvar(table.get(), "OTHER");
  EXPECT_EQ(systeminfo_getvar(table.get(), "NAME"), value);
  EXPECT_STREQ(systeminfo_getvar(later.get(), "NAME"), "3\n");
  EXPECT_STREQ(value, "1\n");
  EXPECT_STREQ(other, "2\n");
}

TEST_F(SysteminfoGetvar, GivesTheEmptyTextForNull) {
  const Table table = table_of("=value\n");
  EXPECT_STREQ(systeminfo_getvar(nullptr, ""), "");
  EXPECT_STREQ(systeminfo_getvar(table.get(), nullptr), "");
  EXPECT_STREQ(systeminfo_getvar(nullptr, nullptr), "");
}

struct Number {
  const char* name;
  std::string line;
  int expected;
};

class SysteminfoGetint : public SysteminfoInit, public testing::WithParamInterface<Number> {};

TEST_P(SysteminfoGetint, GivesTheValueAsANumber) {
  const Table table = table_of(GetParam().line);
  EXPECT_EQ(systeminfo_getint(table.get(), "NAME"), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SysteminfoGetint,
    testing::Values(
        Number{"Plain", "NAME=12\n", 12}, Number{"Quoted", "NAME=\"12\"\n", 12},
        Number{"WhiteSpace", "NAME= \t12\n", 12}, Number{"Negative", "NAME=-12\n", -12},
        Number{"PlusSign", "NAME=+12\n", 12}, Number{"Largest", "NAME=2147483647\n", 2147483647},
        Number{"Smallest", "NAME=-2147483648\n", -2147483647 - 1},
        Number{"AboveTheLargest", "NAME=2147483648\n", -2147483647 - 1},
        Number{"BelowTheSmallest", "NAME=-2147483649\n", 2147483647},
        Number{"Wraps", "NAME=4294967298\n", 2}, Number{"LeadingZeros", "NAME=012\n", 12},
        Number{"Hexadecimal", "NAME=0x12\n", 0}, Number{"TextBehind", "NAME=12abc\n", 12},
        Number{"NoNumber", "NAME=abc\n", 0}, Number{"OnlyTheNewline", "NAME=\n", 0},
        Number{"Zero", "NAME=0\n", 0}, Number{"Empty", "NAME=\"\"\n", -1},
        Number{"Missing", "OTHER=12\n", -1}, Number{"TheFirstIsEmpty", "NAME=\"\"\nNAME=12\n", -1},
        Number{"EmptyTable", "", -1}),
    support::CaseName());

using SysteminfoGetintNull = SysteminfoInit;

TEST_F(SysteminfoGetintNull, GivesMinus1) {
  const Table table = table_of("=12\n");
  EXPECT_EQ(systeminfo_getint(nullptr, ""), -1);
  EXPECT_EQ(systeminfo_getint(table.get(), nullptr), -1);
}

TEST(SysteminfoFree, TakesNull) { systeminfo_free(nullptr); }

}  // namespace
