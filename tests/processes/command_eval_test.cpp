#include <rkutils/command.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <map>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include "command_fixture.h"
#include "support/in_child.h"
#include "support/interruption.h"
#include "support/open_descriptors.h"
#include "support/put_file.h"
#include "support/small_stack.h"
#include "support/stopwatch.h"

namespace {

using namespace std::chrono_literals;

struct Result {
  int length;
  std::string text;

  friend bool operator==(const Result& a, const Result& b) {
    return a.length == b.length && a.text == b.text;
  }
  friend std::ostream& operator<<(std::ostream& out, const Result& result) {
    return out << result.length << " \"" << result.text << '"';
  }
};

// The command's result with a buffer of this size, whose bytes behind must stay.
Result evaluate(const std::string& command, std::size_t size = 8192) {
  constexpr std::size_t kGuard = 16;
  std::string buffer(size + kGuard, '#');
  const int length = eval_command(command.c_str(), buffer.data(), size);
  EXPECT_EQ(buffer.substr(size), std::string(kGuard, '#'));
  return {length, buffer.substr(0, buffer.find('\0'))};
}

class EvalCommand : public CommandTest {};

TEST_F(EvalCommand, GivesTheOutputAndItsLength) {
  EXPECT_EQ(evaluate("echo hello"), (Result{6, "hello\n"}));
  EXPECT_EQ(evaluate("printf 'a\\n\\nb'"), (Result{4, "a\n\nb"}));
  EXPECT_EQ(evaluate("true"), (Result{0, ""}));
}

TEST_F(EvalCommand, CutsTheOutputAByteEarlyAndCountsItAll) {
  EXPECT_EQ(evaluate("echo hello", 8), (Result{6, "hello\n"}));
  EXPECT_EQ(evaluate("echo hello", 7), (Result{6, "hello"}));
  EXPECT_EQ(evaluate("echo hello", 6), (Result{6, "hell"}));
  EXPECT_EQ(evaluate("echo hello", 3), (Result{6, "h"}));
  EXPECT_EQ(evaluate("echo hello", 2), (Result{6, ""}));
  EXPECT_EQ(evaluate("echo hello", 1), (Result{6, ""}));
}

TEST_F(EvalCommand, DropsLinesThatFollowACutOne) {
  EXPECT_EQ(evaluate("echo aaaa; echo b; echo c", 5), (Result{9, "aaa"}));
  EXPECT_EQ(evaluate("echo aa; echo b; echo c", 5), (Result{7, "aa\n"}));
}

TEST_F(EvalCommand, TakesLinesOfAnyLength) {
  const Result result = evaluate("head -c 5000 /dev/zero | tr '\\0' x; echo; echo end");
  EXPECT_EQ(result, (Result{5005, std::string(5000, 'x') + "\nend\n"}));
}

// As text that is read with fgets() and appended up to its NUL.
TEST_F(EvalCommand, ANulHidesTheRestOfItsLine) {
  EXPECT_EQ(evaluate("printf 'a\\0b\\nc\\n'"), (Result{3, "ac\n"}));
}

TEST_F(EvalCommand, ANulHidesNoMoreThanTheRestOf1023Bytes) {
  EXPECT_EQ(evaluate("printf 'a\\0'; head -c 1021 /dev/zero | tr '\\0' x; echo tail"),
            (Result{6, "atail\n"}));
  EXPECT_EQ(evaluate("printf 'a\\0'; head -c 1020 /dev/zero | tr '\\0' x; echo tail"),
            (Result{5, "aail\n"}));
}

TEST_F(EvalCommand, ARefusedArgumentLeavesTheBuffer) {
  char buffer[] = "text";
  EXPECT_EQ(eval_command(nullptr, buffer, sizeof buffer), -1);
  EXPECT_EQ(eval_command("", buffer, sizeof buffer), -1);
  EXPECT_EQ(eval_command("touch /tmp/evaluated", buffer, 0), -1);
  EXPECT_EQ(eval_command("touch /tmp/evaluated", nullptr, sizeof buffer), -1);
  EXPECT_STREQ(buffer, "text");
  EXPECT_NE(::access("/tmp/evaluated", F_OK), 0);
}

TEST_F(EvalCommand, AnotherStatusThan0IsAFailureWithTheOutput) {
  EXPECT_EQ(evaluate("echo so far; exit 3"), (Result{-1, "so far\n"}));
  EXPECT_EQ(evaluate("exit 255"), (Result{-1, ""}));
}

TEST_F(EvalCommand, AKilledCommandIsNoFailure) {
  EXPECT_EQ(evaluate("echo so far; kill -9 $$"), (Result{7, "so far\n"}));
}

TEST_F(EvalCommand, RunsInTheCallersFolderWithItsUmask) {
  EXPECT_EQ(evaluate("pwd; umask"), (Result{10, "/tmp\n0027\n"}));
}

TEST_F(EvalCommand, ReadsTheCallersInputAndHasItsInheritableDescriptors) {
  const int before = ::dup(STDIN_FILENO);
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  ASSERT_EQ(::dup2(pipe[0], STDIN_FILENO), STDIN_FILENO);
  ASSERT_EQ(::dup2(pipe[0], 100), 100);
  ASSERT_EQ(::fcntl(pipe[0], F_DUPFD_CLOEXEC, 101), 101);
  EXPECT_EQ(::write(pipe[1], "in\n", 3), 3);
  EXPECT_EQ(evaluate("read line; echo $line; ls /proc/$$/fd | grep '^10[01]$'"),
            (Result{7, "in\n100\n"}));
  ::dup2(before, STDIN_FILENO);
  for (const int descriptor : {before, pipe[0], pipe[1], 100, 101}) ::close(descriptor);
}

TEST_F(EvalCommand, FailsWhereSigchldIsIgnored) {
  const std::string result = support::in_child([] {
    ::signal(SIGCHLD, SIG_IGN);
    char buffer[16];
    const int length = eval_command("echo out", buffer, sizeof buffer);
    return std::to_string(length) + buffer;
  });
  EXPECT_EQ(result, "-1out\n");
}

TEST_F(EvalCommand, ASignalLosesNothing) {
  const support::Interruption interruption;
  Result result = {};
  std::thread thread([&] { result = evaluate("printf begin; sleep 0.3; echo end"); });
  support::Interruption::send(thread);
  thread.join();
  EXPECT_EQ(result, (Result{9, "beginend\n"}));
}

TEST_F(EvalCommand, IsFinishedByACancelledThread) {
  char buffer[16] = "";
  int length = 0;
  EXPECT_TRUE(finishes_though_cancelled(
      [&] { length = eval_command("sleep 0.1; echo out", buffer, sizeof buffer); }));
  EXPECT_EQ(length, 4);
  EXPECT_STREQ(buffer, "out\n");
}

TEST_F(EvalCommand, FailsWithoutDescriptors) {
  for (const unsigned spare : {0U, 1U}) {
    char buffer[] = "text";
    const support::NoMoreDescriptors none(spare);
    EXPECT_EQ(eval_command("echo out", buffer, sizeof buffer), -1);
    EXPECT_STREQ(buffer, "");
  }
}

TEST_F(EvalCommand, NeedsDescriptorsForItsPipeAlone) {
#ifdef __GLIBC__
  constexpr unsigned kNeeded = 2;
#else
  constexpr unsigned kNeeded = 4;  // musl learns by a pipe of its own whether the shell was started
#endif
  char buffer[16];
  const support::NoMoreDescriptors none(kNeeded);
  EXPECT_EQ(eval_command("echo out", buffer, sizeof buffer), 4);
  EXPECT_STREQ(buffer, "out\n");
}

TEST_F(EvalCommand, OtherProgramsDoNotGetItsPipe) {
  const std::map<int, std::string> before = support::open_descriptors();
  std::thread thread([] { evaluate("until [ -e /tmp/go ]; do sleep 0.1; done"); });
  int ends = 0;
  for (const support::Stopwatch watch; ends == 0 && watch.elapsed() < 30s;) {
    for (const auto& [descriptor, target] : support::open_descriptors()) {
      if (before.count(descriptor) != 0) continue;
      const int flags = ::fcntl(descriptor, F_GETFD);
      if (flags == -1) continue;  // one that was needed until the shell ran
      EXPECT_EQ(flags, FD_CLOEXEC);
      EXPECT_EQ(target.substr(0, 5), "pipe:");
      ++ends;
    }
  }
  EXPECT_GT(ends, 0);
  support::put("/tmp/go", "");
  thread.join();
}

TEST_F(EvalCommand, WorksOnASmallStack) {
  support::run_on_small_stack([] { EXPECT_EQ(evaluate("echo out"), (Result{4, "out\n"})); });
}

}  // namespace
