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
constexpr char kProgram[] = "/tmp/program";

class BoardRunner : public testing::Test {
 protected:
  // A test of the list that runs `script` in /tmp.
  void add(const std::string& name, const std::string& script, int limit = 30) {
    std::ofstream(kList, std::ios::app)
        << name << '\t' << limit << "\t/tmp\t/bin/sh\t-c\t" << script << '\n';
  }

  // A test of the list that is one of a program of GoogleTest's kind.
  void add_of_program(const std::string& name, int limit = 30) {
    std::ofstream(kList, std::ios::app) << name << '\t' << limit << "\t/tmp\t/bin/sh\t" << kProgram
                                        << "\t--gtest_filter=" << name << "\t--more\n";
  }

  // That program: for each of its tests it does as `body` says, where $name is the test's.
  void write_program(const std::string& body) {
    std::ofstream(kProgram) << "begin() { echo \"[ RUN      ] $name\"; }\n"
                               "ok() { echo \"[       OK ] $name (0 ms)\"; }\n"
                               "failed() { echo \"[  FAILED  ] $name, where this (0 ms)\"; }\n"
                               "skipped() { echo \"[  SKIPPED ] $name (0 ms)\"; }\n"
                               "echo \"a program with $*\"\n"
                               "for name in $(echo \"${1#*=}\" | tr : ' '); do\n"
                            << body << "\ndone\n";
  }

  static Outcome run(const std::string& together = "5") {
    return support::run_program(
        {support::built_program("tests/support/board-runner"), kList, kResults, "2", together});
  }

  static std::string results() {
    std::ostringstream text;
    text << std::ifstream(kResults).rdbuf();
    return text.str();
  }

  void TearDown() override {
    std::remove(kList);
    std::remove(kResults);
    std::remove(kProgram);
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
  write_program("begin; skipped");
  add("Small.Status", "exit 77");
  add_of_program("Small.Text");
  add("Small.NotItself", "echo '[  SKIPPED ] Small.Other (0 ms)'");
  const auto [output, status] = run();
  EXPECT_EQ(status, 0);
  EXPECT_THAT(output, HasSubstr("1 passed, 2 skipped, 0 failed"));
  EXPECT_THAT(results(), AllOf(HasSubstr("<testcase name=\"Small.Status\" status=\"notrun\""),
                               HasSubstr("<testcase name=\"Small.Text\" status=\"notrun\"")));
}

TEST_F(BoardRunner, RunsTestsOfAProgramTogether) {
  write_program("begin; echo $*; ok");
  for (const char* name : {"A.one", "A.two", "A.three"}) add_of_program(name);
  add("B.four", "true");
  add_of_program("A.five");
  const auto [output, status] = run("2");
  EXPECT_EQ(status, 0);
  EXPECT_THAT(output, AllOf(HasSubstr("5 passed, 0 skipped, 0 failed"), HasSubstr("5/5 passed")));
  const std::string all = results();
  for (const char* words : {"A.one:A.two", "A.three", "A.five"}) {
    EXPECT_THAT(all,
                HasSubstr("a program with --gtest_filter=" + std::string(words) + " --more\n"));
  }
}

TEST_F(BoardRunner, TellsTestsOfAProgramApart) {
  write_program(
      "begin; echo \"from $name\"\n"
      "case $name in A.bad) failed; bad=1 ;; A.not) skipped ;; *) printf 'no line end'; ok ;; "
      "esac\n"
      "[ $name != A.last ] || exit $bad");
  for (const char* name : {"A.first", "A.bad", "A.not", "A.last"}) add_of_program(name);
  const auto [output, status] = run();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output, AllOf(HasSubstr("2 passed, 1 skipped, 1 failed"), HasSubstr("from A.bad\n"),
                            HasSubstr("  FAILED A.bad\n"), Not(HasSubstr("from A.first"))));
  EXPECT_THAT(results(), AllOf(HasSubstr("<testcase name=\"A.not\" status=\"notrun\""),
                               HasSubstr("<testcase name=\"A.bad\" status=\"fail\""),
                               HasSubstr("<testcase name=\"A.last\" status=\"run\"")));
}

TEST_F(BoardRunner, GoesOnAfterATestThatEndsItsProgram) {
  write_program("begin; case $name in *.kill) kill -SEGV $$ ;; *.exit) exit 0 ;; esac; ok");
  for (const char* name : {"A.one", "A.kill", "A.two", "A.exit", "A.three"}) add_of_program(name);
  const auto [output, status] = run();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output,
              AllOf(HasSubstr("A.kill: signal 11\n"), HasSubstr("A.exit: its process ended\n"),
                    HasSubstr("3 passed, 0 skipped, 2 failed")));
}

TEST_F(BoardRunner, KillsATestThatRunsForTooLongAndGoesOn) {
  write_program("begin; [ $name != A.slow ] || sleep 60; ok");
  for (const char* name : {"A.one", "A.slow", "A.two"}) add_of_program(name, 3);
  const auto [output, status] = run();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output, AllOf(HasSubstr("A.slow: still running after 3 seconds\n"),
                            HasSubstr("2 passed, 0 skipped, 1 failed")));
}

TEST_F(BoardRunner, FailsTheLastTestForAProgramThatFailsAfterIt) {
  write_program("begin; ok; [ $name != A.two ] || exit 23");
  for (const char* name : {"A.one", "A.two"}) add_of_program(name);
  const auto [output, status] = run();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output, AllOf(HasSubstr("A.two: exit status 23\n"),
                            HasSubstr("1 passed, 0 skipped, 1 failed")));
}

TEST_F(BoardRunner, FailsTestsThatTheirProgramDoesNotRun) {
  write_program("[ $name != A.one ] || { begin; ok; }");
  for (const char* name : {"A.one", "A.two", "A.three"}) add_of_program(name);
  const auto [output, status] = run();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(output, AllOf(HasSubstr("A.two: the program did not run it\n"),
                            HasSubstr("A.three: the program did not run it\n"),
                            HasSubstr("1 passed, 0 skipped, 2 failed")));
}

TEST_F(BoardRunner, AsksEachTestOfAProgramThatCannotStart) {
  write_program("echo 'refused here'; exit 77");
  for (const char* name : {"A.one", "A.two"}) add_of_program(name);
  const auto [output, status] = run();
  EXPECT_EQ(status, 0);
  EXPECT_THAT(output, AllOf(HasSubstr("0 passed, 2 skipped, 0 failed"), HasSubstr("refused here")));
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
