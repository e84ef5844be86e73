// String given its own text: as a value or as the format, appended or inserted. A buffer's free
// room is filled with '#' first, so that what is read from it shows.

#include <rkutils/string.h>

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

namespace {

// Without the attribute by which a compiler checks the format: it is a String's text here.
using Formatting = String& (String::*)(char const*, ...);
Formatting volatile format = &String::format;
Formatting volatile concatf = &String::concatf;

constexpr long kRoom = 71;

// A String with room for kRoom characters that an earlier text, of '#', has left in its buffer.
String in_used_room(const char* text) {
  String used(std::string(kRoom, '#').c_str());
  used = text;
  return used;
}

std::string text_of(String const& s) {
  EXPECT_EQ(s.c_str()[s.length()], '\0');
  return std::string(s.c_str(), static_cast<std::size_t>(s.length()));
}

// ---- As a value ----

TEST(StringFormatOwnValue, InPlaceReadsNothingFromTheFreeRoom) {
  String text = in_used_room("abc");
  int read = -1;
  text.concatf("/%s%n", text.c_str(), &read);
  EXPECT_EQ(text.capacity(), kRoom) << "in place";
  EXPECT_EQ(text.length(), 7);
  EXPECT_GE(read, 4) << "the slash and the old text";
  EXPECT_LE(read, 5) << "and a slash at most";

  text = in_used_room("abc");
  text.concatf("%d%30s", 1, text.c_str());
  EXPECT_EQ(text.length(), 34);
  EXPECT_EQ(text_of(text).find('#'), std::string::npos) << text_of(text);

  text = in_used_room("abc");
  text.format("%d%30s", 1, text.c_str() + 1);
  EXPECT_EQ(text.length(), 31);
  EXPECT_EQ(text_of(text).find('#'), std::string::npos) << text_of(text);
}

// What the C library reads may be longer than what was measured. Even then nothing else appears.
TEST(StringFormatOwnValue, SeveralTimesInPlaceReadsNothingFromTheFreeRoom) {
  for (long room = 0; room <= 40; ++room) {
    String text(std::string(static_cast<std::size_t>(std::max(room, 3L)), '#').c_str());
    text = "abc";
    int read = -1;
    text.concatf("/%s-%s+%s%n", text.c_str(), text.c_str() + 1, text.c_str() + 2, &read);
    EXPECT_EQ(text.length(), 3 + 1 + 3 + 1 + 2 + 1 + 1);
    EXPECT_EQ(text_of(text).find('#'), std::string::npos) << text_of(text);
    EXPECT_LE(read, 3 * text.length()) << room;
  }
}

TEST(StringFormatOwnValue, InAFullBufferStaysInIt) {
  for (int i = 0; i < 20; ++i) {
    String text("abc");
    text.concatf("/%s", text.c_str());
    EXPECT_EQ(text.length(), 7);
    EXPECT_EQ(text.capacity(), 7);
    String other("abcde");
    other.format("%s.", other.c_str());
    EXPECT_EQ(other.length(), 6);
  }
}

TEST(StringFormatOwnValue, OfAnOutgrownBufferIsReadBeforeItGoes) {
  String text("1234567");
  text.concatf("<%s>", text.c_str());
  EXPECT_EQ(text_of(text), "1234567<1234567>");
  String other("1234567");
  other.format("<%s>", other.c_str());
  EXPECT_EQ(text_of(other), "<1234567>");
}

TEST(StringFormatOwnValue, OfASharedBufferIsReadBeforeItGoes) {
  String text("ab");
  const String original(text);
  text.concatf("<%s>", text.c_str());
  EXPECT_EQ(text_of(text), "ab<ab>");
  text = original;
  text.format("<%s>", text.c_str());
  EXPECT_EQ(text_of(text), "<ab>");
  EXPECT_EQ(text_of(original), "ab");
}

// ---- As the format ----

TEST(StringFormatOwnFormat, InPlaceIsReadAsItWas) {
  String text = in_used_room("%d,");
  (text.*concatf)(text.c_str(), 12);
  EXPECT_EQ(text.capacity(), kRoom) << "in place";
  EXPECT_EQ(text_of(text), "%d,12,");

  text = in_used_room("a%d%d%d");
  (text.*format)(text.c_str(), 1000, 2000, 3000);
  EXPECT_EQ(text.capacity(), kRoom) << "in place";
  EXPECT_EQ(text_of(text), "a100020003000");

  text = in_used_room("left: %s");
  (text.*format)(text.c_str() + 6, "right");
  EXPECT_EQ(text_of(text), "right");
}

// The room behind the text must not become part of the format: these would take values.
TEST(StringFormatOwnFormat, EndsWhereTheTextEnds) {
  std::string conversions;
  while (conversions.size() < kRoom - 1) conversions += "%s";
  String text(conversions.c_str());
  text = "%d";
  (text.*concatf)(text.c_str(), 123456789);
  EXPECT_EQ(text_of(text), "%d123456789");
}

TEST(StringFormatOwnFormat, OfAnOutgrownOrSharedBufferIsReadBeforeItGoes) {
  String text("%d%d%d");
  (text.*concatf)(text.c_str(), 10, 20, 30);
  EXPECT_EQ(text_of(text), "%d%d%d102030");
  String full("%d %s.");
  (full.*format)(full.c_str(), 1, "a longer text");
  EXPECT_EQ(text_of(full), "1 a longer text.");
  String shared("%d");
  const String copy(shared);
  (shared.*format)(shared.c_str(), 5);
  EXPECT_EQ(text_of(shared), "5");
  EXPECT_EQ(text_of(copy), "%d");
}

// ---- Elsewhere ----

TEST(StringOwnText, IsAppendedWhileTheBufferGrows) {
  const std::string seven = "1234567";
  for (std::size_t begin = 0; begin <= seven.size(); ++begin) {
    String text(seven.c_str());
    text += text.c_str() + begin;
    EXPECT_EQ(text_of(text), seven + seven.substr(begin)) << begin;
    for (std::size_t count = 1; begin + count <= seven.size(); ++count) {
      String part(seven.c_str());
      part.concat(part.c_str() + begin, static_cast<long>(count));
      EXPECT_EQ(text_of(part), seven + seven.substr(begin, count)) << begin << ' ' << count;
    }
  }
}

TEST(StringOwnText, IsInsertedUpToItsFirstNul) {
  for (long room = 0; room <= 30; room += 30) {
    for (long position = 0; position <= 5; ++position) {
      for (long begin = 0; begin < 5; ++begin) {
        if (begin == 2) continue;
        std::string expected("ab\0cd", 5);
        String text("", room);
        text.concat(expected.data(), 5);
        expected.insert(static_cast<std::size_t>(position), std::string(expected.c_str() + begin));
        text.insert(position, text.c_str() + begin);
        EXPECT_EQ(text_of(text), expected) << room << ' ' << position << ' ' << begin;
      }
    }
  }
}

}  // namespace
