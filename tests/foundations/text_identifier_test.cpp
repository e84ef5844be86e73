#include <rkutils/foundations/text/identifier.h>

#include <cstdint>

#include <gtest/gtest.h>

namespace {

using rkutils::text::make_identifier;

TEST(MakeIdentifier, PutsTheTimeAboveTheRandomNumber) {
  EXPECT_EQ(make_identifier(0, 0), 0U);
  EXPECT_EQ(make_identifier(1, 2), 0x00010002U);
  EXPECT_EQ(make_identifier(65534, 65533), 0xfffefffdU);
}

TEST(MakeIdentifier, TakesTheLower16BitsOfEach) {
  EXPECT_EQ(make_identifier(0x12345678, 0x7abcdef0), 0x5678def0U);
  EXPECT_EQ(make_identifier(0x10000, 0x10001), 1U);
}

TEST(MakeIdentifier, Has0For65535InEitherHalf) {
  EXPECT_EQ(make_identifier(65535, 1), 1U);
  EXPECT_EQ(make_identifier(1, 65535), 0x00010000U);
  EXPECT_EQ(make_identifier(0xffffffff, 0xffffffff), 0U);
  EXPECT_EQ(make_identifier(65536, 65536), 0U);
}

TEST(MakeIdentifier, IsTheRestOfDividingTheHalvesBy65535) {
  for (std::uint32_t bits = 0; bits <= 0xffff; ++bits) {
    ASSERT_EQ(make_identifier(bits, 0) >> 16U, bits % 65535);
    ASSERT_EQ(make_identifier(0, bits), bits % 65535);
  }
}

}  // namespace
