// String against std::string: random operations.

#include "foundations/string_model.h"

#include <cstddef>
#include <exception>
#include <random>

#include <gtest/gtest.h>

#include "support/rounds.h"

namespace {

// A million in all, in parts that run side by side.
class StringModel : public testing::TestWithParam<unsigned> {};

TEST_P(StringModel, AgreesAfterEveryOperation) {
  const int operations = support::rounds(250000);
  std::mt19937 random(GetParam());
  string_model::Model model([&random](std::size_t bound) { return random() % bound; });
  for (int i = 0; i < operations; ++i) {
    try {
      model.change();
      model.check();
      model.ask();
    } catch (const std::exception& difference) {
      FAIL() << difference.what() << ", after " << i + 1 << " operations";
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seed, StringModel, testing::Values(1U, 2U, 3U, 4U));

}  // namespace
