#include "support/wire_text.h"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace {

using support::quote;
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

}  // namespace
