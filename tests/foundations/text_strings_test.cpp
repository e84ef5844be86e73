#include <rkutils/text.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

char* no_text = nullptr;
// Without the attribute by which a compiler checks the format.
char* (*const unchecked_strformat)(const char*, ...) = strformat;

TEST(Strtolower, ConvertsInPlaceAndReturnsItsArgument) {
  std::string text = "AbZ-09\xc4";
  EXPECT_EQ(strtolower(text.data()), text.data());
  EXPECT_EQ(text, "abz-09\xc4");
  EXPECT_EQ(strtolower(no_text), nullptr);
}

TEST(Strtolower, LeavesAnEmptyTextEvenWhereItCannotBeWritten) {
  static const char kEmpty[] = "";
  EXPECT_EQ(strtolower(const_cast<char*>(kEmpty)), kEmpty);
  EXPECT_EQ(strtoupper(const_cast<char*>(kEmpty)), kEmpty);
}

TEST(Strtoupper, ConvertsInPlaceAndReturnsItsArgument) {
  std::string text = "aBz-09\xe4";
  EXPECT_EQ(strtoupper(text.data()), text.data());
  EXPECT_EQ(text, "ABZ-09\xe4");
  EXPECT_EQ(strtoupper(no_text), nullptr);
}

TEST(IsNumber, AcceptsDigitsAndSignsInAnyOrder) {
  for (const char* text : {"", "0", "0123456789", "-1", "1-2", "+-", "--"}) {
    EXPECT_TRUE(is_number(text)) << text;
  }
  for (const char* text : {"1a", " 1", "1.5", "0x1", "a", "1\n"}) {
    EXPECT_FALSE(is_number(text)) << text;
  }
  EXPECT_FALSE(is_number(nullptr));
}

TEST(Skipchars, ReturnsTheFirstCharacterThatIsNotInTheSet) {
  const char* text = "aabbc";
  EXPECT_EQ(skipchars(text, "a"), text + 2);
  EXPECT_EQ(skipchars(text, "ab"), text + 4);
  EXPECT_EQ(skipchars(text, "abc"), text + 5);
  EXPECT_EQ(skipchars(text, "b"), text);
}

TEST(Skipchars, ReturnsItsArgumentWhereNothingIsGiven) {
  const char* text = "abc";
  EXPECT_EQ(skipchars(text, ""), text);
  EXPECT_EQ(skipchars(text, nullptr), text);
  EXPECT_EQ(skipchars(nullptr, "a"), nullptr);
  const char* empty = "";
  EXPECT_EQ(skipchars(empty, "a"), empty);
}

TEST(Stripchars, CutsBothEnds) {
  std::string text = "xyabxcyx";
  EXPECT_EQ(stripchars(text.data(), "xy"), text.data() + 2);
  EXPECT_EQ(text, "xyabxc\0x"s);
}

TEST(Stripchars, WritesNothingWhereNothingTrails) {
  static const char kConstant[] = "xab";
  EXPECT_EQ(stripchars(const_cast<char*>(kConstant), "x"), kConstant + 1);
  EXPECT_EQ(stripchars(const_cast<char*>(kConstant), ""), kConstant);
}

TEST(Stripchars, OfNothingElseLeavesAnEmptyText) {
  std::string text = "xxxx";
  EXPECT_STREQ(stripchars(text.data(), "x"), "");
}

TEST(Stripchars, RefusesNull) {
  std::string text = "x";
  EXPECT_EQ(stripchars(nullptr, "x"), nullptr);
  EXPECT_EQ(stripchars(text.data(), nullptr), nullptr);
}

TEST(Stripwhite, CutsBlanksTabsAndLineEnds) {
  std::string text = " \tab \r\n";
  EXPECT_EQ(stripwhite(text.data()), text.data() + 2);
  EXPECT_EQ(text, " \tab\0\r\n"s);
  std::string inner = "a \t b";
  EXPECT_STREQ(stripwhite(inner.data()), "a \t b");
  std::string other = "\va\f";
  EXPECT_STREQ(stripwhite(other.data()), "\va\f");
  EXPECT_EQ(stripwhite(nullptr), nullptr);
}

TEST(Reverse, TurnsATextAround) {
  for (const auto& [text, expected] : {std::pair("abc"s, "cba"s), std::pair("ab"s, "ba"s),
                                       std::pair("a"s, "a"s), std::pair(""s, ""s)}) {
    std::string copy = text;
    reverse(copy.data());
    EXPECT_EQ(copy, expected);
  }
  reverse(nullptr);
}

using Comparison = std::tuple<const char*, const char*, int>;
class Stricmp : public testing::TestWithParam<Comparison> {};

TEST_P(Stricmp, ComparesWithoutCase) {
  const auto& [a, b, expected] = GetParam();
  EXPECT_EQ(stricmp(a, b), expected);
  EXPECT_EQ(stricmp(b, a), -expected);
  EXPECT_EQ(strnicmp(a, b, SIZE_MAX), expected);
}

INSTANTIATE_TEST_SUITE_P(Pairs, Stricmp,
                         testing::Values(Comparison{"abc", "ABD", -1}, Comparison{"abc", "ABC", 0},
                                         Comparison{"", "", 0}, Comparison{"", "a", -1},
                                         Comparison{"ab", "abc", -1}, Comparison{"Z", "a", 1},
                                         Comparison{"a", "z", -1},
                                         // Between the cases, where folding to upper case differs.
                                         Comparison{"_", "A", -1}, Comparison{"[", "a", -1},
                                         Comparison{"@", "`", -1},
                                         // Bytes are unsigned, and beyond ASCII not folded.
                                         Comparison{"a", "\x80", -1}, Comparison{"\xe4", "\xc4", 1},
                                         Comparison{nullptr, "", 0}, Comparison{nullptr, "a", -1},
                                         Comparison{nullptr, nullptr, 0}));

TEST(Strnicmp, ComparesSoManyCharactersAtMost) {
  EXPECT_EQ(strnicmp("abc", "ABD", 2), 0);
  EXPECT_EQ(strnicmp("abc", "ABD", 3), -1);
  EXPECT_EQ(strnicmp("x", "y", 0), 0);
  EXPECT_EQ(strnicmp("ab", "abc", 2), 0);
  EXPECT_EQ(strnicmp("ab", "abc", 3), -1);
  EXPECT_EQ(strnicmp(nullptr, "a", 1), -1);
  EXPECT_EQ(strnicmp(nullptr, "a", 0), 0);
}

// Escapes into a buffer of '#', of which `size` bytes may be used.
std::string escaped(const std::string& text, std::size_t count, std::size_t size) {
  std::string buffer(16, '#');
  EXPECT_EQ(escape(text.c_str(), count, buffer.data(), size), buffer.data());
  return buffer;
}

TEST(Escape, WritesControlCharactersAsPairs) {
  EXPECT_EQ(escaped("a\t\n\r\x01", 5, 16), "a\\t\\n\\r^A\0######"s);
  EXPECT_EQ(escaped("\x1f \x7f\xff", 4, 16), "^_ \x7f\xff\0##########"s);
}

TEST(Escape, StopsAtItsCountAndAtANul) {
  EXPECT_EQ(escaped("abcdef", 3, 16).substr(0, 4), "abc\0"s);
  EXPECT_EQ(escaped("ab\0cd"s, 5, 16).substr(0, 3), "ab\0"s);
  EXPECT_EQ(escaped("abc", 0, 16).substr(0, 1), "\0"s);
}

TEST(Escape, LeavesAMarginOfTwoBytes) {
  EXPECT_EQ(escaped("abcdef", 6, 6), "abcd\0###########"s);
  // A pair that begins before the margin is completed in it.
  EXPECT_EQ(escaped("abc\tef", 6, 6), "abc\\t\0##########"s);
  EXPECT_EQ(escaped("abcd\tf", 6, 6), "abcd\0###########"s);
}

TEST(Escape, IntoAlmostNothingWritesTheNulAlone) {
  EXPECT_EQ(escaped("abc", 3, 3), "a\0##############"s);
  EXPECT_EQ(escaped("abc", 3, 2), "\0###############"s);
  EXPECT_EQ(escaped("abc", 3, 1), "\0###############"s);
  EXPECT_EQ(escaped("abc", 3, 0), "################"s);
}

TEST(Escape, TakesNull) {
  char buffer[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(escape(nullptr, 3, buffer, sizeof buffer), buffer);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(escape("abc", 3, nullptr, 4), nullptr);
}

TEST(Escape, LeavesTheEscapesOfTheTextItself) {
  EXPECT_EQ(escaped("\\t^A\t\x01", 6, 16), "\\t^A\\t^A\0#######"s);
}

TEST(Strformat, FormatsIntoItsOwnBuffer) {
  char* first = strformat("%d-%s", 1, "a");
  EXPECT_STREQ(first, "1-a");
  EXPECT_EQ(strformat("%d", 2), first);
  EXPECT_STREQ(first, "2");
}

TEST(Strformat, CutsAt2047Characters) {
  const std::string text(3000, 'x');
  EXPECT_EQ(strformat("%s", text.c_str()), text.substr(0, 2047));
}

TEST(Strformat, TakesItsOwnResultAsAValue) {
  EXPECT_STREQ(strformat("<%s>", strformat("%s", "a")), "<a>");
}

TEST(Strformat, KeepsWhatStandsBehindANul) {
  const auto result = [](const char* text) { return std::string(text, 6); };
  strformat("%s", "######");
  EXPECT_EQ(result(strformat("a%cbcd", 0)), "a\0bcd\0"s);
  strformat("%s", std::string(2047, '#').c_str());
  const char* cut = strformat("%c%3000d", 0, 1);
  EXPECT_EQ(std::string(cut, 2048), "\0"s + std::string(2046, ' ') + "\0"s);
}

TEST(Strformat, IsEmptyForNullAndForWhatCannotBeFormatted) {
  strformat("%s", "before");
  EXPECT_STREQ(unchecked_strformat(nullptr), "");
  strformat("%s", "before");
  EXPECT_STREQ(unchecked_strformat("ab%lc", 0x7fffffff), "");
}

TEST(XmlReadattr, GivesWhatStandsBetweenTheTags) {
  EXPECT_STREQ(xml_readattr("<a>1</a><b>2</b>", "b"), "2");
  EXPECT_STREQ(xml_readattr("<b>1</b><b>2</b>", "b"), "1");
  EXPECT_STREQ(xml_readattr("x<b>1</b>2</b>", "b"), "1");
  EXPECT_STREQ(xml_readattr("<b></b>", "b"), "");
  EXPECT_STREQ(xml_readattr("</b><b>1</b>", "b"), "1");
}

TEST(XmlReadattr, IsNullWhereSomethingIsMissing) {
  EXPECT_EQ(xml_readattr(nullptr, "b"), nullptr);
  EXPECT_EQ(xml_readattr("<b>1</b>", nullptr), nullptr);
  EXPECT_EQ(xml_readattr("", "b"), nullptr);
  EXPECT_EQ(xml_readattr("<>1</>", ""), nullptr);
  EXPECT_EQ(xml_readattr("<a>1</a>", "b"), nullptr);
  EXPECT_EQ(xml_readattr("<b>", "b"), nullptr);
  EXPECT_EQ(xml_readattr("<b>1", "b"), nullptr);
  EXPECT_EQ(xml_readattr("</b><b>1", "b"), nullptr);
}

TEST(XmlReadattr, LooksAt1023CharactersAfterTheOpeningTag) {
  const std::string most(1019, 'x');
  EXPECT_EQ(xml_readattr(("<b>" + most + "</b>").c_str(), "b"), most);
  EXPECT_EQ(xml_readattr(("<b>" + most + "x</b>").c_str(), "b"), nullptr);
}

TEST(XmlReadattr, ReadsItsOwnResult) {
  const char* outer = xml_readattr("<a><b>1</b></a>", "a");
  EXPECT_STREQ(outer, "<b>1</b>");
  EXPECT_STREQ(xml_readattr(outer, "b"), "1");
}

TEST(XmlReadattr, TakesItsOwnResultForTheTag) {
  const char* name = xml_readattr("<name>b</name>", "name");
  EXPECT_STREQ(name, "b");
  const char* value = xml_readattr("<a>0</a><b>1</b>", name);
  EXPECT_EQ(value, name) << "one buffer";
  EXPECT_STREQ(value, "1");
}

TEST(XmlReadattr, TakesItsOwnResultForBoth) {
  const char* outer = xml_readattr("<a>x<tag>1</tag>tag</a>", "a");
  EXPECT_STREQ(outer, "x<tag>1</tag>tag");
  EXPECT_STREQ(xml_readattr(outer, outer + 13), "1");
}

TEST(XmlReadattr, HasABufferOfItsOwn) {
  char* const first = xml_readattr("<b>1</b>", "b");
  EXPECT_EQ(xml_readattr("<b>22</b>", "b"), first);
  EXPECT_STREQ(first, "22");
  strformat("%s", "other");
  EXPECT_STREQ(first, "22");
}

TEST(XmlReadattr, OverwritesStrformatsResult) {
  const char* held = strformat("%s", "held");
  xml_readattr("<b>1</b>", "b");
  EXPECT_STREQ(held, "</b>");
}

TEST(XmlReadattr, TakesATagThatDoesNotFitForMissing) {
  const std::string tag(5000, 't');
  EXPECT_EQ(xml_readattr(("<" + tag + ">1</" + tag + ">").c_str(), tag.c_str()), nullptr);
}

TEST(E164Number, AcceptsWhatCanBeDialled) {
  for (const char* text : {"", "0123456789", "ABCXYZ", "*#?"})
    EXPECT_EQ(e164Number(text), 0) << text;
  for (const char* text : {"a", "+49", "1 2", "[", "@", "\xc4"}) {
    EXPECT_EQ(e164Number(text), -1) << text;
  }
  EXPECT_EQ(e164Number(nullptr), -1);
}

}  // namespace
