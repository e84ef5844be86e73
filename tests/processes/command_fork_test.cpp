// Starts in a system that has no room for another process.

#include <rkutils/command.h>

#include <cerrno>
#include <functional>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "command_fixture.h"
#include "support/failing_calls.h"

namespace {

using support::run_with_failing_calls;
using support::SystemCall;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class NoProcesses : public CommandTest {
 protected:
  static int start(int mode) {
    return _exec_command(mode, probe_path().c_str(), "probe", static_cast<char*>(nullptr));
  }

  // The exit status of a process that starts the probe while so many forks fail.
  static int status_of_caller(int mode, unsigned failing) {
    return status_of([=] { start(mode); }, failing);
  }

  // The exit status of a process that does something while so many forks fail.
  static int status_of(const std::function<void()>& action, unsigned failing) {
    int status = -1;
    // The first one makes that process.
    run_with_failing_calls({{SystemCall::kFork, EAGAIN, 1, failing}},
                           [&] { status = status_apart(action); });
    EXPECT_TRUE(WIFEXITED(status));
    return WEXITSTATUS(status);
  }
};

TEST_F(NoProcesses, AWaitingCallerBecomesTheProgram) {
  for (const int mode : {0, 2, 3}) {
    EXPECT_EQ(status_of_caller(mode, 1), kProbeStatus);
    EXPECT_THAT(log_.take(), ElementsAre(err("fork failed")));
    const Probe found = probe();
    EXPECT_EQ(found.facts.at("folder"), "/");
    EXPECT_EQ(found.facts.at("umask"), "022");
    EXPECT_EQ(found.facts.at("blocked"), "");
    EXPECT_EQ(found.number("session"), ::getsid(0));
    EXPECT_EQ(found.descriptors.size(), mode == 3 ? 0U : 3U);
    expect_probe();
  }
}

TEST_F(NoProcesses, ACallerWhoseProgramCannotBeRunExitsWithTheError) {
  const auto start_missing = [] {
    _exec_command(0, "/tmp/missing", "name", static_cast<char*>(nullptr));
  };
  EXPECT_EQ(status_of(start_missing, 1), ENOENT);
  EXPECT_THAT(log_.take(), ElementsAre(err("fork failed")));
}

TEST_F(NoProcesses, ADetachingCallerBecomesTheProcessInBetween) {
  EXPECT_EQ(status_of_caller(1, 1), 0);
  EXPECT_THAT(shared_segments(), IsEmpty());
  EXPECT_THAT(log_.take(), ElementsAre(err("fork failed")));
  const Probe found = probe();
  EXPECT_NE(found.number("session"), ::getsid(0));
  EXPECT_THAT(found.descriptors,
              ElementsAre(Pair(0, "/dev/null"), Pair(1, "/dev/null"), Pair(2, "/dev/null")));
}

TEST_F(NoProcesses, ADetachingCallerWithoutAnyBecomesTheProgram) {
  EXPECT_EQ(status_of_caller(1, 2), kProbeStatus);
  EXPECT_THAT(shared_segments(), IsEmpty());
  EXPECT_THAT(log_.take(), ElementsAre(err("fork failed"), err("second fork failed")));
  EXPECT_THAT(probe().descriptors,
              ElementsAre(Pair(0, "/dev/null"), Pair(1, "/dev/null"), Pair(2, "/dev/null")));
}

TEST_F(NoProcesses, WithoutASecondOneTheProgramRunsAndItsCallerWaits) {
  int result = 0;
  run_with_failing_calls({{SystemCall::kFork, EAGAIN, 1, 1}}, [&] { result = start(1); });
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(has_probed());
  EXPECT_THAT(log_.take(), ElementsAre(err("second fork failed")));
  const Probe found = probe();
  EXPECT_EQ(found.number("session"), found.number("pid"));
  EXPECT_THAT(found.descriptors,
              ElementsAre(Pair(0, "/dev/null"), Pair(1, "/dev/null"), Pair(2, "/dev/null")));
}

}  // namespace
