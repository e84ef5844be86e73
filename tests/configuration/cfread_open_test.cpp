// cfread_open(): a file as a table, and what is wrong with a file.

#include <rkutils/cfread.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "cfread_fixture.h"
#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/open_descriptors.h"
#include "support/rounds.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using namespace std::string_literals;

using testing::ElementsAre;

class CfreadOpen : public CfreadTest {
 protected:
  [[nodiscard]] support::LogLine err_at(const std::string& problem, int line) const {
    return err("cfread: " + problem + " in " + at("a.conf") + " at line " + std::to_string(line));
  }
};

TEST_F(CfreadOpen, ReadsTheEntriesOfAFile) {
  const Table table = open_table(file("a.conf",
                                      "# a comment\n"
                                      "\n"
                                      "mtu=1430\n"
                                      "  my key =  some value = x \n"
                                      "up = true\r\n"));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(entries_of(*table),
            (Entries{{"mtu", "1430"}, {"mykey", "some value = x "}, {"up", "true"}}));
  EXPECT_EQ(cfread_find_entry(table.get(), "mtu")->int_value, 1430);
  EXPECT_EQ(cfread_find_entry(table.get(), "up")->int_value, 1);
  EXPECT_EQ(cfread_find_entry(table.get(), "mykey")->int_value, -1);
}

TEST_F(CfreadOpen, FillsTheRecord) {
  const Table table = open_table(file("a.conf", "a=1\nb=2\n"));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->count, 2);
  EXPECT_EQ(table->size, 64);
  EXPECT_EQ(table->callback, nullptr);
  EXPECT_EQ(table->userdata, nullptr);
  EXPECT_FALSE(table->report_empty);
  EXPECT_STREQ(table->entries[0]->key, "a");
  EXPECT_EQ(table->entries[0]->index, 0U);
  EXPECT_STREQ(table->entries[1]->key, "b");
  EXPECT_EQ(table->entries[1]->index, 1U);
  for (int slot = 2; slot < 64; ++slot) EXPECT_EQ(table->entries[slot], nullptr);
}

TEST_F(CfreadOpen, OfAnEmptyFileHasNoSlots) {
  const Table table = open_table(file("a.conf", ""));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->count, 0);
  EXPECT_EQ(table->size, 0);
  EXPECT_EQ(table->entries, nullptr);
  EXPECT_EQ(cfread_find_entry(table.get(), "key"), nullptr);
}

TEST_F(CfreadOpen, TakesAFolderForAnEmptyFile) {
  const Table table = open_table(folder_);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->count, 0);
}

TEST_F(CfreadOpen, KeepsACopyOfThePathForMessages) {
  std::string path = file("a.conf", "include b.conf\na=1\n");
  put(at("b.conf"), "b=1\n");
  const Table table = open_table(path);
  ASSERT_NE(table, nullptr);
  std::fill(path.begin(), path.end(), '?');
  EXPECT_EQ(table->filename, at("a.conf"));
}

TEST_F(CfreadOpen, LetsTheLaterLineWin) {
  const Table table = open_table(file("a.conf", "a=1\nb=2\na=3\n"));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->count, 2);
  EXPECT_EQ(entries_of(*table), (Entries{{"a", "3"}, {"b", "2"}}));
}

TEST_F(CfreadOpen, PassesOverEntriesWithAnEmptyKeyOrValue) {
  const Table table = open_table(file("a.conf", "a=1\na=\na\n=2\n \n\n=\nb=  \n"));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->count, 1);
  EXPECT_EQ(entries_of(*table), (Entries{{"a", "1"}}));
}

TEST_F(CfreadOpen, Adds64SlotsForThe65thEntry) {
  std::string text;
  for (int i = 0; i < 64; ++i) text += "key" + std::to_string(i) + "=v\n";
  EXPECT_EQ(open_table(file("a.conf", text))->size, 64);
  const Table table = open_table(file("a.conf", text + "key64=v\n"));
  EXPECT_EQ(table->size, 128);
  EXPECT_EQ(table->count, 65);
  for (int slot = 0; slot <= 64; ++slot) {
    EXPECT_EQ(table->entries[slot]->key, "key" + std::to_string(slot));
  }
  for (int slot = 65; slot < 128; ++slot) EXPECT_EQ(table->entries[slot], nullptr);
}

TEST_F(CfreadOpen, ReadsTenThousandKeys) {
  std::string text;
  for (int i = 0; i < 10000; ++i) {
    text += "interface." + std::to_string(i) + ".mtu = " + std::to_string(i) + "\n";
  }
  const Table table = open_table(file("a.conf", text));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->count, 10000);
  EXPECT_EQ(table->size, 157 * 64);
  for (int i = 0; i < 10000; ++i) {
    const std::string key = "interface." + std::to_string(i) + ".mtu";
    const cfread_entry* const entry = cfread_find_entry(table.get(), key.c_str());
    ASSERT_NE(entry, nullptr) << key;
    ASSERT_EQ(entry->key, key);
    ASSERT_EQ(entry->int_value, i);
    ASSERT_EQ(entry->index, static_cast<std::uint32_t>(i));
  }
}

TEST_F(CfreadOpen, WithoutAPathFails) {
  EXPECT_EQ(cfread_open(nullptr), nullptr);
  EXPECT_EQ(cfread_open(""), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(err("cfread: no config file given"),
                                       err("cfread: no config file given")));
}

TEST_F(CfreadOpen, OfAMissingFileFails) {
  EXPECT_EQ(open_table(at("missing")), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(err("cfread: unable to open " + at("missing"))));
}

TEST_F(CfreadOpen, OfAFileThatMayNotBeReadFails) {
  const std::string path = file("a.conf", "a=1\n");
  ASSERT_EQ(::chmod(path.c_str(), 0), 0);
  run_without_override([&] { EXPECT_EQ(open_table(path), nullptr); });
  EXPECT_THAT(log_.take(), ElementsAre(err("cfread: unable to open " + path)));
}

TEST_F(CfreadOpen, WithoutADescriptorFails) {
  const std::string path = file("a.conf", "a=1\n");
  {
    const support::NoMoreDescriptors no_more;
    EXPECT_EQ(open_table(path), nullptr);
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("cfread: unable to open " + path)));
}

TEST_F(CfreadOpen, TakesAPathOf511BytesAndNoLongerOne) {
  const std::string path = path_of_length(folder_, 511);
  make_folders(path.substr(0, path.rfind('/')));
  put(path, "a=1\n");
  put(path + "e", "a=1\n");
  const Table table = open_table(path);
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->filename, path);
  EXPECT_EQ(open_table(path + "e"), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(err("cfread: unable to open " + path + "e")));
}

struct BadLine {
  const char* name;
  std::string line;
  std::string problem;
};

class CfreadOpenOfABadLine : public CfreadOpen, public testing::WithParamInterface<BadLine> {};

TEST_P(CfreadOpenOfABadLine, FailsAndNamesTheLine) {
  const BadLine& bad = GetParam();
  EXPECT_EQ(open_table(file("a.conf", bad.line)), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(err_at(bad.problem, 1)));
  EXPECT_EQ(open_table(file("a.conf", "# comment\n\nkey\nkey=value\n" + bad.line)), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(err_at(bad.problem, 5)));
}

const char kNonTerminated[] = "non-terminated entry";

INSTANTIATE_TEST_SUITE_P(
    Cases, CfreadOpenOfABadLine,
    testing::Values(
        BadLine{"KeyTooLong", std::string(256, 'k') + "=v\n", "max. key length exceeded"},
        BadLine{"ValueTooLong", "k=" + std::string(256, 'v') + "\n", "max. value length exceeded"},
        BadLine{"LastLineWithoutALineEnd", "key=value", kNonTerminated},
        BadLine{"LastLineOfASpace", " ", kNonTerminated},
        BadLine{"NulInTheLine", "key=val\0ue\n"s, kNonTerminated},
        BadLine{"NulAtTheBeginning", "\0key=value\n"s, kNonTerminated},
        BadLine{"NulAlone", "\0"s, kNonTerminated},
        BadLine{"LongerThanABuffer", std::string(1500, ' ') + "k=v\n", kNonTerminated}),
    support::CaseName());

TEST_F(CfreadOpen, ReadsNothingBehindANulInAComment) {
  const Table table = open_table(file("a.conf", "# a\0b\na=1\n#\0"s));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(entries_of(*table), (Entries{{"a", "1"}}));
}

TEST_F(CfreadOpen, TakesACommentWithoutALineEnd) {
  const Table table = open_table(file("a.conf", "a=1\n# end"));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->count, 1);
}

TEST_F(CfreadOpen, TakesALastLineThatACarriageReturnEnds) {
  const Table table = open_table(file("a.conf", "a=1\r"));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(entries_of(*table), (Entries{{"a", "1"}}));
}

TEST_F(CfreadOpen, TakesLinesOf1022BytesAndTheirLineFeed) {
  for (const std::size_t length : {1020U, 1021U, 1022U}) {
    const Table table = open_table(file("a.conf", std::string(length - 3, ' ') + "k=v\nl=w\n"));
    ASSERT_NE(table, nullptr) << length;
    EXPECT_EQ(entries_of(*table), (Entries{{"k", "v"}, {"l", "w"}}));
  }
  for (const std::size_t length : {1023U, 1024U, 1025U}) {
    EXPECT_EQ(open_table(file("a.conf", std::string(length - 3, ' ') + "k=v\nl=w\n")), nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(err_at(kNonTerminated, 1))) << length;
  }
}

TEST_F(CfreadOpen, CountsHighBytesInTheLengthOfALine) {
  EXPECT_NE(open_table(file("a.conf", std::string(1019, '\xff') + "k=v\n")), nullptr);
  EXPECT_EQ(open_table(file("a.conf", std::string(1020, '\xff') + "k=v\n")), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(err_at(kNonTerminated, 1)));
}

TEST_F(CfreadOpen, ReadsALongCommentsRestAsALineOfItsOwn) {
  const std::string comment = "#" + std::string(1022, 'x');
  const Table table = open_table(file("a.conf", comment + "rest=1\n"));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(entries_of(*table), (Entries{{"rest", "1"}}));
  // And counts it.
  EXPECT_EQ(open_table(file("a.conf", comment + "rest\nbad")), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(err_at(kNonTerminated, 3)));
}

TEST_F(CfreadOpen, StopsAtTheFirstBadLine) {
  EXPECT_EQ(open_table(file("a.conf", "a=1\nk=" + std::string(300, 'v') + "\nbad")), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(err_at("max. value length exceeded", 2)));
}

TEST_F(CfreadOpen, WithoutMemoryFailsInOneOfTheDocumentedWaysAndLeavesNothing) {
  put(at("b.conf"), "c=3\n");
  const std::string path = file("a.conf", "a=1\ninclude b.conf\nb=2\n");
  // Behind those of the table and of the open file come the slots: the next test's business.
  constexpr unsigned long kSlotsAllocation = 3;
  for (unsigned long nth = 1; nth < 20; ++nth) {
    if (nth == kSlotsAllocation) continue;
    bool happened = false;
    Table table;
    {
      const support::FailingAllocation failing(nth);
      table = open_table(path);
      happened = failing.happened();
    }
    // One each for the table, two files and the slots, and three for each entry.
    EXPECT_EQ(happened, nth <= 13) << nth;
    EXPECT_EQ(table == nullptr, happened) << nth;
    EXPECT_EQ(log_.take().empty(), !happened) << nth;
  }
}

TEST_F(CfreadOpen, WithoutMemoryForSlotsEndsTheProcess) {
  const std::string path = file("a.conf", "a=1\n");
  EXPECT_EQ(exit_status_of([&] {
              const support::FailingAllocation failing(3);
              open_table(path);
            }),
            1);
  EXPECT_THAT(log_.take(), ElementsAre(emergency("cfread: unable to get a free index")));
}

TEST_F(CfreadOpen, WithoutMemoryForTheTableFails) {
  const std::string path = file("a.conf", "a=1\n");
  {
    const support::FailingAllocation failing(1);
    EXPECT_EQ(open_table(path), nullptr);
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("cfread: no mem to alloc config table")));
}

// Whatever is in a file, it is read to its end or reported once.
TEST_F(CfreadOpen, OfRandomBytesReadsOrReports) {
  std::mt19937 random(20260103);
  const std::string frequent = "==  \n\n#k\r"s;
  int read = 0;
  const int rounds = support::rounds(3000);
  for (int round = 0; round < rounds; ++round) {
    std::string bytes(random() % 400, '\0');
    const bool wild = round % 2 == 0;
    for (char& byte : bytes) {
      byte = wild ? static_cast<char>(random()) : frequent[random() % frequent.size()];
    }
    const Table table = open_table(file("a.conf", bytes));
    const auto log = log_.take();
    ASSERT_EQ(log.size(), table == nullptr ? 1U : 0U) << "round " << round;
    if (table != nullptr) ++read;
  }
  // Both outcomes must have come up.
  EXPECT_GT(read, rounds / 30);
  EXPECT_LT(read, rounds - rounds / 30);
}

TEST_F(CfreadOpen, WorksOnASmallStack) {
  put(at("b.conf"), "b=2\n");
  const std::string path = file("a.conf", "a=1\ninclude b.conf\n");
  support::run_on_small_stack([&] {
    const Table table = open_table(path);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->count, 2);
  });
}

TEST_F(CfreadOpen, ReadsThoughCancelled) {
  put(at("b.conf"), "b=2\n");
  const std::string path = file("a.conf", "a=1\ninclude b.conf\n");
  Table table;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { table = open_table(path); }));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->count, 2);
}

TEST_F(CfreadOpen, FailsThoughCancelled) {
  const std::string path = file("a.conf", "a=1\nunterminated");
  Table table;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { table = open_table(path); }));
  EXPECT_EQ(table, nullptr);
  EXPECT_THAT(log_.take(), testing::SizeIs(1));
}

TEST(CfreadClose, OfNullDoesNothing) { cfread_close(nullptr); }

}  // namespace
