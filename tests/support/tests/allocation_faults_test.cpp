#include "support/allocation_faults.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/sanitizers.h"

namespace {

using support::allocation_count;
using support::FailingAllocation;
using support::RecordedAllocations;
using support::unfreed_count;

// Hidden from the compiler, which knows what becomes of memory that nobody uses, and of sizes that
// nobody has.
void* volatile kept = nullptr;
[[maybe_unused]] volatile std::size_t too_much = SIZE_MAX;

TEST(AllocationCount, CountsWhatThisThreadAllocates) {
  const unsigned long before = allocation_count();
  kept = std::malloc(1);
  kept = std::realloc(kept, 2);
  std::free(kept);
  kept = std::calloc(1, 1);
  std::free(kept);
  EXPECT_EQ(allocation_count() - before, 3U);
  std::thread([] { std::free(std::malloc(1)); }).join();
}

TEST(AllocationCount, CountsTheLanguagesOperators) {
  const unsigned long before = allocation_count();
  auto* volatile one = new int;
  auto* volatile several = new int[3];
  auto* volatile quiet = new (std::nothrow) int;
  auto* volatile several_quiet = new (std::nothrow) int[3];
  auto* volatile long_text = new std::string(100, 'x');
  EXPECT_EQ(allocation_count() - before, 6U);
  delete one;
  delete[] several;
  delete quiet;
  delete[] several_quiet;
  delete long_text;
}

TEST(AllocationCount, CountsTheCopiesOfTexts) {
  const unsigned long before = allocation_count();
  kept = ::strdup("text");
  EXPECT_EQ(allocation_count() - before, 1U);
  EXPECT_STREQ(static_cast<char*>(kept), "text");
  std::free(kept);
}

TEST(UnfreedCount, CountsTheBlocksThatThisThreadHas) {
  const long before = unfreed_count();
  void* volatile one = std::malloc(1);
  void* volatile other = std::calloc(1, 1);
  void* volatile third = std::realloc(nullptr, 1);
  EXPECT_EQ(unfreed_count() - before, 3);
  one = std::realloc(one, 100000);
  EXPECT_EQ(unfreed_count() - before, 3);
  {
    const FailingAllocation first(1);
    kept = std::malloc(1);
  }
  std::free(kept);  // nothing
  EXPECT_EQ(unfreed_count() - before, 3);
  std::free(one);
  EXPECT_EQ(unfreed_count() - before, 2);
  std::free(other);
  std::free(third);
  EXPECT_EQ(unfreed_count(), before);
  std::thread([] { EXPECT_EQ(unfreed_count(), 0); }).join();
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

TEST(FailingAllocation, MakesNewThrowOrGiveNull) {
  {
    const FailingAllocation first(1);
    EXPECT_THROW(kept = new int, std::bad_alloc);
  }
  {
    const FailingAllocation first(1);
    EXPECT_THROW(kept = new int[3], std::bad_alloc);
  }
  {
    const FailingAllocation first(1);
    kept = new (std::nothrow) int;
    EXPECT_EQ(kept, nullptr);
  }
  const FailingAllocation first(1);
  kept = new (std::nothrow) int[3];
  EXPECT_EQ(kept, nullptr);
}

TEST(FailingAllocation, LeavesABlockThatCannotGrow) {
  // Volatile: the compiler would take the block for freed.
  char* volatile block = static_cast<char*>(std::malloc(4));
  ASSERT_NE(block, nullptr);
  std::memcpy(block, "abc", 4);
  {
    const FailingAllocation first(1);
    kept = std::realloc(block, 100);
  }
  EXPECT_EQ(kept, nullptr);
  EXPECT_STREQ(block, "abc");
  std::free(block);
}

TEST(RecordedAllocations, TellsTheSizesInTheirOrder) {
  const RecordedAllocations recorded;
  kept = std::malloc(20);
  kept = std::realloc(kept, 36);
  std::free(kept);
  kept = std::calloc(4, 25);
  std::free(kept);
  auto* volatile text = new char[7];
  delete[] text;
  const std::vector<std::size_t> sizes = recorded.sizes();
  EXPECT_EQ(sizes, (std::vector<std::size_t>{20, 36, 100, 7}));
}

TEST(RecordedAllocations, BeginsAnewAndEndsWithTheQuestion) {
  {
    const RecordedAllocations before;
    std::free(kept = std::malloc(1));
  }
  std::free(kept = std::malloc(2));
  const RecordedAllocations recorded;
  for (std::size_t size = 1; size <= 20; ++size) std::free(kept = std::malloc(size));
  const std::vector<std::size_t> sizes = recorded.sizes();
  EXPECT_EQ(sizes.size(), 16U);
  EXPECT_EQ(sizes.front(), 1U);
  EXPECT_EQ(sizes.back(), 16U);
  EXPECT_EQ(recorded.sizes(), sizes);
}

// What stands behind the functions, which are this program's own.
TEST(Allocation, IsRealMemory) {
  auto* text = static_cast<char*>(std::calloc(100, 3));
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::string(text, 300), std::string(300, '\0'));
  std::memset(text, 'x', 300);
  for (const std::size_t size : {5000U, 200000U, 300U, 100U}) {
    text = static_cast<char*>(std::realloc(text, size));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text, 100), std::string(100, 'x'));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(text) % alignof(std::max_align_t), 0U);
  }
  std::free(text);
  kept = std::realloc(nullptr, 10);
  EXPECT_NE(kept, nullptr);
  std::free(kept);
}

// The sanitizers end the program over such sizes.
#if !HAS_ADDRESS_SANITIZER && !HAS_THREAD_SANITIZER
TEST(Allocation, RefusesWhatNobodyHas) {
  EXPECT_EQ(kept = std::malloc(too_much), nullptr);
  EXPECT_EQ(kept = std::calloc(too_much, 2), nullptr);
  EXPECT_EQ(kept = std::realloc(nullptr, too_much), nullptr);
}
#endif

}  // namespace
