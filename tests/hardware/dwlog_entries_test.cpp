// Entries of the log as bytes.

#include <rkutils/hardware/log/entries.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace {

using namespace std::string_literals;

using rkutils::log::CutLines;
using rkutils::log::EntryHead;
using rkutils::log::keep_newest;
using rkutils::log::text_of;
using testing::AnyOf;
using testing::StrEq;

class EntryHeads : public testing::Test {
 protected:
  ~EntryHeads() override {
    ::unsetenv("TZ");
    ::tzset();
  }

  static std::string head(int code, std::time_t time, const char* zone = "UTC0") {
    ::setenv("TZ", zone, 1);
    EntryHead head;
    EXPECT_EQ(head.render(code, time), nullptr);
    return std::string(head.text());
  }
};

TEST_F(EntryHeads, HaveTheCodeAndTheMinute) {
  EXPECT_EQ(head(7, 0), "7: 1970-01-01 00:00 ");
  EXPECT_EQ(head(0, 59), "0: 1970-01-01 00:00 ");
  EXPECT_EQ(head(-1, 60), "-1: 1970-01-01 00:01 ");
  EXPECT_EQ(head(12, 951827640), "12: 2000-02-29 12:34 ");
}

TEST_F(EntryHeads, HaveRoomForEveryCode) {
  EXPECT_EQ(head(INT_MAX, 0), "2147483647: 1970-01-01 00:00 ");
  EXPECT_EQ(head(INT_MIN, 0), "-2147483648: 1970-01-01 00:00 ");
}

TEST_F(EntryHeads, HaveLocalTime) {
  EXPECT_EQ(head(1, 0, "EAST-5:30"), "1: 1970-01-01 05:30 ");
  EXPECT_EQ(head(1, 0, "WEST3"), "1: 1969-12-31 21:00 ");
}

// C libraries differ in the last two thousand seconds, and in how they write such years.
TEST_F(EntryHeads, HaveRoomForEveryYear) {
  if (sizeof(std::time_t) < sizeof(std::int64_t)) GTEST_SKIP() << "no such times";
  EXPECT_THAT(head(INT_MIN, 67767976233446399), AnyOf("-2147483648: 2147483647-12-30 23:59 ",
                                                      "-2147483648: +2147483647-12-30 23:59 "));
}

TEST_F(EntryHeads, FailWhereTheYearIsNoInt) {
  if (sizeof(std::time_t) < sizeof(std::int64_t)) GTEST_SKIP() << "no such times";
  EntryHead head;
  errno = 0;
  EXPECT_THAT(head.render(1, std::numeric_limits<std::time_t>::max()), StrEq("localtime"));
  EXPECT_EQ(errno, EOVERFLOW);
}

TEST(EntryTexts, AreWithoutOneLineFeed) {
  EXPECT_EQ(text_of("1: text\n"), "1: text");
  EXPECT_EQ(text_of("1: text"), "1: text");
  EXPECT_EQ(text_of("\n"), "");
  EXPECT_EQ(text_of(""), "");
  EXPECT_EQ(text_of("\n\n"), "\n");
}

// Lines as they come from a file.
class Lines {
 public:
  explicit Lines(std::vector<std::string> lines) : lines_(std::move(lines)) {}

  const char* next() { return taken_ < lines_.size() ? lines_[taken_++].c_str() : nullptr; }

  [[nodiscard]] std::size_t taken() const { return taken_; }

 private:
  const std::vector<std::string> lines_;
  std::size_t taken_ = 0;
};

std::string kept(Lines& lines) {
  std::string text;
  EXPECT_TRUE(keep_newest(lines, [&text](std::string_view part) {
    text += part;
    return true;
  }));
  return text;
}

TEST(KeptEntries, AreAllOfAFew) {
  Lines lines({"one\n", "two\n", "three"});
  EXPECT_EQ(kept(lines), "one\ntwo\nthree\n");
}

TEST(KeptEntries, AreNoneOfNone) {
  Lines lines({});
  EXPECT_EQ(kept(lines), "");
}

TEST(KeptEntries, AreThirtyTwo) {
  Lines lines(std::vector<std::string>(40, "x\n"));
  EXPECT_EQ(kept(lines).size(), 64U);
  EXPECT_EQ(lines.taken(), 32U);
}

TEST(KeptEntries, AreFewerByThoseThatAreEmpty) {
  std::vector<std::string> text(40, "x\n");
  text[0] = "\n";
  text[5] = "\0x\n"s;
  text[31] = "\n";
  text[32] = "y\n";
  Lines lines(text);
  EXPECT_EQ(kept(lines).size(), 58U);
  EXPECT_EQ(lines.taken(), 32U);
}

TEST(KeptEntries, EndWithAFailure) {
  for (int successes = 0; successes < 6; ++successes) {
    Lines lines({"one\n", "two\n", "three\n"});
    int left = successes;
    EXPECT_FALSE(keep_newest(lines, [&left](std::string_view) { return left-- > 0; }));
    EXPECT_EQ(left, -1);
  }
}

// A buffer and a byte behind it, all filled with something.
class CutLinesTest : public testing::Test {
 protected:
  static constexpr std::size_t kSize = 12;

  std::string buffer_ = std::string(kSize + 1, '#');
  CutLines lines_{buffer_.data(), kSize};

  [[nodiscard]] std::string text() const { return buffer_.substr(0, buffer_.find('\0')); }
};

TEST_F(CutLinesTest, BeginWithNulsEverywhere) {
  EXPECT_EQ(buffer_, std::string(kSize, '\0') + "#");
  EXPECT_FALSE(lines_.is_full());
}

TEST_F(CutLinesTest, EndWithLineFeeds) {
  lines_.add("one");
  lines_.add("");
  lines_.add("two");
  EXPECT_EQ(text(), "one\n\ntwo\n");
  EXPECT_FALSE(lines_.is_full());
}

TEST_F(CutLinesTest, AreCutTwoCharactersBeforeTheEnd) {
  lines_.add("one");
  lines_.add("2345678");
  lines_.add("never");
  EXPECT_TRUE(lines_.is_full());
  EXPECT_EQ(buffer_, "one\n234567\0\0#"s);
}

TEST_F(CutLinesTest, MayEndWithoutTheirLineFeed) {
  lines_.add("123456789a");
  EXPECT_TRUE(lines_.is_full());
  lines_.add("");
  EXPECT_EQ(text(), "123456789a");
}

TEST_F(CutLinesTest, FillAllTheRoom) {
  lines_.add("12345678");
  EXPECT_FALSE(lines_.is_full());
  lines_.add("never");
  EXPECT_EQ(text(), "12345678\nn");
  EXPECT_TRUE(lines_.is_full());
}

}  // namespace
