#include <rkutils/command.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <gmock/gmock.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "command_fixture.h"
#include "support/case_name.h"
#include "support/in_child.h"
#include "support/put_file.h"
#include "support/stopwatch.h"
#include "support/without_override.h"

namespace {

using testing::ElementsAre;

struct Ending {
  const char* name;
  void (*call)(int, int);
  const char* marker;
  const char* message;
  const char* script;
  int signal;  // what ends a namespace whose first process asks the kernel for it
};

constexpr int kRefused = 99;

std::string description(int status) {
  return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                             : "status " + std::to_string(WEXITSTATUS(status));
}

// How a namespace of processes ends in which `action` is called: by a signal if it asks the kernel
// to reboot or to power off, otherwise with the status 0.
std::string end_of_namespace(const std::function<void()>& action) {
  return support::in_child([&] {
    if (::unshare(CLONE_NEWPID) != 0) return description(-1);
    return description(status_apart([&] {
      if (::getpid() != 1) ::_exit(kRefused);  // that would end more
      action();
      ::_exit(0);
    }));
  });
}

// Gives up the right to ask the kernel for either.
bool give_up_rebooting() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
  if (::syscall(SYS_capget, &header, sets) != 0) return false;
  sets[CAP_TO_INDEX(CAP_SYS_BOOT)].effective &= ~CAP_TO_MASK(CAP_SYS_BOOT);
  return ::syscall(SYS_capset, &header, sets) == 0;
}

class Power : public CommandTest, public testing::WithParamInterface<Ending> {
 protected:
  Power() { clear(); }
  ~Power() override { clear(); }

  // A script that leaves its arguments, and who it is, in a file.
  void put_script(mode_t mode = 0755) const {
    support::put(ending_.script,
                 "#!/bin/sh\necho \"$#: $*\" > /tmp/arguments.new\nexec 1>&-\n"
                 "mv /tmp/arguments.new /tmp/arguments\n");
    ::chmod(ending_.script, mode);
  }

  static std::string arguments() {
    for (int waits = 0; !scripted() && waits < 10000; ++waits) ::usleep(1000);
    std::string line;
    std::getline(std::ifstream("/tmp/arguments"), line);
    std::filesystem::remove("/tmp/arguments");
    return line;
  }
  static bool scripted() { return std::filesystem::exists("/tmp/arguments"); }

  const Ending ending_ = GetParam();

 private:
  void clear() const {
    for (const char* path : {ending_.marker, ending_.script, "/tmp/arguments"}) {
      std::filesystem::remove(path);
    }
  }
};

TEST_P(Power, AMarkerSkipsItWithAMessage) {
  support::put(ending_.marker, "");
  put_script();
  EXPECT_EQ(end_of_namespace([&] { ending_.call(1, 2); }), "status 0");
  EXPECT_THAT(log_.take(), ElementsAre(err(ending_.message)));
  std::filesystem::remove(ending_.script);
  EXPECT_EQ(end_of_namespace([&] { ending_.call(1, 2); }), "status 0");
  EXPECT_THAT(log_.take(), ElementsAre(err(ending_.message)));
  EXPECT_FALSE(scripted());
}

TEST_P(Power, TheScriptIsStartedWithBothNumbers) {
  put_script();
  ending_.call(1, 2);
  EXPECT_EQ(arguments(), "2: 1 2");
  ending_.call(INT_MIN, INT_MAX);
  EXPECT_EQ(arguments(), "2: -2147483648 2147483647");
}

TEST_P(Power, TheScriptHasAHeadStartAndIsNotWaitedFor) {
  support::put(ending_.script, "#!/bin/sh\nexec sleep 100\n");
  ::chmod(ending_.script, 0755);
  const support::Stopwatch stopwatch;
  ending_.call(0, 0);
  EXPECT_GE(stopwatch.elapsed().count(), 100);
  EXPECT_LT(stopwatch.elapsed().count(), 10000);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_P(Power, IsFinishedByACancelledThread) {
  put_script();
  const support::Stopwatch stopwatch;
  EXPECT_TRUE(finishes_though_cancelled([&] { ending_.call(5, 6); }));
  EXPECT_GE(stopwatch.elapsed().count(), 100);
  EXPECT_EQ(arguments(), "2: 5 6");
}

// One process of the namespace is then the script's shell's parent, and the kernel is not asked.
TEST_P(Power, WithTheScriptTheKernelIsNotAsked) {
  put_script();
  EXPECT_EQ(end_of_namespace([&] {
              ending_.call(1, 2);
              arguments();
            }),
            "status 0");
}

TEST_P(Power, WithoutTheScriptTheKernelIsAsked) {
  EXPECT_EQ(end_of_namespace([&] { ending_.call(1, 2); }),
            "signal " + std::to_string(ending_.signal));
}

TEST_P(Power, AScriptThatIsNotExecutableIsNone) {
  put_script(0644);
  EXPECT_EQ(end_of_namespace([&] { ending_.call(1, 2); }),
            "signal " + std::to_string(ending_.signal));
  EXPECT_FALSE(scripted());
}

TEST_P(Power, AMarkerThatCannotBeReadIsNone) {
  support::put(ending_.marker, "");
  ::chmod(ending_.marker, 0);
  put_script();
  support::run_without_override([&] { ending_.call(3, 4); });
  EXPECT_EQ(arguments(), "2: 3 4");
}

TEST_P(Power, WhoMayNotAskTheKernelIsRefusedSilently) {
  EXPECT_EQ(end_of_namespace([&] {
              if (!give_up_rebooting()) ::_exit(kRefused);
              ending_.call(1, 2);
            }),
            "status 0");
}

INSTANTIATE_TEST_SUITE_P(
    Both, Power,
    testing::Values(Ending{"Reboot", system_reboot, "/nvstatus/skip-reboot", "skipping reboot",
                           "/usr/local/sbin/system-reboot", SIGHUP},
                    Ending{"Poweroff", system_poweroff, "/nvstatus/skip-poweroff",
                           "skipping poweroff", "/usr/local/sbin/system-poweroff", SIGINT}),
    support::CaseName());

}  // namespace
