// What String makes of formats about which measuring and writing disagree.

#include <rkutils/string.h>

#include <cstddef>
#include <string>

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

// Without the attribute by which a compiler checks the format: some are wrong on purpose.
using Formatting = String& (String::*)(char const*, ...);
Formatting volatile format = &String::format;
Formatting volatile concatf = &String::concatf;

std::string text_of(String const& s) {
  EXPECT_EQ(s.c_str()[s.length()], '\0');
  return std::string(s.c_str(), static_cast<std::size_t>(s.length()));
}

// The conversion %zu is the C library's alone: it is measured as "zu".

TEST(StringFormatDisagreement, FillsWithNulsWhatWasMeasuredTooLong) {
  const auto five = std::size_t{12};
  String text("##################");
  (text.*format)("%s%zu%zu", "abc", five, five / 12);  // measured as "abczuzu", written as "abc121"
  EXPECT_EQ(text_of(text), "abc121\0"s);
  (text.*format)("%s%zu%zu%zu", "a", std::size_t{1}, std::size_t{2}, std::size_t{3});
  EXPECT_EQ(text_of(text), "a123\0\0\0"s);
  EXPECT_EQ(text.capacity(), 23) << "in place";

  (text.*concatf)("%zu%zu", std::size_t{4}, std::size_t{5});
  EXPECT_EQ(text_of(text),
            "a123\0\0\0"
            "45\0\0"s);
}

TEST(StringFormatDisagreement, FillsANewBufferWithNulsToo) {
  String text("1234567");
  (text.*concatf)("%zu%zu", std::size_t{8}, std::size_t{9});
  EXPECT_EQ(text_of(text), "123456789\0\0"s);
  String empty;
  (empty.*format)("%zu%zu%zu", std::size_t{1}, std::size_t{2}, std::size_t{3});
  EXPECT_EQ(text_of(empty), "123\0\0\0"s);
}

TEST(StringFormatDisagreement, CutsWhatWasMeasuredTooShort) {
  String text("abc");
  (text.*concatf)("%zu", std::size_t{12345});
  EXPECT_EQ(text_of(text), "abc12");
  (text.*concatf)("%zu", std::size_t{12345});
  EXPECT_EQ(text_of(text), "abc1212");
  (text.*concatf)("%zu", std::size_t{12345});  // in a new buffer
  EXPECT_EQ(text_of(text), "abc121212");
}

// A C library may refuse a format that ends in a percent sign, with -1, or not.
TEST(StringFormatDisagreement, KeepsTheTextWhenTheCLibraryRefuses) {
  String text("abc");
  (text.*concatf)("%d%", 5);
  EXPECT_EQ(text.length(), 4);
  EXPECT_EQ(text_of(text).substr(0, 3), "abc");
  EXPECT_TRUE(text[3] == '5' || text[3] == '\0');

  String full("1234567");
  (full.*concatf)("%d%", 8);
  EXPECT_EQ(full.length(), 8);
  EXPECT_EQ(text_of(full).substr(0, 7), "1234567");
  EXPECT_TRUE(full[7] == '8' || full[7] == '\0');

  String replaced("########");
  (replaced.*format)("%d%", 5);
  EXPECT_EQ(replaced.length(), 1);
  EXPECT_TRUE(replaced[0] == '5' || replaced[0] == '\0');
}

}  // namespace
