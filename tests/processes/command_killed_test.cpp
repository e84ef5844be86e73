// Detached starts of which one of the processes is killed, wherever it is: nobody hangs, and what is
// left is at most the segment of shared memory, which the next start takes away.

#include <rkutils/command.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "command_fixture.h"
#include "support/stepped_process.h"
#include "support/stopped_clock.h"

namespace {

using support::SteppedProcess;
using support::StoppedClock;
using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::StartsWith;

// Who has to wait longer than that hangs, and is ended by SIGALRM.
constexpr unsigned kPatienceS = 30;

// The exit statuses of the process that calls.
constexpr int kStarted = 0;
constexpr int kRefused = 1;

class DetachedKilled : public CommandTest {
 protected:
  // Those whose parents have ended become children of this process, which sees what becomes of them.
  DetachedKilled() { ::prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0); }
  ~DetachedKilled() override { ::prctl(PR_SET_CHILD_SUBREAPER, 0, 0, 0, 0); }

  static int start() {
    return _exec_command(1, probe_path().c_str(), "probe", static_cast<char*>(nullptr));
  }

  // The life of a process that starts the probe.
  static int call() {
    ::alarm(kPatienceS);
    return start() > 0 ? kStarted : kRefused;
  }

  // Waits for all processes that there are.
  static std::vector<int> statuses_of_all() {
    ::alarm(kPatienceS);
    std::vector<int> statuses;
    int status = 0;
    while (::waitpid(-1, &status, 0) > 0) statuses.push_back(status);
    EXPECT_EQ(errno, ECHILD);
    ::alarm(0);
    return statuses;
  }

  static std::vector<std::string> files() {
    std::vector<std::string> names;
    for (const char* const folder : {"/tmp", "/dev/shm"}) {
      for (const auto& file : std::filesystem::directory_iterator(folder)) {
        names.push_back(file.path());
      }
    }
    return names;
  }

  // The probe has found what it always finds, if it was started.
  static void expect_probe_in_order() {
    if (!has_probed()) return;
    EXPECT_THAT(probe().descriptors,
                ElementsAre(Pair(0, "/dev/null"), Pair(1, "/dev/null"), Pair(2, "/dev/null")));
  }

  // All processes have ended. The next start works, whatever is left, and leaves nothing. Tells
  // whether a segment was left.
  bool expect_next_start() {
    expect_probe_in_order();
    expect_probe();
    const std::vector<std::string> before = files();
    const bool left = !shared_segments().empty();
    EXPECT_THAT(shared_segments(), SizeIs(left ? 1 : 0));
    int process = -1;
    {
      const StoppedClock clock;
      process = start();
    }
    EXPECT_GT(process, 0);
    EXPECT_EQ(probe().number("pid"), process);
    EXPECT_THAT(statuses_of_all(), ElementsAre(kProbeStatus << 8));
    const std::vector<support::LogLine> lines = log_.take();
    EXPECT_THAT(lines, SizeIs(left ? 10 : 0));
    for (const support::LogLine& line : lines) {
      EXPECT_THAT(line.text, StartsWith("Shared memory temporary not available"));
    }
    EXPECT_THAT(shared_segments(), IsEmpty());
    expect_probe_in_order();
    expect_probe();
    EXPECT_THAT(files(), testing::IsSubsetOf(before));
    return left;
  }
};

TEST_F(DetachedKilled, TheCaller) {
  int left = 0;
  bool killed = true;
  for (int stop = 0; killed; ++stop) {
    SCOPED_TRACE("stop " + std::to_string(stop));
    SteppedProcess caller(call);
    killed = caller.go_on(stop);
    caller.kill();
    EXPECT_THAT(statuses_of_all(), Each(AnyOf(0, kProbeStatus << 8)));
    if (expect_next_start()) ++left;
  }
  EXPECT_GT(left, 0);
}

// The caller learns that the program was not started, or that its id is not known.
TEST_F(DetachedKilled, TheProcessInBetween) {
  int started = 0;
  int refused = 0;
  int orphans = 0;
  bool killed = true;
  for (int stop = 0; killed; ++stop) {
    SCOPED_TRACE("stop " + std::to_string(stop));
    SteppedProcess between(call);
    const pid_t caller = between.follow_its_child();
    killed = between.go_on(stop);
    between.kill();
    const int status = support::status_at_end(caller);
    EXPECT_THAT(status, AnyOf(kStarted, kRefused));
    ++(status == kStarted ? started : refused);
    statuses_of_all();
    if (status == kStarted) {
      EXPECT_TRUE(has_probed());
    } else if (has_probed()) {
      ++orphans;
    }
    EXPECT_FALSE(expect_next_start()) << "the caller has removed it";
  }
  EXPECT_GT(started, 0);
  EXPECT_GT(refused, 0);
  EXPECT_GT(orphans, 0) << "the program runs, but the caller does not know its id";
}

TEST_F(DetachedKilled, TheProcessOfTheProgram) {
  const auto executable_of = [](pid_t process) {
    return "/proc/" + std::to_string(process) + "/exe";
  };
  const std::filesystem::path own = std::filesystem::read_symlink("/proc/self/exe");
  bool killed = true;
  for (int stop = 0; killed; ++stop) {
    SCOPED_TRACE("stop " + std::to_string(stop));
    SteppedProcess program(call);
    const pid_t caller = program.follow_its_child();
    program.follow_its_child();
    killed = program.go_on(stop);
    // What becomes of the program itself is its own affair.
    killed = killed && std::filesystem::read_symlink(executable_of(program.id())) == own;
    program.kill();
    EXPECT_EQ(support::status_at_end(caller), kStarted);
    EXPECT_THAT(statuses_of_all(), Each(SIGKILL));
    EXPECT_FALSE(has_probed());
    EXPECT_FALSE(expect_next_start());
  }
}

// One that is killed while others wait for their turn holds them up for no longer than it lives.
TEST_F(DetachedKilled, TheCallerWhileAnotherOneWaits) {
  bool killed = true;
  for (int stop = 0; killed; ++stop) {
    SCOPED_TRACE("stop " + std::to_string(stop));
    SteppedProcess caller(call);
    killed = caller.go_on(stop);
    const pid_t waiting = ::fork();
    if (waiting == 0) {
      ::alarm(kPatienceS);
      ::_exit(start() > 0 ? 0 : 1);
    }
    ::usleep(1000);
    caller.kill();
    EXPECT_EQ(support::status_at_end(waiting), 0);
    statuses_of_all();
    for (const support::LogLine& line : log_.take()) {
      EXPECT_THAT(line.text, StartsWith("Shared memory temporary not available"));
    }
    expect_probe();
    EXPECT_FALSE(expect_next_start());
  }
}

}  // namespace
