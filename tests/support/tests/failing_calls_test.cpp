#include "support/failing_calls.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <optional>
#include <thread>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/reboot.h>
#include <sys/sem.h>
#include <sys/sendfile.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using support::run_with_failing_calls;
using support::SystemCall;

// A file of its own, open under two descriptors.
class FailingCalls : public testing::Test {
 protected:
  FailingCalls()
      : first_(::open(kPath, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)),
        second_(::open(kPath, O_RDWR | O_CLOEXEC)) {
    EXPECT_EQ(::pwrite(first_, "text", 4, 0), 4);
  }
  ~FailingCalls() override {
    ::close(first_);
    ::close(second_);
    ::unlink(kPath);
  }

  [[nodiscard]] mode_t mode() const {
    struct stat status = {};
    ::fstat(first_, &status);
    return status.st_mode & 07777U;
  }

  // Whether `call`, which gives -1 when it fails, does so with this errno.
  template <typename Call>
  static bool fails(SystemCall kind, Call call) {
    constexpr int kError = EXDEV;  // one that none of them gives by itself here
    bool failed = false;
    run_with_failing_calls({{kind, kError}}, [&] {
      errno = 0;
      failed = call() == -1 && errno == kError;
    });
    return failed;
  }

  // What mmap() gives, as a number.
  static std::intptr_t map(std::size_t size, int flags, int file) {
    return reinterpret_cast<std::intptr_t>(::mmap(nullptr, size, PROT_READ, flags, file, 0));
  }

  static constexpr const char* kPath = "/tmp/failing-calls-test";
  int first_;
  int second_;
};

TEST_F(FailingCalls, FailUnderAllTheirNames) {
  EXPECT_TRUE(fails(SystemCall::kChangeModeByName, [] { return ::chmod(kPath, 0644); }));
  EXPECT_TRUE(
      fails(SystemCall::kChangeModeByName, [] { return ::fchmodat(AT_FDCWD, kPath, 0644, 0); }));
  EXPECT_TRUE(fails(SystemCall::kChangeModeByName,
                    [] { return ::fchmodat(AT_FDCWD, kPath, 0644, AT_SYMLINK_NOFOLLOW); }));
  EXPECT_TRUE(fails(SystemCall::kChangeModeByDescriptor, [&] { return ::fchmod(first_, 0644); }));
  EXPECT_EQ(mode(), 0600U);
  EXPECT_TRUE(fails(SystemCall::kClose, [&] { return ::close(first_); }));
  int unread = 0;
  EXPECT_TRUE(fails(SystemCall::kControl, [&] { return ::ioctl(first_, FIONREAD, &unread); }));
  EXPECT_TRUE(fails(SystemCall::kCopyRange,
                    [&] { return ::copy_file_range(first_, nullptr, second_, nullptr, 4, 0); }));
  EXPECT_TRUE(
      fails(SystemCall::kSendfile, [&] { return ::sendfile(second_, first_, nullptr, 4); }));
  EXPECT_TRUE(fails(SystemCall::kCloseRange, [] {
    constexpr unsigned kNumber = 436;
    return ::syscall(kNumber, 1000000U, 1000000U, 0U);
  }));
  EXPECT_TRUE(fails(SystemCall::kFork, [] {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(0);
    return child;
  }));
  EXPECT_TRUE(fails(SystemCall::kGetSharedMemory, [] { return ::shmget(IPC_PRIVATE, 4, 0); }));
  EXPECT_TRUE(fails(SystemCall::kGetSemaphores, [] { return ::semget(IPC_PRIVATE, 1, 0); }));
  sembuf operation = {0, 1, IPC_NOWAIT};
  EXPECT_TRUE(fails(SystemCall::kOperateSemaphores, [&] { return ::semop(-1, &operation, 1); }));
  const timespec timeout = {};
  EXPECT_TRUE(fails(SystemCall::kOperateSemaphores,
                    [&] { return ::semtimedop(-1, &operation, 1, &timeout); }));
  EXPECT_TRUE(fails(SystemCall::kTruncate, [&] { return ::ftruncate(first_, 0); }));
  EXPECT_TRUE(fails(SystemCall::kMapFile, [&] { return map(4, MAP_SHARED, first_); }));
  EXPECT_TRUE(fails(SystemCall::kAttachSharedMemory,
                    [] { return reinterpret_cast<std::intptr_t>(::shmat(-1, nullptr, 0)); }));
  EXPECT_TRUE(fails(SystemCall::kPoll, [] { return ::poll(nullptr, 0, 0); }));
  EXPECT_TRUE(fails(SystemCall::kBind, [] { return ::bind(-1, nullptr, 0); }));
  EXPECT_TRUE(fails(SystemCall::kControl, [&] {
    int count = 0;
    return ::ioctl(first_, FIONREAD, &count);
  }));
  EXPECT_TRUE(fails(SystemCall::kSocket, [] { return ::socket(AF_UNIX, SOCK_DGRAM, 0); }));
  char byte = 0;
  EXPECT_TRUE(fails(SystemCall::kRead, [&] { return ::read(first_, &byte, 1); }));
  EXPECT_TRUE(fails(SystemCall::kReceive, [&] { return ::recv(-1, &byte, 1, 0); }));
  EXPECT_TRUE(
      fails(SystemCall::kReceive, [&] { return ::recvfrom(-1, &byte, 1, 0, nullptr, nullptr); }));
  EXPECT_TRUE(fails(SystemCall::kSend, [&] { return ::send(-1, &byte, 1, 0); }));
  EXPECT_TRUE(fails(SystemCall::kSend, [&] { return ::sendto(-1, &byte, 1, 0, nullptr, 0); }));
  EXPECT_TRUE(fails(SystemCall::kAccess, [] { return ::access(kPath, R_OK); }));
  EXPECT_TRUE(
      fails(SystemCall::kAccess, [] { return ::faccessat(AT_FDCWD, kPath, R_OK, AT_EACCESS); }));
  EXPECT_TRUE(fails(SystemCall::kConnect, [] { return ::connect(-1, nullptr, 0); }));
  EXPECT_TRUE(fails(SystemCall::kControlDescriptor, [&] { return ::fcntl(first_, F_GETFD); }));
  EXPECT_TRUE(fails(SystemCall::kMakeFolder, [] { return ::mkdir(kPath, 0755); }));
  EXPECT_TRUE(fails(SystemCall::kMakeFolder, [] { return ::mkdirat(AT_FDCWD, kPath, 0755); }));
  EXPECT_TRUE(fails(SystemCall::kMakeLink, [] { return ::symlink("x", kPath); }));
  EXPECT_TRUE(fails(SystemCall::kMakeLink, [] { return ::symlinkat("x", AT_FDCWD, kPath); }));
  EXPECT_TRUE(fails(SystemCall::kMakeNode, [] { return ::mkfifo(kPath, 0644); }));
  EXPECT_TRUE(fails(SystemCall::kMakeNode, [] { return ::mkfifoat(AT_FDCWD, kPath, 0644); }));
  iovec piece = {&byte, 1};
  EXPECT_TRUE(fails(SystemCall::kRead, [&] { return ::readv(first_, &piece, 1); }));
  EXPECT_TRUE(fails(SystemCall::kWrite, [&] { return ::write(first_, &byte, 1); }));
  EXPECT_TRUE(fails(SystemCall::kWrite, [&] { return ::writev(first_, &piece, 1); }));
  EXPECT_TRUE(fails(SystemCall::kReadAt, [&] { return ::pread(first_, &byte, 1, 0); }));
  EXPECT_TRUE(fails(SystemCall::kWriteAt, [&] { return ::pwrite(first_, &byte, 1, 0); }));
  EXPECT_TRUE(fails(SystemCall::kPipe, [] {
    int ends[2];
    return ::pipe(ends);
  }));
  EXPECT_TRUE(fails(SystemCall::kPipe, [] {
    int ends[2];
    return ::pipe2(ends, O_CLOEXEC);
  }));
  EXPECT_TRUE(fails(SystemCall::kWait, [] { return ::waitpid(-1, nullptr, WNOHANG); }));
  EXPECT_TRUE(fails(SystemCall::kWait, [] { return ::waitid(P_ALL, 0, nullptr, WEXITED); }));
  EXPECT_TRUE(fails(SystemCall::kReboot, [] { return ::reboot(0); }));  // which is no request
  EXPECT_TRUE(fails(SystemCall::kReadLink, [&] { return ::readlink(kPath, &byte, 1); }));
  EXPECT_TRUE(
      fails(SystemCall::kReadLink, [&] { return ::readlinkat(AT_FDCWD, kPath, &byte, 1); }));
  EXPECT_TRUE(fails(SystemCall::kRemove, [] { return ::unlink(kPath); }));
  EXPECT_TRUE(fails(SystemCall::kRemove, [] { return ::unlinkat(AT_FDCWD, kPath, 0); }));
  EXPECT_TRUE(fails(SystemCall::kRemove, [] { return ::rmdir(kPath); }));
  EXPECT_TRUE(fails(SystemCall::kSleep, [] {
    const timespec moment = {0, 1};
    return ::nanosleep(&moment, nullptr);
  }));
  EXPECT_TRUE(fails(SystemCall::kSleep, [] {
    const timespec moment = {0, 1};
    errno = ::clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
    return errno == 0 ? 0 : -1;
  }));
  struct stat status = {};
  EXPECT_TRUE(fails(SystemCall::kStatus, [&] { return ::stat(kPath, &status); }));
  EXPECT_TRUE(fails(SystemCall::kStatus, [&] { return ::lstat(kPath, &status); }));
  EXPECT_TRUE(fails(SystemCall::kStatus, [&] { return ::fstat(first_, &status); }));
  EXPECT_TRUE(fails(SystemCall::kStatus, [&] { return ::fstatat(AT_FDCWD, kPath, &status, 0); }));
  EXPECT_TRUE(
      fails(SystemCall::kWatch, [] { return ::epoll_ctl(-1, EPOLL_CTL_ADD, -1, nullptr); }));
  EXPECT_TRUE(fails(SystemCall::kList, [] {
    DIR* const stream = ::opendir("/");
    const int result = ::readdir(stream) == nullptr ? -1 : 0;
    const int error = errno;
    ::closedir(stream);
    errno = error;
    return result;
  }));
}

TEST_F(FailingCalls, FailUnderTheNamesOfSockets) {
  EXPECT_TRUE(fails(SystemCall::kSocket, [] { return ::socket(AF_UNIX, SOCK_DGRAM, 0); }));
  EXPECT_TRUE(fails(SystemCall::kBind, [] { return ::bind(-1, nullptr, 0); }));
  EXPECT_TRUE(
      fails(SystemCall::kGetSocketName, [] { return ::getsockname(-1, nullptr, nullptr); }));
  EXPECT_TRUE(fails(SystemCall::kSetSocketOption, [] {
    const int size = 1;
    return ::setsockopt(-1, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  }));
  msghdr message = {};
  EXPECT_TRUE(fails(SystemCall::kSendMessage, [&] { return ::sendmsg(-1, &message, 0); }));
  EXPECT_TRUE(fails(SystemCall::kReceiveMessage, [&] { return ::recvmsg(-1, &message, 0); }));
}

TEST_F(FailingCalls, GiveZeroWithoutDoingAnythingForError0) {
  int result = -1;
  run_with_failing_calls({{SystemCall::kChangeModeByDescriptor, 0}},
                         [&] { result = ::fchmod(first_, 0644); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(mode(), 0600U);
}

TEST_F(FailingCalls, LeaveMemoryWithoutAFileAlone) {
  EXPECT_FALSE(fails(SystemCall::kMapFile, [] {
    const std::intptr_t address = map(4096, MAP_PRIVATE | MAP_ANONYMOUS, -1);
    if (address != -1) ::munmap(reinterpret_cast<void*>(address), 4096);
    return address;
  }));
}

TEST_F(FailingCalls, FailEachWithItsOwnError) {
  int errors[2] = {};
  run_with_failing_calls(
      {{SystemCall::kChangeModeByDescriptor, EXDEV}, {SystemCall::kRead, EILSEQ}}, [&] {
        if (::fchmod(first_, 0644) == -1) errors[0] = errno;
        char byte = 0;
        if (::read(first_, &byte, 1) == -1) errors[1] = errno;
      });
  EXPECT_EQ(errors[0], EXDEV);
  EXPECT_EQ(errors[1], EILSEQ);
}

// Four calls, of which the two after the first fail.
TEST_F(FailingCalls, FailOnlySoManyAfterSoManyWereDone) {
  std::vector<mode_t> modes;
  std::vector<int> errors;
  mode_t meanwhile = 0;
  const auto caller = std::this_thread::get_id();
  bool on_caller = false;
  const auto look = [&] {
    meanwhile = mode();
    on_caller = std::this_thread::get_id() == caller;
    EXPECT_EQ(::chmod(kPath, 0640), 0);  // it fails on the other thread only
  };
  run_with_failing_calls(
      {{SystemCall::kRead, EILSEQ}, {SystemCall::kChangeModeByDescriptor, EXDEV, 1, 2, look}}, [&] {
        for (const mode_t wanted : {0611U, 0622U, 0633U, 0644U}) {
          errno = 0;
          ::fchmod(first_, wanted);
          errors.push_back(errno);
          modes.push_back(mode());
        }
      });
  EXPECT_THAT(errors, testing::ElementsAre(0, EXDEV, EXDEV, 0));
  EXPECT_THAT(modes, testing::ElementsAre(0611, 0640, 0640, 0644));
  EXPECT_EQ(meanwhile, 0611U);
  EXPECT_TRUE(on_caller);
}

// By the first argument.
TEST_F(FailingCalls, EndAsIsDecidedAboutEach) {
  std::vector<support::CallArguments> calls;
  const auto caller = std::this_thread::get_id();
  bool on_caller = true;
  const auto decide = [&](const support::CallArguments& arguments) -> std::optional<std::int64_t> {
    calls.push_back(arguments);
    on_caller = on_caller && std::this_thread::get_id() == caller;
    if (arguments[0] == static_cast<unsigned>(first_)) return -EXDEV;
    if (arguments[0] == 12345) return 6;
    return {};
  };
  std::vector<int> results;
  int error = 0;
  run_with_failing_calls(
      {{SystemCall::kChangeModeByDescriptor, 0, 0, 0, {}, decide}, {SystemCall::kRead, EILSEQ}},
      [&] {
        results.push_back(::fchmod(12345, 0600));
        results.push_back(::fchmod(first_, 0611));
        error = errno;
        results.push_back(::fchmod(second_, 0622));
      });
  EXPECT_THAT(results, testing::ElementsAre(6, -1, 0));
  EXPECT_EQ(error, EXDEV);
  EXPECT_EQ(mode(), 0622U);
  EXPECT_TRUE(on_caller);
  ASSERT_EQ(calls.size(), 3U);
  EXPECT_EQ(calls[1][1], 0611U);
}

TEST_F(FailingCalls, LeaveOtherCallsAndThreadsAlone) {
  int result = -1;
  run_with_failing_calls({{SystemCall::kChangeModeByName, EPERM}},
                         [&] { result = ::fchmod(first_, 0644); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(mode(), 0644U);
  EXPECT_EQ(::chmod(kPath, 0640), 0);
  EXPECT_EQ(mode(), 0640U);
}

// A process that the action makes, and the action itself afterwards.
TEST_F(FailingCalls, OfChildrenFailOrNot) {
  for (const bool of_children : {true, false}) {
    std::atomic<unsigned> calls = 0;
    support::FailingCall failing = {SystemCall::kChangeModeByName, 0};
    failing.of_children = of_children;
    failing.decide = [&calls](const support::CallArguments& /*arguments*/) {
      ++calls;
      return std::optional<std::int64_t>(-EXDEV);
    };
    int childs = 0;
    int own = 0;
    run_with_failing_calls({failing}, [&] {
      const pid_t child = ::fork();
      if (child == 0) ::_exit(::chmod(kPath, 0600) == 0 ? 1 : 2);
      int status = 0;
      ::waitpid(child, &status, 0);
      childs = WEXITSTATUS(status);
      own = ::chmod(kPath, 0600);
    });
    EXPECT_EQ(childs, of_children ? 2 : 1);
    EXPECT_EQ(own, -1);
    EXPECT_EQ(calls, of_children ? 2U : 1U);
  }
}

}  // namespace
