#include "support/standard_output.h"

#include <cstdio>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/open_descriptors.h"

namespace {

using support::standard_output_of;

TEST(StandardOutput, IsWhatStdioAndTheDescriptorGet) {
  EXPECT_EQ(standard_output_of([] {
              std::printf("one\n");
              std::fflush(stdout);
              EXPECT_EQ(::write(STDOUT_FILENO, "t\0o", 3), 3);
              std::printf("three");
            }),
            std::string("one\nt\0othree", 12));
}

TEST(StandardOutput, IsEmptyWhenNothingIsPrinted) {
  std::printf("before: ");
  EXPECT_EQ(standard_output_of([] {}), "");
}

TEST(StandardOutput, MayBeLong) {
  const std::string text(10000, 'x');
  EXPECT_EQ(standard_output_of([&] { std::fputs(text.c_str(), stdout); }), text);
}

TEST(StandardOutput, IsBackAfterwards) {
  const auto before = support::open_descriptors();
  standard_output_of([] { std::printf("one"); });
  EXPECT_EQ(support::open_descriptors(), before);
}

TEST(StandardOutput, IsBackAfterAnException) {
  const auto before = support::open_descriptors();
  EXPECT_THROW(standard_output_of([] { throw std::runtime_error("no"); }), std::runtime_error);
  EXPECT_EQ(support::open_descriptors(), before);
  EXPECT_EQ(standard_output_of([] { std::printf("two"); }), "two");
}

}  // namespace
