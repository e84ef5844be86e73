// Digests of messages that are taken in at once, in pieces, and out of order.

#include <rkutils/hash_context.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>

#include "digests/digest_kind.h"
#include "digests/plain_digest.h"
#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/member_type.h"
#include "support/rounds.h"
#include "support/virtual_slot.h"

namespace {

using digest_test::bytes;
using digest_test::digest_of;
using digest_test::feed;
using digest_test::finish;
using digest_test::Kind;
using digest_test::Members;
using digest_test::some_bytes;
using support::kIs;
using testing::Each;
using testing::ElementsAre;

constexpr std::size_t kLongest = 300;

static_assert(kIs<&HashContext::initialize, int (HashContext::*)(unsigned long)>);
static_assert(kIs<&HashContext::destroy, void (HashContext::*)()>);
static_assert(kIs<&HashContext::hash, void (HashContext::*)(const unsigned char*, unsigned long)>);
static_assert(kIs<&HashContext::getReturnedHashLength, unsigned long (HashContext::*)() const>);
static_assert(kIs<&HashContext::getHash, void (HashContext::*)(unsigned char*)>);
static_assert(kIs<&HashContext::getCompleteHashLength, unsigned long (HashContext::*)() const>);
static_assert(kIs<&HashContext::getCompleteHash, void (HashContext::*)(unsigned char*)>);
static_assert(kIs<&HashContext::test, int (HashContext::*)()>);
static_assert(std::is_abstract_v<HashContext> && std::has_virtual_destructor_v<HashContext>);
static_assert(sizeof(HashContext) == sizeof(void*), "it has no data");
static_assert(!std::is_copy_assignable_v<HashContext>, "half of a context is none");
static_assert(std::is_base_of_v<HashContext, Md5HashContext>);
static_assert(std::is_base_of_v<HashContext, Sha1HashContext>);

template <typename Context>
std::vector<std::size_t> slots() {
  return {support::virtual_slot(&Context::initialize),
          support::virtual_slot(&Context::destroy),
          support::virtual_slot(&Context::hash),
          support::virtual_slot(&Context::getReturnedHashLength),
          support::virtual_slot(&Context::getHash),
          support::virtual_slot(&Context::getCompleteHashLength),
          support::virtual_slot(&Context::getCompleteHash),
          support::virtual_slot(&Context::test)};
}

TEST(HashContextClass, HasItsVirtualMembersBehindTheDestructorsTwo) {
  EXPECT_THAT(slots<HashContext>(), ElementsAre(2, 3, 4, 5, 6, 7, 8, 9));
  EXPECT_THAT(slots<Md5HashContext>(), ElementsAre(2, 3, 4, 5, 6, 7, 8, 9));
  EXPECT_THAT(slots<Sha1HashContext>(), ElementsAre(2, 3, 4, 5, 6, 7, 8, 9));
}

// ---- The standards' own examples ----

struct Example {
  std::string name;
  const Kind* kind;
  std::string message;
  std::string digest;
};

class HashContextExample : public testing::TestWithParam<Example> {};

TEST_P(HashContextExample, HasTheDigestInTheStandard) {
  EXPECT_EQ(digest_of(*GetParam().kind, GetParam().message), GetParam().digest);
  EXPECT_EQ(GetParam().kind->plain(GetParam().message, 0), GetParam().digest);
}

const std::string kAlphabet = "abcdefghijklmnopqrstuvwxyz";
const std::string kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ" + kAlphabet + "0123456789";

INSTANTIATE_TEST_SUITE_P(
    OfRfc1321, HashContextExample,
    testing::Values(
        Example{"Empty", &digest_test::md5(), "", "d41d8cd98f00b204e9800998ecf8427e"},
        Example{"A", &digest_test::md5(), "a", "0cc175b9c0f1b6a831c399e269772661"},
        Example{"Abc", &digest_test::md5(), "abc", "900150983cd24fb0d6963f7d28e17f72"},
        Example{"Words", &digest_test::md5(), "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        Example{"Alphabet", &digest_test::md5(), kAlphabet, "c3fcd3d76192e4007dfb496cca67e13b"},
        Example{"Letters", &digest_test::md5(), kLetters, "d174ab98d277d9f5a5611c2c9f419d9f"},
        Example{"Digits", &digest_test::md5(),
                "12345678901234567890123456789012345678901234567890123456789012345678901234567890",
                "57edf4a22be3c955ac49da2e2107b67a"}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    OfFips180, HashContextExample,
    testing::Values(
        Example{"Empty", &digest_test::sha1(), "", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        Example{"Abc", &digest_test::sha1(), "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        Example{"TwoBlocks", &digest_test::sha1(),
                "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
                "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        Example{"AMillion", &digest_test::sha1(), std::string(1000000, 'a'),
                "34aa973cd4c4daa4f61eeb2bdbad27316534016f"}),
    support::CaseName());

// ---- Both ----

class HashContextTest : public testing::TestWithParam<const Kind*> {
 protected:
  const Kind& kind() const { return *GetParam(); }
  HashContext& context() { return *context_; }
  std::string plain(const std::string& message) const { return kind().plain(message, 0); }
  Members members() const { return digest_test::members_at(kind(), context_.get()); }

 private:
  std::unique_ptr<HashContext> context_ = kind().make();
};

INSTANTIATE_TEST_SUITE_P(Digests, HashContextTest,
                         testing::Values(&digest_test::md5(), &digest_test::sha1()),
                         [](const auto& test_case) { return test_case.param->name; });

TEST_P(HashContextTest, KeepsItsMembersInOrder) {
  EXPECT_EQ(context().initialize(10), 0);
  feed(context(), "ab");
  const Members found = members();
  EXPECT_EQ(found.state, kind().initial_state);
  EXPECT_THAT(found.count, ElementsAre(16, 0));
  EXPECT_EQ(found.buffer[0], 'a');
  EXPECT_EQ(found.buffer[1], 'b');
  EXPECT_EQ(found.returned_length, 10U);
}

TEST_P(HashContextTest, IsWipedWhenConstructed) {
  const Members found = members();
  EXPECT_THAT(found.state, Each(0));
  EXPECT_THAT(found.count, Each(0));
  EXPECT_THAT(found.buffer, Each(0));
  EXPECT_EQ(found.returned_length, kind().length);
  EXPECT_EQ(context().getReturnedHashLength(), kind().length);
  EXPECT_EQ(context().getCompleteHashLength(), kind().length);
}

TEST_P(HashContextTest, TakesMessagesOfAllLengths) {
  for (std::size_t length = 0; length <= kLongest; ++length) {
    const std::string message = some_bytes(length);
    ASSERT_EQ(digest_of(kind(), message), plain(message)) << length;
  }
}

TEST_P(HashContextTest, TakesMessagesInTwoPiecesDividedAnywhere) {
  // The slow board takes a different tenth of the places for each length.
  const std::size_t stride = support::rounds(10) == 10 ? 1 : 10;
  for (std::size_t length = 0; length <= kLongest; ++length) {
    const std::string message = some_bytes(length);
    const std::string expected = plain(message);
    for (std::size_t first = length % stride; first <= length; first += stride) {
      context().initialize(0);
      context().hash(bytes(message), first);
      context().hash(bytes(message) + first, length - first);
      ASSERT_EQ(finish(context()), expected) << first << " of " << length;
    }
  }
}

TEST_P(HashContextTest, TakesMessagesInManyPieces) {
  std::minstd_rand random(1);
  for (int round = support::rounds(1000); round > 0; --round) {
    const std::string message = some_bytes(random() % 2000);
    const std::size_t longest = 1 + random() % 200;
    context().initialize(0);
    std::size_t at = 0;
    while (at < message.size()) {
      const std::size_t length =
          std::min<std::size_t>(random() % (longest + 1), message.size() - at);
      feed(context(), message.substr(at, length));
      at += length;
    }
    ASSERT_EQ(finish(context()), plain(message)) << message.size() << ", up to " << longest;
  }
}

TEST_P(HashContextTest, TakesMessagesByteByByte) {
  const std::string message = some_bytes(200);
  context().initialize(0);
  for (const char byte : message) feed(context(), std::string(1, byte));
  EXPECT_EQ(finish(context()), plain(message));
}

TEST_P(HashContextTest, TakesMessagesAtAnyAlignment) {
  alignas(8) std::array<unsigned char, 300> memory;
  const std::string message = some_bytes(200);
  for (std::size_t offset = 0; offset < 8; ++offset) {
    std::copy(message.begin(), message.end(), memory.begin() + static_cast<std::ptrdiff_t>(offset));
    context().initialize(0);
    context().hash(&memory[offset], message.size());
    EXPECT_EQ(finish(context()), plain(message)) << offset;
    context().initialize(0);
    context().hash(&memory[offset], 3);
    context().hash(&memory[offset + 3], message.size() - 3);
    EXPECT_EQ(finish(context()), plain(message)) << offset << ", in two pieces";
  }
}

TEST_P(HashContextTest, WritesDigestsAtAnyAlignment) {
  alignas(8) std::array<unsigned char, 32> memory;
  for (std::size_t offset = 0; offset < 8; ++offset) {
    context().initialize(0);
    context().getHash(&memory[offset]);
    EXPECT_EQ(plain_digest::to_hex(
                  {memory.begin() + static_cast<std::ptrdiff_t>(offset),
                   memory.begin() + static_cast<std::ptrdiff_t>(offset + kind().length)}),
              plain(""));
  }
}

TEST_P(HashContextTest, TakesNothingFromNowhere) {
  context().initialize(0);
  context().hash(nullptr, 0);
  feed(context(), "abc");
  context().hash(nullptr, 0);
  EXPECT_THAT(members().count, ElementsAre(24, 0));
  EXPECT_EQ(finish(context()), plain("abc"));
}

TEST_P(HashContextTest, TakesWholeBlocksFromWhereTheyAre) {
  context().initialize(0);
  feed(context(), some_bytes(256));
  EXPECT_THAT(members().buffer, Each(0)) << "a copy was made";
  EXPECT_EQ(finish(context()), plain(some_bytes(256)));
}

TEST_P(HashContextTest, CopiesNoMoreThanThePartsOfBlocks) {
  context().initialize(0);
  feed(context(), std::string(10, 'x'));
  feed(context(), std::string(54 + 128, 'y') + "rest");
  const Members found = members();
  EXPECT_EQ(std::string(found.buffer.begin(), found.buffer.end()),
            "rest" + std::string(6, 'x') + std::string(54, 'y'));
}

TEST_P(HashContextTest, AllocatesNothing) {
  const std::string message = some_bytes(200);
  unsigned char digest[20];
  const unsigned long before = support::allocation_count();
  context().initialize(0);
  context().hash(bytes(message), message.size());
  context().getHash(digest);
  context().getCompleteHash(digest);
  context().test();
  context().destroy();
  EXPECT_EQ(support::allocation_count(), before);
}

// ---- Lengths ----

TEST_P(HashContextTest, WritesAsManyBytesAsWereAskedFor) {
  for (std::size_t length = 1; length <= kind().length; ++length) {
    EXPECT_EQ(context().initialize(length), 0);
    EXPECT_EQ(context().getReturnedHashLength(), length);
    feed(context(), "abc");
    EXPECT_EQ(finish(context()), plain("abc").substr(0, 2 * length));
  }
}

TEST_P(HashContextTest, WritesAllForNothingAndForTooMany) {
  constexpr unsigned long kTenInTheLowWord = ULONG_MAX / 2 + 11;
  for (const unsigned long length : {0UL, kind().length + 1UL, 40UL, ULONG_MAX, kTenInTheLowWord}) {
    context().initialize(10);
    EXPECT_EQ(context().initialize(length), 0);
    EXPECT_EQ(context().getReturnedHashLength(), kind().length);
    feed(context(), "abc");
    EXPECT_EQ(finish(context()), plain("abc"));
  }
}

TEST_P(HashContextTest, WritesAllOfACompleteHash) {
  context().initialize(3);
  feed(context(), "abc");
  EXPECT_EQ(digest_test::hex_of(context(), kind().length, &HashContext::getCompleteHash),
            plain("abc"));
  EXPECT_EQ(context().getReturnedHashLength(), 3U);
  EXPECT_EQ(context().getCompleteHashLength(), kind().length);
}

// ---- Beginning, ending, and out of order ----

TEST_P(HashContextTest, BeginsAnewInTheMiddleOfAMessage) {
  context().initialize(5);
  feed(context(), some_bytes(100));
  EXPECT_EQ(context().initialize(0), 0);
  EXPECT_EQ(members().state, kind().initial_state);
  EXPECT_THAT(members().count, ElementsAre(0, 0));
  feed(context(), "abc");
  EXPECT_EQ(finish(context()), plain("abc"));
}

TEST_P(HashContextTest, LeavesTheBufferAloneWhenItBegins) {
  context().initialize(0);
  feed(context(), "left");
  context().initialize(0);
  const Members found = members();
  EXPECT_EQ(std::string(found.buffer.begin(), found.buffer.begin() + 4), "left");
}

TEST_P(HashContextTest, KnowsNothingOfAnother) {
  const std::unique_ptr<HashContext> other = kind().make();
  context().initialize(0);
  other->initialize(7);
  feed(context(), "ab");
  feed(*other, "x");
  feed(context(), "c");
  EXPECT_EQ(finish(*other), plain("x").substr(0, 14));
  EXPECT_EQ(finish(context()), plain("abc"));
}

// The second padding stands behind the first one.
TEST_P(HashContextTest, PadsAgainWhenItIsFinishedTwice) {
  for (const std::size_t length : {0U, 3U, 55U, 56U, 63U, 64U, 100U}) {
    const std::string message = some_bytes(length);
    context().initialize(0);
    feed(context(), message);
    EXPECT_EQ(finish(context()), plain(message));
    const std::string padded = digest_test::with_padding(kind(), message);
    EXPECT_EQ(finish(context()), plain(padded)) << length;
    EXPECT_EQ(digest_test::hex_of(context(), kind().length, &HashContext::getCompleteHash),
              plain(digest_test::with_padding(kind(), padded)));
  }
}

TEST_P(HashContextTest, GoesOnBehindThePadding) {
  context().initialize(0);
  feed(context(), "abc");
  finish(context());
  feed(context(), "more");
  EXPECT_EQ(finish(context()), plain(digest_test::with_padding(kind(), "abc") + "more"));
}

TEST_P(HashContextTest, ForgetsEverythingWhenItIsDestroyed) {
  context().initialize(5);
  feed(context(), some_bytes(100));
  context().destroy();
  const Members found = members();
  EXPECT_THAT(found.state, Each(0));
  EXPECT_THAT(found.count, Each(0));
  EXPECT_THAT(found.buffer, Each(0));
  EXPECT_EQ(context().getReturnedHashLength(), kind().length);
  EXPECT_EQ(context().initialize(0), 0);
  feed(context(), "abc");
  EXPECT_EQ(finish(context()), plain("abc"));
}

TEST_P(HashContextTest, HasADigestOfNoMessageBeforeItIsInitialized) {
  const std::unique_ptr<HashContext> destroyed = kind().make();
  destroyed->initialize(4);
  destroyed->destroy();
  feed(context(), "abc");
  feed(*destroyed, "abc");
  const std::string digest = finish(context());
  EXPECT_EQ(digest.size(), 2 * kind().length);
  EXPECT_NE(digest, plain("abc"));
  EXPECT_EQ(digest, finish(*destroyed));
}

// ---- The self-test ----

TEST_P(HashContextTest, PassesItsSelfTest) { EXPECT_EQ(context().test(), 0); }

TEST_P(HashContextTest, LosesItsMessageInTheSelfTest) {
  context().initialize(5);
  feed(context(), "lost");
  EXPECT_EQ(context().test(), 0);
  EXPECT_EQ(context().getReturnedHashLength(), kind().length);
  EXPECT_EQ(members().state, kind().initial_state);
  EXPECT_THAT(members().count, ElementsAre(0, 0));
  feed(context(), "abc");
  EXPECT_EQ(finish(context()), plain("abc"));
}

// ---- As objects of their classes ----

template <typename Context>
const Kind& kind_of();
template <>
const Kind& kind_of<Md5HashContext>() {
  return digest_test::md5();
}
template <>
const Kind& kind_of<Sha1HashContext>() {
  return digest_test::sha1();
}

template <typename Context>
class HashContextObject : public testing::Test {
 protected:
  const Kind& kind = kind_of<Context>();
};

struct ContextName {
  template <typename Context>
  static std::string GetName(int /*index*/) {
    return kind_of<Context>().name;
  }
};
using Contexts = testing::Types<Md5HashContext, Sha1HashContext>;
TYPED_TEST_SUITE(HashContextObject, Contexts, ContextName);

TYPED_TEST(HashContextObject, ForgetsEverythingAtItsEnd) {
  alignas(TypeParam) std::array<unsigned char, sizeof(TypeParam)> memory;
  memory.fill(0xEE);
  auto* const context = new (memory.data()) TypeParam;
  context->initialize(5);
  feed(*context, some_bytes(100));
  context->~TypeParam();
  const Members left = digest_test::members_at(this->kind, memory.data());
  EXPECT_THAT(left.state, Each(0));
  EXPECT_THAT(left.count, Each(0));
  EXPECT_THAT(left.buffer, Each(0));
}

TYPED_TEST(HashContextObject, GoesOnInTwoWaysWhenItIsCopied) {
  TypeParam context;
  context.initialize(9);
  feed(context, some_bytes(100));
  TypeParam copy = context;
  feed(context, "one");
  feed(copy, "two");
  TypeParam assigned;
  assigned = copy;
  EXPECT_EQ(finish(context), this->kind.plain(some_bytes(100) + "one", 0).substr(0, 18));
  EXPECT_EQ(finish(copy), this->kind.plain(some_bytes(100) + "two", 0).substr(0, 18));
  EXPECT_EQ(finish(assigned), this->kind.plain(some_bytes(100) + "two", 0).substr(0, 18));
}

}  // namespace
