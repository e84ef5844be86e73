// Messages whose length in bits has more than 32 bits.

#include <rkutils/hash_context.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <gmock/gmock.h>

#include "digests/digest_kind.h"
#include "support/rounds.h"

namespace {

using digest_test::bytes;
using digest_test::feed;
using digest_test::finish;
using digest_test::Kind;
using digest_test::some_bytes;
using testing::ElementsAre;

constexpr std::uint64_t kOneWord = std::uint64_t{1} << 32;

constexpr std::uint64_t bits_of_blocks(std::uint64_t blocks) { return blocks * 64 * 8; }

class HashContextCount : public testing::TestWithParam<const Kind*> {
 protected:
  const Kind& kind() const { return *GetParam(); }
  HashContext& context() { return *context_; }
  std::array<std::uint32_t, 2> count() const {
    return digest_test::members_at(kind(), context_.get()).count;
  }

  // As if so many bits of whole blocks had come before.
  void begin_after(std::uint64_t bits) {
    context().initialize(0);
    digest_test::set_count(kind(), context(), bits);
  }

 private:
  std::unique_ptr<HashContext> context_ = kind().make();
};

INSTANTIATE_TEST_SUITE_P(Digests, HashContextCount,
                         testing::Values(&digest_test::md5(), &digest_test::sha1()),
                         [](const auto& test_case) { return test_case.param->name; });

TEST_P(HashContextCount, IsInBits) {
  context().initialize(0);
  feed(context(), some_bytes(100));
  EXPECT_THAT(count(), ElementsAre(800, 0));
  feed(context(), some_bytes(1));
  EXPECT_THAT(count(), ElementsAre(808, 0));
}

TEST_P(HashContextCount, CarriesIntoTheHighWord) {
  for (const std::size_t length : {127U, 128U, 129U, 200U}) {
    const std::uint64_t before = kOneWord - bits_of_blocks(2);
    begin_after(before);
    feed(context(), some_bytes(length));
    const std::uint64_t after = before + 8 * length;
    EXPECT_THAT(count(), ElementsAre(after % kOneWord, after / kOneWord));
    EXPECT_EQ(finish(context()), kind().plain(some_bytes(length), before)) << length;
  }
}

TEST_P(HashContextCount, CarriesInTheLastOfManyPieces) {
  const std::uint64_t before = kOneWord - bits_of_blocks(2);
  begin_after(before);
  for (const char byte : some_bytes(128)) feed(context(), std::string(1, byte));
  EXPECT_THAT(count(), ElementsAre(0, 1));
  EXPECT_EQ(finish(context()), kind().plain(some_bytes(128), before));
}

// The length in the padding is that of the message, without the padding that carries.
TEST_P(HashContextCount, MayCarryWhileItIsPadded) {
  const std::uint64_t before = kOneWord - bits_of_blocks(1);
  begin_after(before);
  feed(context(), some_bytes(60));
  EXPECT_EQ(finish(context()), kind().plain(some_bytes(60), before));
  EXPECT_THAT(count(), ElementsAre(8 * 64, 1));
}

TEST_P(HashContextCount, HasAHighWordInThePadding) {
  const std::uint64_t before = 0x123456789ABCDE00;
  begin_after(before);
  feed(context(), "abc");
  EXPECT_EQ(finish(context()), kind().plain("abc", before));
}

TEST_P(HashContextCount, EndsAtTwoWords) {
  const std::uint64_t before = 0 - bits_of_blocks(1);
  begin_after(before);
  feed(context(), some_bytes(65));
  EXPECT_THAT(count(), ElementsAre(8, 0));
  EXPECT_EQ(finish(context()), kind().plain(some_bytes(65), before));
}

// ---- A message that is really that long ----

// Lines as of yes(1), so that others can check it: yes rkutils | head -c LENGTH | md5sum
std::string lines(std::size_t length) {
  static const std::string kLine = "rkutils\n";
  std::string text;
  while (text.size() < length) text += kLine;
  text.resize(length);
  return text;
}

struct LongMessage {
  std::size_t length;
  const char* md5;
  const char* sha1;
};

// The shorter one on the slow board, and where the compiler did not optimise and sanitizers look
// on: the other takes minutes there.
LongMessage long_message() {
#ifdef NDEBUG
  constexpr bool kFast = true;
#else
  constexpr bool kFast = false;
#endif
  if (kFast && support::rounds(50) == 50) {
    return {std::size_t{600} << 20, "079540c1c0c2eea4c894c608c4f90fea",
            "a2c3032e365bb61750b1eb325c8e5b0a099c86a0"};
  }
  return {std::size_t{12} << 20, "01559ce0c839a6178cc6b2538517ee8b",
          "ace054eee2131a2859fc9266c425a354f97ac22a"};
}

TEST_P(HashContextCount, IsRightForALongMessage) {
  const LongMessage message = long_message();
  constexpr std::size_t kPiece = std::size_t{1} << 20;
  const std::string text = lines(kPiece + 8);
  context().initialize(0);
  std::size_t at = 0;
  std::size_t piece = 1;
  while (at < message.length) {
    const std::size_t length = std::min(piece, message.length - at);
    context().hash(bytes(text) + at % 8, length);
    at += length;
    piece = piece * 7 % kPiece + 1;
  }
  EXPECT_EQ(finish(context()), kind().length == 16 ? message.md5 : message.sha1);
}

}  // namespace
