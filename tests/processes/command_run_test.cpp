// Programs that are waited for, and what all started programs have in common.

#include <rkutils/command.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "command_fixture.h"
#include "support/failing_calls.h"
#include "support/in_child.h"
#include "support/interruption.h"
#include "support/put_file.h"
#include "support/rounds.h"
#include "support/small_stack.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class ExecCommand : public CommandTest {
 protected:
  static constexpr const char* kEnd = nullptr;
  static int run(int mode) { return _exec_command(mode, probe_path().c_str(), "probe", kEnd); }
};

TEST_F(ExecCommand, GivesTheExitStatus) {
  for (const int mode : {0, 2, 3, -1}) {
    EXPECT_EQ(_exec_command(mode, "/bin/sh", "sh", "-c", "exit 0", kEnd), 0);
    EXPECT_EQ(_exec_command(mode, "/bin/sh", "sh", "-c", "exit 1", kEnd), 1);
    EXPECT_EQ(_exec_command(mode, "/bin/sh", "sh", "-c", "exit 255", kEnd), 255);
  }
}

TEST_F(ExecCommand, PassesTheArguments) {
  EXPECT_EQ(_exec_command(0, probe_path().c_str(), "name", "", "two words", "*", kEnd),
            kProbeStatus);
  EXPECT_THAT(probe().arguments, ElementsAre("name", "", "two words", "*"));
}

TEST_F(ExecCommand, Takes15ArgumentsBehindTheFirst) {
  EXPECT_EQ(_exec_command(0, probe_path().c_str(), "0", "1", "2", "3", "4", "5", "6", "7", "8", "9",
                          "10", "11", "12", "13", "14", "15", kEnd),
            kProbeStatus);
  const Probe found = probe();
  ASSERT_EQ(found.arguments.size(), 16U);
  for (std::size_t i = 0; i < 16; ++i) EXPECT_EQ(found.arguments[i], std::to_string(i));
}

TEST_F(ExecCommand, Refuses16) {
  for (const char* path : {probe_path().c_str(), "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(_exec_command(0, path, "0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11",
                            "12", "13", "14", "15", "16", kEnd),
              -1);
    EXPECT_THAT(log_.take(), ElementsAre(err("Too many arguments")));
  }
  EXPECT_FALSE(has_probed());
}

// Linux of 5.18 and above makes an empty argument of none.
TEST_F(ExecCommand, WithoutAFirstArgumentThereIsNone) {
  EXPECT_EQ(_exec_command(0, probe_path().c_str(), kEnd, "one", "two", kEnd), kProbeStatus);
  EXPECT_THAT(probe().arguments, AnyOf(IsEmpty(), ElementsAre("")));
}

TEST_F(ExecCommand, WithoutAFirstArgumentOthersAreNotCounted) {
  EXPECT_EQ(_exec_command(0, probe_path().c_str(), kEnd, "1", "2", "3", "4", "5", "6", "7", "8",
                          "9", "10", "11", "12", "13", "14", "15", "16", kEnd),
            kProbeStatus);
}

TEST_F(ExecCommand, RefusesAMissingPathWithoutAMessage) {
  for (const int mode : {0, 1, 2, 3}) {
    EXPECT_EQ(_exec_command(mode, nullptr, "name", kEnd), -1);
    EXPECT_EQ(_exec_command(mode, "", "name", kEnd), -1);
  }
}

TEST_F(ExecCommand, AProgramThatCannotBeRunIsAStatus) {
  support::put("/tmp/not-executable", "exit 0\n");
  support::put("/tmp/not-a-program", "exit 0\n");
  ::chmod("/tmp/not-a-program", 0755);
  EXPECT_EQ(_exec_command(0, "/tmp/missing", "name", kEnd), ENOENT);
  EXPECT_EQ(_exec_command(0, "/tmp/not-executable", "name", kEnd), EACCES);
  EXPECT_EQ(_exec_command(0, "/tmp/not-a-program", "name", kEnd), ENOEXEC);
}

// The child is in the folder "/" by then.
TEST_F(ExecCommand, TakesRelativePathsFromTheRoot) {
  EXPECT_EQ(_exec_command(0, "bin/sh", "sh", "-c", "exit 9", kEnd), 9);
}

TEST_F(ExecCommand, RunsInTheRootFolderWithUmask022) {
  for (const int mode : {0, 1, 2, 3}) {
    run(mode);
    const Probe found = probe();
    EXPECT_EQ(found.facts.at("folder"), "/") << mode;
    EXPECT_EQ(found.facts.at("umask"), "022") << mode;
    expect_probe();
  }
}

TEST_F(ExecCommand, Modes0And2KeepTheStandardDescriptors) {
  const int many[] = {::open("/dev/null", O_RDONLY), ::open("/dev/zero", O_RDONLY),
                      ::fcntl(STDIN_FILENO, F_DUPFD, 900)};
  const int before[] = {::dup(0), ::dup(1), ::dup(2)};
  for (const char* path : {"/tmp/in", "/tmp/out", "/tmp/err"}) support::put(path, "");
  ::dup2(many[1], 0);
  std::map<int, std::string> standard;
  for (const int mode : {0, 2}) {
    EXPECT_EQ(run(mode), kProbeStatus);
    standard = probe().descriptors;
    EXPECT_EQ(standard.size(), 3U) << mode;
    EXPECT_EQ(standard[0], "/dev/zero") << mode;
    EXPECT_EQ(standard.count(1) + standard.count(2), 2U) << mode;
    expect_probe();
  }
  for (const int standard_one : {0, 1, 2}) {
    ::dup2(before[standard_one], standard_one);
    ::close(before[standard_one]);
  }
  for (const int descriptor : many) ::close(descriptor);
}

TEST_F(ExecCommand, OtherModesCloseAllDescriptors) {
  const int descriptor = ::fcntl(STDIN_FILENO, F_DUPFD, 900);
  for (const int mode : {3, 4, -1, 100}) {
    EXPECT_EQ(run(mode), kProbeStatus);
    EXPECT_THAT(probe().descriptors, IsEmpty()) << mode;
    expect_probe();
  }
  ::close(descriptor);
}

TEST_F(ExecCommand, StandardDescriptorsThatAreClosedStayClosed) {
  const int status = status_apart([] {
    ::close(STDIN_FILENO);
    run(0);
  });
  EXPECT_EQ(WEXITSTATUS(status), kReturned);
  EXPECT_THAT(probe().descriptors, ElementsAre(Pair(1, testing::_), Pair(2, testing::_)));
}

TEST_F(ExecCommand, AKilledProgramIsAFailureWithTwoMessages) {
  for (const int mode : {0, 2, 3}) {
    for (const int signal : {SIGTERM, SIGKILL}) {
      errno = ENOENT;  // of something before
      const std::string command = "kill -" + std::to_string(signal) + " $$";
      EXPECT_EQ(_exec_command(mode, "/bin/sh", "sh", "-c", command.c_str(), kEnd), -1);
      EXPECT_THAT(
          log_.take(),
          ElementsAre(err("child didn't exit. error: " + std::string(std::strerror(0))),
                      debug("child terminated by signal: " + std::to_string(signal) + " ")));
    }
  }
}

TEST_F(ExecCommand, WaitsThroughSignals) {
  const support::Interruption interruption;
  int status = -1;
  std::thread thread(
      [&] { status = _exec_command(0, "/bin/sh", "sh", "-c", "sleep 0.3; exit 5", kEnd); });
  support::Interruption::send(thread);
  thread.join();
  EXPECT_EQ(status, 5);
}

TEST_F(ExecCommand, FailsToWaitWhereSigchldIsIgnored) {
  ::signal(SIGCHLD, SIG_IGN);
  const int result = run(0);
  EXPECT_TRUE(has_probed());  // it has waited nevertheless
  ::signal(SIGCHLD, SIG_DFL);
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("Waiting for child process failed: " +
                                           std::string(std::strerror(ECHILD)) + " (10)")));
}

// Three signals, each in its own state.
class Signals {
 public:
  Signals() {
    struct sigaction handled = {};
    handled.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &handled, nullptr);
    ::signal(SIGUSR2, SIG_IGN);
    sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGWINCH);
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  }
  ~Signals() {
    ::signal(SIGUSR1, SIG_DFL);
    ::signal(SIGUSR2, SIG_DFL);
    sigset_t none;
    ::sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  // Whether they are as they were set.
  static bool unchanged() {
    struct sigaction handled = {};
    struct sigaction ignored = {};
    ::sigaction(SIGUSR1, nullptr, &handled);
    ::sigaction(SIGUSR2, nullptr, &ignored);
    sigset_t blocked;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return handled.sa_handler != SIG_DFL && handled.sa_handler != SIG_IGN &&
           ignored.sa_handler == SIG_IGN && ::sigismember(&blocked, SIGWINCH) == 1 &&
           ::sigismember(&blocked, SIGTERM) == 0;
  }
};

TEST_F(ExecCommand, PassesOnBlockedAndIgnoredSignals) {
  const Signals signals;
  for (const int mode : {0, 1, 3}) {
    run(mode);
    const Probe found = probe();
    EXPECT_EQ(found.facts.at("blocked"), std::to_string(SIGWINCH)) << mode;
    EXPECT_EQ(found.facts.at("ignored"), std::to_string(SIGUSR2)) << mode;
    EXPECT_TRUE(Signals::unchanged()) << mode;
    expect_probe();
  }
}

volatile sig_atomic_t handled_elsewhere = 0;
pid_t own_process = 0;

// The child works in this process's memory at first: a handler that ran in it would count twice.
TEST_F(ExecCommand, NoSignalHandlerRunsInTheChild) {
  own_process = ::getpid();
  handled_elsewhere = 0;
  struct sigaction action = {};
  action.sa_handler = [](int) {
    if (::getpid() != own_process) handled_elsewhere = 1;
  };
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGURG, &action, nullptr);  // those who do not handle it ignore it
  ::setpgid(0, 0);
  const pid_t storm = ::fork();
  if (storm == 0) {
    ::signal(SIGURG, SIG_IGN);
    for (;;) ::kill(0, SIGURG);
  }
  for (int i = support::rounds(200); i > 0; --i) EXPECT_EQ(run_command("exit 4", 0), 4);
  ::kill(storm, SIGKILL);
  ::waitpid(storm, nullptr, 0);
  ::signal(SIGURG, SIG_DFL);
  EXPECT_EQ(handled_elsewhere, 0);
}

TEST_F(ExecCommand, IsFinishedByACancelledThread) {
  int status = -1;
  // On old kernels the child calls what cancels a thread before it is the program.
  support::run_with_failing_calls({{support::SystemCall::kCloseRange, ENOSYS}}, [&] {
    EXPECT_TRUE(finishes_though_cancelled([&] { status = run(0); }));
  });
  EXPECT_EQ(status, kProbeStatus);
  EXPECT_EQ(probe().descriptors.size(), 3U);
}

int forks = 0;

TEST_F(ExecCommand, WaitingStartsDoNotCopyTheProcess) {
  const std::string counts = support::in_child([] {
    ::pthread_atfork([] { ++forks; }, nullptr, nullptr);
    run_command("exit 0", 0);
    const std::string waited = std::to_string(forks);
    run_command("exit 0", 1);
    return waited + " " + std::to_string(forks);
  });
  EXPECT_EQ(counts, "0 1");
}

TEST_F(ExecCommand, RunsInSeveralThreadsAtOnce) {
  std::array<int, 4> wrong = {};
  std::array<std::thread, 4> threads;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    threads[i] = std::thread([&wrong, i] {
      const int status = static_cast<int>(i) + 1;
      const std::string command = "exit " + std::to_string(status);
      for (int round = std::max(5, support::rounds(25)); round > 0; --round)
        wrong[i] += run_command(command.c_str(), 0) != status;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(wrong, testing::Each(0));
}

TEST_F(ExecCommand, WorksOnASmallStack) {
  support::run_on_small_stack([] {
    EXPECT_EQ(run(0), kProbeStatus);
    expect_probe();
    EXPECT_GT(run(1), 0);
  });
  probe();
}

using RunCommand = ExecCommand;

TEST_F(RunCommand, GivesTheShellsExitStatus) {
  EXPECT_EQ(run_command("true", 0), 0);
  EXPECT_EQ(run_command("exit 3", 0), 3);
  EXPECT_EQ(run_command("no-such-command 2> /dev/null", 0), 127);
}

TEST_F(RunCommand, LetsTheShellReadTheCommand) {
  EXPECT_EQ(run_command("x='a  b'; echo \"$x\" $0 > /tmp/shell; exit 6", 0), 6);
  std::string line;
  std::getline(std::ifstream("/tmp/shell"), line);
  EXPECT_EQ(line, "a  b /bin/sh");
}

TEST_F(RunCommand, KeepsTheStandardDescriptors) {
  const std::string command = "exec " + probe_path();
  EXPECT_EQ(run_command(command.c_str(), 0), kProbeStatus);
  EXPECT_EQ(probe().descriptors.size(), 3U);
}

TEST_F(RunCommand, AKilledCommandIsAFailureWithTwoMessages) {
  EXPECT_EQ(run_command("kill -9 $$", 0), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(err("child didn't exit. error: " + std::string(std::strerror(0))),
                          debug("child terminated by signal: 9 ")));
}

TEST_F(RunCommand, WithoutACommandTheShellComplains) {
  const int status = status_apart([] {
    ::dup2(::open("/tmp/complaint", O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
    ::_exit(run_command(nullptr, 0));
  });
  EXPECT_EQ(WEXITSTATUS(status), 2);
  std::string line;
  std::getline(std::ifstream("/tmp/complaint"), line);
  EXPECT_THAT(line, testing::HasSubstr("-c"));
}

TEST_F(RunCommand, AnyOtherBackgroundThan0Detaches) {
  for (const int background : {1, 2, -1}) {
    const std::string command = "exec " + probe_path();
    const int process = run_command(command.c_str(), background);
    EXPECT_EQ(probe().number("pid"), process);
    EXPECT_NE(probe().number("session"), ::getsid(0));
    expect_probe();
  }
}

}  // namespace
