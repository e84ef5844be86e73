// What an interface's flags say of its being up. The kernel does not let itself be told of
// IFF_RUNNING, so that what is written of it is seen here alone.

#include <rkutils/network/interface/flags.h>

#include <gtest/gtest.h>

namespace {

using rkutils::network::is_up;
using rkutils::network::with_up;

constexpr short kOthers = static_cast<short>(0xFFFF & ~(IFF_UP | IFF_RUNNING));

TEST(InterfaceFlags, AreUpWithBothOnly) {
  EXPECT_FALSE(is_up(0));
  EXPECT_FALSE(is_up(IFF_UP));
  EXPECT_FALSE(is_up(IFF_RUNNING));
  EXPECT_FALSE(is_up(kOthers));
  EXPECT_FALSE(is_up(kOthers | IFF_UP));
  EXPECT_FALSE(is_up(kOthers | IFF_RUNNING));
  EXPECT_TRUE(is_up(IFF_UP | IFF_RUNNING));
  EXPECT_TRUE(is_up(-1));
}

TEST(InterfaceFlags, BecomeUpWithBothAndKeepTheOthers) {
  EXPECT_EQ(with_up(0, true), IFF_UP | IFF_RUNNING);
  EXPECT_EQ(with_up(IFF_UP, true), IFF_UP | IFF_RUNNING);
  EXPECT_EQ(with_up(IFF_BROADCAST | IFF_RUNNING, true), IFF_BROADCAST | IFF_UP | IFF_RUNNING);
  EXPECT_EQ(with_up(kOthers, true), -1);
}

TEST(InterfaceFlags, BecomeDownWithNeitherAndKeepTheOthers) {
  EXPECT_EQ(with_up(IFF_UP | IFF_RUNNING, false), 0);
  EXPECT_EQ(with_up(IFF_UP, false), 0);
  EXPECT_EQ(with_up(IFF_BROADCAST | IFF_RUNNING, false), IFF_BROADCAST);
  EXPECT_EQ(with_up(-1, false), kOthers);
}

}  // namespace
