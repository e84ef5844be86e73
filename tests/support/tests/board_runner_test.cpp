// The board's verdict on everything else comes from this runner.

#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include <gmock/gmock.h>

#include "support/private_router.h"
#include "support/run_program.h"
#include "support/stopwatch.h"

namespace {

using support::Outcome;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kList[] = "/tmp/tests.txt";
constexpr char kResults[] = "/tmp/results.xml";

class BoardRunner : public testing::Test {
 protected:
  // A test of the list that runs `script` in /tmp.
  void add(const std::string& name, const std::string& script, int limit = 30) {
    std::ofstream(kList, std::ios::app)
        << name << '\t' << limit << "\t/tmp\t/bin/sh\t-c\t" << script << '\n';
  }

  static Outcome run() {
    return support::run_program(
        {support::built_program("tests/support/board-runner"), kList, kResults, "2"});
  }

  static std::string results() {
    std::ostringstream text;
    text << std::ifstream(kResults).rdbuf();
    return text.str();
  }

  void TearDown() override {
    std::remove(kList);
    std::remove(kResults);
  }
};

TEST_F(BoardRunner, SucceedsWhenEveryTestPasses) {
  add("Small.One", "test $(pwd) = /tmp");
  add("Small.Two", "echo this is not shown");
  const auto [output, status] = run();
  EXPECT_EQ(status, 0);
  EXPECT_THAT(output, AllOf(HasSubstr("2/2 passed"), HasSubstr("Small.One\n"),
                            HasSubstr("2 passed, 0 skipped, 0 failed"),
                            Not(HasSubstr("this is not shown"))));
  EXPECT_THAT(results(), AllOf(HasSubstr("tests=\"2\" failures=\"0\" skipped=\"0\""),
                               HasSubstr("<testcase name=\"Small.Two\" status=\"run\"")));
}

TEST_F(BoardRunner, FailsWithTheOutputOfWhatFails) {
  add("Small.One", "echo 'what & <why>'; exit 3");
  add("Small.Two", "true");
  const auto [output, status] = run();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output,
              AllOf(HasSubstr("Small.One: exit status 3\nwhat & <why>\n"),
                    HasSubstr("1 passed, 0 skipped, 1 failed"), HasSubstr("  FAILED Small.One\n")));
  EXPECT_THAT(results(), AllOf(HasSubstr("<testcase name=\"Small.One\" status=\"fail\""),
                               HasSubstr("<failure message=\"exit status 3\"/>"),
                               HasSubstr("what &amp; &lt;why>")));
}

TEST_F(BoardRunner, FailsForASignal) {
  add("Small.One", "kill -SEGV $$");
  const auto [output, status] = run();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output, HasSubstr("Small.One: signal 11\n"));
}

TEST_F(BoardRunner, FailsForAProgramThatIsNotThere) {
  std::ofstream(kList) << "Small.One\t30\t/tmp\t/nowhere/program\n";
  const auto [output, status] = run();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output, AllOf(HasSubstr("Small.One: exit status 127\n"),
                            HasSubstr("/nowhere/program: No such file or directory")));
}

TEST_F(BoardRunner, KillsWhatRunsForTooLongWithItsChildren) {
  add("Small.One", "sleep 60 & sleep 60", 1);
  const support::Stopwatch stopwatch;
  const auto [output, status] = run();
  EXPECT_LT(stopwatch.elapsed(), std::chrono::seconds(20));
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output, HasSubstr("Small.One: still running after 1 seconds\n"));
}

TEST_F(BoardRunner, DoesNotWaitForWhatATestLeavesBehind) {
  add("Small.One", "sleep 60 & true");
  const support::Stopwatch stopwatch;
  EXPECT_EQ(run().status, 0);
  EXPECT_LT(stopwatch.elapsed(), std::chrono::seconds(20));
}

TEST_F(BoardRunner, CountsBothWaysOfSkipping) {
  add("Small.Status", "exit 77");
  add("Small.Text", "echo '[  SKIPPED ] Small.Text (0 ms)'");
  add("Small.FailedAfterAll", "echo '[  SKIPPED ] Small.Other (0 ms)'; exit 1");
  const auto [output, status] = run();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output, HasSubstr("0 passed, 2 skipped, 1 failed"));
  EXPECT_THAT(results(), AllOf(HasSubstr("<testcase name=\"Small.Status\" status=\"notrun\""),
                               HasSubstr("<testcase name=\"Small.Text\" status=\"notrun\"")));
}

TEST_F(BoardRunner, FailsWithoutTests) {
  EXPECT_THAT(run().output, StartsWith("board-runner: cannot read /tmp/tests.txt"));
  EXPECT_EQ(run().status, 125);
  std::ofstream(kList).flush();
  EXPECT_EQ(run().status, 125);
}

TEST_F(BoardRunner, RefusesAListWithAnotherLayout) {
  std::ofstream(kList) << "Small.One\tten\t/tmp\ttrue\n";
  const auto [output, status] = run();
  EXPECT_EQ(status, 125);
  EXPECT_THAT(output, HasSubstr("not a test: Small.One"));
}

}  // namespace
