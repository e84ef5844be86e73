#include <rkutils/internal/scope_guard.h>

#include <stdexcept>

#include <gtest/gtest.h>

namespace {

using rkutils::internal::ScopeGuard;

TEST(ScopeGuard, ActsAtTheEndOfItsScope) {
  int acted = 0;
  {
    const ScopeGuard guard([&] { ++acted; });
    EXPECT_EQ(acted, 0);
  }
  EXPECT_EQ(acted, 1);
}

TEST(ScopeGuard, ActsWhenTheScopeEndsByAnException) {
  int acted = 0;
  try {
    const ScopeGuard guard([&] { ++acted; });
    throw std::runtime_error("out");
  } catch (const std::runtime_error&) {
    EXPECT_EQ(acted, 1);
  }
  EXPECT_EQ(acted, 1);
}

TEST(ScopeGuard, DismissedDoesNothing) {
  int acted = 0;
  {
    ScopeGuard guard([&] { ++acted; });
    guard.dismiss();
  }
  EXPECT_EQ(acted, 0);
}

}  // namespace
