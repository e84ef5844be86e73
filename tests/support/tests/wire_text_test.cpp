#include "support/wire_text.h"

#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace {

using support::quote;
using support::read_quoted;
using support::unquote;

TEST(Quote, ShowsEveryKindOfByte) {
  EXPECT_EQ(quote(std::string("a\n\t\r\0\"\\\x7f\xff", 9)), R"("a\n\t\r\0\"\\\x7f\xff")");
}

TEST(Unquote, GivesBackEveryByte) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_EQ(unquote(quote(all)), all);
  EXPECT_EQ(unquote(quote("")), "");
}

TEST(Unquote, RefusesOtherTexts) {
  for (const char* text : {"", "\"", "a", "\"a", R"("\q")", R"("\x4")", R"("\xzz")", R"("\")"}) {
    EXPECT_THROW(unquote(text), std::invalid_argument) << text;
  }
}

TEST(ReadQuoted, TakesOneTextAndLeavesWhatFollows) {
  std::istringstream text(R"(  "a \" b" "\\" rest)");
  EXPECT_EQ(read_quoted(text), "a \" b");
  EXPECT_EQ(read_quoted(text), "\\");
  std::string rest;
  text >> rest;
  EXPECT_EQ(rest, "rest");
}

TEST(ReadQuoted, RefusesOtherTexts) {
  for (const char* text : {"", " ", "a", "\"a", R"("\)", R"("\")", R"("\q")"}) {
    std::istringstream stream(text);
    EXPECT_THROW(read_quoted(stream), std::invalid_argument) << text;
  }
}

}  // namespace
