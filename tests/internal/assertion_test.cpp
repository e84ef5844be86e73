#include <rkutils/internal/assertion.h>

#include <string>

#include <gtest/gtest.h>

namespace {

using rkutils::internal::Assertions;

constexpr Assertions check{"rkutils/example"};

TEST(Assertions, LetATrueConditionPass) { check(true, "always"); }

TEST(AssertionsDeathTest, ReportConditionSourceLineAndFunctionAndAbort) {
  const int line = __LINE__ + 1;
  const auto misuse = [] { check(false, "count >= 0"); };
  // The C libraries order the parts differently.
  EXPECT_EXIT(misuse(), testing::KilledBySignal(SIGABRT), "count >= 0");
  EXPECT_DEATH(misuse(), "rkutils/example");
  EXPECT_DEATH(misuse(), std::to_string(line));
  EXPECT_DEATH(misuse(), "operator\\(\\)");
}

}  // namespace
