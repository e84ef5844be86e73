// One line of a configuration file, and a value as a number.

#include <rkutils/configuration/cfread/line.h>
#include <rkutils/configuration/cfread/value_number.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "cfread_simple_line.h"
#include "support/case_name.h"
#include "support/rounds.h"

namespace {

using namespace std::string_literals;

using rkutils::cfread::Line;
using rkutils::cfread::LineKind;
using rkutils::cfread::number_of_value;
using rkutils::cfread::parse_line;

SimpleLine read(const std::string& text) {
  // On the heap with nothing behind its NUL, where a byte too far is seen.
  std::vector<char> line(text.c_str(), text.c_str() + text.size() + 1);
  const Line result = parse_line(line.data());
  return {result.kind, result.key, result.value};
}

std::string x(std::size_t count) { return std::string(count, 'x'); }

constexpr auto kUnterminated = LineKind::kUnterminated;
constexpr auto kKeyTooLong = LineKind::kKeyTooLong;
constexpr auto kValueTooLong = LineKind::kValueTooLong;

struct Case {
  const char* name;
  std::string text;
  SimpleLine expected;
};

SimpleLine entry(std::string key, std::string value) {
  return {LineKind::kEntry, std::move(key), std::move(value)};
}
SimpleLine include(std::string name) { return {LineKind::kInclude, "", std::move(name)}; }

class ParseLine : public testing::TestWithParam<Case> {};

TEST_P(ParseLine, ReadsIt) { EXPECT_EQ(read(GetParam().text), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(
    Entries, ParseLine,
    testing::Values(Case{"Plain", "key=value\n", entry("key", "value")},
                    Case{"SpacesEverywhere", "  my key =  some value = x \n",
                         entry("mykey", "some value = x ")},
                    Case{"NoEqualsSign", "key\n", entry("key", "")},
                    Case{"NoValue", "key=\n", entry("key", "")},
                    Case{"NoKey", "=value\n", entry("", "value")},
                    Case{"OnlyAnEqualsSign", "=\n", entry("", "")},
                    Case{"OnlySpacesInTheValue", "key=   \n", entry("key", "")},
                    Case{"OnlySpaces", "   \n", entry("", "")},
                    Case{"TwoEqualsSigns", "a==b\n", entry("a", "=b")},
                    Case{"SpaceBetweenEqualsSigns", "a= =b\n", entry("a", "=b")},
                    Case{"TabsStay", "\tk\te\t=\tv\t\n", entry("\tk\te\t", "\tv\t")},
                    Case{"QuotesAndBackslashesStay", "'k\"=\"a\\n'\n", entry("'k\"", "\"a\\n'")},
                    Case{"HashInside", "k#=#v\n", entry("k#", "#v")},
                    Case{"HashBehindASpace", " #k=v\n", entry("#k", "v")},
                    Case{"ControlBytesStay", "\x01k\x1f=\x7f\n", entry("\x01k\x1f", "\x7f")},
                    Case{"HighBytesGo", "k\x80\xff"s + "ey=v\xc3\xa4"s + "l\n", entry("key", "vl")},
                    Case{"OnlyHighBytes", "\xe4=\xf6\n", entry("", "")},
                    Case{"SpacesOnBothSidesOfAHighByte", "k= \xc3 \xa4 v\n", entry("k", "v")},
                    Case{"SpacesAroundAHighByteInside", "k=v \xa4 w\n", entry("k", "v  w")},
                    Case{"CarriageReturnAndLineFeed", "key=value\r\n", entry("key", "value")},
                    Case{"OnlyACarriageReturn", "key=value\r", entry("key", "value")},
                    Case{"TextBehindACarriageReturn", "key=value\rx=y\n", entry("key", "value")},
                    Case{"CarriageReturnInTheKey", "key\r=value\n", entry("key", "")}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(BlankLines, ParseLine,
                         testing::Values(Case{"LineFeed", "\n", entry("", "")},
                                         Case{"CarriageReturn", "\r", entry("", "")},
                                         Case{"CarriageReturnAndText", "\rkey=value",
                                              entry("", "")}),
                         support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Comments, ParseLine,
    testing::Values(Case{"Comment", "# key=value\n", {LineKind::kComment}},
                    Case{"WithoutALineEnd", "#", {LineKind::kComment}},
                    Case{"LongerThanAnEntryMayBe", "#" + x(900) + "\n", {LineKind::kComment}}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Includes, ParseLine,
    testing::Values(Case{"Include", "include a.conf\n", include("a.conf")},
                    Case{"WithoutALineEnd", "include a.conf", include("a.conf")},
                    Case{"WhiteSpaceAround", "include  \t a b.conf \t\r\n", include("a b.conf")},
                    Case{"HighBytesStay", "include \xc3\xa4.conf\n", include("\xc3\xa4.conf")},
                    Case{"EqualsSign", "include =x\n", include("=x")},
                    Case{"NoName", "include \n", include("")},
                    Case{"OnlyWhiteSpace", "include  \t\r\n", include("")},
                    Case{"NothingElse", "include ", include("")},
                    Case{"NoSpace", "include\n", entry("include", "")},
                    Case{"AKey", "include=x\n", entry("include", "x")},
                    Case{"ATab", "include\tx\n", entry("include\tx", "")},
                    Case{"UpperCase", "Include x\n", entry("Includex", "")},
                    Case{"NotAtTheBeginning", " include x\n", entry("includex", "")}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Limits, ParseLine,
    testing::Values(Case{"Key255", x(255) + "=v\n", entry(x(255), "v")},
                    Case{"Key256", x(256) + "=v\n", {kKeyTooLong}},
                    Case{"Key255AndASpace", x(255) + " =v\n", {kKeyTooLong}},
                    Case{"Key255AndASpaceWithoutALineEnd", x(255) + " ", {kKeyTooLong}},
                    Case{"Key254AndSpaces", x(254) + "    =v\n", entry(x(254), "v")},
                    Case{"Key255AmongSpaces", "  " + x(100) + "  " + x(155) + "=v\n",
                         entry(x(255), "v")},
                    Case{"Key255AndAHighByte", x(255) + "\x80=v\n", entry(x(255), "v")},
                    Case{"Key255WithoutAValue", x(255) + "\n", entry(x(255), "")},
                    Case{"Key255WithoutALineEnd", x(255), {kUnterminated}},
                    Case{"Value255", "k=" + x(255) + "\n", entry("k", x(255))},
                    Case{"Value256", "k=" + x(256) + "\n", {kValueTooLong}},
                    Case{"Value256WithoutALineEnd", "k=" + x(256), {kValueTooLong}},
                    Case{"Value255AndASpace", "k=" + x(255) + " \n", {kValueTooLong}},
                    Case{"Value255AndAnEqualsSign", "k=" + x(255) + "=\n", {kValueTooLong}},
                    Case{"Value255BehindSpaces", "k=   " + x(255) + "\n", entry("k", x(255))},
                    Case{"Value255AndAHighByte", "k=" + x(255) + "\xff\n", entry("k", x(255))},
                    Case{"Both255", x(255) + "=" + x(255) + "\n", entry(x(255), x(255))},
                    Case{"ManySpacesAndHighBytes",
                         std::string(400, ' ') + std::string(200, '\x80') +
                             "k=" + std::string(400, ' ') + "v\n",
                         entry("k", "v")}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(LineEndsMissing, ParseLine,
                         testing::Values(Case{"Empty", "", {kUnterminated}},
                                         Case{"Key", "key", {kUnterminated}},
                                         Case{"KeyAndEqualsSign", "key=", {kUnterminated}},
                                         Case{"KeyAndSpaces", "key=  ", {kUnterminated}},
                                         Case{"Value", "key=value", {kUnterminated}},
                                         Case{"OnlySpaces", "  ", {kUnterminated}},
                                         Case{"OnlyHighBytes", "\x80\x80", {kUnterminated}}),
                         support::CaseName());

TEST(ParseLineModel, ReadsRandomLinesAsTheSimpleReaderDoes) {
  // Bytes that mean something, more often than not.
  const std::string bytes = "   ==##\n\r\x80\xffxyzinclude \t"s;
  std::mt19937 random(20260101);
  const auto pick = [&](std::size_t below) { return static_cast<std::size_t>(random() % below); };
  for (int round = support::rounds(200000); round > 0; --round) {
    std::string text = pick(8) == 0 ? "include " : "";
    // Around the limits where long, with runs of one byte.
    for (std::size_t runs = pick(6); runs > 0; --runs) {
      text.append(pick(8) == 0 ? 250 + pick(10) : pick(4), bytes[pick(bytes.size())]);
    }
    if (pick(4) != 0) text += '\n';
    text = text.substr(0, 1023);
    ASSERT_EQ(read(text), read_simple_line(text))
        << "round " << round << " from the last: " << text;
  }
}

TEST(ParseLineModel, ReadsEveryByteAnywhereAsTheSimpleReaderDoes) {
  for (int value = 1; value <= 255; ++value) {
    // In the place of each "?".
    for (std::string text :
         {"?k=v\n", "k?l=v\n", "k=?v\n", "k=v?w\n", "include ?a?b?\n", "include?a\n"}) {
      std::replace(text.begin(), text.end(), '?', static_cast<char>(value));
      ASSERT_EQ(read(text), read_simple_line(text)) << "byte " << value << ": " << text;
    }
  }
}

struct Number {
  const char* name;
  const char* value;
  long expected;
};

class NumberOfValue : public testing::TestWithParam<Number> {};

TEST_P(NumberOfValue, Is) { EXPECT_EQ(number_of_value(GetParam().value), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(
    Numbers, NumberOfValue,
    testing::Values(Number{"Zero", "0", 0}, Number{"Plain", "1234", 1234},
                    Number{"Minus", "-5", -5}, Number{"Plus", "+5", 5},
                    Number{"MinusZero", "-0", 0}, Number{"LeadingZeros", "0010", 10},
                    Number{"ManyLeadingZeros", "0000000000000000000000000000007", 7},
                    Number{"LonePlus", "+", 0}, Number{"LoneMinus", "-", 0},
                    Number{"Largest", "2147483646", 2147483646},
                    Number{"AtTheUpperLimit", "2147483647", -1},
                    Number{"AboveTheUpperLimit", "2147483648", -1},
                    Number{"OverflowAsInAnExample", "99999999999", -1},
                    Number{"Smallest", "-2147483647", -2147483647},
                    Number{"AtTheLowerLimit", "-2147483648", -1},
                    Number{"BelowTheLowerLimit", "-2147483649", -1},
                    Number{"ThatWrapsTo5In32Bits", "4294967301", -1},
                    Number{"ThatWrapsTo5In64Bits", "18446744073709551621", -1},
                    Number{"OfManyDigits", "99999999999999999999999999999999999999999", -1},
                    Number{"OfManyDigitsBelowZero", "-99999999999999999999999999999999999", -1}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(Words, NumberOfValue,
                         testing::Values(Number{"True", "true", 1}, Number{"False", "false", 0},
                                         Number{"UpperCaseTrue", "True", -1},
                                         Number{"TrueAndMore", "true ", -1},
                                         Number{"Yes", "yes", -1}, Number{"Empty", "", -1}),
                         support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    NoNumbers, NumberOfValue,
    testing::Values(Number{"Hexadecimal", "0x10", -1}, Number{"SpaceBefore", " 5", -1},
                    Number{"SpaceBehind", "5 ", -1}, Number{"TwoSigns", "+-5", -1},
                    Number{"TwoMinuses", "--", -1}, Number{"SignInside", "1-2", -1},
                    Number{"SignBehind", "5-", -1}, Number{"Fraction", "1.5", -1},
                    Number{"Unit", "5k", -1}, Number{"Letter", "a", -1},
                    Number{"LongWithALetter", "99999999999x", -1}),
    support::CaseName());

}  // namespace
