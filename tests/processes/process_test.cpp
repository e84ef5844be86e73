// Single processes.

#include <rkutils/process_control.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "process_fixture.h"
#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/for_nobody.h"
#include "support/in_child.h"
#include "support/open_descriptors.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using support::FailingCall;
using support::in_child;
using support::run_with_failing_calls;
using support::SystemCall;

using namespace std::string_literals;

constexpr int kInvented = InventedProcesses::kFirst;

// ---- pid_alive() ----

using PidAlive = ProcessTest;

TEST_F(PidAlive, Is1ForProcessesThatRun) {
  EXPECT_EQ(pid_alive(::getpid()), 1);
  EXPECT_EQ(pid_alive(1), 1);
}

TEST_F(PidAlive, Is0OnceAProcessIsForgotten) {
  Sleeper sleeper({"sleep"});
  const int id = sleeper.id();
  EXPECT_EQ(pid_alive(id), 1);
  sleeper.end();
  EXPECT_EQ(pid_alive(id), 1) << "it has not been waited for";
  sleeper.remove();
  EXPECT_EQ(pid_alive(id), 0);
}

TEST_F(PidAlive, Is1ForThreads) {
  int result = -1;
  std::thread([&] { result = pid_alive(static_cast<int>(::syscall(SYS_gettid))); }).join();
  EXPECT_EQ(result, 1);
}

TEST_F(PidAlive, Is0ForIdsThatNobodyHas) {
  for (const int id : {0, -1, INT_MAX, INT_MIN}) EXPECT_EQ(pid_alive(id), 0) << id;
}

TEST_F(PidAlive, GoesByTheRealUsersRights) {
  const InventedProcesses processes;
  processes.add(kInvented, "");
  const std::string folder = processes.folder().at(std::to_string(kInvented));
  ASSERT_EQ(::chmod(folder.c_str(), 0711), 0);
  EXPECT_EQ(pid_alive(kInvented), 1);
  support::run_for_nobody([] { EXPECT_EQ(pid_alive(kInvented), 0); });
  ASSERT_EQ(::chmod(folder.c_str(), 0744), 0);
  support::run_for_nobody([] { EXPECT_EQ(pid_alive(kInvented), 1); });
}

// ---- get_parent_pid() ----

using GetParentPid = ProcessTest;

TEST_F(GetParentPid, IsTheParentsId) {
  EXPECT_EQ(get_parent_pid(::getpid()), ::getppid());
  const Sleeper sleeper({"sleep"});
  EXPECT_EQ(get_parent_pid(sleeper.id()), ::getpid());
  sleeper.end();
  EXPECT_EQ(get_parent_pid(sleeper.id()), ::getpid());
}

TEST_F(GetParentPid, Is0ForProcess1) { EXPECT_EQ(get_parent_pid(1), 0); }

TEST_F(GetParentPid, IsMinus1WithoutAProcess) {
  Sleeper sleeper({"sleep"});
  const int id = sleeper.id();
  sleeper.remove();
  EXPECT_EQ(get_parent_pid(id), -1);
  for (const int none : {0, -1, INT_MAX, INT_MIN}) EXPECT_EQ(get_parent_pid(none), -1) << none;
}

TEST_F(GetParentPid, IsMinus1WithoutADescriptorOrAnythingToRead) {
  const int self = ::getpid();
  {
    const support::NoMoreDescriptors limit;
    EXPECT_EQ(get_parent_pid(self), -1);
  }
  run_with_failing_calls({{SystemCall::kRead, EIO}}, [self] {  //
    EXPECT_EQ(get_parent_pid(self), -1);
  });
  run_with_failing_calls({{SystemCall::kRead, 0}}, [self] {  //
    EXPECT_EQ(get_parent_pid(self), -1);
  });
}

TEST_F(GetParentPid, GoesOnAfterASignal) {
  const int self = ::getpid();
  run_with_failing_calls({FailingCall{SystemCall::kRead, EINTR, 0, 2}},
                         [self] { EXPECT_EQ(get_parent_pid(self), ::getppid()); });
}

TEST_F(GetParentPid, ReadsALineOfAsMuchAs254Characters) {
  const InventedProcesses processes;
  const std::string file = std::to_string(kInvented) + "/stat";
  const std::string words = "1 2 3 ";
  // The fourth word ends where the line is cut.
  processes.folder().put(file, std::string(254 - words.size() - 2, ' ') + words + "4567\n");
  EXPECT_EQ(get_parent_pid(kInvented), 45);
  processes.folder().put(file, std::string(254 - words.size(), ' ') + words + "4567\n");
  EXPECT_EQ(get_parent_pid(kInvented), -1);
  processes.folder().put(file, "1 2 3\n4\n");
  EXPECT_EQ(get_parent_pid(kInvented), -1);
  processes.folder().put(file, "1 2 3 4\0 5"s);
  EXPECT_EQ(get_parent_pid(kInvented), 4);
}

struct NamedParent {
  std::string name;
  std::string process;
  int parent;  // kReal for what it is
};
constexpr int kReal = -100;

class GetParentPidOf : public testing::TestWithParam<NamedParent> {};

// What comes out for names with blanks is what programs know.
TEST_P(GetParentPidOf, AProcessWithAName) {
  const std::string found = in_child([] {
    be_named(GetParam().process);
    return std::to_string(get_parent_pid(::getpid()));
  });
  const int expected = GetParam().parent == kReal ? ::getpid() : GetParam().parent;
  EXPECT_EQ(found, std::to_string(expected));
}

const std::vector<NamedParent> kNames = {
    {"Plain", "name", kReal},
    {"Empty", "", kReal},
    {"Parentheses", "((a)", kReal},
    {"AsIfItEndedThere", "a)", kReal},
    {"ABlank", "a b", 0},
    {"AsIfItWereTheWholeLine", "x) S 77 1", 77},
    {"ANumberAtTheEnd", "a b 34", 34},
    {"ANewline", "a\nb", -1},
    {"ANewlineBehindBlanks", "a b \nc", 0},
};
INSTANTIATE_TEST_SUITE_P(Names, GetParentPidOf, testing::ValuesIn(kNames), support::CaseName());

// ---- procname() ----

using ProcName = ProcessTest;

TEST_F(ProcName, IsTheFirstArgument) {
  const Sleeper sleeper({"sleep for ever", "10"});
  EXPECT_STREQ(procname(sleeper.id()), "sleep for ever");
  EXPECT_EQ(procname(::getpid()),
            command_line_of(::getpid())->substr(0, command_line_of(::getpid())->find('\0')));
}

TEST_F(ProcName, LeavesOutTheNameOfAShell) {
  for (const auto& [name, expected] : std::vector<std::pair<std::string, std::string>>{
           {"sh", ""},
           {"shutdown", "utdown"},
           {"sh -c", " -c"},
           {"s", "s"},
           {"ssh", "ssh"},
           {"Sh", "Sh"},
           {"-sh", "-sh"},
           {" sh", " sh"},
           {"/bin/sh", "/bin/sh"},
           {"", ""},
       }) {
    const Sleeper sleeper({name, "more"});
    EXPECT_EQ(procname(sleeper.id()), expected) << name;
  }
}

TEST_F(ProcName, HasTheOtherArgumentsBehindItAndThenZeros) {
  const Sleeper sleeper({"sh", "-c", "true"});
  const std::string expected = "\0-c\0true\0"s + std::string(256 - 2 - 9, '\0');
  EXPECT_EQ(std::string(procname(sleeper.id()), 254), expected);
}

TEST_F(ProcName, HasUpTo255Bytes) {
  const Sleeper longest({std::string(255, 'x')});
  EXPECT_EQ(procname(longest.id()), std::string(255, 'x'));
  const Sleeper longer({std::string(300, 'y')});
  EXPECT_EQ(procname(longer.id()), std::string(255, 'y'));
}

TEST_F(ProcName, LeavesNothingOfTheOneBefore) {
  const Sleeper first({"a-long-name", "and", "arguments"});
  const Sleeper second({"b"});
  const char* const before = procname(first.id());
  const char* const name = procname(second.id());
  EXPECT_EQ(name, before) << "in the same buffer";
  EXPECT_EQ(std::string(name, 256), "b" + std::string(255, '\0'));
}

TEST_F(ProcName, IsEmptyWithoutAProcessAndKeepsTheOneBefore) {
  const Sleeper sleeper({"sleep"});
  const char* const name = procname(sleeper.id());
  for (const int none : {0, -1, INT_MAX, INT_MIN}) EXPECT_STREQ(procname(none), "") << none;
  {
    const support::NoMoreDescriptors limit;
    EXPECT_STREQ(procname(sleeper.id()), "");
  }
  EXPECT_STREQ(name, "sleep");
}

TEST_F(ProcName, IsEmptyForAProcessThatHasEnded) {
  const Sleeper sleeper({"sleep"});
  EXPECT_STREQ(procname(sleeper.id()), "sleep");
  sleeper.end();
  EXPECT_STREQ(procname(sleeper.id()), "");
}

TEST_F(ProcName, IsEmptyWhenItCannotBeRead) {
  const Sleeper sleeper({"sleep"});
  ASSERT_STREQ(procname(sleeper.id()), "sleep");
  run_with_failing_calls({{SystemCall::kRead, ESRCH}}, [&] {  //
    EXPECT_STREQ(procname(sleeper.id()), "");
  });
}

// ---- On threads ----

using ProcessFunctions = ProcessTest;

TEST_F(ProcessFunctions, AreFinishedByCancelledThreads) {
  const Sleeper sleeper({"sleep"});
  int parent = 0;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { parent = get_parent_pid(sleeper.id()); }));
  EXPECT_EQ(parent, ::getpid());
  const char* name = nullptr;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { name = procname(sleeper.id()); }));
  EXPECT_STREQ(name, "sleep");
  int alive = 0;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { alive = pid_alive(sleeper.id()); }));
  EXPECT_EQ(alive, 1);
  int found = -1;
  EXPECT_TRUE(support::finishes_though_cancelled([&] {
    char caller[16];
    found = get_caller(caller, sizeof caller);
  }));
  EXPECT_EQ(found, 0);
}

TEST_F(ProcessFunctions, OpenNothingForOtherPrograms) {
  std::vector<int> flags;
  flags.reserve(64);
  FailingCall read = {SystemCall::kRead, 0};
  read.decide = [&](const support::CallArguments& arguments) {
    flags.push_back(::fcntl(static_cast<int>(arguments[0]), F_GETFD));
    return std::optional<std::int64_t>();
  };
  FailingCall list = {SystemCall::kList, 0};
  list.decide = read.decide;
  ProcessControl processes;
  run_with_failing_calls({read, list}, [&] {
    char caller[16];
    EXPECT_EQ(get_caller(caller, sizeof caller), 0);
    EXPECT_EQ(get_parent_pid(::getpid()), ::getppid());
    EXPECT_STRNE(procname(::getpid()), "");
    processes.refresh(false);
  });
  EXPECT_THAT(flags, testing::AllOf(testing::SizeIs(testing::Ge(6U)), testing::Each(FD_CLOEXEC)));
}

TEST_F(ProcessFunctions, NeedNoLargeStack) {
  support::run_on_small_stack([] {
    EXPECT_NE(*procname(::getpid()), '\0');
    EXPECT_EQ(get_parent_pid(::getpid()), ::getppid());
    char caller[16];
    EXPECT_EQ(get_caller(caller, sizeof caller), 0);
    ProcessControl processes;
    processes.refresh(false);
    EXPECT_GT(processes.getNumberOfProcesses(), 0);
  });
}

}  // namespace
