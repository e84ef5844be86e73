#include <rkutils/foundations/text/decimal.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/rounds.h"

namespace {

using rkutils::text::read_decimal;

TEST(ReadDecimal, GivesTheNumberThatTheTextBeginsWith) {
  EXPECT_EQ(read_decimal("42"), 42);
  EXPECT_EQ(read_decimal("0"), 0);
  EXPECT_EQ(read_decimal("010"), 10);
  EXPECT_EQ(read_decimal("12abc"), 12);
  EXPECT_EQ(read_decimal("1 2"), 1);
  EXPECT_EQ(read_decimal("1.9"), 1);
  EXPECT_EQ(read_decimal("0x10"), 0);
}

TEST(ReadDecimal, TakesOneSign) {
  EXPECT_EQ(read_decimal("-5"), -5);
  EXPECT_EQ(read_decimal("+5"), 5);
  EXPECT_EQ(read_decimal("-0"), 0);
  for (const char* text : {"--5", "++5", "-+5", "+-5", "- 5", "+ 5", "-", "+"}) {
    EXPECT_EQ(read_decimal(text), 0) << text;
  }
}

TEST(ReadDecimal, SkipsWhiteSpaceInFront) {
  EXPECT_EQ(read_decimal(" \t\n\v\f\r7"), 7);
  EXPECT_EQ(read_decimal("  -7"), -7);
  for (const char* text : {"\x08"
                           "7",
                           "\x0e"
                           "7",
                           "\x1f"
                           "7",
                           "!7",
                           "\xa0"
                           "7"}) {
    EXPECT_EQ(read_decimal(text), 0) << text;
  }
}

TEST(ReadDecimal, Is0WithoutADigit) {
  for (const char* text : {"", " ", "abc", "/", ":", "\xff", "on"}) {
    EXPECT_EQ(read_decimal(text), 0) << text;
  }
}

TEST(ReadDecimal, WrapsIn32Bits) {
  EXPECT_EQ(read_decimal("2147483647"), INT32_MAX);
  EXPECT_EQ(read_decimal("-2147483648"), INT32_MIN);
  EXPECT_EQ(read_decimal("2147483648"), INT32_MIN);
  EXPECT_EQ(read_decimal("-2147483649"), INT32_MAX);
  EXPECT_EQ(read_decimal("4294967295"), -1);
  EXPECT_EQ(read_decimal("4294967298"), 2);
  EXPECT_EQ(read_decimal("-4294967298"), -2);
  EXPECT_EQ(read_decimal("18446744073709551617"), 1);
  EXPECT_EQ(read_decimal(("1" + std::string(32, '0')).c_str()), 0) << "10^32 is a multiple of 2^32";
}

TEST(ReadDecimal, ReadsWhatTheCLibraryReadsWhereThatIsSettled) {
  std::mt19937 random(1);  // the same texts each time
  const std::string alphabet = "0123456789+- \t\nax";
  for (int i = support::rounds(10000); i > 0; --i) {
    std::string text(random() % 9, '\0');
    for (char& byte : text) byte = alphabet[random() % alphabet.size()];
    ASSERT_EQ(read_decimal(text.c_str()), std::atoi(text.c_str())) << text;
  }
}

}  // namespace
