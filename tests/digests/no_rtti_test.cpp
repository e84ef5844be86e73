// Programs may be compiled without the types that the compiler keeps for run time: their classes
// have none, and are derived ones all the same.

#include <rkutils/hash_context.h>

#include <string>

#include <gmock/gmock.h>

#include "digests/plain_digest.h"

#ifdef __GXX_RTTI
#error This is to be compiled with -fno-rtti.
#endif

namespace {

template <typename Context>
class Counting : public Context {
 public:
  void hash(const unsigned char* data, unsigned long length) override {
    ++calls;
    Context::hash(data, length);
  }
  unsigned long calls = 0;
};

template <typename Context>
std::string digest_of_nothing(Context& context) {
  context.initialize(0);
  std::string digest(context.getReturnedHashLength(), '\0');
  context.getHash(reinterpret_cast<unsigned char*>(digest.data()));
  return plain_digest::to_hex(digest);
}

TEST(HashContextWithoutRunTimeTypes, IsSeenAsDerived) {
  Counting<Md5HashContext> md5;
  EXPECT_EQ(digest_of_nothing(md5), plain_digest::md5(""));
  EXPECT_EQ(md5.calls, 2U);
  Counting<Sha1HashContext> sha1;
  EXPECT_EQ(digest_of_nothing(sha1), plain_digest::sha1(""));
  EXPECT_EQ(sha1.calls, 1 + 55 + 1U);
}

}  // namespace
