#include <rkutils/processes/command/words.h>

#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/case_name.h"

namespace {

using rkutils::processes::CommandWords;

using Words = std::vector<std::string>;

// The words of a line, or nothing when a quote is not closed.
std::optional<Words> words_of(const char* line) {
  Words all;
  CommandWords words(line);
  for (;;) {
    switch (words.next()) {
      case CommandWords::Found::kWord:
        all.emplace_back(words.word());
        break;
      case CommandWords::Found::kEnd:
        return all;
      case CommandWords::Found::kUnclosedQuote:
        return std::nullopt;
    }
  }
}

struct Case {
  const char* name;
  const char* line;
  Words words;
};

class CommandWordsTest : public testing::TestWithParam<Case> {};

TEST_P(CommandWordsTest, Split) {
  EXPECT_EQ(words_of(GetParam().line), std::optional(GetParam().words));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, CommandWordsTest,
    testing::Values(
        Case{"Nothing", "", {}}, Case{"Blanks", " \t\n  \n", {}}, Case{"One", "ls", {"ls"}},
        Case{"Several", "ip link show", {"ip", "link", "show"}},
        Case{"BlanksOfAllKinds", " a\tb\nc  \t\n d\n", {"a", "b", "c", "d"}},
        Case{"OtherWhiteSpace", "a\rb\vc\fd", {"a\rb\vc\fd"}},
        Case{"SingleQuotes", "a 'b c' d", {"a", "b c", "d"}},
        Case{"DoubleQuotes", "a \"b c\" d", {"a", "b c", "d"}},
        Case{"AllBlanksInQuotes", "' \t\n'", {" \t\n"}},
        Case{"TheOtherQuoteInQuotes", "\"it's\" 'say \"x\"'", {"it's", "say \"x\""}},
        Case{"AQuoteInsideAWord", "it's", {"it's"}},
        Case{"QuotesInsideAWord", "a\"b c\"", {"a\"b", "c\""}},
        Case{"AQuoteAtAWordsEnd", "it' is\" ", {"it'", "is\""}},
        Case{"EmptyQuotesInsideAWord", "a''b", {"a''b"}},
        Case{"AWordBehindAQuotedOne", "'ab'cd", {"ab", "cd"}},
        Case{"AQuotedWordBehindAQuotedOne", "'ab''cd'\"ef\"", {"ab", "cd", "ef"}},
        Case{"AQuoteInAWordBehindAQuotedOne", "'ab'c'd e", {"ab", "c'd", "e"}},
        Case{"Empty", "'' \"\"", {"", ""}}, Case{"EmptyAtTheEnd", "a ''", {"a", ""}},
        Case{"NoEscapes", R"(a\ b \" 'c\' $x * #y)", {"a\\", "b", "\\\"", "c\\", "$x", "*", "#y"}},
        Case{"BytesAbove127", "\xe4\xa0 '\xff\x85'", {"\xe4\xa0", "\xff\x85"}}),
    support::CaseName());

TEST(CommandWords, AnUnclosedQuoteIsToldApart) {
  for (const char* line : {"\"x", "'", "a '", "a 'b\" c", "'a' \"", "''' "}) {
    EXPECT_EQ(words_of(line), std::nullopt) << line;
  }
}

TEST(CommandWords, TheWordsBeforeAnUnclosedQuoteComeFirst) {
  CommandWords words("a 'b");
  EXPECT_EQ(words.next(), CommandWords::Found::kWord);
  EXPECT_EQ(words.word(), "a");
  EXPECT_EQ(words.next(), CommandWords::Found::kUnclosedQuote);
}

TEST(CommandWords, TheEndStaysTheEnd) {
  CommandWords words("a ");
  EXPECT_EQ(words.next(), CommandWords::Found::kWord);
  EXPECT_EQ(words.next(), CommandWords::Found::kEnd);
  EXPECT_EQ(words.next(), CommandWords::Found::kEnd);
}

}  // namespace
