// Lock directories.

#include <rkutils/semaphore.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/for_nobody.h"
#include "support/interruption.h"
#include "support/put_file.h"
#include "support/stopped_clock.h"
#include "support/stopwatch.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"

namespace {

using support::StoppedClock;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kPath = "/tmp/lock-directory-test";
constexpr std::int64_t kSecondUs = 1000000;

class LockDirectory : public testing::Test {
 protected:
  LockDirectory() { std::filesystem::remove_all(kPath); }
  ~LockDirectory() override {
    std::filesystem::remove_all(kPath);
    EXPECT_THAT(log_.take(), IsEmpty());
  }

  static bool is_there() { return std::filesystem::exists(kPath); }

  static unsigned mode() {
    struct stat status = {};
    EXPECT_EQ(::stat(kPath, &status), 0);
    return status.st_mode & 07777U;
  }

  support::SyslogCollector log_;
};

// ---- acquire_lock() ----

TEST_F(LockDirectory, IsMadeAtOnce) {
  StoppedClock clock;
  EXPECT_EQ(acquire_lock(kPath, 1), 0);
  EXPECT_TRUE(std::filesystem::is_directory(kPath));
  EXPECT_THAT(clock.take_pauses_us(), IsEmpty());
}

// The kernel leaves the group bit of octal 3525 to the parent.
TEST_F(LockDirectory, HasItsStrangeMode) {
  const mode_t mask = ::umask(0);
  EXPECT_EQ(acquire_lock(kPath, 1), 0);
  EXPECT_EQ(mode(), 01525U);
  release_lock(kPath);
  ::umask(022);
  EXPECT_EQ(acquire_lock(kPath, 1), 0);
  EXPECT_EQ(mode(), 01505U);
  ::umask(mask);
}

TEST_F(LockDirectory, IsTriedForEachSecond) {
  ASSERT_EQ(acquire_lock(kPath, 1), 0);
  for (const int tries : {1, 3, 1000}) {
    StoppedClock clock;
    EXPECT_EQ(acquire_lock(kPath, tries), -1);
    EXPECT_THAT(clock.take_pauses_us(),
                testing::AllOf(testing::SizeIs(tries), testing::Each(kSecondUs)));
  }
}

TEST_F(LockDirectory, IsMadeAsSoonAsATryFindsItFree) {
  ASSERT_EQ(acquire_lock(kPath, 1), 0);
  StoppedClock clock;
  clock.at_pauses([](int pause) {
    if (pause == 2) release_lock(kPath);
  });
  EXPECT_EQ(acquire_lock(kPath, 5), 0);
  EXPECT_TRUE(is_there());
  EXPECT_THAT(clock.take_pauses_us(), ElementsAre(kSecondUs, kSecondUs));
}

TEST_F(LockDirectory, IsMadeByTheLastTryButNotAfterIt) {
  for (const int freed : {2, 3}) {
    ASSERT_EQ(acquire_lock(kPath, 1), 0);
    StoppedClock clock;
    clock.at_pauses([freed](int pause) {
      if (pause == freed) release_lock(kPath);
    });
    EXPECT_EQ(acquire_lock(kPath, 3), freed == 2 ? 0 : -1);
    EXPECT_EQ(is_there(), freed == 2);
    release_lock(kPath);
  }
}

TEST_F(LockDirectory, TakesRealSeconds) {
  ASSERT_EQ(acquire_lock(kPath, 1), 0);
  const support::Interruption interruption;
  const support::Stopwatch stopwatch;
  int result = 0;
  std::thread thread([&] { result = acquire_lock(kPath, 1); });
  for (int i = 0; i < 3; ++i) support::Interruption::send(thread);
  thread.join();
  EXPECT_EQ(result, -1);
  EXPECT_GE(stopwatch.elapsed().count(), 1000) << "signals do not shorten it";
}

TEST_F(LockDirectory, IsTriedForWhateverIsWrong) {
  StoppedClock clock;
  EXPECT_EQ(acquire_lock("/tmp/missing/lock", 2), -1);
  EXPECT_EQ(acquire_lock("", 1), -1);
  support::put(kPath, "a file");
  EXPECT_EQ(acquire_lock(kPath, 1), -1);
  EXPECT_THAT(clock.take_pauses_us(), ElementsAre(kSecondUs, kSecondUs, kSecondUs, kSecondUs));
}

TEST_F(LockDirectory, IsNotMadeWithoutTries) {
  StoppedClock clock;
  EXPECT_EQ(acquire_lock(kPath, 0), -1);
  EXPECT_FALSE(is_there());
  EXPECT_THAT(clock.take_pauses_us(), IsEmpty());
}

TEST_F(LockDirectory, IsClaimedButNotMadeWithANegativeNumberOfTries) {
  StoppedClock clock;
  for (const int tries : {-1, INT_MIN}) {
    EXPECT_EQ(acquire_lock(kPath, tries), 0);
    EXPECT_FALSE(is_there());
  }
  EXPECT_THAT(clock.take_pauses_us(), IsEmpty());
}

TEST_F(LockDirectory, NeedsAPath) {
  StoppedClock clock;
  EXPECT_EQ(acquire_lock(nullptr, 3), -1);
  EXPECT_EQ(acquire_lock(nullptr, 0), -1);
  EXPECT_EQ(acquire_lock(nullptr, -1), 0);
  EXPECT_THAT(clock.take_pauses_us(), IsEmpty());
}

TEST_F(LockDirectory, IsMadeByOneOfManyThreads) {
  std::vector<int> results(8, 7);
  std::vector<std::thread> threads;
  threads.reserve(results.size());
  for (int& result : results) {
    threads.emplace_back([&result] { result = acquire_lock(kPath, 1); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::count(results.begin(), results.end(), 0), 1);
  EXPECT_EQ(std::count(results.begin(), results.end(), -1), 7);
}

TEST_F(LockDirectory, IsTriedForToTheEndByACancelledThread) {
  ASSERT_EQ(acquire_lock(kPath, 1), 0);
  int result = 0;
  EXPECT_TRUE(support::finishes_though_cancelled([&] {
    StoppedClock clock;
    result = acquire_lock(kPath, 2);
  }));
  EXPECT_EQ(result, -1);
}

// ---- release_lock() ----

TEST_F(LockDirectory, IsRemovedByRelease) {
  ASSERT_EQ(acquire_lock(kPath, 1), 0);
  EXPECT_EQ(release_lock(kPath), 0);
  EXPECT_FALSE(is_there());
}

TEST_F(LockDirectory, MayBeAFileForRelease) {
  support::put(kPath, "text");
  EXPECT_EQ(release_lock(kPath), 0);
  EXPECT_FALSE(is_there());
}

TEST_F(LockDirectory, MayBeMissingForRelease) {
  EXPECT_EQ(release_lock(kPath), 0);
  EXPECT_EQ(release_lock(""), 0);
  EXPECT_EQ(release_lock(nullptr), 0);
}

TEST_F(LockDirectory, IsNotRemovedWithAnythingInIt) {
  support::put(std::string(kPath) + "/file", "");
  EXPECT_EQ(release_lock(kPath), 0);
  EXPECT_TRUE(is_there());
}

TEST_F(LockDirectory, IsNotRemovedIfTheRealUserMayNotReadIt) {
  const mode_t mask = ::umask(077);
  ASSERT_EQ(acquire_lock(kPath, 1), 0);
  ::umask(mask);
  support::run_for_nobody([] { EXPECT_EQ(release_lock(kPath), 0); });
  EXPECT_TRUE(is_there());
}

TEST_F(LockDirectory, IsRemovedIfTheRealUserMayReadIt) {
  ASSERT_EQ(acquire_lock(kPath, 1), 0);
  ::chmod(kPath, 0755);
  support::run_for_nobody([] { EXPECT_EQ(release_lock(kPath), 0); });
  EXPECT_FALSE(is_there());
}

}  // namespace
