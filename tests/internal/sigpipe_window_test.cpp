#include <rkutils/internal/sigpipe_window.h>

#include <csignal>

#include <gtest/gtest.h>

namespace {

using rkutils::internal::SigpipeWindow;

auto current_disposition() {
  struct sigaction action = {};
  ::sigaction(SIGPIPE, nullptr, &action);
  return action.sa_handler;
}

TEST(SigpipeWindow, IgnoresSigpipeAndThenSetsItsDefault) {
  std::signal(SIGPIPE, SIG_DFL);
  {
    const SigpipeWindow window;
    EXPECT_EQ(current_disposition(), SIG_IGN);
  }
  EXPECT_EQ(current_disposition(), SIG_DFL);
}

TEST(SigpipeWindow, SetsTheDefaultWhereTheProgramIgnoredIt) {
  std::signal(SIGPIPE, SIG_IGN);
  { const SigpipeWindow window; }
  EXPECT_EQ(current_disposition(), SIG_DFL);
}

TEST(SigpipeWindow, LeavesItIgnoredWhenToldTo) {
  std::signal(SIGPIPE, SIG_DFL);
  {
    SigpipeWindow window;
    window.leave_ignored();
  }
  EXPECT_EQ(current_disposition(), SIG_IGN);
  std::signal(SIGPIPE, SIG_DFL);
}

TEST(SigpipeWindow, LeavesItIgnoredAlsoWhenAnotherWindowHasEndedMeanwhile) {
  std::signal(SIGPIPE, SIG_DFL);
  {
    SigpipeWindow window;
    { const SigpipeWindow inner; }
    window.leave_ignored();
    EXPECT_EQ(current_disposition(), SIG_IGN);
  }
  EXPECT_EQ(current_disposition(), SIG_IGN);
  std::signal(SIGPIPE, SIG_DFL);
}

}  // namespace
