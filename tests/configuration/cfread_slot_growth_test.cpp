// How the slots of a table become more.

#include <rkutils/configuration/cfread/slot_growth.h>

#include <cstdint>

#include <gtest/gtest.h>

namespace {

using rkutils::cfread::kNoMoreSlots;
using rkutils::cfread::SlotNumbers;
using rkutils::cfread::with_more_slots;

constexpr bool becomes(SlotNumbers before, SlotNumbers after) {
  return with_more_slots(before) == after;
}

TEST(CfreadSlotGrowth, BeginsWithOneStep) { EXPECT_TRUE(becomes({0, 0}, {64, 64})); }

TEST(CfreadSlotGrowth, DoublesTheRoomWhereAStepDoesNotFit) {
  EXPECT_TRUE(becomes({64, 64}, {128, 128}));
  EXPECT_TRUE(becomes({128, 128}, {192, 256}));
  EXPECT_TRUE(becomes({192, 256}, {256, 256}));
  EXPECT_TRUE(becomes({256, 256}, {320, 512}));
}

TEST(CfreadSlotGrowth, EndsBeforeTheSizeWouldOverflow) {
  constexpr std::int32_t kMost = INT32_MAX - 63;  // the last multiple of 64
  EXPECT_TRUE(becomes({1 << 30, 1U << 30U}, {(1 << 30) + 64, 1U << 31U}));
  EXPECT_TRUE(becomes({kMost - 64, 1U << 31U}, {kMost, 1U << 31U}));
  EXPECT_TRUE(becomes({kMost, 1U << 31U}, kNoMoreSlots));
}

TEST(CfreadSlotGrowth, KeepsTheRoomAPowerOfTwoThatTheSizeFits) {
  SlotNumbers now = {0, 0};
  for (std::int32_t steps = 1; steps < 100000; ++steps) {
    now = with_more_slots(now);
    ASSERT_EQ(now.size, steps * 64);
    ASSERT_GE(now.capacity, static_cast<std::uint32_t>(now.size));
    ASSERT_EQ(now.capacity & (now.capacity - 1), 0U);
    ASSERT_TRUE(steps == 1 || now.capacity / 2 < static_cast<std::uint32_t>(now.size));
  }
}

}  // namespace
