// Which descriptors a started program gets, with limits high and low and on kernels old and new.

#include <rkutils/command.h>
#include <rkutils/processes/command/descriptors.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include "command_fixture.h"
#include "support/failing_calls.h"

namespace {

using support::run_with_failing_calls;
using support::SystemCall;
using testing::IsEmpty;

// The limit of open files, put back at the end.
class Limit {
 public:
  Limit() { ::getrlimit(RLIMIT_NOFILE, &before_); }
  ~Limit() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;

  static void set(rlim_t limit) {
    rlimit limits = {};
    ::getrlimit(RLIMIT_NOFILE, &limits);
    limits.rlim_cur = limit;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limits), 0);
  }

  // As high as the kernel lets it be, or as this machine's administrator does. Returns it.
  static int set_highest() {
    rlimit limits = {};
    std::ifstream("/proc/sys/fs/nr_open") >> limits.rlim_cur;
    limits.rlim_max = limits.rlim_cur;
    if (::setrlimit(RLIMIT_NOFILE, &limits) != 0) {
      ::getrlimit(RLIMIT_NOFILE, &limits);
      set(limits.rlim_max);
    }
    return ::getdtablesize();
  }

 private:
  rlimit before_ = {};
};

// Descriptors that programs would inherit.
class Inheritable {
 public:
  explicit Inheritable(std::initializer_list<int> lowest) {
    for (const int each : lowest) {
      descriptors_.push_back(::fcntl(STDERR_FILENO, F_DUPFD, each));
      EXPECT_GE(descriptors_.back(), each);
    }
  }
  // All that the limit lets be open.
  Inheritable() {
    for (int next = 0; (next = ::fcntl(STDERR_FILENO, F_DUPFD, 0)) >= 0;) {
      descriptors_.push_back(next);
    }
  }
  ~Inheritable() {
    for (const int descriptor : descriptors_) ::close(descriptor);
  }
  Inheritable(const Inheritable&) = delete;
  Inheritable& operator=(const Inheritable&) = delete;

 private:
  std::vector<int> descriptors_;
};

// Nothing is at /proc.
class NoProc {
 public:
  NoProc() { EXPECT_EQ(::mount("tmpfs", "/proc", "tmpfs", 0, nullptr), 0); }
  ~NoProc() { ::umount2("/proc", MNT_DETACH); }
  NoProc(const NoProc&) = delete;
  NoProc& operator=(const NoProc&) = delete;
};

class ProgramsDescriptors : public CommandTest {
 protected:
  static void start(int mode) {
    expect_probe();
    EXPECT_EQ(_exec_command(mode, probe_path().c_str(), "probe", static_cast<char*>(nullptr)),
              kProbeStatus);
  }

  // A program gets only those that its mode gives it.
  static void expect_no_others() {
    start(0);
    EXPECT_EQ(numbers(), (std::vector<int>{0, 1, 2}));
    start(3);
    EXPECT_THAT(numbers(), IsEmpty());
  }

  static std::vector<int> numbers() {
    std::vector<int> numbers;
    for (const auto& [descriptor, target] : probe().descriptors) numbers.push_back(descriptor);
    return numbers;
  }

  const Limit limit_;
};

TEST_F(ProgramsDescriptors, AreNoOthersUpToTheHighestLimitThereIs) {
  const int highest = Limit::set_highest();
  ASSERT_GT(highest, 1001);
  const Inheritable descriptors({3, 1000, highest - 1});
  expect_no_others();
}

TEST_F(ProgramsDescriptors, AreNoOthersWithOldKernels) {
  const int highest = Limit::set_highest();
  const Inheritable descriptors({3, 4, 5, 1000, highest - 1});
  run_with_failing_calls({{SystemCall::kCloseRange, ENOSYS}}, [] { expect_no_others(); });
}

// The list of them takes more than one reading, and there is none left for reading it.
TEST_F(ProgramsDescriptors, AreNoOthersWithOldKernelsWhenAllAreOpen) {
  Limit::set(1000);
  run_with_failing_calls({{SystemCall::kCloseRange, ENOSYS}}, [] {
    const Inheritable descriptors;
    start(0);
  });
  EXPECT_EQ(numbers(), (std::vector<int>{0, 1, 2}));
  run_with_failing_calls({{SystemCall::kCloseRange, ENOSYS}}, [] {
    const Inheritable descriptors;
    start(3);
  });
  EXPECT_THAT(numbers(), IsEmpty());
}

// Otherwise closing would take as long as the limit is high.
TEST_F(ProgramsDescriptors, AreListedWithOldKernelsEvenWhenAllAreOpen) {
  Limit::set(1000);
  bool listed = false;
  run_with_failing_calls(
      {{SystemCall::kCloseRange, ENOSYS}, {SystemCall::kList, EIO, 0, 1, [&] { listed = true; }}},
      [] {
        const Inheritable descriptors;
        start(0);
      });
  EXPECT_TRUE(listed);
}

TEST_F(ProgramsDescriptors, AreNoOthersWithOldKernelsAndAListThatCannotBeRead) {
  Limit::set(600);
  const Inheritable descriptors({3, 4, 5, 300, 599});
  run_with_failing_calls({{SystemCall::kCloseRange, ENOSYS}, {SystemCall::kList, EIO, 0, 1}},
                         [] { start(0); });
  EXPECT_EQ(numbers(), (std::vector<int>{0, 1, 2}));
  run_with_failing_calls({{SystemCall::kCloseRange, ENOSYS}, {SystemCall::kList, EIO, 0, 1}},
                         [] { start(3); });
  EXPECT_THAT(numbers(), IsEmpty());
}

TEST_F(ProgramsDescriptors, AreNoOthersWithOldKernelsAndWithoutProc) {
  Limit::set(600);
  const Inheritable descriptors({3, 4, 5, 300, 599});
  for (const int mode : {0, 3}) {
    {
      const NoProc none;
      run_with_failing_calls({{SystemCall::kCloseRange, ENOSYS}}, [mode] { start(mode); });
    }
    EXPECT_EQ(numbers(), mode == 0 ? (std::vector<int>{0, 1, 2}) : std::vector<int>());
  }
}

// What only a program has that lowered its limit.
TEST_F(ProgramsDescriptors, AreTheCallersAboveTheLimit) {
  const Inheritable descriptors({100, 700});
  Limit::set(600);
  start(0);
  EXPECT_EQ(numbers(), (std::vector<int>{0, 1, 2, 700}));
  start(3);
  EXPECT_EQ(numbers(), (std::vector<int>{700}));
  run_with_failing_calls({{SystemCall::kCloseRange, ENOSYS}}, [] { start(0); });
  EXPECT_EQ(numbers(), (std::vector<int>{0, 1, 2, 700}));
}

// No program could be loaded with it.
TEST_F(ProgramsDescriptors, AreTheCallersWithALimitOf3) {
  const int status = status_apart([] {
    if (::dup2(STDERR_FILENO, 3) != 3) return;
    Limit::set(3);
    rkutils::processes::close_descriptors(3);
    if (::fcntl(3, F_GETFD) >= 0) ::_exit(0);
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
