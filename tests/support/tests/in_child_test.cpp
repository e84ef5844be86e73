// Running something in a process of its own.

#include "support/in_child.h"

#include <csignal>
#include <stdexcept>
#include <string>
#include <system_error>

#include <gmock/gmock.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using support::in_child;

TEST(InChild, GivesWhatTheActionReturned) {
  EXPECT_EQ(in_child([] { return ""; }), "");
  EXPECT_EQ(in_child([] { return std::string("a\0b", 3); }), std::string("a\0b", 3));
}

TEST(InChild, RunsInAnotherProcess) {
  int here = 1;
  const std::string parent = in_child([&] {
    here = 2;
    return std::to_string(::getppid());
  });
  EXPECT_EQ(parent, std::to_string(::getpid()));
  EXPECT_EQ(here, 1);
}

TEST(InChild, ThrowsWhenTheChildFails) {
  EXPECT_THROW(in_child([]() -> std::string { throw std::logic_error("x"); }), std::runtime_error);
  EXPECT_THROW(in_child([]() -> std::string { ::_exit(3); }), std::runtime_error);
  EXPECT_THROW(in_child([] { return std::to_string(::raise(SIGKILL)); }), std::runtime_error);
}

TEST(EndOfChild, TellsHowTheChildEnded) {
  const support::ChildEnd good = support::end_of_child([] { return "text"; });
  EXPECT_EQ(good.status, 0);
  EXPECT_EQ(good.result, "text");
  const support::ChildEnd ended = support::end_of_child([]() -> std::string { ::_exit(3); });
  EXPECT_TRUE(WIFEXITED(ended.status) && WEXITSTATUS(ended.status) == 3);
  EXPECT_EQ(ended.result, "");
  const support::ChildEnd killed =
      support::end_of_child([] { return std::to_string(::raise(SIGKILL)); });
  EXPECT_TRUE(WIFSIGNALED(killed.status) && WTERMSIG(killed.status) == SIGKILL);
}

TEST(InChild, WaitsThroughSignals) {
  static volatile std::sig_atomic_t signals = 0;
  struct sigaction action = {};
  struct sigaction before = {};
  action.sa_handler = [](int) { signals = 1; };
  ASSERT_EQ(::sigaction(SIGALRM, &action, &before), 0);
  const itimerval soon = {{0, 1000}, {0, 1000}};
  const itimerval never = {};
  ::setitimer(ITIMER_REAL, &soon, nullptr);
  EXPECT_EQ(in_child([] {
              ::usleep(100000);
              return std::string("late");
            }),
            "late");
  ::setitimer(ITIMER_REAL, &never, nullptr);
  ::sigaction(SIGALRM, &before, nullptr);
  EXPECT_EQ(signals, 1);
}

// As where the program does not want to hear of its children.
TEST(InChild, ThrowsWhenTheChildCannotBeWaitedFor) {
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  EXPECT_THROW(in_child([] { return "unknown"; }), std::system_error);
  std::signal(SIGCHLD, before);
}

}  // namespace
