#include <rkutils/text.h>

#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "support/rounds.h"

namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

struct Shown {
  std::int64_t number;
  const char* text;
};

class FormatSize : public testing::TestWithParam<Shown> {};

TEST_P(FormatSize, Shows) { EXPECT_STREQ(format_size(GetParam().number), GetParam().text); }

INSTANTIATE_TEST_SUITE_P(
    Sizes, FormatSize,
    testing::Values(Shown{0, "0 B"}, Shown{1, "1 B"}, Shown{9999, "9999 B"}, Shown{10000, "10 KB"},
                    // Halves are rounded up.
                    Shown{10751, "10 KB"}, Shown{10752, "11 KB"},
                    Shown{9999 * 1024LL + 511, "9999 KB"}, Shown{9999 * 1024LL + 512, "10 MB"},
                    Shown{10LL << 30, "10 GB"}, Shown{10LL << 40, "10 TB"},
                    // There is nothing above TB.
                    Shown{20000LL << 40, "20000 TB"}, Shown{kMax, "8388608 TB"},
                    // What is negative is never divided.
                    Shown{-1, "-1 B"}, Shown{-10000, "-10000 B"},
                    Shown{kMin, "-9223372036854775808 B"}));

class FormatRate : public testing::TestWithParam<Shown> {};

TEST_P(FormatRate, Shows) { EXPECT_STREQ(format_rate(GetParam().number), GetParam().text); }

INSTANTIATE_TEST_SUITE_P(
    Rates, FormatRate,
    testing::Values(Shown{0, "0.0 Kbit/s"}, Shown{1, "0.0 Kbit/s"}, Shown{128, "1.0 Kbit/s"},
                    Shown{6, "0.1 Kbit/s"},  // 4.6875 hundredths are 5, and 5 more make a tenth
                    Shown{5, "0.0 Kbit/s"},  // 3.9 are 4
                    // 99999 hundredths of a unit are the most: 127998.72 bytes per second.
                    Shown{127998, "1000.0 Kbit/s"}, Shown{127999, "1000.0 Kbit/s"},
                    Shown{128000, "1.0 Mbit/s"}, Shown{136969, "1.0 Mbit/s"},
                    // The second division is rounded as well.
                    Shown{136970, "1.1 Mbit/s"}, Shown{131072, "1.0 Mbit/s"},
                    Shown{125000000, "953.7 Mbit/s"}, Shown{1LL << 27, "1.0 Gbit/s"},
                    Shown{1LL << 37, "1.0 Tbit/s"}, Shown{1LL << 57, "1048576.0 Tbit/s"},
                    Shown{kMax, "67108864.0 Tbit/s"}, Shown{-1, "-0.0 Kbit/s"},
                    Shown{-128, "-1.0 Kbit/s"}, Shown{-131072, "-1.0 Mbit/s"},
                    Shown{kMin, "-67108864.0 Tbit/s"}));

TEST(FormatRate, RoundsAsTheDivisionOfTheWholeProductDoes) {
  for (std::int64_t rate = 0; rate < 127998; rate += support::stride()) {
    const std::int64_t hundredths = ((rate * 800 + 512) >> 10) + 5;
    ASSERT_EQ(format_rate(rate), std::to_string(hundredths / 100) + "." +
                                     std::to_string(hundredths / 10 % 10) + " Kbit/s");
  }
}

TEST(FormatSize, HasABufferOfItsOwn) {
  const char* size = format_size(1);
  const char* rate = format_rate(128);
  EXPECT_STREQ(size, "1 B");
  EXPECT_EQ(format_size(2), size);
  EXPECT_STREQ(size, "2 B");
  EXPECT_STREQ(rate, "1.0 Kbit/s");
}

TEST(FormatRate, HasABufferOfItsOwn) {
  const char* rate = format_rate(128);
  const char* size = format_size(1);
  EXPECT_EQ(format_rate(256), rate);
  EXPECT_STREQ(rate, "2.0 Kbit/s");
  EXPECT_STREQ(size, "1 B");
}

}  // namespace
