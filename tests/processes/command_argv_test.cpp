#include <rkutils/command.h>
#include <rkutils/memory.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/allocation_faults.h"

namespace {

using testing::ElementsAre;

constexpr int kSlots = 255;

struct FreeVector {
  void operator()(char** vector) const { freeargv(vector); }
};
using Vector = std::unique_ptr<char*[], FreeVector>;

// The words of a line that can be split.
Vector split(const std::string& line, int expected_count) {
  char** vector = nullptr;
  int count = -1;
  EXPECT_EQ(makeargv(line.c_str(), &vector, &count), 0);
  EXPECT_EQ(count, expected_count);
  return Vector(vector);
}

std::string line_of_words(int count) {
  std::string line;
  for (int i = 0; i < count; ++i) line += "w" + std::to_string(i) + " ";
  return line;
}

// Fails, and leaves results and memory as they are.
void expect_refusal(const std::string& line) {
  char* words[] = {nullptr};
  char** vector = words;
  int count = 77;
  const long unfreed = support::unfreed_count();
  EXPECT_EQ(makeargv(line.c_str(), &vector, &count), -1);
  EXPECT_EQ(vector, words);
  EXPECT_EQ(count, 77);
  EXPECT_EQ(support::unfreed_count(), unfreed);
}

TEST(Makeargv, SplitsALine) {
  const Vector vector = split("a 'b c' d", 3);
  EXPECT_THAT(std::vector<std::string>(vector.get(), vector.get() + 3),
              ElementsAre("a", "b c", "d"));
}

TEST(Makeargv, TheOtherSlotsAreNull) {
  for (int words : {0, 1, 254}) {
    const Vector vector = split(line_of_words(words), words);
    for (int i = 0; i < kSlots; ++i) {
      EXPECT_EQ(vector[static_cast<std::size_t>(i)] == nullptr, i >= words) << i << " of " << words;
    }
  }
}

TEST(Makeargv, ABlankLineHasNoWords) {
  split("", 0);
  split(" \t\n", 0);
}

TEST(Makeargv, TakesUpTo255WordsWhichFillAllSlots) {
  const Vector vector = split(line_of_words(kSlots), kSlots);
  for (int i = 0; i < kSlots; ++i) {
    EXPECT_EQ("w" + std::to_string(i), vector[static_cast<std::size_t>(i)]);
  }
}

TEST(Makeargv, RefusesTheWord256) {
  expect_refusal(line_of_words(kSlots + 1));
  expect_refusal(line_of_words(kSlots) + "''");
  expect_refusal(line_of_words(kSlots) + "'");
}

TEST(Makeargv, RefusesAnUnclosedQuote) {
  expect_refusal("\"x");
  expect_refusal("a b 'c");
}

TEST(Makeargv, AWordHasRoomForTheWholeLineAndZerosBehindIt) {
  for (const std::size_t blanks : {0U, 1009U, 1010U, 100000U}) {  // up to 1024 bytes and above
    const std::string line = "one 'two 2' ''" + std::string(blanks, ' ');
    { const std::string used(line.size() + 1, '#'); }  // memory that may come again
    const support::RecordedAllocations recorded;
    const Vector vector = split(line, 3);
    EXPECT_THAT(recorded.sizes(), ElementsAre(kSlots * sizeof(char*), line.size() + 1,
                                              line.size() + 1, line.size() + 1));
    for (const std::size_t i : {0U, 1U, 2U}) {
      const std::size_t length = std::strlen(vector[i]);
      EXPECT_EQ(std::string(vector[i] + length, line.size() + 1 - length),
                std::string(line.size() + 1 - length, '\0'))
          << "word " << i;
    }
  }
}

TEST(Makeargv, WithoutMemoryNothingIsLeft) {
  for (unsigned long failing = 1; failing <= 4; ++failing) {
    const support::FailingAllocation failure(failing);
    expect_refusal("a 'b' c");
    EXPECT_TRUE(failure.happened());
  }
}

TEST(Makeargv, RefusesNull) {
  char* words[] = {nullptr};
  char** vector = words;
  int count = 77;
  EXPECT_EQ(makeargv(nullptr, &vector, &count), -1);
  EXPECT_EQ(makeargv("a", nullptr, &count), -1);
  EXPECT_EQ(makeargv("a", &vector, nullptr), -1);
  EXPECT_EQ(vector, words);
  EXPECT_EQ(count, 77);
}

TEST(Freeargv, FreesAllSlotsAndTheVector) {
  const long unfreed = support::unfreed_count();
  Vector vector = split("a b", 2);
  vector[kSlots - 1] = static_cast<char*>(zalloc(1));  // behind a gap
  EXPECT_EQ(support::unfreed_count(), unfreed + 4);
  vector.reset();
  EXPECT_EQ(support::unfreed_count(), unfreed);
}

TEST(Freeargv, TakesNull) { freeargv(nullptr); }

}  // namespace
