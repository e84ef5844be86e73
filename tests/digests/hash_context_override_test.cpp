// What classes that are derived from the digests see, and what they may change.

#include <rkutils/hash_context.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "digests/digest_kind.h"
#include "digests/plain_digest.h"

namespace {

using digest_test::feed;
using digest_test::finish;
using plain_digest::from_hex;
using testing::ElementsAre;
using testing::ElementsAreArray;

// Records what is hashed, and hashes it.
template <typename Context>
class Watched : public Context {
 public:
  void hash(const unsigned char* data, unsigned long length) override {
    pieces.emplace_back(reinterpret_cast<const char*>(data), length);
    Context::hash(data, length);
  }

  std::vector<std::string> take() {
    std::vector<std::string> taken;
    taken.swap(pieces);
    return taken;
  }

  std::vector<std::string> pieces;
};

std::string zeros(std::size_t count) { return std::string(count, '\0'); }

std::vector<std::string> single_zeros(std::size_t count) { return {count, zeros(1)}; }

// What a SHA-1 context feeds to itself at the end of a message.
std::vector<std::string> sha1_padding(std::size_t zero_count, const std::string& length) {
  std::vector<std::string> pieces = single_zeros(zero_count);
  pieces.insert(pieces.begin(), "\x80");
  pieces.push_back(from_hex(length));
  return pieces;
}

TEST(Md5HashContextPadding, ComesInOnePieceAndTheLengthInAnother) {
  const std::vector<std::pair<std::size_t, std::string>> cases = {
      {0, "0000000000000000"}, {3, "1800000000000000"}, {55, "b801000000000000"}};
  Watched<Md5HashContext> context;
  for (const auto& [length, bits] : cases) {
    context.initialize(0);
    feed(context, zeros(length));
    EXPECT_EQ(finish(context), plain_digest::md5(zeros(length)));
    EXPECT_THAT(context.take(),
                ElementsAre(zeros(length), "\x80" + zeros(55 - length), from_hex(bits)));
  }
}

TEST(Md5HashContextPadding, GoesOnInAnotherBlockWhenThereIsNoRoom) {
  Watched<Md5HashContext> context;
  for (const std::size_t length : {56U, 60U, 63U}) {
    context.initialize(0);
    feed(context, zeros(length));
    EXPECT_EQ(finish(context), plain_digest::md5(zeros(length)));
    const std::vector<std::string> pieces = context.take();
    ASSERT_EQ(pieces.size(), 3U);
    EXPECT_EQ(pieces[1], "\x80" + zeros(119 - length)) << length;
  }
}

TEST(Md5HashContextPadding, HasTheLengthLowByteFirst) {
  Watched<Md5HashContext> context;
  context.initialize(0);
  digest_test::set_count(digest_test::md5(), context, 0x1122334455667600);
  finish(context);
  EXPECT_EQ(context.take().back(), from_hex("0076665544332211"));
}

TEST(Md5HashContextPadding, ComesThroughHashForACompleteHashToo) {
  Watched<Md5HashContext> context;
  context.initialize(0);
  EXPECT_EQ(digest_test::hex_of<HashContext>(context, 16, &HashContext::getCompleteHash),
            plain_digest::md5(""));
  EXPECT_THAT(context.take(), ElementsAre("\x80" + zeros(55), zeros(8)));
}

TEST(Sha1HashContextPadding, ComesByteByByte) {
  Watched<Sha1HashContext> context;
  context.initialize(0);
  feed(context, "abc");
  EXPECT_EQ(finish(context), plain_digest::sha1("abc"));
  std::vector<std::string> expected = sha1_padding(52, "0000000000000018");
  expected.insert(expected.begin(), "abc");
  EXPECT_THAT(context.take(), ElementsAreArray(expected));
}

TEST(Sha1HashContextPadding, EndsWhereTheLengthFits) {
  Watched<Sha1HashContext> context;
  for (const std::size_t length : {0U, 54U, 55U, 56U, 63U, 64U}) {
    context.initialize(0);
    feed(context, zeros(length));
    EXPECT_EQ(finish(context), plain_digest::sha1(zeros(length)));
    EXPECT_EQ(context.take().size(), 3 + (119 - length) % 64) << length;
  }
}

TEST(Sha1HashContextPadding, HasTheLengthHighByteFirst) {
  Watched<Sha1HashContext> context;
  context.initialize(0);
  digest_test::set_count(digest_test::sha1(), context, 0x1122334455667600);
  finish(context);
  EXPECT_EQ(context.take().back(), from_hex("1122334455667600"));
}

TEST(Sha1HashContextPadding, ComesThroughHashForACompleteHashToo) {
  Watched<Sha1HashContext> context;
  context.initialize(0);
  EXPECT_EQ(digest_test::hex_of<HashContext>(context, 20, &HashContext::getCompleteHash),
            plain_digest::sha1(""));
  EXPECT_THAT(context.take(), ElementsAreArray(sha1_padding(55, "0000000000000000")));
}

// Finished twice, a watched context is where another one is.
TEST(Sha1HashContextPadding, LeavesTheSameBehindAsInOnePiece) {
  Watched<Sha1HashContext> watched;
  Sha1HashContext plain;
  for (HashContext* context :
       {static_cast<HashContext*>(&watched), static_cast<HashContext*>(&plain)}) {
    context->initialize(0);
    feed(*context, "abc");
    finish(*context);
  }
  const auto left = digest_test::members_at(digest_test::sha1(), &watched);
  const auto expected = digest_test::members_at(digest_test::sha1(), &plain);
  EXPECT_EQ(left.state, expected.state);
  EXPECT_EQ(left.count, expected.count);
  EXPECT_EQ(left.buffer, expected.buffer);
}

// A hash() that goes nowhere must not keep the padding going for ever.
TEST(Sha1HashContextPadding, EndsWhenNothingIsHashed) {
  class Swallowing : public Sha1HashContext {
   public:
    void hash(const unsigned char* /*data*/, unsigned long length) override { bytes += length; }
    unsigned long bytes = 0;
  };
  Swallowing context;
  context.initialize(0);
  finish(context);
  EXPECT_EQ(context.bytes, 1 + 64 + 8U);
}

TEST(HashContextDerived, HashesTheSelfTestThroughHash) {
  Watched<Md5HashContext> md5;
  EXPECT_EQ(md5.test(), 0);
  EXPECT_THAT(md5.take(), ElementsAre("abc", "\x80" + zeros(52), from_hex("1800000000000000")));
  Watched<Sha1HashContext> sha1;
  EXPECT_EQ(sha1.test(), 0);
  EXPECT_EQ(sha1.take().size(), 1 + 1 + 52 + 1U);
}

// Counts how often it begins, and with which lengths.
template <typename Context>
class Beginning : public Context {
 public:
  int initialize(unsigned long returnedLength) override {
    lengths.push_back(returnedLength);
    return Context::initialize(returnedLength);
  }
  std::vector<unsigned long> lengths;
};

TEST(HashContextDerived, BeginsTheSelfTestAndWhatFollowsItThroughInitialize) {
  Beginning<Md5HashContext> md5;
  EXPECT_EQ(md5.test(), 0);
  EXPECT_THAT(md5.lengths, ElementsAre(0, 0));
  Beginning<Sha1HashContext> sha1;
  EXPECT_EQ(sha1.test(), 0);
  EXPECT_THAT(sha1.lengths, ElementsAre(0, 0));
}

// ---- Classes that change something ----

// Its bytes come in turned over.
template <typename Context>
class Inverting : public Context {
 public:
  void hash(const unsigned char* data, unsigned long length) override {
    for (unsigned long i = 0; i < length; ++i) {
      const auto inverted = static_cast<unsigned char>(~data[i]);
      Context::hash(&inverted, 1);
    }
  }
};

TEST(HashContextDerived, FailsTheSelfTestWithADigestOfItsOwn) {
  Inverting<Md5HashContext> md5;
  EXPECT_EQ(md5.test(), -1);
  EXPECT_EQ(digest_test::members_at(digest_test::md5(), &md5).state,
            digest_test::md5().initial_state);
  Inverting<Sha1HashContext> sha1;
  EXPECT_EQ(sha1.test(), -1);
  EXPECT_EQ(digest_test::members_at(digest_test::sha1(), &sha1).state,
            digest_test::sha1().initial_state);
}

// Wrong in the last byte alone.
template <typename Context>
class WrongAtItsEnd : public Context {
 public:
  void getHash(unsigned char* out) override {
    Context::getHash(out);
    out[Context::getCompleteHashLength() - 1] ^= 1;
  }
};

TEST(HashContextDerived, FailsTheSelfTestForASingleBit) {
  EXPECT_EQ(WrongAtItsEnd<Md5HashContext>().test(), -1);
  EXPECT_EQ(WrongAtItsEnd<Sha1HashContext>().test(), -1);
}

template <typename Context, unsigned long Length>
class OfLength : public Context {
 public:
  unsigned long getCompleteHashLength() const override { return Length; }
};

TEST(HashContextDerived, MayHaveAShorterCompleteLength) {
  OfLength<Md5HashContext, 8> md5;
  md5.initialize(9);
  EXPECT_EQ(md5.getReturnedHashLength(), 8U);
  feed(md5, "abc");
  EXPECT_EQ(finish(md5), plain_digest::md5("abc").substr(0, 16));
  EXPECT_EQ(md5.test(), 0);
  md5.initialize(3);
  md5.destroy();
  EXPECT_EQ(md5.getReturnedHashLength(), 8U);

  OfLength<Sha1HashContext, 12> sha1;
  sha1.initialize(0);
  EXPECT_EQ(sha1.getReturnedHashLength(), 12U);
  feed(sha1, "abc");
  EXPECT_EQ(finish(sha1), plain_digest::sha1("abc").substr(0, 24));
  EXPECT_EQ(sha1.test(), 0);
  sha1.initialize(3);
  sha1.destroy();
  EXPECT_EQ(sha1.getReturnedHashLength(), 12U);
}

// There are no more bytes than the digest has, whatever a class says.
TEST(HashContextDerived, DoesNotGetLongerByALongerLength) {
  OfLength<Md5HashContext, 100> md5;
  md5.initialize(0);
  EXPECT_EQ(md5.getReturnedHashLength(), 100U);
  EXPECT_EQ(digest_test::hex_of<HashContext>(md5, 16, &HashContext::getHash),
            plain_digest::md5(""));
  EXPECT_EQ(md5.test(), -1);

  OfLength<Sha1HashContext, 21> sha1;
  sha1.initialize(0);
  EXPECT_EQ(sha1.getReturnedHashLength(), 21U);
  EXPECT_EQ(digest_test::hex_of<HashContext>(sha1, 20, &HashContext::getHash),
            plain_digest::sha1(""));
  EXPECT_EQ(sha1.test(), -1);
}

// A program's own digest, which takes its name from nobody.
class Sum : public HashContext {
 public:
  explicit Sum(bool& deleted) : deleted_(deleted) {}
  ~Sum() override { deleted_ = true; }
  int initialize(unsigned long /*returnedLength*/) override { return 0; }
  void destroy() override {}
  void hash(const unsigned char* /*data*/, unsigned long /*length*/) override {}
  unsigned long getReturnedHashLength() const override { return 1; }
  void getHash(unsigned char* /*out*/) override {}
  unsigned long getCompleteHashLength() const override { return 1; }
  void getCompleteHash(unsigned char* /*out*/) override {}
  int test() override { return 0; }

 private:
  bool& deleted_;
};

TEST(HashContextDerived, IsDeletedAsWhatItIs) {
  bool deleted = false;
  HashContext* const context = new Sum(deleted);
  delete context;
  EXPECT_TRUE(deleted);
}

}  // namespace
