// HMAC over the library's digests, over digests that fail, and out of order.

#include <rkutils/hash_context.h>
#include <rkutils/hmac_context.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>

#include "digests/digest_kind.h"
#include "digests/plain_digest.h"
#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/member_type.h"
#include "support/small_stack.h"
#include "support/virtual_slot.h"

namespace {

using digest_test::bytes;
using digest_test::Kind;
using digest_test::some_bytes;
using plain_digest::from_hex;
using support::kIs;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kBlockSize = 64;
// A length of 32 bits can be asked for on every machine; what is above them is on some.
constexpr auto kTwelveAndMore = static_cast<unsigned long>(0x10000000CULL);

static_assert(
    kIs<&AuthenticationContext::initialize,
        int (AuthenticationContext::*)(const unsigned char*, unsigned long, unsigned long)>);
static_assert(kIs<&AuthenticationContext::destroy, void (AuthenticationContext::*)()>);
static_assert(kIs<&AuthenticationContext::reset, int (AuthenticationContext::*)()>);
static_assert(kIs<&AuthenticationContext::hash,
                  void (AuthenticationContext::*)(const unsigned char*, unsigned long)>);
static_assert(
    kIs<&AuthenticationContext::getHash, void (AuthenticationContext::*)(unsigned char*)>);
static_assert(kIs<&AuthenticationContext::getCompleteHashLength,
                  unsigned long (AuthenticationContext::*)() const>);
static_assert(kIs<&AuthenticationContext::getReturnedHashLength,
                  unsigned long (AuthenticationContext::*)() const>);
static_assert(std::is_abstract_v<AuthenticationContext>);
static_assert(std::has_virtual_destructor_v<AuthenticationContext>);
static_assert(sizeof(AuthenticationContext) == sizeof(void*), "it has no data");
static_assert(std::is_base_of_v<AuthenticationContext, HmacContext>);
static_assert(std::is_constructible_v<HmacContext, HashContext*>);

template <typename Context>
std::vector<std::size_t> slots() {
  return {support::virtual_slot(&Context::initialize),
          support::virtual_slot(&Context::destroy),
          support::virtual_slot(&Context::reset),
          support::virtual_slot(&Context::hash),
          support::virtual_slot(&Context::getHash),
          support::virtual_slot(&Context::getCompleteHashLength),
          support::virtual_slot(&Context::getReturnedHashLength)};
}

TEST(HmacContextClass, HasItsVirtualMembersBehindTheDestructorsTwo) {
  EXPECT_THAT(slots<AuthenticationContext>(), ElementsAre(2, 3, 4, 5, 6, 7, 8));
  EXPECT_THAT(slots<HmacContext>(), ElementsAre(2, 3, 4, 5, 6, 7, 8));
}

// ---- What is in an object ----

struct Members {
  const HashContext* digest;
  std::array<unsigned char, kBlockSize> inner_pad;
  std::array<unsigned char, kBlockSize> outer_pad;
  std::uint32_t returned_length;
};

Members members_at(const void* object) {
  Members members;
  const auto* at = static_cast<const unsigned char*>(object) + sizeof(void*);
  const auto take = [&at](void* to, std::size_t size) {
    std::memcpy(to, at, size);
    at += size;
  };
  take(&members.digest, sizeof(void*));
  take(members.inner_pad.data(), kBlockSize);
  take(members.outer_pad.data(), kBlockSize);
  take(&members.returned_length, sizeof members.returned_length);
  return members;
}

// ---- Calls ----

int start(HmacContext& hmac, const std::string& key, unsigned long returned_length = 0) {
  const std::vector<unsigned char> block(key.begin(), key.end());
  return hmac.initialize(block.data(), block.size(), returned_length);
}

void feed(HmacContext& hmac, const std::string& message) {
  const std::vector<unsigned char> block(message.begin(), message.end());
  hmac.hash(block.data(), block.size());
}

// As long as it is said to be, at most the complete length.
std::string finish(HmacContext& hmac) {
  return digest_test::hex_of(hmac,
                             std::min(hmac.getReturnedHashLength(), hmac.getCompleteHashLength()),
                             &HmacContext::getHash);
}

std::string code_of(const Kind& kind, const std::string& key, const std::string& message,
                    unsigned long returned_length = 0) {
  const std::unique_ptr<HashContext> digest = kind.make();
  HmacContext hmac(digest.get());
  EXPECT_EQ(start(hmac, key, returned_length), 0);
  feed(hmac, message);
  return finish(hmac);
}

// ---- The standard's own examples ----

struct Example {
  std::string name;
  const Kind* kind;
  std::string key;
  std::string message;
  std::string code;
};

class HmacExample : public testing::TestWithParam<Example> {};

TEST_P(HmacExample, HasTheCodeInTheStandard) {
  const auto& [name, kind, key, message, code] = GetParam();
  EXPECT_EQ(code_of(*kind, key, message), code);
  EXPECT_EQ(plain_digest::hmac(kind->plain, key, message), code);
}

std::string repeated(std::size_t count, const char* byte) {
  return std::string(count, from_hex(byte)[0]);
}

const std::string kCountingKey = from_hex("0102030405060708090a0b0c0d0e0f10111213141516171819");
const std::string kHashKeyFirst = "Test Using Larger Than Block-Size Key - Hash Key First";
const std::string kTwoBlocks =
    "Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data";

INSTANTIATE_TEST_SUITE_P(
    OfRfc2202WithMd5, HmacExample,
    testing::Values(Example{"One", &digest_test::md5(), repeated(16, "0b"), "Hi There",
                            "9294727a3638bb1c13f48ef8158bfc9d"},
                    Example{"Two", &digest_test::md5(), "Jefe", "what do ya want for nothing?",
                            "750c783e6ab0b503eaa86e310a5db738"},
                    Example{"Three", &digest_test::md5(), repeated(16, "aa"), repeated(50, "dd"),
                            "56be34521d144c88dbb8c733f0e8b3f6"},
                    Example{"Four", &digest_test::md5(), kCountingKey, repeated(50, "cd"),
                            "697eaf0aca3a3aea3a75164746ffaa79"},
                    Example{"Five", &digest_test::md5(), repeated(16, "0c"), "Test With Truncation",
                            "56461ef2342edc00f9bab995690efd4c"},
                    Example{"Six", &digest_test::md5(), repeated(80, "aa"), kHashKeyFirst,
                            "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd"},
                    Example{"Seven", &digest_test::md5(), repeated(80, "aa"), kTwoBlocks,
                            "6f630fad67cda0ee1fb1f562db3aa53e"}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    OfRfc2202WithSha1, HmacExample,
    testing::Values(Example{"One", &digest_test::sha1(), repeated(20, "0b"), "Hi There",
                            "b617318655057264e28bc0b6fb378c8ef146be00"},
                    Example{"Two", &digest_test::sha1(), "Jefe", "what do ya want for nothing?",
                            "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
                    Example{"Three", &digest_test::sha1(), repeated(20, "aa"), repeated(50, "dd"),
                            "125d7342b9ac11cd91a39af48aa17b4f63f175d3"},
                    Example{"Four", &digest_test::sha1(), kCountingKey, repeated(50, "cd"),
                            "4c9007f4026250c6bc8414f9bf50c86c2d7235da"},
                    Example{"Five", &digest_test::sha1(), repeated(20, "0c"),
                            "Test With Truncation", "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04"},
                    Example{"Six", &digest_test::sha1(), repeated(80, "aa"), kHashKeyFirst,
                            "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
                    Example{"Seven", &digest_test::sha1(), repeated(80, "aa"), kTwoBlocks,
                            "e8e99d0f45237d786d6bbaa7965c7808bbff1a91"}),
    support::CaseName());

TEST(HmacTruncation, IsThatOfTheStandard) {
  EXPECT_EQ(code_of(digest_test::md5(), repeated(16, "0c"), "Test With Truncation", 12),
            "56461ef2342edc00f9bab995");
  EXPECT_EQ(code_of(digest_test::sha1(), repeated(20, "0c"), "Test With Truncation", 12),
            "4c1a03424b55e07fe7f27be1");
}

// ---- Over both digests ----

class HmacContextTest : public testing::TestWithParam<const Kind*> {
 protected:
  const Kind& kind() const { return *GetParam(); }
  HashContext& digest() { return *digest_; }
  HmacContext& hmac() { return hmac_; }
  std::string plain(const std::string& key, const std::string& message) const {
    return plain_digest::hmac(kind().plain, key, message);
  }

 private:
  std::unique_ptr<HashContext> digest_ = kind().make();
  HmacContext hmac_{digest_.get()};
};

INSTANTIATE_TEST_SUITE_P(Digests, HmacContextTest,
                         testing::Values(&digest_test::md5(), &digest_test::sha1()),
                         [](const auto& test_case) { return test_case.param->name; });

TEST_P(HmacContextTest, TakesKeysOfAllLengths) {
  for (std::size_t length = 0; length <= 2 * kBlockSize + 1; ++length) {
    const std::string key = some_bytes(length);
    ASSERT_EQ(code_of(kind(), key, "message"), plain(key, "message")) << length;
  }
}

TEST_P(HmacContextTest, UsesAKeyOfABlockAsItIsAndHashesALongerOne) {
  const std::string block = some_bytes(kBlockSize);
  EXPECT_EQ(start(hmac(), block), 0);
  Members members = members_at(&hmac());
  for (std::size_t i = 0; i < kBlockSize; ++i) {
    EXPECT_EQ(members.inner_pad[i], static_cast<unsigned char>(block[i]) ^ 0x36);
    EXPECT_EQ(members.outer_pad[i], static_cast<unsigned char>(block[i]) ^ 0x5C);
  }
  const std::string longer = some_bytes(kBlockSize + 1);
  EXPECT_EQ(start(hmac(), longer), 0);
  members = members_at(&hmac());
  std::string hashed = from_hex(kind().plain(longer, 0));
  hashed.resize(kBlockSize, '\0');
  for (std::size_t i = 0; i < kBlockSize; ++i) {
    EXPECT_EQ(members.inner_pad[i], static_cast<unsigned char>(hashed[i]) ^ 0x36);
    EXPECT_EQ(members.outer_pad[i], static_cast<unsigned char>(hashed[i]) ^ 0x5C);
  }
}

TEST_P(HmacContextTest, TakesMessagesOfAllLengths) {
  for (std::size_t length = 0; length <= 300; ++length) {
    const std::string message = some_bytes(length);
    ASSERT_EQ(code_of(kind(), "key", message), plain("key", message)) << length;
  }
}

TEST_P(HmacContextTest, TakesMessagesInPieces) {
  const std::string message = some_bytes(300);
  for (std::size_t first = 0; first <= message.size(); ++first) {
    EXPECT_EQ(start(hmac(), "key"), 0);
    feed(hmac(), message.substr(0, first));
    feed(hmac(), message.substr(first));
    ASSERT_EQ(finish(hmac()), plain("key", message)) << first;
  }
}

TEST_P(HmacContextTest, TakesNothingFromNowhere) {
  EXPECT_EQ(hmac().initialize(nullptr, 0, 0), 0);
  hmac().hash(nullptr, 0);
  EXPECT_EQ(finish(hmac()), plain("", ""));
}

TEST_P(HmacContextTest, WritesAsManyBytesAsWereAskedFor) {
  for (const std::size_t length : {1U, 10U, 12U, 16U}) {
    EXPECT_EQ(start(hmac(), "key", length), 0);
    EXPECT_EQ(hmac().getReturnedHashLength(), length);
    EXPECT_EQ(hmac().getCompleteHashLength(), kind().length);
    feed(hmac(), "message");
    EXPECT_EQ(finish(hmac()), plain("key", "message").substr(0, 2 * length));
    EXPECT_EQ(hmac().getReturnedHashLength(), length);
  }
}

// The block that the code is written to has no room for one byte more.
TEST_P(HmacContextTest, WritesNoMoreThanAllAndStillSaysWhatWasAskedFor) {
  for (const unsigned long length : {17UL, 40UL, 64UL, 65UL, 0xFFFFFFFFUL}) {
    EXPECT_EQ(start(hmac(), "key", length), 0);
    EXPECT_EQ(hmac().getReturnedHashLength(), length);
    feed(hmac(), "message");
    const std::string code = digest_test::hex_of(
        hmac(), std::min<std::size_t>(length, kind().length), &HmacContext::getHash);
    EXPECT_EQ(code, plain("key", "message").substr(0, 2 * length));
    EXPECT_EQ(hmac().getReturnedHashLength(), length);
  }
}

TEST_P(HmacContextTest, CutsALengthTo32Bits) {
  EXPECT_EQ(start(hmac(), "key", kTwelveAndMore), 0);
  EXPECT_EQ(hmac().getReturnedHashLength(), 12U);
  feed(hmac(), "message");
  EXPECT_EQ(finish(hmac()), plain("key", "message").substr(0, 24));
}

// A length whose lower 32 bits are zeros is no length.
TEST_P(HmacContextTest, WritesAllWhereNothingIsLeftOfALength) {
  constexpr auto kMore = static_cast<unsigned long>(0x100000000ULL);
  EXPECT_EQ(start(hmac(), "key", kMore), 0);
  EXPECT_EQ(hmac().getReturnedHashLength(), kind().length);
  feed(hmac(), "message");
  EXPECT_EQ(finish(hmac()), plain("key", "message"));
}

TEST_P(HmacContextTest, WritesAllForNothing) {
  EXPECT_EQ(hmac().getReturnedHashLength(), kind().length);
  EXPECT_EQ(start(hmac(), "key", 5), 0);
  EXPECT_EQ(start(hmac(), "key", 0), 0);
  EXPECT_EQ(hmac().getReturnedHashLength(), kind().length);
  feed(hmac(), "message");
  EXPECT_EQ(finish(hmac()), plain("key", "message"));
}

TEST_P(HmacContextTest, TakesAnotherMessageAfterAReset) {
  EXPECT_EQ(start(hmac(), "key", 12), 0);
  for (const char* message : {"one", "two", "", "three"}) {
    feed(hmac(), message);
    EXPECT_EQ(finish(hmac()), plain("key", message).substr(0, 24));
    EXPECT_EQ(hmac().reset(), 0);
  }
  feed(hmac(), "lost");
  EXPECT_EQ(hmac().reset(), 0);
  feed(hmac(), "four");
  EXPECT_EQ(finish(hmac()), plain("key", "four").substr(0, 24));
}

TEST_P(HmacContextTest, TakesAnotherKey) {
  EXPECT_EQ(start(hmac(), some_bytes(100), 3), 0);
  feed(hmac(), "lost");
  EXPECT_EQ(start(hmac(), "key"), 0);
  feed(hmac(), "message");
  EXPECT_EQ(finish(hmac()), plain("key", "message"));
}

TEST_P(HmacContextTest, SharesADigestWithOthersInTurn) {
  HmacContext other(&digest());
  EXPECT_EQ(start(hmac(), "key"), 0);
  EXPECT_EQ(start(other, "other key"), 0);
  feed(other, "message");
  EXPECT_EQ(finish(other), plain("other key", "message"));
  EXPECT_EQ(hmac().reset(), 0);
  feed(hmac(), "message");
  EXPECT_EQ(finish(hmac()), plain("key", "message"));
}

TEST_P(HmacContextTest, IsCopiedWithItsKey) {
  EXPECT_EQ(start(hmac(), "key", 12), 0);
  HmacContext copy = hmac();
  hmac().destroy();
  EXPECT_EQ(copy.reset(), 0);
  feed(copy, "message");
  EXPECT_EQ(finish(copy), plain("key", "message").substr(0, 24));
}

// The first code has cut the digest: the second one is made of its bytes and zeros.
TEST_P(HmacContextTest, GoesOnWithTheDigestWhenItIsFinishedTwice) {
  EXPECT_EQ(start(hmac(), "key", 12), 0);
  feed(hmac(), "message");
  finish(hmac());

  const std::unique_ptr<HashContext> expected = kind().make();
  std::string outer_pad = "key" + std::string(kBlockSize - 3, '\0');
  std::string inner_pad = outer_pad;
  for (char& byte : outer_pad) byte = static_cast<char>(byte ^ 0x5C);
  for (char& byte : inner_pad) byte = static_cast<char>(byte ^ 0x36);
  const std::string outer = outer_pad + from_hex(kind().plain(inner_pad + "message", 0));
  std::string left = from_hex(kind().plain(digest_test::with_padding(kind(), outer), 0));
  std::fill(left.begin() + 12, left.end(), '\0');
  EXPECT_EQ(finish(hmac()), kind().plain(outer_pad + left, 0).substr(0, 24));

  EXPECT_EQ(hmac().reset(), 0);
  feed(hmac(), "message");
  EXPECT_EQ(finish(hmac()), plain("key", "message").substr(0, 24));
}

TEST_P(HmacContextTest, HasNoKeyBeforeItIsInitialized) {
  EXPECT_EQ(hmac().getReturnedHashLength(), kind().length);
  EXPECT_EQ(hmac().getCompleteHashLength(), kind().length);
  const std::string code = finish(hmac());
  EXPECT_EQ(code.size(), 2 * kind().length);
  EXPECT_NE(code, plain("", ""));
}

TEST_P(HmacContextTest, AllocatesNothing) {
  const std::string key = some_bytes(100);
  unsigned char code[20];
  const unsigned long before = support::allocation_count();
  hmac().initialize(bytes(key), key.size(), 0);
  hmac().hash(bytes(key), key.size());
  hmac().getHash(code);
  hmac().reset();
  hmac().destroy();
  EXPECT_EQ(support::allocation_count(), before);
}

TEST_P(HmacContextTest, WorksOnASmallStack) {
  support::run_on_small_stack([this] {
    EXPECT_EQ(digest().test(), 0);
    EXPECT_EQ(code_of(kind(), "key", some_bytes(1000)), plain("key", some_bytes(1000)));
  });
}

// ---- Its end ----

TEST_P(HmacContextTest, ForgetsItsKeyWhenItIsDestroyed) {
  EXPECT_EQ(start(hmac(), "key", 12), 0);
  EXPECT_EQ(members_at(&hmac()).digest, &digest());
  hmac().destroy();
  const Members members = members_at(&hmac());
  EXPECT_EQ(members.digest, nullptr);
  EXPECT_THAT(members.inner_pad, Each(0));
  EXPECT_THAT(members.outer_pad, Each(0));
}

TEST_P(HmacContextTest, DoesNothingAfterItIsDestroyed) {
  EXPECT_EQ(start(hmac(), "key", 12), 0);
  const digest_test::Members before = digest_test::members_at(kind(), &digest());
  hmac().destroy();
  EXPECT_EQ(start(hmac(), "key"), -1);
  EXPECT_EQ(start(hmac(), some_bytes(100), 3), -1);
  EXPECT_EQ(hmac().reset(), -1);
  EXPECT_EQ(hmac().getCompleteHashLength(), 0U);
  EXPECT_EQ(hmac().getReturnedHashLength(), 0U);
  feed(hmac(), "message");
  unsigned char out = 0xEE;
  hmac().getHash(&out);
  EXPECT_EQ(out, 0xEE);
  hmac().destroy();
  EXPECT_THAT(members_at(&hmac()).inner_pad, Each(0));
  const digest_test::Members after = digest_test::members_at(kind(), &digest());
  EXPECT_EQ(after.state, before.state);
  EXPECT_EQ(after.count, before.count);
}

TEST_P(HmacContextTest, ForgetsItsKeyAtItsEndAndLeavesTheDigest) {
  alignas(HmacContext) std::array<unsigned char, sizeof(HmacContext)> memory;
  memory.fill(0xEE);
  auto* const context = new (memory.data()) HmacContext(&digest());
  EXPECT_EQ(start(*context, "key"), 0);
  context->~HmacContext();
  const Members left = members_at(memory.data());
  EXPECT_THAT(left.inner_pad, Each(0));
  EXPECT_THAT(left.outer_pad, Each(0));
  EXPECT_EQ(digest().test(), 0);
}

TEST(HmacContextWithoutADigest, IsAsIfItWereDestroyed) {
  HmacContext hmac(nullptr);
  EXPECT_EQ(start(hmac, "key"), -1);
  EXPECT_EQ(hmac.reset(), -1);
  EXPECT_EQ(hmac.getCompleteHashLength(), 0U);
  EXPECT_EQ(hmac.getReturnedHashLength(), 0U);
  feed(hmac, "message");
  unsigned char out = 0xEE;
  hmac.getHash(&out);
  EXPECT_EQ(out, 0xEE);
}

// ---- Over digests of a program's own ----

// Writes down what it is asked. Its digests are made of one byte.
class Recorder : public HashContext {
 public:
  explicit Recorder(unsigned long length) : length_(length), returned_length_(length) {}

  int initialize(unsigned long returnedLength) override {
    calls.push_back("initialize " + std::to_string(returnedLength));
    const int result = results.empty() ? 0 : results.front();
    if (!results.empty()) results.erase(results.begin());
    if (result == 0) {
      returned_length_ = returnedLength == 0 ? length_ : std::min(returnedLength, length_);
    }
    return result;
  }
  void destroy() override { calls.emplace_back("destroy"); }
  void hash(const unsigned char* data, unsigned long length) override {
    calls.push_back("hash " + std::string(reinterpret_cast<const char*>(data), length));
  }
  unsigned long getReturnedHashLength() const override { return returned_length_; }
  void getHash(unsigned char* out) override {
    calls.emplace_back("getHash");
    std::fill_n(out, returned_length_, static_cast<unsigned char>('A' + digests++));
  }
  unsigned long getCompleteHashLength() const override { return length_; }
  void getCompleteHash(unsigned char* /*out*/) override { calls.emplace_back("getCompleteHash"); }
  int test() override { return 0; }

  std::vector<std::string> take() {
    std::vector<std::string> taken;
    taken.swap(calls);
    return taken;
  }

  std::vector<std::string> calls;
  std::vector<int> results;  // of the next calls of initialize()
  int digests = 0;

 private:
  unsigned long length_;
  unsigned long returned_length_;
};

// The key and zeros, every byte XOR `mask`.
std::string pad(const std::string& key, unsigned mask) {
  std::string block = key;
  block.resize(kBlockSize, '\0');
  for (char& byte : block) byte = static_cast<char>(static_cast<unsigned char>(byte) ^ mask);
  return block;
}

TEST(HmacContextCalls, AreThoseOfTheProcedure) {
  Recorder digest(20);
  HmacContext hmac(&digest);
  EXPECT_THAT(digest.take(), IsEmpty());
  EXPECT_EQ(start(hmac, "key", 12), 0);
  EXPECT_THAT(digest.take(), ElementsAre("initialize 0", "hash " + pad("key", 0x36)));
  feed(hmac, "message");
  EXPECT_THAT(digest.take(), ElementsAre("hash message"));
  EXPECT_EQ(finish(hmac), plain_digest::to_hex(std::string(12, 'B')));
  EXPECT_THAT(digest.take(), ElementsAre("getHash", "initialize 12", "hash " + pad("key", 0x5C),
                                         "hash " + std::string(20, 'A'), "getHash"));
  EXPECT_EQ(hmac.reset(), 0);
  EXPECT_THAT(digest.take(), ElementsAre("initialize 0", "hash " + pad("key", 0x36)));
  hmac.destroy();
  EXPECT_THAT(digest.take(), IsEmpty());
}

TEST(HmacContextCalls, HashALongKeyFirst) {
  Recorder digest(20);
  HmacContext hmac(&digest);
  const std::string key(kBlockSize + 1, 'k');
  EXPECT_EQ(start(hmac, key, 40), 0);
  EXPECT_THAT(digest.take(), ElementsAre("initialize 0", "hash " + key, "getHash", "initialize 0",
                                         "hash " + pad(std::string(20, 'A'), 0x36)));
  finish(hmac);
  EXPECT_EQ(digest.take()[1], "initialize 40");
}

TEST(HmacContextCalls, GoThroughAResetThatAProgramHasChanged) {
  class Refusing : public HmacContext {
   public:
    using HmacContext::HmacContext;
    int reset() override { return 7; }
  };
  Recorder digest(20);
  Refusing hmac(&digest);
  EXPECT_EQ(start(hmac, "key"), 7);
  EXPECT_THAT(digest.take(), IsEmpty());
}

TEST(HmacContextFailure, IsThatOfTheDigest) {
  Recorder digest(20);
  HmacContext hmac(&digest);
  digest.results = {5};
  EXPECT_EQ(start(hmac, "key"), 5);
  EXPECT_THAT(digest.take(), ElementsAre("initialize 0"));
  digest.results = {-3};
  EXPECT_EQ(hmac.reset(), -3);
  EXPECT_THAT(digest.take(), ElementsAre("initialize 0"));
  EXPECT_EQ(hmac.reset(), 0);
}

TEST(HmacContextFailure, OfALongKeyIsReturnedAtOnce) {
  Recorder digest(20);
  HmacContext hmac(&digest);
  digest.results = {5};
  EXPECT_EQ(start(hmac, std::string(kBlockSize + 1, 'k')), 5);
  EXPECT_THAT(digest.take(), ElementsAre("initialize 0"));
  digest.results = {0, 6};
  EXPECT_EQ(start(hmac, std::string(kBlockSize + 1, 'k')), 6);
  EXPECT_EQ(digest.take().size(), 4U);
}

TEST(HmacContextFailure, OfALongKeyLeavesNothingOfTheKeyBefore) {
  Recorder digest(20);
  HmacContext hmac(&digest);
  EXPECT_EQ(start(hmac, "secret"), 0);
  digest.results = {5};
  EXPECT_EQ(start(hmac, std::string(kBlockSize + 1, 'k')), 5);
  const Members members = members_at(&hmac);
  EXPECT_THAT(members.inner_pad, Each(0));
  EXPECT_THAT(members.outer_pad, Each(0));
}

// getHash() has no result that could tell: it goes through its procedure.
TEST(HmacContextFailure, OfTheSecondHalfIsNotSeen) {
  Recorder digest(20);
  HmacContext hmac(&digest);
  EXPECT_EQ(start(hmac, "key"), 0);
  digest.take();
  digest.results = {5};
  finish(hmac);
  EXPECT_THAT(digest.take(), ElementsAre("getHash", "initialize 20", "hash " + pad("key", 0x5C),
                                         "hash " + std::string(20, 'A'), "getHash"));
}

TEST(HmacContextFailure, IsADigestThatIsLongerThanABlock) {
  Recorder digest(kBlockSize + 1);
  HmacContext hmac(&digest);
  EXPECT_EQ(hmac.getCompleteHashLength(), kBlockSize + 1);
  EXPECT_EQ(start(hmac, "key", 12), -1);
  EXPECT_EQ(hmac.getReturnedHashLength(), kBlockSize + 1) << "as before";
  EXPECT_THAT(digest.take(), IsEmpty());
  unsigned char out = 0xEE;
  hmac.getHash(&out);
  EXPECT_EQ(out, 0xEE);
  EXPECT_THAT(digest.take(), IsEmpty());
}

TEST(HmacContextFailure, IsNotADigestOfABlock) {
  Recorder digest(kBlockSize);
  HmacContext hmac(&digest);
  EXPECT_EQ(start(hmac, std::string(kBlockSize + 1, 'k')), 0);
  EXPECT_EQ(digest.take().back(), "hash " + pad(std::string(kBlockSize, 'A'), 0x36));
  EXPECT_EQ(finish(hmac), plain_digest::to_hex(std::string(kBlockSize, 'C')));
}

}  // namespace
