// Programs that run on their own.

#include <rkutils/command.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "command_fixture.h"
#include "support/open_descriptors.h"
#include "support/rounds.h"
#include "support/stopwatch.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class DetachedStart : public CommandTest {
 protected:
  static constexpr const char* kEnd = nullptr;
  static int start() { return _exec_command(1, probe_path().c_str(), "probe", kEnd); }
};

TEST_F(DetachedStart, GivesTheProcessId) {
  const int process = start();
  EXPECT_EQ(probe().number("pid"), process);
}

TEST_F(DetachedStart, IsInAnotherSessionWhichItDoesNotLead) {
  const int process = start();
  const Probe found = probe();
  EXPECT_NE(found.number("session"), ::getsid(0));
  EXPECT_NE(found.number("session"), process);
  EXPECT_EQ(found.number("terminal"), 0);
}

TEST_F(DetachedStart, IsNoChildOfTheCallers) {
  const int process = run_command("exec sleep 100", 1);
  ASSERT_GT(process, 0);
  EXPECT_EQ(::waitpid(process, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "nor is the one in between left";
  EXPECT_EQ(::kill(process, SIGKILL), 0) << "it runs on";
}

TEST_F(DetachedStart, DoesNotWaitForTheProgram) {
  const support::Stopwatch stopwatch;
  const int process = run_command("exec sleep 100", 1);
  EXPECT_LT(stopwatch.elapsed().count(), 10000);
  EXPECT_EQ(::kill(process, SIGKILL), 0);
}

TEST_F(DetachedStart, HasDevNullForItsStandardDescriptorsAndNoOthers) {
  const int descriptor = ::dup(STDERR_FILENO);
  start();
  ::close(descriptor);
  EXPECT_THAT(probe().descriptors,
              ElementsAre(Pair(0, "/dev/null"), Pair(1, "/dev/null"), Pair(2, "/dev/null")));
}

TEST_F(DetachedStart, CanReadAndWriteThem) {
  run_command("read line; echo out && echo err >&2 && echo done > /tmp/written", 1);
  for (int waits = 0; ::access("/tmp/written", F_OK) != 0 && waits < 10000; ++waits) ::usleep(1000);
  EXPECT_EQ(::unlink("/tmp/written"), 0);
}

TEST_F(DetachedStart, AProgramThatCannotBeRunHasAnIdAllTheSame) {
  EXPECT_GT(_exec_command(1, "/tmp/missing", "name", kEnd), 0);
}

TEST_F(DetachedStart, LeavesNoSharedMemoryFromTheMomentItReturns) {
  std::set<int> processes;
  for (int i = std::max(10, support::rounds(100)); i > 0; --i) {
    processes.insert(_exec_command(1, "/bin/true", "true", kEnd));
    EXPECT_THAT(shared_segments(), IsEmpty());
  }
  EXPECT_GT(*processes.begin(), 0);
}

TEST_F(DetachedStart, KnowsTheIdWhereSigchldIsIgnoredToo) {
  ::signal(SIGCHLD, SIG_IGN);
  const int process = start();
  ::signal(SIGCHLD, SIG_DFL);
  EXPECT_EQ(probe().number("pid"), process);
  EXPECT_THAT(log_.take(), ElementsAre(err("Waiting for child process failed: " +
                                           std::string(std::strerror(ECHILD)) + " (10)")));
}

TEST_F(DetachedStart, IsFinishedByACancelledThread) {
  int process = -1;
  EXPECT_TRUE(finishes_though_cancelled([&] { process = start(); }));
  EXPECT_EQ(probe().number("pid"), process);
}

TEST_F(DetachedStart, SeveralAtOnceTakeTurns) {
  std::array<int, 4> processes = {};
  std::array<std::thread, 4> threads;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    threads[i] = std::thread([&processes, i] { processes[i] = run_command("exec sleep 100", 1); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::set<int>(processes.begin(), processes.end()).size(), processes.size());
  for (const int process : processes) {
    ASSERT_GT(process, 0);
    EXPECT_EQ(::kill(process, SIGKILL), 0);
  }
  for (const support::LogLine& line : log_.take()) {
    EXPECT_EQ(line.level, LOG_INFO);
    EXPECT_THAT(line.text, testing::StartsWith("Shared memory temporary not available (try "));
  }
}

}  // namespace
