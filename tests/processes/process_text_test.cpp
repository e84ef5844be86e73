// Texts about processes, as the kernel writes them and as it would not.

#include <rkutils/processes/table/process_text.h>

#include <climits>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/case_name.h"

namespace {

using rkutils::processes::join_arguments;
using rkutils::processes::parent_in;
using rkutils::processes::to_process_id;

using namespace std::string_literals;

// ---- Ids ----

TEST(ToProcessId, ReadsDecimalNumbers) {
  EXPECT_EQ(to_process_id("1"), 1);
  EXPECT_EQ(to_process_id("4194304"), 4194304);
  EXPECT_EQ(to_process_id("0012"), 12);
  EXPECT_EQ(to_process_id("2147483647"), INT_MAX);
}

TEST(ToProcessId, RefusesWhatIsNone) {
  for (const char* const digits : {"2147483648", "4294967297", "99999999999999999999"}) {
    EXPECT_EQ(to_process_id(digits), std::nullopt) << digits;
  }
}

// ---- Command lines ----

std::string joined(std::string command_line) {
  const std::size_t length = command_line.size();
  command_line += "#!";  // the first of them is the room for the NUL
  join_arguments(command_line.data(), length);
  EXPECT_EQ(command_line[length + 1], '!');
  command_line.resize(std::strlen(command_line.c_str()));
  return command_line;
}

TEST(JoinArguments, SeparatesThemByBlanks) {
  EXPECT_EQ(joined("init\0"s), "init");
  EXPECT_EQ(joined("sleep\0"
                   "10\0"s),
            "sleep 10");
  EXPECT_EQ(joined("a\0b c\0d\0"s), "a b c d");
}

TEST(JoinArguments, DropsOneBlankAtTheEnd) {
  EXPECT_EQ(joined("a\0\0"s), "a ");
  EXPECT_EQ(joined("a \0"s), "a ");
  EXPECT_EQ(joined("a "s), "a");
  EXPECT_EQ(joined("a  "s), "a ");
  EXPECT_EQ(joined("\0\0\0"s), "  ");
}

TEST(JoinArguments, LeavesNothingOfAnEmptyName) {
  EXPECT_EQ(joined("\0"s), "");
  EXPECT_EQ(joined(" "s), "");
}

TEST(JoinArguments, KeepsAllOtherBytes) {
  EXPECT_EQ(joined("a\tb\n\xff\0"s), "a\tb\n\xff");
  EXPECT_EQ(joined("cut"s), "cut");
  EXPECT_EQ(joined(" a\0"s), " a");
}

// ---- Parents ----

struct Line {
  std::string name;
  std::string text;
  std::optional<int> parent;
};

class ParentIn : public testing::TestWithParam<Line> {};

TEST_P(ParentIn, IsTheFourthWord) {
  std::string text = GetParam().text;
  EXPECT_EQ(parent_in(text.data()), GetParam().parent);
}

const std::vector<Line> kLines = {
    {"AsUsual", "12 (name) S 7 12 12 0 -1\n", 7},
    {"OfProcess1", "1 (init) S 0 1 1 0 -1\n", 0},
    {"Last", "12 (name) S 7", 7},
    {"LastInTheLine", "12 (name) S 7\n8 9", 7},
    {"Greatest", "12 (name) S 2147483647 1\n", INT_MAX},
    {"ABlankInTheName", "12 (a b) S 7 12\n", 0},
    {"TwoBlanksInTheName", "12 (a b c) S 7 12\n", 0},
    {"BlanksInARow", "12 (a   b) S 7 12\n", 0},
    {"BlanksAtTheEndsOfTheName", "12 ( a ) S 7 12\n", 0},
    {"ABlankBeforeTheNameAlone", "12 ( a) S 7 12\n", 0},
    {"ABlankAlone", "12 ( ) S 7 12\n", 0},
    {"ANumberInTheName", "12 (a b 34) S 7 12\n", 34},
    {"ANegativeNumberInTheName", "12 (a b -34) S 7 12\n", -34},
    {"ANumberTooGreat", "12 (a b 99999999999) S 7\n", INT_MAX},
    {"ANumberTooSmall", "12 (a b -9999999999) S 7\n", INT_MIN},
    {"ATabAsTheFourthWord", "12 (a b \t 34) S 7\n", 0},
    {"ATabBeforeTheNumber", "12 (a b \t34) S 7\n", 34},
    {"Parentheses", "12 (a(b)) S 7 12\n", 7},
    {"ANewlineInTheName", "12 (a\nb) S 7 12\n", std::nullopt},
    {"ANewlineBehindTwoBlanks", "12 (a b\nc) S 7 12\n", std::nullopt},
    {"ANewlineAsTheFourthWord", "12 (a b \nc) S 7 12\n", 0},
    {"ThreeWords", "12 (name) S", std::nullopt},
    {"ThreeWordsAndABlank", "12 (name) S ", std::nullopt},
    {"BlanksAlone", "    ", std::nullopt},
    {"Nothing", "", std::nullopt},
    {"ALetter", "12 (name) S x 7\n", 0},
};
INSTANTIATE_TEST_SUITE_P(Lines, ParentIn, testing::ValuesIn(kLines), support::CaseName());

}  // namespace
