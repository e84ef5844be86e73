// String: every operation's text, buffer and sharing.

#include <rkutils/string.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "support/allocation_faults.h"

namespace {

static_assert(sizeof(String) == sizeof(void*));
static_assert(!std::is_polymorphic_v<String>);

const char* no_text = nullptr;

bool shares_empty(String const& s) { return s.c_str() == String::StringBuffer::EMPTY()->chars; }

// The text, room and handles of a String.
struct State {
  std::string text;
  long capacity;
  long handles;

  friend bool operator==(State const& a, State const& b) {
    return a.text == b.text && a.capacity == b.capacity && a.handles == b.handles;
  }
  friend std::ostream& operator<<(std::ostream& out, State const& state) {
    return out << '"' << state.text << "\", capacity " << state.capacity << ", handles "
               << state.handles;
  }
};

State state(String const& s) {
  EXPECT_EQ(s.c_str()[s.length()], '\0');
  return {std::string(s.c_str(), static_cast<std::size_t>(s.length())), s.capacity(), s.useCount()};
}

// A text that holds NULs.
template <std::size_t kSize>
String with_nuls(const char (&bytes)[kSize]) {
  String text;
  text.concat(bytes, kSize - 1);
  return text;
}

// The sizes of the blocks that an action asks the allocator for.
using Blocks = std::vector<std::size_t>;
template <typename Action>
Blocks blocks(Action action) {
  const support::RecordedAllocations recorded;
  action();
  return recorded.sizes();
}

TEST(StringEmpty, IsSharedAndNeverFreed) {
  const auto* buffer = String::StringBuffer::EMPTY();
  const std::int32_t before = buffer->refCount;
  EXPECT_GE(before, 1);
  {
    const String one;
    const String two(one);
    EXPECT_EQ(buffer->refCount, before + 2);
    EXPECT_TRUE(shares_empty(two));
  }
  EXPECT_EQ(buffer->refCount, before);
  EXPECT_EQ(buffer->capacity, 0);
  EXPECT_EQ(buffer->length, 0);
  EXPECT_EQ(buffer->chars[0], '\0');
}

TEST(StringEmpty, IsSharedEvenWhenItsCountIsLost) {
  auto* buffer = String::StringBuffer::EMPTY();
  const std::int32_t before = buffer->refCount;
  {
    String text;
    buffer->refCount = 1;  // as if another thread's increments had been lost
    text += "x";
    EXPECT_STREQ(text.c_str(), "x");
    EXPECT_EQ(buffer->chars[0], '\0');
    EXPECT_EQ(buffer->refCount, 0);
    const String again;
    EXPECT_STREQ(again.c_str(), "");
  }
  buffer->refCount = before;
}

TEST(StringEmpty, HasAReferenceOfItsOwn) {
  EXPECT_TRUE(shares_empty(String::EMPTY()));
  EXPECT_EQ(&String::EMPTY(), &String::EMPTY());
}

TEST(StringConstructor, OfACharacter) {
  EXPECT_EQ(state(String('x')), (State{"x", 7, 1}));
  EXPECT_TRUE(shares_empty(String('\0')));
}

TEST(StringConstructor, OfAText) {
  EXPECT_EQ(state(String("hello")), (State{"hello", 7, 1}));
  EXPECT_TRUE(shares_empty(String("")));
  EXPECT_TRUE(shares_empty(String(no_text)));
}

TEST(StringConstructor, OfAStringSharesItsBuffer) {
  const String text("hello");
  const String copy(text);
  EXPECT_EQ(copy.c_str(), text.c_str());
  EXPECT_EQ(text.useCount(), 2);
}

TEST(StringConstructor, WithAReserveHasABufferOfItsOwn) {
  EXPECT_EQ(state(String("hello", 100L)), (State{"hello", 103, 1}));
  EXPECT_EQ(state(String("hello", 2L)), (State{"hello", 7, 1}));
  EXPECT_EQ(state(String("hello", -5L)), (State{"hello", 7, 1}));
  EXPECT_EQ(state(String("", 10L)), (State{"", 23, 1}));
  EXPECT_EQ(state(String("", 0L)), (State{"", 7, 1}));
  EXPECT_TRUE(shares_empty(String(no_text, 10L)));
}

TEST(StringConstructor, OfAPart) {
  EXPECT_EQ(state(String("hello", 1, 3)), (State{"ell", 7, 1}));
  EXPECT_STREQ(String("hello", 3, 100).c_str(), "lo");
  EXPECT_STREQ(String("hello", -2, 3).c_str(), "hel");
  EXPECT_STREQ(String("hello", LONG_MIN, LONG_MAX).c_str(), "hello");
  EXPECT_TRUE(shares_empty(String("hello", 5, 1)));
  EXPECT_TRUE(shares_empty(String("hello", LONG_MAX, LONG_MAX)));
  EXPECT_TRUE(shares_empty(String("hello", 1, 0)));
  EXPECT_TRUE(shares_empty(String("hello", 1, -1)));
  EXPECT_TRUE(shares_empty(String("hello", 1, LONG_MIN)));
  EXPECT_TRUE(shares_empty(String(no_text, 0, 5)));
}

TEST(StringGrowth, FollowsItsRule) {
  const std::pair<long, long> kRooms[] = {
      {1, 7},     {7, 7},     {8, 23},    {23, 23},   {24, 39},   {39, 39},   {40, 55},  {119, 119},
      {120, 135}, {127, 135}, {128, 191}, {191, 191}, {192, 255}, {255, 255}, {256, 319}};
  for (const auto& [length, capacity] : kRooms) {
    const String text(std::string(static_cast<std::size_t>(length), 'x').c_str());
    EXPECT_EQ(text.capacity(), capacity) << length;
  }
}

TEST(StringBlocks, HaveThreeWordsAndARoundedNumberOfCharacters) {
  const std::pair<std::size_t, std::size_t> kBlocks[] = {
      {1, 20},    {7, 20},    {8, 36},    {23, 36},   {24, 52},   {39, 52},   {40, 68},
      {120, 148}, {127, 148}, {128, 204}, {191, 204}, {192, 268}, {255, 268}, {256, 332}};
  for (const auto& row : kBlocks) {
    const std::size_t length = row.first;
    const std::string text(length, 'x');
    const String string(text.c_str());
    const String half(std::string(length / 2, 'x').c_str());
    const String rest(std::string(length - length / 2, 'x').c_str());
    const Blocks one = {row.second};
    EXPECT_EQ(blocks([&] { const String made(text.c_str()); }), one) << length;
    EXPECT_EQ(blocks([&] { const String made(text.c_str(), 0L); }), one) << length;
    EXPECT_EQ(blocks([&] { const String made("", static_cast<long>(length)); }), one) << length;
    EXPECT_EQ(blocks([&] { const String made(text.c_str(), 0, LONG_MAX); }), one) << length;
    EXPECT_EQ(blocks([&] { (void)string.substring(0); }), one) << length;
    EXPECT_EQ(blocks([&] { String().format("%s", text.c_str()); }), one) << length;
    EXPECT_EQ(blocks([&] { String() = text.c_str(); }), one) << length;
    EXPECT_EQ(blocks([&] { String(half) += rest; }), one) << length;
    EXPECT_EQ(blocks([&] { String(half).insert(0, rest); }), one) << length;
    EXPECT_EQ(blocks([&] { String(half).concatf("%s", rest.c_str()); }), one) << length;
    // One character more, and the end is taken off again, in a copy by the rule.
    String longer(string + 'x');
    const String sharer(longer);
    EXPECT_EQ(blocks([&] { longer.deleteRegion(static_cast<long>(length)); }), one) << length;
  }
}

TEST(StringBlocks, GrowToTheRulesSizeForTheWholeText) {
  String text("1234567");
  EXPECT_EQ(blocks([&] { text += '8'; }), Blocks{36});
  EXPECT_EQ(blocks([&] { text += "9"; }), Blocks{}) << "there is room";
  EXPECT_EQ(blocks([&] { text += "a text of thirty-one characters"; }), Blocks{68});
  EXPECT_EQ(blocks([&] { text.insert(3, std::string(88, 'x').c_str()); }).back(), 204U);
  EXPECT_EQ(text.length(), 128);
  EXPECT_EQ(blocks([&] { text.concatf("%64d", 1); }), Blocks{268});
}

TEST(StringBlocks, OfOneCharacterAreSmall) {
  EXPECT_EQ(blocks([] { const String made('x'); }), Blocks{20});
  EXPECT_EQ(blocks([] { (void)String::stringOf('x'); }), Blocks{20});
  String text("a text of some length that needs room");
  EXPECT_EQ(blocks([&] { text = 'x'; }), Blocks{20});
  EXPECT_EQ(blocks([&] { text = 'y'; }), Blocks{20}) << "always a new one";
}

TEST(StringBlocks, OfCopiesThatChangeCharactersKeepTheirRoom) {
  const String text("abc", 100L);  // room for 103, where the rule gives 7
  String lower(text);
  String upper(text);
  String replaced(text);
  EXPECT_EQ(blocks([&] { lower.toLowerCase(); }), Blocks{103 + 13});
  EXPECT_EQ(blocks([&] { upper.toUpperCase(); }), Blocks{103 + 13});
  EXPECT_EQ(blocks([&] { replaced.replace('x', 'y'); }), Blocks{103 + 13});
  EXPECT_EQ(blocks([&] { lower.toUpperCase().toLowerCase().replace('a', 'b'); }), Blocks{})
      << "in place";
}

TEST(StringBlocks, AreNotNeededForSharingReadingAndEditingInPlace) {
  const String text("a text of some length");
  String other("other, and long enough");
  EXPECT_EQ(blocks([&] {
              const String copy(text);
              const String empty;
              const String nothing("");
              const String nul('\0');
              String assigned;
              assigned = copy;
              assigned = empty;
              assigned = text;
              EXPECT_EQ(assigned, copy);
              EXPECT_EQ(text.indexOf(assigned) + text.lastIndexOf(empty), 21);
              other = "a new text";
              other.deleteRegion(5).insert(5, " one").trim().concatf("%d", 1);
              EXPECT_STREQ(other.c_str(), "a new one1");
              other.format("%s", "");
            }),
            Blocks{});
}

TEST(StringAssign, BetweenHandlesThatShareAlreadyChangesNothing) {
  String a("hello");
  String b(a);
  const char* const before = a.c_str();
  a = b;
  EXPECT_EQ(state(a), (State{"hello", 7, 2}));
  b = a;
  EXPECT_EQ(state(b), (State{"hello", 7, 2}));
  EXPECT_EQ(a.c_str(), before);
  EXPECT_EQ(b.c_str(), before);
}

TEST(StringAssign, OfAStringSharesItsBufferAndReleasesTheOld) {
  const String text("hello");
  String other("other");
  const String keeper(other);
  other = text;
  EXPECT_EQ(other.c_str(), text.c_str());
  EXPECT_EQ(text.useCount(), 2);
  EXPECT_EQ(keeper.useCount(), 1);
}

TEST(StringAssign, OfItselfChangesNothing) {
  String text("hello");
  String const& same = text;
  text = same;
  EXPECT_EQ(state(text), (State{"hello", 7, 1}));
}

TEST(StringAssign, OfATextKeepsABufferOfItsOwnThatIsLargeEnough) {
  String text("hello there");
  const char* before = text.c_str();
  text = "bye";
  EXPECT_EQ(state(text), (State{"bye", 23, 1}));
  text = "";
  EXPECT_EQ(state(text), (State{"", 23, 1}));
  EXPECT_EQ(text.c_str(), before);
  text = "a text that does not fit any more";
  EXPECT_EQ(state(text), (State{"a text that does not fit any more", 39, 1}));
}

TEST(StringAssign, OfATextLeavesASharedBuffer) {
  String text("hello there");
  const String copy(text);
  text = "bye";
  EXPECT_EQ(state(text), (State{"bye", 7, 1}));
  EXPECT_EQ(state(copy), (State{"hello there", 23, 1}));
  String empty;
  empty = "";
  EXPECT_EQ(state(empty), (State{"", 7, 1}));
}

TEST(StringAssign, OfItsOwnText) {
  String text("hello");
  text = text.c_str() + 2;
  EXPECT_EQ(state(text), (State{"llo", 7, 1}));
  const String copy(text);
  text = text.c_str() + 1;
  EXPECT_STREQ(text.c_str(), "lo");
  EXPECT_STREQ(copy.c_str(), "llo");
}

TEST(StringAssign, OfNullIsTheSharedEmptyText) {
  String text("hello");
  text = no_text;
  EXPECT_TRUE(shares_empty(text));
}

TEST(StringAssign, OfACharacterAlwaysMakesASmallBuffer) {
  String text("a text of some length that needs room");
  text = 'x';
  EXPECT_EQ(state(text), (State{"x", 7, 1}));
  const char* before = text.c_str();
  text = 'y';
  EXPECT_EQ(state(text), (State{"y", 7, 1}));
  EXPECT_NE(text.c_str(), before);
  text = '\0';
  EXPECT_TRUE(shares_empty(text));
}

TEST(StringConstructor, TakesAnIntForACharacter) {
  static_assert(std::is_convertible_v<int, String>);
  String text = 65;
  EXPECT_EQ(state(text), (State{"A", 7, 1}));
  text = 66;
  text += 67;
  EXPECT_STREQ(text.c_str(), "BC");
}

TEST(StringOf, OfNothingSharesTheEmptyText) {
  EXPECT_TRUE(shares_empty(String::stringOf('\0')));
  EXPECT_TRUE(shares_empty(String::stringOf("")));
  EXPECT_TRUE(shares_empty(String::stringOf(no_text)));
  EXPECT_TRUE(shares_empty(String::stringOf(no_text, 0, 5)));
  EXPECT_TRUE(shares_empty(String::stringOf("hello", 5, 1)));
}

TEST(StringOf, ANullPointerIsWhatTheCLibraryPrints) {
  void* const nowhere = nullptr;
  char expected[32];
  std::snprintf(expected, sizeof expected, "%p", nowhere);
  EXPECT_STREQ(String::stringOf(nowhere).c_str(), expected);
}

TEST(StringOf, TakesAPointerToConstantDataForABool) {
  const int data = 0;
  const int* const there = &data;
  const int* const nowhere = nullptr;
  EXPECT_STREQ(String::stringOf(there).c_str(), "true");
  EXPECT_STREQ(String::stringOf(nowhere).c_str(), "false");
}

TEST(StringOf, MakesTextsOfValues) {
  EXPECT_EQ(state(String::stringOf('x')), (State{"x", 7, 1}));
  EXPECT_STREQ(String::stringOf("abc").c_str(), "abc");
  EXPECT_STREQ(String::stringOf("hello", 1, 3).c_str(), "ell");
  EXPECT_STREQ(String::stringOf(-42L).c_str(), "-42");
  EXPECT_EQ(String::stringOf(LONG_MIN).c_str(), std::to_string(LONG_MIN));
  EXPECT_EQ(String::stringOf(ULONG_MAX).c_str(), std::to_string(ULONG_MAX));
  EXPECT_STREQ(String::stringOf(true).c_str(), "true");
  EXPECT_STREQ(String::stringOf(false).c_str(), "false");
  int something = 0;
  void* pointer = &something;
  char expected[32];
  std::snprintf(expected, sizeof expected, "%p", pointer);
  EXPECT_STREQ(String::stringOf(pointer).c_str(), expected);
}

TEST(StringAppend, UsesTheRoomAndThenGrows) {
  String text("123456");
  const char* before = text.c_str();
  text += '7';
  EXPECT_EQ(state(text), (State{"1234567", 7, 1}));
  EXPECT_EQ(text.c_str(), before);
  text += '8';
  EXPECT_EQ(state(text), (State{"12345678", 23, 1}));
}

TEST(StringAppend, LeavesASharedBuffer) {
  const String a("hello");
  String b(a);
  b += 'x';
  EXPECT_EQ(state(a), (State{"hello", 7, 1}));
  EXPECT_EQ(state(b), (State{"hellox", 7, 1}));
}

TEST(StringAppend, OfNothingChangesNothing) {
  const String text("hello");
  String copy(text);
  copy += "";
  copy += no_text;
  copy += '\0';
  copy += String();
  copy.concat(String());
  copy.concat(no_text, 3);
  copy.concat("abc", 0);
  copy.concat("abc", -1);
  copy.concat("abc", LONG_MIN);
  EXPECT_EQ(copy.c_str(), text.c_str());
}

TEST(StringAppend, OfBytesDoesNotMeasureThem) {
  String text("a");
  text.concat("b\0c", 3);
  EXPECT_EQ(state(text), (State{std::string("ab\0c", 4), 7, 1}));
}

TEST(StringAppend, OfItsOwnText) {
  String text("abcd");
  text += text;
  EXPECT_EQ(state(text), (State{"abcdabcd", 23, 1}));
  text += text.c_str() + 6;  // in place
  EXPECT_EQ(state(text), (State{"abcdabcdcd", 23, 1}));
  String large("0123456789abcdefghijklm");  // its buffer is full and has to move
  large.concat(large.c_str() + 10, 13);
  EXPECT_EQ(state(large), (State{"0123456789abcdefghijklmabcdefghijklm", 39, 1}));
  large += large;
  EXPECT_EQ(large.length(), 72);
  EXPECT_EQ(std::string(large.c_str(), 36), std::string(large.c_str() + 36));
}

TEST(StringAppend, ReturnsTheStringItself) {
  String text("a");
  EXPECT_EQ(&(text += "b"), &text);
  EXPECT_EQ(&(text += 'c'), &text);
  EXPECT_EQ(&(text += String("d")), &text);
  EXPECT_EQ(&text.concat("e", 1).concat(String("f")).concatf("%c", 'g'), &text);
  EXPECT_STREQ(text.c_str(), "abcdefg");
}

TEST(StringPlus, JoinsWithoutChangingItsOperands) {
  const String a("a");
  const String b("b");
  EXPECT_STREQ((a + b).c_str(), "ab");
  EXPECT_STREQ((a + "x").c_str(), "ax");
  EXPECT_STREQ((a + 'x').c_str(), "ax");
  EXPECT_STREQ(("x" + a).c_str(), "xa");
  EXPECT_STREQ(('x' + a).c_str(), "xa");
  EXPECT_STREQ((no_text + a).c_str(), "a");
  EXPECT_STREQ(('\0' + a).c_str(), "a");
  EXPECT_STREQ((a + no_text).c_str(), "a");
  EXPECT_EQ((a + no_text).c_str(), a.c_str()) << "a copy shares the left text";
  EXPECT_EQ(state(a), (State{"a", 7, 1}));
}

TEST(StringFormat, ReplacesTheText) {
  String text("before");
  EXPECT_EQ(&text.format("%d-%s", 42, "x"), &text);
  EXPECT_EQ(state(text), (State{"42-x", 7, 1}));
  text.format("%s", "a text that needs more room");
  EXPECT_EQ(state(text), (State{"a text that needs more room", 39, 1}));
  text.format("%s", "a");
  EXPECT_EQ(state(text), (State{"a", 39, 1}));
}

TEST(StringFormat, OfNothingIsTheSharedEmptyText) {
  String text("before");
  text.format("%s", "");
  EXPECT_TRUE(shares_empty(text));
}

TEST(StringFormat, OfNothingLeavesASharedBuffer) {
  String text("before");
  const String sharer(text);
  EXPECT_EQ(sharer.useCount(), 2);
  text.format("%s", "");
  EXPECT_TRUE(shares_empty(text));
  EXPECT_EQ(state(sharer), (State{"before", 7, 1}));
}

TEST(StringFormat, LeavesASharedBufferAndReadsItAsAValue) {
  String text("hello");
  const String copy(text);
  text.format("<%s>", text.c_str());
  EXPECT_STREQ(text.c_str(), "<hello>");
  EXPECT_EQ(state(copy), (State{"hello", 7, 1}));
  String full("1234567");
  full.format("<%s>", full.c_str());  // it does not fit in place
  EXPECT_STREQ(full.c_str(), "<1234567>");
}

TEST(StringFormat, TakesNullForTheEmptyFormat) {
  String& (String::*volatile format)(char const*, ...) = &String::format;
  String& (String::*volatile concatf)(char const*, ...) = &String::concatf;
  String text("abc");
  const String copy(text);
  (text.*concatf)(nullptr);
  EXPECT_EQ(text.c_str(), copy.c_str());
  (text.*format)(nullptr);
  EXPECT_TRUE(shares_empty(text));
  EXPECT_EQ(copy.useCount(), 1);
}

TEST(StringFormat, OfATextAboveIntMaxIsEmpty) {
  String& (String::*volatile format)(char const*, ...) = &String::format;
  String& (String::*volatile concatf)(char const*, ...) = &String::concatf;
  String text("abc");
  (text.*concatf)("%2147483647d%d", 1, 2);
  EXPECT_STREQ(text.c_str(), "abc");
  (text.*format)("%2147483647d%d", 1, 2);
  EXPECT_TRUE(shares_empty(text));
}

TEST(StringConcatf, OfNothingKeepsASharedBuffer) {
  const String text("abc");
  String copy(text);
  copy.concatf("%s", "");
  EXPECT_EQ(copy.c_str(), text.c_str());
}

TEST(StringLengthDeathTest, AbortsBeforeItsNumbersOverflow) {
  EXPECT_EXIT(String("x", LONG_MAX), testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(String("a").concat("x", LONG_MAX), testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(String("a").concat("x", INT32_MAX), testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(String("x", INT32_MAX - 255L), testing::KilledBySignal(SIGABRT), "");
  if constexpr (sizeof(long) > 4) {
    EXPECT_EXIT(String("x", 1L << (sizeof(long) * 4)), testing::KilledBySignal(SIGABRT), "");
  }
}

TEST(StringLengthDeathTest, AbortsWhenAFormattedTextPassesTheLimit) {
  String& (String::*volatile format)(char const*, ...) = &String::format;
  EXPECT_EXIT((String().*format)("%2147483647d", 1), testing::KilledBySignal(SIGABRT), "");
}

// As large as the largest object of 32 bits, of one megabyte: the same pages again and again.
class HugeText {
 public:
  HugeText() {
    const int file = ::memfd_create("text", MFD_CLOEXEC);
    const std::string piece(kPiece, 'x');
    if (file < 0 || ::write(file, piece.data(), kPiece) != static_cast<ssize_t>(kPiece)) return;
    void* const place = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (place != MAP_FAILED) {
      text_ = static_cast<char*>(place);
      std::size_t at = 0;
      for (; at + kPiece < kSize; at += kPiece) {
        EXPECT_NE(::mmap(text_ + at, kPiece, PROT_READ, MAP_PRIVATE | MAP_FIXED, file, 0),
                  MAP_FAILED);
      }
      // The last of them stays anonymous, and a zero of its ends the text.
      std::memset(text_ + at, 'x', kSize - at - 1);
    }
    ::close(file);
  }
  ~HugeText() {
    if (text_ != nullptr) ::munmap(text_, kSize);
  }
  HugeText(const HugeText&) = delete;
  HugeText& operator=(const HugeText&) = delete;

  // NULL where there is no room for it.
  [[nodiscard]] const char* get() const { return text_; }

 private:
  static constexpr std::size_t kPiece = std::size_t{1} << 20U;
  static constexpr std::size_t kSize = std::numeric_limits<std::int32_t>::max();

  char* text_ = nullptr;
};

TEST(StringLengthDeathTest, AbortsBeforeAnInsertionOverflows) {
  const HugeText huge;
  if (huge.get() == nullptr) GTEST_SKIP() << "no room for a text of two gigabytes";
  EXPECT_EXIT(String("a").insert(0, huge.get()), testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(String("a") += huge.get(), testing::KilledBySignal(SIGABRT), "");
  EXPECT_EXIT(String("a") = huge.get(), testing::KilledBySignal(SIGABRT), "");
}

TEST(StringConcatf, AppendsFormattedText) {
  String text("a");
  text.concatf("%d", 1);
  EXPECT_EQ(state(text), (State{"a1", 7, 1}));
  text.concatf("%s", "");
  EXPECT_EQ(state(text), (State{"a1", 7, 1}));
  const String copy(text);
  text.concatf("-%s-", text.c_str());
  EXPECT_EQ(state(text), (State{"a1-a1-", 7, 1}));
  EXPECT_EQ(state(copy), (State{"a1", 7, 1}));
  text.concatf("%s", "and more");
  EXPECT_EQ(state(text), (State{"a1-a1-and more", 23, 1}));
}

TEST(StringInsert, PutsTextBeforeAPosition) {
  String text("held");
  text.insert(3, 'l');
  text.insert(4, "o wor");
  EXPECT_EQ(state(text), (State{"hello word", 23, 1}));
  text.insert(9, String("l"));
  text.insert(11, '!');
  EXPECT_EQ(state(text), (State{"hello world!", 23, 1}));
  text.insert(0, ">");
  EXPECT_STREQ(text.c_str(), ">hello world!");
}

TEST(StringInsert, OutsideOfTheTextOrOfNothingDoesNothing) {
  const String text("hello");
  String copy(text);
  copy.insert(-1, 'x').insert(6, 'x').insert(LONG_MAX, 'x').insert(LONG_MIN, 'x');
  copy.insert(-1, "x").insert(6, "x").insert(-1, String("x")).insert(6, String("x"));
  copy.insert(0, '\0').insert(0, "").insert(0, no_text).insert(0, String());
  EXPECT_EQ(copy.c_str(), text.c_str());
  copy.insert(5, 'x');
  EXPECT_STREQ(copy.c_str(), "hellox");
  EXPECT_STREQ(text.c_str(), "hello");
}

TEST(StringInsert, OfItsOwnTextAtEveryPosition) {
  const std::string alphabet = "abcdef";
  for (long room = 0; room <= 20; room += 20) {
    for (long position = 0; position <= 6; ++position) {
      for (long begin = 0; begin < 6; ++begin) {
        String text(alphabet.c_str(), room);
        text.insert(position, text.c_str() + begin);
        std::string expected = alphabet;
        expected.insert(static_cast<std::size_t>(position), alphabet,
                        static_cast<std::size_t>(begin), std::string::npos);
        EXPECT_EQ(text.c_str(), expected) << position << ' ' << begin;
        String whole(alphabet.c_str(), room);
        whole.insert(position, whole);
        EXPECT_EQ(whole.c_str(),
                  std::string(alphabet).insert(static_cast<std::size_t>(position), alphabet));
      }
    }
  }
}

TEST(StringInsert, OfItsOwnTextLeavesASharedBuffer) {
  const String text("abc");
  String copy(text);
  copy.insert(1, copy.c_str() + 1);
  EXPECT_EQ(state(copy), (State{"abcbc", 7, 1}));
  copy = text;
  copy.insert(2, copy);
  EXPECT_EQ(state(copy), (State{"ababcc", 7, 1}));
  copy = text;
  copy += copy;
  EXPECT_EQ(state(copy), (State{"abcabc", 7, 1}));
  copy = text;
  copy.concat(copy.c_str() + 2, 1);
  EXPECT_EQ(state(copy), (State{"abcc", 7, 1}));
  EXPECT_EQ(state(text), (State{"abc", 7, 1}));
}

TEST(StringDeleteRegion, OfEverythingLeavesASharedBufferForAnEmptyOneOfItsOwn) {
  const String text("a text of some length");
  String copy(text);
  copy.deleteRegion(0);
  EXPECT_EQ(state(copy), (State{"", 7, 1}));
  EXPECT_FALSE(shares_empty(copy));
  copy = text;
  copy.deleteRegion(0, copy.length());
  EXPECT_EQ(state(copy), (State{"", 7, 1}));
  EXPECT_FALSE(shares_empty(copy));
  copy = text;
  copy.deleteRegion(LONG_MIN, LONG_MAX);
  EXPECT_EQ(state(copy), (State{"", 7, 1}));
  EXPECT_EQ(state(text), (State{"a text of some length", 23, 1}));
}

TEST(StringDeleteRegion, KeepsTheBeginning) {
  String text("hello");
  text.deleteRegion(5).deleteRegion(LONG_MAX);
  EXPECT_STREQ(text.c_str(), "hello");
  text.deleteRegion(3);
  EXPECT_EQ(state(text), (State{"hel", 7, 1}));
  text.deleteRegion(-1);
  EXPECT_EQ(state(text), (State{"", 7, 1}));
  text.deleteRegion(-1);
  EXPECT_EQ(state(text), (State{"", 7, 1}));
  String empty;
  empty.deleteRegion(-1).deleteRegion(0);
  EXPECT_TRUE(shares_empty(empty));
}

TEST(StringDeleteRegion, LeavesASharedBuffer) {
  const String text("a text of some length");
  String copy(text);
  copy.deleteRegion(3);
  EXPECT_EQ(state(copy), (State{"a t", 7, 1}));
  copy = text;
  copy.deleteRegion(LONG_MIN);
  EXPECT_EQ(state(copy), (State{"", 7, 1}));
  copy = text;
  copy.deleteRegion(1, 6);
  EXPECT_EQ(state(copy), (State{"a of some length", 23, 1}));
  EXPECT_EQ(state(text), (State{"a text of some length", 23, 1}));
}

TEST(StringDeleteRegion, RemovesAPart) {
  String text("hello");
  text.deleteRegion(3, 100);
  EXPECT_STREQ(text.c_str(), "hel");
  text.deleteRegion(2, 2).deleteRegion(2, 1).deleteRegion(3, 5).deleteRegion(-5, 0);
  EXPECT_STREQ(text.c_str(), "hel");
  text.deleteRegion(-5, 1);
  EXPECT_EQ(state(text), (State{"el", 7, 1}));
  text.deleteRegion(LONG_MIN, LONG_MAX);
  EXPECT_EQ(state(text), (State{"", 7, 1}));
}

TEST(StringCase, ChangesAsciiLettersOnly) {
  String text("aZ[`{@\xc4\xe4");
  EXPECT_STREQ(text.toUpperCase().c_str(), "AZ[`{@\xc4\xe4");
  EXPECT_STREQ(text.toLowerCase().c_str(), "az[`{@\xc4\xe4");
}

TEST(StringCase, CopiesASharedBufferWithItsRoomEvenWhenNothingChanges) {
  const String text("abc", 100L);
  String lower(text);
  lower.toLowerCase();
  EXPECT_EQ(state(lower), (State{"abc", 103, 1}));
  String upper(text);
  upper.toUpperCase();
  EXPECT_EQ(state(upper), (State{"ABC", 103, 1}));
  String replaced(text);
  replaced.replace('x', 'y');
  EXPECT_EQ(state(replaced), (State{"abc", 103, 1}));
  EXPECT_EQ(state(text), (State{"abc", 103, 1}));
}

TEST(StringCase, OfAnEmptyTextDoesNothing) {
  String text;
  text.toLowerCase().toUpperCase().replace('a', 'b');
  EXPECT_TRUE(shares_empty(text));
}

TEST(StringReplace, ChangesEveryOccurrence) {
  String text("banana");
  EXPECT_STREQ(text.replace('a', 'o').c_str(), "bonono");
  const String copy(text);
  text.replace('o', '\0');
  EXPECT_EQ(text.c_str(), copy.c_str());
}

TEST(StringReplace, GoesOnBehindANul) {
  String text = with_nuls("a\0a");
  EXPECT_EQ(state(text.replace('a', 'b')), (State{std::string("b\0b", 3), 7, 1}));
  EXPECT_EQ(state(text.replace('\0', 'x')), (State{"bxb", 7, 1})) << "the last NUL stays";
  String shared(text);
  EXPECT_EQ(state(shared.replace('\0', 'x')), (State{"bxb", 7, 1}));
}

TEST(StringTrim, RemovesWhiteSpaceFromBothEnds) {
  String text("  \tx y \r\n");
  EXPECT_EQ(state(text.trim()), (State{"x y", 23, 1}));
  EXPECT_STREQ(String("\n\v\f\rx").trim().c_str(), "x");
  String trailing("x\v\f ");
  EXPECT_EQ(state(trailing.trim()), (State{"x", 7, 1}));
}

TEST(StringTrim, OfWhiteSpaceAloneIsTheSharedEmptyText) {
  EXPECT_TRUE(shares_empty(String("   ").trim()));
  EXPECT_TRUE(shares_empty(String("", 10L).trim()));
  String shared(" \t ");
  const String copy(shared);
  EXPECT_TRUE(shares_empty(shared.trim()));
  EXPECT_EQ(copy.useCount(), 1);
}

TEST(StringTrim, OfNothingToStripChangesNothing) {
  String text("x y");
  const String copy(text);
  text.trim();
  EXPECT_EQ(text.c_str(), copy.c_str());
  String bytes("\x08x\x0e\xa0");
  EXPECT_STREQ(bytes.trim().c_str(), "\x08x\x0e\xa0");
}

TEST(StringTrim, LeavesASharedBuffer) {
  const String text(" a text of some length ");
  String copy(text);
  copy.trim().deleteRegion(3);
  EXPECT_STREQ(copy.c_str(), "a t");
  String small(text);
  small.trim();
  EXPECT_EQ(state(small), (State{"a text of some length", 23, 1}));
  EXPECT_STREQ(text.c_str(), " a text of some length ");
}

TEST(StringCompare, HasTheReversedSignInItsMethodsOnly) {
  const String a("a");
  const String b("b");
  EXPECT_LT(b.compareTo(a), 0);
  EXPECT_GT(a.compareTo(b), 0);
  EXPECT_EQ(a.compareTo(String("a")), 0);
  EXPECT_EQ(a.compareTo(String(a)), 0);
  EXPECT_TRUE(b > a);
  EXPECT_EQ(String("A").compareToIgnoreCase(b), 1);
  EXPECT_EQ(String("B").compareToIgnoreCase(a), -1);
  EXPECT_EQ(String("B").compareToIgnoreCase(b), 0);
  EXPECT_EQ(b.compareToIgnoreCase(String(b)), 0);
  EXPECT_EQ(String("ABC").compareToIgnoreCase(String("abd")), 1);
  EXPECT_EQ(String("ABC").compareToIgnoreCase(String("ab")), -1);
}

TEST(StringEquals, ComparesBytes) {
  const String text("Text");
  EXPECT_TRUE(text.equals(String(text)));
  EXPECT_TRUE(text.equals(String("Text")));
  EXPECT_FALSE(text.equals(String("text")));
  EXPECT_FALSE(text.equals(String("Tex")));
  EXPECT_TRUE(text.equals("Text"));
  EXPECT_FALSE(text.equals("Texts"));
  EXPECT_FALSE(text.equals(no_text));
  EXPECT_TRUE(String().equals(no_text));
  EXPECT_TRUE(text.equalsIgnoreCase(String("tEXT")));
  EXPECT_FALSE(text.equalsIgnoreCase(String("tEXTs")));
  EXPECT_FALSE(text.equalsIgnoreCase(String("tEXX")));
  EXPECT_TRUE(text.equalsIgnoreCase("tEXT"));
  EXPECT_FALSE(text.equalsIgnoreCase("tEX"));
  EXPECT_FALSE(text.equalsIgnoreCase(no_text));
  EXPECT_TRUE(String().equalsIgnoreCase(no_text));
  String with_nul("a");
  with_nul.concat("\0b", 2);
  String other("a");
  other.concat("\0c", 2);
  EXPECT_FALSE(with_nul.equals(other));
  EXPECT_TRUE(with_nul == other) << "the operator ends at the NUL";
}

TEST(StringStartsWith, ComparesTheBeginning) {
  const String text("hello");
  EXPECT_TRUE(text.startsWith("he"));
  EXPECT_TRUE(text.startsWith(""));
  EXPECT_TRUE(text.startsWith(text));
  EXPECT_FALSE(text.startsWith("hello!"));
  EXPECT_FALSE(text.startsWith("el"));
  EXPECT_TRUE(text.startsWith("el", 1));
  EXPECT_TRUE(text.startsWith("", 5));
  EXPECT_FALSE(text.startsWith("", 6));
  EXPECT_FALSE(text.startsWith("", -1));
  EXPECT_FALSE(text.startsWith("lo!", 3));
  EXPECT_FALSE(text.startsWith("h", LONG_MIN));
  EXPECT_FALSE(text.startsWith("h", LONG_MAX));
}

TEST(StringEndsWith, ComparesTheEnd) {
  const String text("hello");
  EXPECT_TRUE(text.endsWith("lo"));
  EXPECT_TRUE(text.endsWith(""));
  EXPECT_TRUE(text.endsWith("hello"));
  EXPECT_FALSE(text.endsWith("hhello"));
  EXPECT_FALSE(text.endsWith("l"));
}

TEST(StringRegionMatches, ComparesRegions) {
  const String text("Hello");
  EXPECT_TRUE(text.regionMatches(1, "yellow", 1, 4));
  EXPECT_FALSE(text.regionMatches(0, "yellow", 1, 4));
  EXPECT_TRUE(text.regionMatches(5, "x", 1, 0));
  EXPECT_FALSE(text.regionMatches(2, "llow", 0, 4));
  EXPECT_FALSE(text.regionMatches(0, "He", 0, 3));
  EXPECT_FALSE(text.regionMatches(-1, "H", 0, 1));
  EXPECT_FALSE(text.regionMatches(0, "H", -1, 1));
  EXPECT_FALSE(text.regionMatches(0, "H", 0, -1));
  EXPECT_FALSE(text.regionMatches(LONG_MAX, "H", LONG_MAX, LONG_MAX));
  EXPECT_TRUE(text.regionMatches(true, 0, "hELLO", 0, 5));
  EXPECT_FALSE(text.regionMatches(false, 0, "hELLO", 0, 5));
  EXPECT_FALSE(text.regionMatches(true, 0, "hELL", 0, 5));
}

TEST(StringRegionMatches, EndsAtANulInBoth) {
  const String text = with_nuls("ab\0cd");
  const String other = with_nuls("aB\0xy");
  EXPECT_TRUE(text.regionMatches(0, with_nuls("ab\0xy"), 0, 5));
  EXPECT_TRUE(text.regionMatches(true, 0, other, 0, 5));
  EXPECT_FALSE(text.regionMatches(false, 0, other, 0, 5));
  EXPECT_FALSE(text.regionMatches(3, other, 3, 2)) << "behind the NUL";
  EXPECT_TRUE(text.regionMatches(3, String("cd"), 0, 2));
  EXPECT_FALSE(text.regionMatches(1, String("bcd"), 0, 3)) << "a NUL on one side";
}

TEST(StringGetChars, CopiesOntoItsOwnText) {
  String up("abcdef");
  up.getChars(0, 4, const_cast<char*>(up.c_str()) + 2);
  EXPECT_STREQ(up.c_str(), "ababcd");
  String down("abcdef");
  down.getChars(2, 6, const_cast<char*>(down.c_str()));
  EXPECT_STREQ(down.c_str(), "cdefef");
}

TEST(StringGetChars, CopiesNulsToo) {
  std::string out(4, '#');
  with_nuls("a\0b").getChars(0, 3, out.data());
  EXPECT_EQ(out, std::string("a\0b#", 4));
}

TEST(StringGetChars, CopiesWithoutANul) {
  const String text("hello");
  const auto chars = [&](long begin, long end) {
    std::string out(8, '#');
    text.getChars(begin, end, out.data());
    return out;
  };
  EXPECT_EQ(chars(1, 3), "el######");
  EXPECT_EQ(chars(-5, 2), "he######");
  EXPECT_EQ(chars(3, 100), "lo######");
  EXPECT_EQ(chars(3, 1), "########");
  EXPECT_EQ(chars(100, 200), "########");
  EXPECT_EQ(chars(LONG_MIN, LONG_MAX), "hello###");
  text.getChars(0, 5, nullptr);
}

TEST(StringIndex, IsNulOutsideOfTheText) {
  const String text("hello");
  EXPECT_EQ(text[0], 'h');
  EXPECT_EQ(text[4], 'o');
  for (const long i : {-1L, 5L, LONG_MIN, LONG_MAX}) EXPECT_EQ(text[i], '\0');
}

struct Integer {
  const char* text;
  long number;
};

// Where the C libraries agree, this one's answer is the same.
class StringToInteger : public testing::TestWithParam<Integer> {};

TEST_P(StringToInteger, ReadsAsScanfDoes) {
  const auto& [text, number] = GetParam();
  EXPECT_EQ(String(text).toInteger(), number) << text;
  int scanned = 0;
  EXPECT_EQ(std::sscanf(text, "%i", &scanned) == 1 ? scanned : -1, number) << text;
}

INSTANTIATE_TEST_SUITE_P(
    Texts, StringToInteger,
    testing::Values(Integer{"0x10", 16}, Integer{"0Xff", 255}, Integer{"0xaBcDeFg", 0xabcdef},
                    Integer{"010", 8}, Integer{"0", 0}, Integer{"00", 0}, Integer{"42", 42},
                    Integer{"-1", -1}, Integer{"-42", -42}, Integer{"+7", 7}, Integer{"-0x11", -17},
                    Integer{"+0x1", 1}, Integer{"-017", -15},
                    // What follows is ignored, digits of other bases too.
                    Integer{"42x", 42}, Integer{"09", 0}, Integer{"0179", 15}, Integer{"1.5", 1},
                    Integer{"1e3", 1}, Integer{"12a", 12}, Integer{"1 2", 1}, Integer{"0 x10", 0},
                    Integer{"00x10", 0},
                    // White space before it.
                    Integer{" 42", 42}, Integer{" \t\n\v\f\r-42", -42},
                    Integer{"\xa0"
                            "42",
                            -1},
                    // No number.
                    Integer{"", -1}, Integer{" ", -1}, Integer{"abc", -1}, Integer{"x10", -1},
                    Integer{"-", -1}, Integer{"+", -1}, Integer{"--5", -1}, Integer{"+-5", -1},
                    Integer{"- 5", -1}, Integer{"\x80", -1},
                    // The edges of an int, and what 32 bits make of more.
                    Integer{"2147483647", INT_MAX}, Integer{"-2147483648", INT_MIN},
                    Integer{"0x7fffffff", INT_MAX}, Integer{"017777777777", INT_MAX}));

// A long of 32 bits is cut to its range by some, and newer C libraries know binary numbers.
TEST(StringToInteger, ReadsTheSameWithEveryCLibrary) {
  const Integer kIntegers[] = {
      {"0b1", 0},
      {"0B101", 0},
      {"-0b1", 0},
      {"0o17", 0},
      {"0x", -1},
      {"0X", -1},
      {"0xg", -1},
      {"-0x", -1},
      {" 0x 1", -1},
      {"0x-1", -1},
      {"2147483648", INT_MIN},
      {"-2147483649", INT_MAX},
      {"0xffffffff", -1},
      {"-0xffffffff", 1},
      {"4294967296", 0},
      {"4294967338", 42},
      {"-4294967338", -42},
      {"0x1000000ff", 255},
      {"18446744073709551615", -1},
      {"18446744073709551573", -43},
      {"-18446744073709551615", 1},
      {"18446744073709551616", -1},
      {"-18446744073709551616", -1},
      {"18446744073709551658", -1},
      {"0x10000000000000000", -1},
      {"02000000000000000000000", -1},
      {"99999999999999999999999999999999999999", -1},
  };
  for (const auto& [text, number] : kIntegers) EXPECT_EQ(String(text).toInteger(), number) << text;
  EXPECT_EQ(with_nuls("1\0002").toInteger(), 1);
}

TEST(StringSubstring, MakesANewString) {
  const String text("hello");
  EXPECT_EQ(state(text.substring(1)), (State{"ello", 7, 1}));
  EXPECT_EQ(state(text.substring(0)), (State{"hello", 7, 1}));
  EXPECT_TRUE(shares_empty(text.substring(5)));
  EXPECT_TRUE(shares_empty(text.substring(-1)));
  EXPECT_EQ(state(text.substring(1, 3)), (State{"el", 7, 1}));
  EXPECT_STREQ(text.substring(3, 100).c_str(), "lo");
  EXPECT_STREQ(text.substring(-2, 3).c_str(), "hello");
  EXPECT_STREQ(text.substring(-2, 1).c_str(), "hel");
  EXPECT_STREQ(text.substring(LONG_MIN, LONG_MAX).c_str(), "hello");
  EXPECT_TRUE(shares_empty(text.substring(2, 2)));
  EXPECT_TRUE(shares_empty(text.substring(3, 1)));
  EXPECT_TRUE(shares_empty(text.substring(5, 6)));
}

TEST(StringSubstring, FromAPositionGoesOnBehindANul) {
  String text("ab");
  text.concat("\0c", 2);
  EXPECT_EQ(state(text.substring(1)), (State{std::string("b\0c", 3), 7, 1}));
  EXPECT_EQ(state(text.substring(2)), (State{std::string("\0c", 2), 7, 1}));
  EXPECT_EQ(state(text.substring(3)), (State{"c", 7, 1}));
}

TEST(StringStar, IsTheStringItself) {
  String text("hello");
  String const& constant = text;
  EXPECT_EQ(&*text, &text);
  EXPECT_EQ(&*constant, &text);
}

TEST(StringIndexOf, FindsTheFirstCharacter) {
  const String text("hello");
  EXPECT_EQ(text.indexOf('l'), 2);
  EXPECT_EQ(text.indexOf('x'), -1);
  EXPECT_EQ(text.indexOf('\0'), -1);
  EXPECT_EQ(text.indexOf('l', 3), 3);
  EXPECT_EQ(text.indexOf('l', 4), -1);
  EXPECT_EQ(text.indexOf('h', -5), 0);
  EXPECT_EQ(text.indexOf('o', 5), -1);
  EXPECT_EQ(text.indexOf('\0', 0), -1);
  EXPECT_EQ(text.indexOf('h', LONG_MAX), -1);
}

TEST(StringIndexOf, FindsTheFirstText) {
  const String text("banana");
  EXPECT_EQ(text.indexOf("an"), 1);
  EXPECT_EQ(text.indexOf(""), 0);
  EXPECT_EQ(text.indexOf("x"), -1);
  EXPECT_EQ(text.indexOf("bananas"), -1);
  EXPECT_EQ(text.indexOf("an", 2), 3);
  EXPECT_EQ(text.indexOf("an", 4), -1);
  EXPECT_EQ(text.indexOf("an", 5), -1);
  EXPECT_EQ(text.indexOf("an", -3), 1);
  EXPECT_EQ(text.indexOf("", 6), 6);
  EXPECT_EQ(text.indexOf("", 7), -1);
  EXPECT_EQ(text.indexOf("bananas", -100), -1);
  EXPECT_EQ(text.indexOf("a", LONG_MAX), -1);
}

TEST(StringIndexOf, FindsTheFirstTextIgnoringCase) {
  const String text("baNAna");
  EXPECT_EQ(text.indexOfIgnoreCase("AN"), 1);
  EXPECT_EQ(text.indexOfIgnoreCase(""), 0);
  EXPECT_EQ(text.indexOfIgnoreCase("x"), -1);
  EXPECT_EQ(text.indexOfIgnoreCase("bananas"), -1);
  EXPECT_EQ(text.indexOfIgnoreCase("an", 2), 3);
  EXPECT_EQ(text.indexOfIgnoreCase("an", 4), -1);
  EXPECT_EQ(text.indexOfIgnoreCase("an", -3), 1);
  EXPECT_EQ(text.indexOfIgnoreCase("", 6), 6);
  EXPECT_EQ(text.indexOfIgnoreCase("", 7), -1);
  EXPECT_EQ(String("a[b").indexOfIgnoreCase("{"), -1);
}

TEST(StringIndexOf, EndsAtANul) {
  const String text = with_nuls("ab\0cb");
  EXPECT_EQ(text.indexOf('c'), -1);
  EXPECT_EQ(text.indexOf('c', 3), 3);
  EXPECT_EQ(text.indexOf('b', 2), -1);
  EXPECT_EQ(text.indexOf('\0', 0), -1);
  EXPECT_EQ(text.indexOf("c"), -1);
  EXPECT_EQ(text.indexOf("cb", 3), 3);
  EXPECT_EQ(text.indexOf("cb", 2), -1);
  // Of what is searched for, too.
  EXPECT_EQ(text.indexOf(with_nuls("b\0x")), 1);
  EXPECT_EQ(text.indexOf(with_nuls("b\0xyz")), 1) << "its length is not asked for";
  EXPECT_EQ(text.indexOf(with_nuls("b\0xyz"), 0), 1);
  EXPECT_EQ(text.indexOf(with_nuls("b\0xyz"), 1), -1);
  EXPECT_EQ(text.indexOf(with_nuls("\0z")), 0);
}

TEST(StringIndexOf, IgnoringCaseComparesUpToANulAtEachPosition) {
  const String text = with_nuls("ab\0cb");
  EXPECT_EQ(text.indexOfIgnoreCase("C"), 3);
  EXPECT_EQ(text.indexOfIgnoreCase(with_nuls("B\0x")), 1);
  EXPECT_EQ(text.indexOfIgnoreCase(with_nuls("\0x")), 2);
  EXPECT_EQ(text.indexOfIgnoreCase(with_nuls("c\0x")), -1);
}

TEST(StringLastIndexOf, LooksBehindANul) {
  const String text = with_nuls("ab\0cb\0");
  EXPECT_EQ(text.lastIndexOf('c'), 3);
  EXPECT_EQ(text.lastIndexOf('\0'), 5);
  EXPECT_EQ(text.lastIndexOf('\0', 4), 2);
  EXPECT_EQ(text.lastIndexOf("b"), 4);
  EXPECT_EQ(text.lastIndexOf("ab"), 0);
  EXPECT_EQ(text.lastIndexOfIgnoreCase("CB"), 3);
  EXPECT_EQ(text.lastIndexOf(with_nuls("b\0x")), 1) << "no room for three characters at 4";
  EXPECT_EQ(text.lastIndexOf(with_nuls("\0x")), 4) << "as the empty text";
  EXPECT_EQ(text.lastIndexOfIgnoreCase(with_nuls("\0x")), 2);
  EXPECT_EQ(text.lastIndexOfIgnoreCase(with_nuls("B\0x")), 1);
}

TEST(StringIndexOf, FindsTheEmptyTextEverywhere) {
  const String text("banana");
  EXPECT_EQ(text.indexOf("", 3), 3);
  EXPECT_EQ(text.indexOf("", -3), 0);
  EXPECT_EQ(text.indexOfIgnoreCase("", 3), 3);
  EXPECT_EQ(text.indexOfIgnoreCase("", -3), 0);
  EXPECT_EQ(text.lastIndexOf("", 100), 6);
  EXPECT_EQ(text.lastIndexOf("", 0), 0);
  EXPECT_EQ(text.lastIndexOf("", -1), -1);
  EXPECT_EQ(text.lastIndexOfIgnoreCase(""), 6);
  EXPECT_EQ(text.lastIndexOfIgnoreCase("", 100), 6);
  EXPECT_EQ(text.lastIndexOfIgnoreCase("", 2), 2);
  EXPECT_EQ(text.lastIndexOfIgnoreCase("", 0), 0);
  EXPECT_EQ(text.lastIndexOfIgnoreCase("", -1), -1);
  const String empty;
  EXPECT_EQ(empty.indexOf(""), 0);
  EXPECT_EQ(empty.indexOf("", 0), 0);
  EXPECT_EQ(empty.indexOfIgnoreCase(""), 0);
  EXPECT_EQ(empty.lastIndexOf(""), 0);
  EXPECT_EQ(empty.lastIndexOfIgnoreCase(""), 0);
  EXPECT_EQ(empty.lastIndexOf("a"), -1);
  EXPECT_EQ(empty.lastIndexOfIgnoreCase("ab"), -2);
}

TEST(StringLastIndexOf, FindsTheLastCharacter) {
  const String text("hello");
  EXPECT_EQ(text.lastIndexOf('l'), 3);
  EXPECT_EQ(text.lastIndexOf('x'), -1);
  EXPECT_EQ(text.lastIndexOf('\0'), -1);
  EXPECT_EQ(text.lastIndexOf('l', 2), 2);
  EXPECT_EQ(text.lastIndexOf('l', 1), -1);
  EXPECT_EQ(text.lastIndexOf('l', 100), 3);
  EXPECT_EQ(text.lastIndexOf('h', 0), 0);
  EXPECT_EQ(text.lastIndexOf('h', -1), -1);
  EXPECT_EQ(String().lastIndexOf('h'), -1);
  EXPECT_EQ(String().lastIndexOf('h', LONG_MAX), -1);
}

TEST(StringLastIndexOf, FindsTheLastText) {
  const String text("banana");
  EXPECT_EQ(text.lastIndexOf("an"), 3);
  EXPECT_EQ(text.lastIndexOf(""), 6);
  EXPECT_EQ(text.lastIndexOf("x"), -1);
  EXPECT_EQ(text.lastIndexOf("an", 2), 1);
  EXPECT_EQ(text.lastIndexOf("an", 0), -1);
  EXPECT_EQ(text.lastIndexOf("an", 100), 3);
  EXPECT_EQ(text.lastIndexOf("an", -1), -1);
  EXPECT_EQ(text.lastIndexOf("", 2), 2);
  EXPECT_EQ(text.lastIndexOfIgnoreCase("AN"), 3);
  EXPECT_EQ(text.lastIndexOfIgnoreCase("AN", 2), 1);
  EXPECT_EQ(text.lastIndexOfIgnoreCase("AN", -1), -1);
  EXPECT_EQ(text.lastIndexOfIgnoreCase("X"), -1);
}

TEST(StringLastIndexOf, OfALongerTextIsTheDifferenceOfTheLengths) {
  const String text("ab");
  EXPECT_EQ(text.lastIndexOf("abcd"), -2);
  EXPECT_EQ(text.lastIndexOf("abcd", 100), -2);
  EXPECT_EQ(text.lastIndexOf("abcd", 0), -2);
  EXPECT_EQ(text.lastIndexOf("abcd", -1), -1);
  EXPECT_EQ(text.lastIndexOfIgnoreCase("ABCDE"), -3);
  EXPECT_EQ(text.lastIndexOfIgnoreCase("ABCDE", 1), -3);
  EXPECT_EQ(text.indexOf("abcd"), -1);
}

TEST(StringOperators, CompareTwoStrings) {
  const String a("a");
  const String b("b");
  const String again("a");
  const String shared(a);
  EXPECT_TRUE(a == again && a == shared && !(a == b) && !(a == String("aa")));
  EXPECT_TRUE(a != b && !(a != again));
  EXPECT_TRUE(a < b && !(b < a) && !(a < shared) && !(a < again));
  EXPECT_TRUE(b > a && !(a > b) && !(a > shared));
  EXPECT_TRUE(a <= b && a <= shared && !(b <= a));
  EXPECT_TRUE(b >= a && a >= shared && !(a >= b));
  EXPECT_TRUE(String("abc") < String("abd") && String("a") < String("ab"));
  EXPECT_TRUE(String("z") < String("\x80"));
}

TEST(StringOperators, CompareWithATextOnEitherSide) {
  const String b("b");
  EXPECT_TRUE(b == "b" && "b" == b && b != "a" && "a" != b);
  EXPECT_TRUE(b < "c" && "a" < b && !(b < "b") && !("b" < b));
  EXPECT_TRUE(b > "a" && "c" > b && !(b > "b") && !("b" > b));
  EXPECT_TRUE(b <= "b" && "b" <= b && !(b <= "a") && !("c" <= b));
  EXPECT_TRUE(b >= "b" && "b" >= b && !(b >= "c") && !("a" >= b));
}

TEST(StringOperators, TakeNullForTheEmptyText) {
  const String text("b");
  const String empty;
  EXPECT_TRUE(empty == no_text && no_text == empty && !(text == no_text) && !(no_text == text));
  EXPECT_TRUE(text != no_text && no_text != text && !(empty != no_text) && !(no_text != empty));
  EXPECT_TRUE(!(text < no_text) && no_text < text && !(empty < no_text) && !(no_text < empty));
  EXPECT_TRUE(text > no_text && !(no_text > text) && !(empty > no_text) && !(no_text > empty));
  EXPECT_TRUE(!(text <= no_text) && no_text <= text && empty <= no_text && no_text <= empty);
  EXPECT_TRUE(text >= no_text && !(no_text >= text) && empty >= no_text && no_text >= empty);
}

TEST(StringOperators, PutNullBelowATextThatBeginsWithANul) {
  const String text = with_nuls("\0x");
  EXPECT_TRUE(!(text == no_text) && !(no_text == text) && text != no_text && no_text != text);
  EXPECT_TRUE(!(text < no_text) && no_text < text && text > no_text && !(no_text > text));
  EXPECT_TRUE(!(text <= no_text) && no_text <= text && text >= no_text && !(no_text >= text));
  // Characters end at the NUL.
  EXPECT_TRUE(text == "" && !(text < "") && !(text > "") && text <= "" && text >= "");
}

TEST(StringOperators, CompareWithACharacterOnEitherSide) {
  const String x("x");
  const String empty;
  EXPECT_TRUE(x == 'x' && 'x' == x && !(x == 'y') && !(String("xx") == 'x') && !(x == '\0'));
  EXPECT_TRUE(empty == '\0' && '\0' == empty && !(empty == 'x'));
  EXPECT_TRUE(x != 'y' && 'y' != x && x != '\0' && '\0' != x && String("xx") != 'x');
  EXPECT_TRUE(!(x != 'x') && !('x' != x) && !(empty != '\0') && !('\0' != empty));
}

}  // namespace
