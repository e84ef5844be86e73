// The shared memory in which the ids of detached programs come back, and for which starts take
// turns.

#include <rkutils/command.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "command_fixture.h"
#include "support/failing_calls.h"
#include "support/interruption.h"
#include "support/stopwatch.h"
#include "support/without_override.h"

namespace {

using support::LogLine;
using support::run_with_failing_calls;
using support::SystemCall;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

// The segment as another start has it.
int create_segment() { return ::shmget(::ftok(".", 52), 4, IPC_CREAT | IPC_EXCL | 0600); }

void remove_segment(int segment) { EXPECT_EQ(::shmctl(segment, IPC_RMID, nullptr), 0); }

std::vector<LogLine> tries(int count) {
  std::vector<LogLine> lines;
  for (int i = 1; i <= count; ++i) {
    lines.push_back(
        info("Shared memory temporary not available (try " + std::to_string(i) + "/10)"));
  }
  return lines;
}

LogLine failure(int error) {
  return err("Shared memory allocation failed: " + std::string(std::strerror(error)) + " (" +
             std::to_string(error) + ")");
}

class SharedWord : public CommandTest {
 protected:
  static int start() {
    return _exec_command(1, probe_path().c_str(), "probe", static_cast<char*>(nullptr));
  }
};

TEST_F(SharedWord, TenTriesAgainstAHeldSegmentThenFailure) {
  const int segment = create_segment();
  ASSERT_GE(segment, 0);
  const support::Stopwatch stopwatch;
  EXPECT_EQ(start(), -1);
  EXPECT_GE(stopwatch.elapsed().count(), 900);
  EXPECT_LT(stopwatch.elapsed().count(), 10000);
  EXPECT_THAT(log_.take(), ElementsAreArray(tries(10)));
  EXPECT_THAT(shared_segments(), SizeIs(1)) << "it is not ours to remove";
  remove_segment(segment);
  EXPECT_FALSE(has_probed());
}

TEST_F(SharedWord, SignalsDoNotShortenTheTries) {
  const int segment = create_segment();
  const support::Interruption interruption;
  const support::Stopwatch stopwatch;
  int result = 0;
  std::thread thread([&result] { result = start(); });
  for (int i = 0; i < 5; ++i) support::Interruption::send(thread);
  thread.join();
  EXPECT_GE(stopwatch.elapsed().count(), 900);
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log_.take(), ElementsAreArray(tries(10)));
  remove_segment(segment);
}

TEST_F(SharedWord, StartsAsSoonAsTheSegmentIsFree) {
  const int segment = create_segment();
  std::thread other([segment] {
    ::usleep(250000);
    remove_segment(segment);
  });
  const int process = start();
  other.join();
  EXPECT_EQ(probe().number("pid"), process);
  const std::vector<LogLine> lines = log_.take();
  EXPECT_THAT(lines, ElementsAreArray(tries(static_cast<int>(lines.size()))));
  EXPECT_GE(lines.size(), 1U);
  EXPECT_LT(lines.size(), 10U);
}

TEST_F(SharedWord, WaitingStartsNeedNone) {
  const int segment = create_segment();
  EXPECT_EQ(run_command("exit 3", 0), 3);
  remove_segment(segment);
}

TEST_F(SharedWord, OtherFoldersHaveOthers) {
  const int segment = create_segment();
  EXPECT_EQ(::chdir("/dev"), 0);
  EXPECT_GT(start(), 0);
  EXPECT_EQ(::chdir("/tmp"), 0);
  probe();
  remove_segment(segment);
}

TEST_F(SharedWord, ADeadCreatorsSegmentIsTakenAwayAfterTenTries) {
  status_apart([] { create_segment(); });
  ASSERT_THAT(shared_segments(), SizeIs(1));
  const int process = start();
  EXPECT_EQ(probe().number("pid"), process);
  EXPECT_THAT(log_.take(), ElementsAreArray(tries(10)));
}

TEST_F(SharedWord, ADeadCreatorsSegmentStaysWhileItIsAttached) {
  status_apart([] { create_segment(); });
  const int segment = ::shmget(::ftok(".", 52), 0, 0);
  void* const memory = ::shmat(segment, nullptr, 0);
  EXPECT_EQ(start(), -1);
  EXPECT_THAT(log_.take(), ElementsAreArray(tries(10)));
  EXPECT_THAT(shared_segments(), SizeIs(1));
  ::shmdt(memory);
  remove_segment(segment);
}

TEST_F(SharedWord, ASecondRefusalBehindADeadCreatorsIsNotLogged) {
  status_apart([] { create_segment(); });
  int result = 0;
  // The first ten find the segment, the eleventh looks for its number, the twelfth is the last.
  run_with_failing_calls({{SystemCall::kGetSharedMemory, ENOSPC, 11, 1}},
                         [&] { result = start(); });
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log_.take(), ElementsAreArray(tries(10)));
}

TEST_F(SharedWord, OtherRefusalsAreLoggedAtOnce) {
  int result = 0;
  run_with_failing_calls({{SystemCall::kGetSharedMemory, ENOSPC}}, [&] { result = start(); });
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log_.take(), ElementsAre(failure(ENOSPC)));
  EXPECT_FALSE(has_probed());
}

TEST_F(SharedWord, OtherRefusalsEndTheTries) {
  const int segment = create_segment();
  int result = 0;
  run_with_failing_calls({{SystemCall::kGetSharedMemory, ENOSPC, 2, 1}}, [&] { result = start(); });
  EXPECT_EQ(result, -1);
  std::vector<LogLine> expected = tries(2);
  expected.push_back(failure(ENOSPC));
  EXPECT_THAT(log_.take(), ElementsAreArray(expected));
  remove_segment(segment);
}

TEST_F(SharedWord, WhatCannotBeAttachedIsRemoved) {
  int result = 0;
  run_with_failing_calls({{SystemCall::kAttachSharedMemory, ENOMEM}}, [&] { result = start(); });
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log_.take(), ElementsAre(failure(ENOMEM)));
  EXPECT_THAT(shared_segments(), IsEmpty());
  EXPECT_FALSE(has_probed());
}

TEST_F(SharedWord, FailsInAFolderThatGivesNoKey) {
  ::mkdir("/tmp/closed", 0700);
  EXPECT_EQ(::chdir("/tmp/closed"), 0);
  ::chmod("/tmp/closed", 0);
  int result = 0;
  support::run_without_override([&] { result = start(); });
  EXPECT_EQ(::chdir("/tmp"), 0);
  ::rmdir("/tmp/closed");
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log_.take(), ElementsAre(failure(EACCES)));
  EXPECT_FALSE(has_probed());
}

// Seen while the process in between makes the program's, for which it is not attached any more.
TEST_F(SharedWord, HasFourBytesForItsOwnerAlone) {
  std::vector<std::string> segments;
  long key = 0;
  long number = 0;
  unsigned mode = 0;
  unsigned long size = 0;
  unsigned long attached = 0;
  run_with_failing_calls({{SystemCall::kFork, EAGAIN, 1, 1, [&] { segments = shared_segments(); }}},
                         [] { EXPECT_EQ(start(), -1); });
  EXPECT_THAT(log_.take(), ElementsAre(err("second fork failed")));
  ASSERT_THAT(segments, SizeIs(1));
  ASSERT_EQ(std::sscanf(segments[0].c_str(), "%ld %ld %o %lu %*d %*d %lu", &key, &number, &mode,
                        &size, &attached),
            5);
  EXPECT_EQ(static_cast<key_t>(key), ::ftok(".", 52));
  EXPECT_EQ(mode & 0777U, 0600U);
  EXPECT_EQ(size, 4U);
  EXPECT_EQ(attached, 2U) << "the caller and the process in between";
}

}  // namespace
