// What is wiped is gone, even where the compiler knows that nobody will read it. This is compiled
// with optimisation in every build.

#include <rkutils/digests/wipe.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <new>

#include <gmock/gmock.h>

namespace {

constexpr std::size_t kLength = 64;

struct Secret {
  Secret() { std::memset(bytes, 0xEE, sizeof bytes); }
  ~Secret() { rkutils::digests::wipe(bytes); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  unsigned char bytes[kLength];
};

TEST(Wipe, OverwritesWhatIsAboutToEnd) {
  std::array<unsigned char, kLength> memory;
  auto* const secret = new (memory.data()) Secret;
  EXPECT_THAT(memory, testing::Each(0xEE));
  secret->~Secret();
  EXPECT_THAT(memory, testing::Each(0));
}

}  // namespace
