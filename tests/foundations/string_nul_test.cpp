// Strings with NULs inside: what keeps and compares all of the text, and what ends at the NUL.

#include <rkutils/string.h>

#include <cstddef>
#include <string>

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

String string_of(const std::string& text) {
  String s("", 0L);
  s.concat(text.data(), static_cast<long>(text.size()));
  return s;
}

std::string text_of(String const& s) {
  EXPECT_EQ(s.c_str()[s.length()], '\0');
  return std::string(s.c_str(), static_cast<std::size_t>(s.length()));
}

const std::string kText = "aB\0cD "s;

TEST(StringNul, IsKeptByEditing) {
  EXPECT_EQ(text_of(string_of(kText).toLowerCase()), "ab\0cd "s);
  EXPECT_EQ(text_of(string_of(kText).toUpperCase()), "AB\0CD "s);
  EXPECT_EQ(text_of(string_of(kText).replace('D', 'x')), "aB\0cx "s);
  EXPECT_EQ(text_of(string_of(kText).replace('\0', '-')), "aB-cD "s);
  EXPECT_EQ(text_of(string_of(kText).trim()), "aB\0cD"s);
  EXPECT_EQ(text_of(string_of(kText).deleteRegion(4)), "aB\0c"s);
  EXPECT_EQ(text_of(string_of(kText).deleteRegion(1, 2)), "a\0cD "s);
  EXPECT_EQ(text_of(string_of(kText).insert(4, 'x')), "aB\0cxD "s);
  EXPECT_EQ(text_of(string_of(kText).insert(0, "x")), "xaB\0cD "s);
  EXPECT_EQ(text_of(string_of(kText) += 'x'), "aB\0cD x"s);
  EXPECT_EQ(text_of(string_of(kText).concatf("%d", 1)), "aB\0cD 1"s);
}

TEST(StringNul, IsKeptByEditingASharedBuffer) {
  const String original = string_of(kText);
  const auto copy = [&] { return String(original); };
  EXPECT_EQ(text_of(copy().toLowerCase()), "ab\0cd "s);
  EXPECT_EQ(text_of(copy().toUpperCase()), "AB\0CD "s);
  EXPECT_EQ(text_of(copy().replace('D', 'x')), "aB\0cx "s);
  EXPECT_EQ(text_of(copy().trim()), "aB\0cD"s);
  EXPECT_EQ(text_of(copy().deleteRegion(4)), "aB\0c"s);
  EXPECT_EQ(text_of(copy().deleteRegion(1, 2)), "a\0cD "s);
  EXPECT_EQ(text_of(copy().insert(4, 'x')), "aB\0cxD "s);
  EXPECT_EQ(text_of(copy() += 'x'), "aB\0cD x"s);
  EXPECT_EQ(text_of(copy().concatf("%d", 1)), "aB\0cD 1"s);
  EXPECT_EQ(text_of(original), kText);
}

TEST(StringNul, IsKeptInWhatIsAppendedAndInserted) {
  const String inner = string_of(kText);
  EXPECT_EQ(text_of(String("<").concat(inner)), "<aB\0cD "s);
  EXPECT_EQ(text_of(String("<") += inner), "<aB\0cD "s);
  EXPECT_EQ(text_of(String("<>").insert(1, inner)), "<aB\0cD >"s);
  EXPECT_EQ(text_of(String("<>", 20L).insert(1, inner)), "<aB\0cD >"s);
  EXPECT_EQ(text_of(inner + inner), kText + kText);
  EXPECT_EQ(text_of(inner + "x"), "aB\0cD x"s);
  EXPECT_EQ(text_of(inner + 'x'), "aB\0cD x"s);
  EXPECT_EQ(text_of("x" + inner), "xaB\0cD "s);
  EXPECT_EQ(text_of('x' + inner), "xaB\0cD "s);
}

TEST(StringNul, IsACharacterLikeOthersToWhatComparesBytes) {
  const String text = string_of(kText);
  EXPECT_TRUE(text.equals(string_of(kText)));
  EXPECT_FALSE(text.equals(string_of("aB\0cX "s)));
  EXPECT_TRUE(text.startsWith(string_of("aB\0c"s)));
  EXPECT_FALSE(text.startsWith(string_of("aB\0x"s)));
  EXPECT_TRUE(text.startsWith(string_of("\0cD"s), 2));
  EXPECT_FALSE(text.startsWith(string_of("\0xD"s), 2));
  EXPECT_TRUE(text.endsWith(string_of("\0cD "s)));
  EXPECT_FALSE(text.endsWith(string_of("\0xD "s)));
  EXPECT_EQ(text.lastIndexOf('\0'), 2);
  EXPECT_EQ(text.lastIndexOf('D'), 4);
  EXPECT_FALSE(string_of("a\0"s) == 'a') << "it has two characters";
  EXPECT_FALSE(string_of("\0"s) == '\0') << "it is not empty";
}

TEST(StringNul, EndsWhatComparesAsTheCLibraryDoes) {
  const String text = string_of(kText);
  const String other = string_of("aB\0xxx"s);
  EXPECT_EQ(text.compareTo(other), 0);
  EXPECT_EQ(text.compareTo(String("aB")), 0);
  EXPECT_EQ(text.compareToIgnoreCase(string_of("AB\0xxx"s)), 0);
  EXPECT_TRUE(text.equals("aB"));
  EXPECT_TRUE(text.equalsIgnoreCase("Ab"));
  EXPECT_TRUE(text.equalsIgnoreCase(string_of("Ab\0xxx"s)));
  EXPECT_TRUE(text == other);
  EXPECT_FALSE(text == String("aB")) << "of another length";
  EXPECT_TRUE(text == "aB");
  EXPECT_FALSE(text < other);
  EXPECT_FALSE(other < text);
  EXPECT_TRUE(text.regionMatches(0, other, 0, 6));
  EXPECT_TRUE(text.regionMatches(true, 0, other, 0, 6));
  EXPECT_FALSE(text.regionMatches(3, other, 3, 1));
}

TEST(StringNul, EndsWhatIsSearchedAndRead) {
  const String text = string_of(kText);
  EXPECT_EQ(text.indexOf('c'), -1);
  EXPECT_EQ(text.indexOf('c', 3), 3);
  EXPECT_EQ(text.indexOf(String("cD")), -1);
  EXPECT_EQ(text.indexOf(String("cD"), 3), 3);
  EXPECT_EQ(text.indexOf(string_of("B\0x"s)), 1) << "found up to the needle's NUL";
  EXPECT_EQ(text_of(text.substring(0, 6)), "aB");
  EXPECT_EQ(text_of(text.substring(1)), "B\0cD "s);
  EXPECT_EQ(text_of(String(text.c_str())), "aB");
  EXPECT_EQ(string_of("12\0003"s).toInteger(), 12);
}

}  // namespace
