// Who has started this program.

#include <rkutils/process_control.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include "process_fixture.h"
#include "support/failing_calls.h"
#include "support/in_child.h"
#include "support/open_descriptors.h"

namespace {

using support::run_with_failing_calls;
using support::SystemCall;

using Names = std::vector<std::string>;

constexpr std::size_t kBufferSize = 32;

// The result and the text that it comes with, behind which all must be zeros.
std::string caller() {
  char buffer[kBufferSize + 1];
  std::fill(std::begin(buffer), std::end(buffer), '#');
  const int result = get_caller(buffer, kBufferSize);
  if (buffer[kBufferSize] != '#') return "written beyond its size";
  const std::string text = buffer;
  for (std::size_t i = text.size(); i < kBufferSize; ++i) {
    if (buffer[i] != '\0') return "not cleared";
  }
  return std::to_string(result) + " " + text;
}

std::string caller_below(const Names& names) { return called_below(names, caller); }

// What a chain's processes tell of themselves goes before it.
std::string id() { return std::to_string(::getpid()); }

using GetCaller = ProcessTest;

TEST_F(GetCaller, IsTheParent) {
  EXPECT_EQ(caller_below({"daemon"}), "0 daemon");
  EXPECT_EQ(caller_below({"daemon", "worker"}), "0 worker");
}

TEST_F(GetCaller, IsNoShell) {
  EXPECT_EQ(caller_below({"daemon", "sh"}), "0 daemon");
  EXPECT_EQ(caller_below({"daemon", "sh", "sh"}), "0 daemon");
}

TEST_F(GetCaller, IsUnknownAboveThreeShells) {
  EXPECT_EQ(caller_below({"daemon", "sh", "sh", "sh"}), "-1 ");
  EXPECT_EQ(caller_below({"daemon", "sh", "sh", "sh", "sh"}), "-1 ");
}

TEST_F(GetCaller, IsTheNearestThatIsNoShell) {
  EXPECT_EQ(caller_below({"daemon", "sh", "worker", "sh"}), "0 worker");
  EXPECT_EQ(caller_below({"daemon", "sh", "sh", "sh", "worker", "sh", "sh"}), "0 worker");
}

TEST_F(GetCaller, MayBeAnotherShell) {
  for (const char* const name : {"bash", "ash", "-sh", "sh2", "s", "SH", "shutdown", "s h"}) {
    EXPECT_EQ(caller_below({"daemon", name}), std::string("0 ") + name);
  }
}

TEST_F(GetCaller, HasANameWithoutWhiteSpaceAtItsEnds) {
  EXPECT_EQ(caller_below({" \t two words\r\n "}), "0 two words");
  EXPECT_EQ(caller_below({"two\nlines"}), "0 two\nlines");
  EXPECT_EQ(caller_below({"daemon", "\tsh\t"}), "0 daemon");
}

TEST_F(GetCaller, HasAName) {
  EXPECT_EQ(caller_below({"daemon", ""}), "0 daemon");
  EXPECT_EQ(caller_below({"daemon", "  \t"}).substr(0, 5), "0 pid")
      << "blanks in it hide its parent";
  EXPECT_EQ(caller_below({"daemon", "\t"}), "0 daemon");
  EXPECT_EQ(caller_below({"daemon", "", "sh", ""}), "-1 ");
}

TEST_F(GetCaller, IsTheIdOfAShellWhoseParentIsHidden) {
  // The blank makes a "shell" of which no parent can be found out.
  const std::string found = called_below({"daemon"}, [] {
    be_named(" sh");
    return id() + "|" + support::in_child(caller);
  });
  EXPECT_EQ(found.substr(found.find('|')), "|0 pid" + found.substr(0, found.find('|')));
}

TEST_F(GetCaller, IsTheIdOfTheThirdShellToo) {
  const std::string found = called_below({"daemon"}, [] {
    be_named(" sh");
    return id() + "|" + caller_below({"sh", "sh"});
  });
  EXPECT_EQ(found.substr(found.find('|')), "|0 pid" + found.substr(0, found.find('|')));
}

// ---- Below process 1 ----

// Calls `action` in a process that process 1 has adopted, and returns what it returned.
std::string called_in_orphan(const std::function<std::string()>& action) {
  std::array<int, 2> ends = {};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  const pid_t parent = ::fork();
  if (parent == 0) {
    const pid_t self = ::getpid();
    if (::fork() != 0) ::_exit(0);
    while (::getppid() == self) ::sched_yield();
    const std::string result = action();
    const ssize_t written = ::write(ends[1], result.data(), result.size());
    ::_exit(written < 0 ? 1 : 0);
  }
  ::close(ends[1]);
  ::waitpid(parent, nullptr, 0);
  std::array<char, 256> buffer = {};
  const ssize_t length = ::read(ends[0], buffer.data(), buffer.size());
  ::close(ends[0]);
  return {buffer.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

TEST_F(GetCaller, MayBeProcess1) {
  EXPECT_EQ(called_in_orphan([] { return std::to_string(::getppid()); }), "1");
  EXPECT_EQ(called_in_orphan(caller), "0 private-router");
}

TEST_F(GetCaller, IsTheIdOfAShellThatProcess1HasAdopted) {
  const std::string found = called_in_orphan([] {
    be_named("sh");
    return id() + "|" + support::in_child(caller);
  });
  EXPECT_EQ(found.substr(found.find('|')), "|0 pid" + found.substr(0, found.find('|')));
}

TEST_F(GetCaller, IsTheIdOfAThirdShellThatProcess1HasAdopted) {
  const std::string found = called_in_orphan([] {
    be_named("sh");
    return id() + "|" + caller_below({"sh", "sh"});
  });
  EXPECT_EQ(found.substr(found.find('|')), "|0 pid" + found.substr(0, found.find('|')));
}

TEST_F(GetCaller, IsTheIdOfProcess1IfThatIsAShell) {
  const InventedProcesses processes;
  processes.folder().put("1/comm", "sh\n");
  EXPECT_EQ(called_in_orphan(caller), "0 pid1");
  EXPECT_EQ(called_in_orphan([] {
              be_named("sh");
              return caller_below({"daemon"});
            }),
            "0 daemon");
}

TEST_F(GetCaller, IsUnknownOutsideOfTheNamespace) {
  const std::string found = support::in_child([] {
    if (::unshare(CLONE_NEWPID) != 0) return std::string("no namespace");
    return support::in_child([] { return std::to_string(::getppid()) + "|" + caller(); });
  });
  EXPECT_EQ(found, "0|-1 ");
}

// ---- Below parents that are not the kernel's ----

class GetCallerBelow : public GetCaller {
 protected:
  // Asks below a shell with this parent, and puts S for the shell's id.
  [[nodiscard]] std::string shell_with_parent(const std::string& parent) const {
    return support::in_child([&] {
      processes_.folder().put(id() + "/comm", "sh\n");
      processes_.folder().put(id() + "/stat", id() + " (sh) S " + parent + " 1 1\n");
      const std::string found = support::in_child(caller);
      return found == "0 pid" + id() ? "0 pidS" : found;
    });
  }

  const InventedProcesses processes_;
};

TEST_F(GetCallerBelow, AParentThatIsGoneByThen) {
  EXPECT_EQ(shell_with_parent(std::to_string(InventedProcesses::kFirst)), "-1 ");
}

TEST_F(GetCallerBelow, AParentWithTheLowestId) {
  processes_.folder().put("1/comm", "first\n");
  processes_.folder().put("2/comm", "second\n");
  EXPECT_EQ(shell_with_parent("2"), "0 second");
  for (const char* const none : {"1", "0", "-1", "-2147483648", ""}) {
    EXPECT_EQ(shell_with_parent(none), "0 pidS") << none;
  }
}

// ---- Buffers ----

TEST_F(GetCaller, NeedsABufferOfTwoBytes) {
  char buffer[] = "##";
  EXPECT_EQ(get_caller(nullptr, sizeof buffer), -1);
  EXPECT_EQ(get_caller(buffer, 0), -1);
  EXPECT_EQ(get_caller(buffer, 1), -1);
  EXPECT_STREQ(buffer, "##") << "nothing is written";
  EXPECT_EQ(get_caller(buffer, 2), 0);
  EXPECT_EQ(std::string(buffer).size(), 1U);
}

TEST_F(GetCaller, IsCutToFit) {
  const auto cut_to = [](const std::string& name, std::size_t size) {
    return called_below({name}, [size] {
      std::array<char, kBufferSize> buffer;
      buffer.fill('#');
      const int result = get_caller(buffer.data(), size);
      return std::to_string(result) + " " + buffer.data() + buffer[size];
    });
  };
  EXPECT_EQ(cut_to("daemon", 7), "0 daemon#");
  EXPECT_EQ(cut_to("daemon", 6), "0 daemo#");
  EXPECT_EQ(cut_to("daemon", 2), "0 d#");
  EXPECT_EQ(cut_to(" sh", 3), "0 pi#");
  EXPECT_EQ(cut_to("fifteen-letters", 16), "0 fifteen-letters#");
}

TEST_F(GetCaller, TakesALongerNameThanProcessesHave) {
  const InventedProcesses processes;
  const std::string name(64, 'x');
  processes.folder().put(std::to_string(::getpid()) + "/comm", name + "\n");
  EXPECT_EQ(support::in_child([] {
              std::array<char, 100> buffer;
              return std::to_string(get_caller(buffer.data(), buffer.size())) + buffer.data();
            }),
            "0" + name);
}

// ---- Failures ----

TEST_F(GetCaller, IsUnknownWithoutADescriptor) {
  EXPECT_EQ(support::in_child([] {
              const support::NoMoreDescriptors limit;
              return caller();
            }),
            "-1 ");
}

TEST_F(GetCaller, IsItsIdWhenNothingOfItCanBeRead) {
  const std::string parent = std::to_string(::getppid());
  run_with_failing_calls({{SystemCall::kRead, ESRCH}}, [&] {  //
    EXPECT_EQ(caller(), "0 pid" + parent);
  });
}

TEST_F(GetCaller, GoesOnAfterASignal) {
  const std::string expected = caller();
  run_with_failing_calls({{SystemCall::kRead, EINTR, 0, 2}}, [&] {  //
    EXPECT_EQ(caller(), expected);
  });
}

}  // namespace
