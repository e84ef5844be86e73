#include <rkutils/memory.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "support/allocation_faults.h"
#include "support/case_name.h"

namespace {

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};
using Memory = std::unique_ptr<void, Free>;

TEST(Zalloc, GivesZeroedMemory) {
  constexpr std::size_t kSize = 4096;
  // Memory that was used before, so that zeros are no accident.
  for (int i = 0; i < 4; ++i) {
    const Memory memory(zalloc(kSize));
    ASSERT_NE(memory, nullptr);
    auto* bytes = static_cast<unsigned char*>(memory.get());
    EXPECT_TRUE(std::all_of(bytes, bytes + kSize, [](unsigned char byte) { return byte == 0; }));
    // Volatile, or a compiler would drop it in front of free().
    std::fill_n(static_cast<volatile unsigned char*>(bytes), kSize,
                static_cast<unsigned char>(0xa5));
  }
}

TEST(Zalloc, WithoutMemoryIsNull) {
  const support::FailingAllocation no_memory(1);
  EXPECT_EQ(zalloc(16), nullptr);
  EXPECT_TRUE(no_memory.happened());
}

struct Copy {
  const char* name;
  std::string text;
  std::size_t size;
  std::string expected;  // the whole buffer of eight '#'
};

class Strlcpy : public testing::TestWithParam<Copy> {};

TEST_P(Strlcpy, CopiesWhatFitsAndReturnsTheLengthOfAll) {
  std::string buffer(8, '#');
  EXPECT_EQ(strlcpy(buffer.data(), GetParam().text.c_str(), GetParam().size),
            GetParam().text.size());
  EXPECT_EQ(buffer, GetParam().expected);
}

using namespace std::string_literals;

INSTANTIATE_TEST_SUITE_P(
    Cases, Strlcpy,
    testing::Values(Copy{"Shorter", "abc", 8, "abc\0####"s},
                    Copy{"Exact", "abcdefg", 8, "abcdefg\0"s},
                    Copy{"OneTooLong", "abcdefgh", 8, "abcdefg\0"s},
                    Copy{"MuchTooLong", std::string(1000, 'x'), 4, "xxx\0####"s},
                    Copy{"SizeOne", "abc", 1, "\0#######"s},
                    Copy{"SizeZero", "abc", 0, "########"s}, Copy{"Empty", "", 8, "\0#######"s},
                    Copy{"EmptySizeZero", "", 0, "########"s}),
    support::CaseName());

char* volatile no_buffer = nullptr;

TEST(StrlcpyToNull, IsAllowedWithSizeZero) { EXPECT_EQ(strlcpy(no_buffer, "abc", 0), 3U); }

}  // namespace
