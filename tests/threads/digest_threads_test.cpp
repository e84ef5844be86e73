// Digests of several threads, each with a context of its own.

#include <rkutils/hash_context.h>
#include <rkutils/hmac_context.h>

#include <array>
#include <string>

#include <gmock/gmock.h>

#include "support/at_once.h"
#include "support/rounds.h"

namespace {

constexpr int kThreads = 4;

const unsigned char* bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

using Digest = std::array<unsigned char, 20>;

template <typename Context>
Digest digest_of(const std::string& message) {
  Digest digest = {};
  Context context;
  context.initialize(0);
  for (const char& byte : message) context.hash(bytes(std::string(1, byte)), 1);
  context.getHash(digest.data());
  return digest;
}

template <typename Context>
Digest keyed_digest_of(const std::string& message) {
  Digest digest = {};
  Context inner;
  HmacContext context(&inner);
  context.initialize(bytes("key"), 3, 0);
  context.hash(bytes(message), message.size());
  context.getHash(digest.data());
  return digest;
}

template <typename Compute>
void expect_same_on_threads(Compute compute) {
  std::array<std::string, kThreads> messages;
  std::array<Digest, kThreads> expected;
  for (std::size_t i = 0; i < kThreads; ++i) {
    messages[i] = std::string(50 + 20 * i, static_cast<char>('a' + i));
    expected[i] = compute(messages[i]);
  }
  EXPECT_NE(expected[0], expected[1]);
  support::at_once(kThreads, [&](int thread) {
    const auto i = static_cast<std::size_t>(thread);
    for (int round = support::rounds(500); round > 0; --round) {
      ASSERT_EQ(compute(messages.at(i)), expected.at(i));
    }
  });
}

TEST(ThreadsWithDigests, ComputeTheirOwnMd5) { expect_same_on_threads(digest_of<Md5HashContext>); }

TEST(ThreadsWithDigests, ComputeTheirOwnSha1) {
  expect_same_on_threads(digest_of<Sha1HashContext>);
}

TEST(ThreadsWithDigests, ComputeTheirOwnKeyedOnes) {
  expect_same_on_threads(keyed_digest_of<Md5HashContext>);
  expect_same_on_threads(keyed_digest_of<Sha1HashContext>);
}

TEST(ThreadsWithDigests, TestThemselves) {
  support::at_once(kThreads, [](int) {
    EXPECT_EQ(Md5HashContext().test(), 0);
    EXPECT_EQ(Sha1HashContext().test(), 0);
  });
}

}  // namespace
