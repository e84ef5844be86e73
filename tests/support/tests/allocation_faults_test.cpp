#include "support/allocation_faults.h"

#include <cerrno>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>

namespace {

using support::allocation_count;
using support::FailingAllocation;

TEST(AllocationCount, CountsWhatThisThreadAllocates) {
  const unsigned long before = allocation_count();
  void* volatile memory = std::malloc(1);
  memory = std::realloc(memory, 2);
  std::free(memory);
  memory = std::calloc(1, 1);
  std::free(memory);
  EXPECT_EQ(allocation_count() - before, 3U);
  std::thread([] { std::free(std::malloc(1)); }).join();
}

TEST(FailingAllocation, FailsTheNthAndNoOther) {
  void* volatile results[3];
  {
    const FailingAllocation second(2);
    results[0] = std::malloc(1);
    EXPECT_FALSE(second.happened());
    errno = 0;
    results[1] = std::calloc(1, 1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_TRUE(second.happened());
    results[2] = std::malloc(1);
  }
  EXPECT_NE(results[0], nullptr);
  EXPECT_EQ(results[1], nullptr);
  EXPECT_NE(results[2], nullptr);
  for (void* memory : results) std::free(memory);
}

}  // namespace
