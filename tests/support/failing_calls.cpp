#include "support/failing_calls.h"

#include <rkutils/internal/unique_fd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <future>
#include <iterator>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/ipc.h>
#include <linux/net.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace support {
namespace {

using rkutils::internal::UniqueFd;

// What newer kernels have, and C libraries use before their headers tell the numbers, which are the
// same on all machines.
constexpr unsigned kClone3 = 435;
constexpr unsigned kCloseRange = 436;
constexpr unsigned kFaccessat2 = 439;
constexpr unsigned kFchmodat2 = 452;
constexpr unsigned kClockNanosleepTime64 = 407;  // which machines of 64 bits do not have
constexpr unsigned kPpollTime64 = 414;           // likewise
constexpr unsigned kSemtimedopTime64 = 420;      // likewise

// A call's number. Where many calls have it, their first argument tells one from another.
struct Number {
  unsigned number;
  std::optional<unsigned> first = {};

  [[nodiscard]] bool is_of(const seccomp_data& call) const {
    return number == static_cast<unsigned>(call.nr) && (!first || *first == call.args[0]);
  }
};

// The numbers that are a call's alone. New machines lack some of the old ones; those of 32 bits have
// more.
std::vector<unsigned> own_numbers_of(SystemCall call) {
  switch (call) {
    case SystemCall::kAccess:
      return {
#ifdef SYS_access
          SYS_access,
#endif
          SYS_faccessat, kFaccessat2};
    case SystemCall::kAttachSharedMemory:
      return {SYS_shmat};
    case SystemCall::kBind:
      return {SYS_bind};
    case SystemCall::kChangeModeByName:
      return {
#ifdef SYS_chmod
          SYS_chmod,
#endif
          SYS_fchmodat, kFchmodat2};
    case SystemCall::kChangeModeByDescriptor:
      return {SYS_fchmod};
    case SystemCall::kClose:
      return {SYS_close};
    case SystemCall::kCloseRange:
      return {kCloseRange};
    case SystemCall::kConnect:
      return {SYS_connect};
    case SystemCall::kControl:
      return {SYS_ioctl};
    case SystemCall::kControlDescriptor:
      return {
#ifdef SYS_fcntl64
          SYS_fcntl64,
#endif
          SYS_fcntl};
    case SystemCall::kControlSemaphores:
      return {SYS_semctl};
    case SystemCall::kCopyRange:
      return {SYS_copy_file_range};
    case SystemCall::kFileSystemUsage:
      return {
#ifdef SYS_statfs64
          SYS_statfs64,
#endif
          SYS_statfs};
    case SystemCall::kFork:
      return {
#ifdef SYS_fork
          SYS_fork, SYS_vfork,
#endif
          SYS_clone, kClone3};
    case SystemCall::kGetSemaphores:
      return {SYS_semget};
    case SystemCall::kGetSharedMemory:
      return {SYS_shmget};
    case SystemCall::kGetSocketName:
      return {SYS_getsockname};
    case SystemCall::kList:
      return {
#ifdef SYS_getdents
          SYS_getdents,
#endif
          SYS_getdents64};
    case SystemCall::kLockFile:
      return {SYS_flock};
    case SystemCall::kMakeFolder:
      return {
#ifdef SYS_mkdir
          SYS_mkdir,
#endif
          SYS_mkdirat};
    case SystemCall::kMakeLink:
      return {
#ifdef SYS_symlink
          SYS_symlink,
#endif
          SYS_symlinkat};
    case SystemCall::kMakeNode:
      return {
#ifdef SYS_mknod
          SYS_mknod,
#endif
          SYS_mknodat};
    case SystemCall::kMapFile:
      return {
#ifdef SYS_mmap2
          SYS_mmap2
#else
          SYS_mmap
#endif
      };
    case SystemCall::kOperateSemaphores:
      return {
#ifdef SYS_semtimedop
          SYS_semtimedop,
#endif
#ifdef SYS_semop
          SYS_semop,
#endif
          kSemtimedopTime64};
    case SystemCall::kOpen:
      return {
#ifdef SYS_open
          SYS_open,
#endif
          SYS_openat};
    case SystemCall::kPipe:
      return {
#ifdef SYS_pipe
          SYS_pipe,
#endif
          SYS_pipe2};
    case SystemCall::kPoll:
      return {
#ifdef SYS_poll
          SYS_poll,
#endif
          SYS_ppoll, kPpollTime64};
    case SystemCall::kRead:
      return {SYS_read, SYS_readv};
    case SystemCall::kReadAt:
      return {SYS_pread64};
    case SystemCall::kReadLink:
      return {
#ifdef SYS_readlink
          SYS_readlink,
#endif
          SYS_readlinkat};
    case SystemCall::kReboot:
      return {SYS_reboot};
    case SystemCall::kReceive:
      return {
#ifdef SYS_recv
          SYS_recv,
#endif
          SYS_recvfrom};
    case SystemCall::kReceiveMessage:
      return {SYS_recvmsg};
    case SystemCall::kRemove:
      return {
#ifdef SYS_unlink
          SYS_unlink, SYS_rmdir,
#endif
          SYS_unlinkat};
    case SystemCall::kRename:
      return {
#ifdef SYS_rename
          SYS_rename,
#endif
#ifdef SYS_renameat
          SYS_renameat,
#endif
          SYS_renameat2};
    case SystemCall::kSend:
      return {
#ifdef SYS_send
          SYS_send,
#endif
          SYS_sendto};
    case SystemCall::kSendfile:
      return {
#ifdef SYS_sendfile64
          SYS_sendfile64,
#endif
          SYS_sendfile};
    case SystemCall::kSendMessage:
      return {SYS_sendmsg};
    case SystemCall::kSetSocketOption:
      return {SYS_setsockopt};
    case SystemCall::kSleep:
      return {
#ifdef SYS_nanosleep
          SYS_nanosleep,
#endif
#ifdef SYS_clock_nanosleep_time32
          SYS_clock_nanosleep_time32,
#else
          SYS_clock_nanosleep,
#endif
          kClockNanosleepTime64};
    case SystemCall::kSocket:
      return {SYS_socket};
    case SystemCall::kStatus:
      return {
#ifdef SYS_stat
          SYS_stat,       SYS_lstat,
#endif
#ifdef SYS_stat64
          SYS_stat64,     SYS_lstat64, SYS_fstat64, SYS_fstatat64,
#endif
#ifdef SYS_newfstatat
          SYS_newfstatat,
#endif
#ifdef SYS_fstat
          SYS_fstat,
#endif
          SYS_statx};
    case SystemCall::kSynchronise:
      return {SYS_fsync};
    case SystemCall::kTruncate:
      return {
#ifdef SYS_ftruncate64
          SYS_ftruncate64,
#endif
          SYS_ftruncate};
    case SystemCall::kWait:
      return {SYS_wait4, SYS_waitid};
    case SystemCall::kWatch:
      return {SYS_epoll_ctl};
    case SystemCall::kWrite:
      return {SYS_write, SYS_writev};
    case SystemCall::kWriteAt:
      return {SYS_pwrite64};
  }
  return {};
}

// The numbers that it shares, on 32-bit x86 alone: the calls of sockets and those of System V.
std::vector<Number> shared_numbers_of([[maybe_unused]] SystemCall call) {
#if defined(SYS_socketcall) && defined(SYS_ipc)
  switch (call) {
    case SystemCall::kAttachSharedMemory:
      return {{SYS_ipc, SHMAT}};
    case SystemCall::kBind:
      return {{SYS_socketcall, SYS_BIND}};
    case SystemCall::kControlSemaphores:
      return {{SYS_ipc, SEMCTL}};
    case SystemCall::kGetSemaphores:
      return {{SYS_ipc, SEMGET}};
    case SystemCall::kGetSharedMemory:
      return {{SYS_ipc, SHMGET}};
    case SystemCall::kGetSocketName:
      return {{SYS_socketcall, SYS_GETSOCKNAME}};
    case SystemCall::kOperateSemaphores:
      return {{SYS_ipc, SEMTIMEDOP}, {SYS_ipc, SEMOP}};
    case SystemCall::kReceive:
      return {{SYS_socketcall, SYS_RECV}, {SYS_socketcall, SYS_RECVFROM}};
    case SystemCall::kReceiveMessage:
      return {{SYS_socketcall, SYS_RECVMSG}};
    case SystemCall::kSend:
      return {{SYS_socketcall, SYS_SEND}, {SYS_socketcall, SYS_SENDTO}};
    case SystemCall::kSendMessage:
      return {{SYS_socketcall, SYS_SENDMSG}};
    case SystemCall::kSetSocketOption:
      return {{SYS_socketcall, SYS_SETSOCKOPT}};
    case SystemCall::kSocket:
      return {{SYS_socketcall, SYS_SOCKET}};
    default:
      break;
  }
#endif
  return {};
}

std::vector<Number> numbers_of(SystemCall call) {
  std::vector<Number> numbers = shared_numbers_of(call);
  for (const unsigned number : own_numbers_of(call)) numbers.push_back({number});
  return numbers;
}

// The arguments of a call, as it has them where its number is its own.
CallArguments arguments_of(const seccomp_data& call) {
  CallArguments arguments = {};
  std::copy(std::begin(call.args), std::end(call.args), arguments.begin());
#if defined(SYS_socketcall) && defined(SYS_ipc)
  if (call.nr == SYS_socketcall) {
    // They are in the caller's memory, as many as the call has.
    constexpr std::array<std::size_t, 18> kCounts = {0, 3, 3, 3, 2, 3, 3, 3, 4,
                                                     4, 6, 6, 2, 5, 5, 3, 3, 4};
    const auto* const words = pointer_to<const unsigned long>(call.args[1]);
    arguments = {};
    std::copy_n(words, kCounts.at(static_cast<std::size_t>(call.args[0])), arguments.begin());
  } else if (call.nr == SYS_ipc) {
    const auto [which, first, second, third, pointer, fifth] = arguments;
    const bool operates = which == SEMOP || which == SEMTIMEDOP || which == SHMAT;
    arguments = operates ? CallArguments{first, pointer, second, fifth}
                         : CallArguments{first, second, third, pointer};
  }
#endif
  return arguments;
}

void check(bool done, const char* step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

// Whether the filter, which cannot count, is to ask about each call.
bool is_asked_about(const FailingCall& failing) {
  return failing.done != 0 || failing.times != FailingCall{}.times || failing.meanwhile ||
         failing.decide || !failing.of_children;
}

constexpr sock_filter kLoadNumber = BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));

// The lower half of an argument.
constexpr sock_filter load_argument(unsigned index) {
  constexpr unsigned kArguments = offsetof(seccomp_data, args);
  return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kArguments + index * 8);
}

// Lets the call with this number have the verdict, and goes on with the next statement for others.
void add_verdict(std::vector<sock_filter>& program, SystemCall call, const Number& number,
                 unsigned verdict) {
  constexpr unsigned kMapFlags = 3;  // the argument
  const sock_filter end = BPF_STMT(BPF_RET | BPF_K, verdict);
  const auto skip_unless_number = [&](std::uint8_t statements) {
    return sock_filter(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number.number, 0, statements));
  };
  if (call == SystemCall::kMapFile) {
    program.insert(program.end(), {skip_unless_number(4), load_argument(kMapFlags),
                                   BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, MAP_ANONYMOUS, 1, 0), end,
                                   BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)});
  } else if (number.first) {
    program.insert(program.end(),
                   {skip_unless_number(4), load_argument(0),
                    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, *number.first, 0, 1), end, kLoadNumber});
  } else {
    program.insert(program.end(), {skip_unless_number(1), end});
  }
}

// The filter is for the calling thread alone, and for all of its life. Gives the descriptor that
// its questions come from.
UniqueFd make_fail(const std::vector<FailingCall>& calls) {
  std::vector<sock_filter> program = {kLoadNumber};
  for (const FailingCall& failing : calls) {
    const unsigned verdict = is_asked_about(failing)
                                 ? SECCOMP_RET_USER_NOTIF
                                 : SECCOMP_RET_ERRNO | static_cast<unsigned>(failing.error);
    for (const Number& number : numbers_of(failing.call)) {
      add_verdict(program, failing.call, number, verdict);
    }
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
  check(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "no new privileges");
  UniqueFd questions(static_cast<int>(
      ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &filter)));
  check(static_cast<bool>(questions), "seccomp");
  return questions;
}

// A call with its numbers, found beforehand: see below.
struct NumberedCall {
  explicit NumberedCall(FailingCall call)
      : failing(std::move(call)), numbers(numbers_of(failing.call)) {}

  FailingCall failing;
  const std::vector<Number> numbers;
};

FailingCall& find_call(std::vector<NumberedCall>& calls, const seccomp_data& data) {
  return std::find_if(calls.begin(), calls.end(),
                      [&data](const NumberedCall& call) {
                        return std::any_of(
                            call.numbers.begin(), call.numbers.end(),
                            [&data](const Number& number) { return number.is_of(data); });
                      })
      ->failing;
}

// Decides about a call, and counts it.
void answer(FailingCall& failing, const seccomp_data& call, seccomp_notif_resp& response) {
  if (failing.decide) {
    const std::optional<std::int64_t> result = failing.decide(arguments_of(call));
    if (!result) response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    response.error = static_cast<std::int32_t>(std::min<std::int64_t>(result.value_or(0), 0));
    response.val = std::max<std::int64_t>(result.value_or(0), 0);
    return;
  }
  if (failing.done == 0 && failing.times > 0) {
    if (failing.meanwhile) std::exchange(failing.meanwhile, nullptr)();
    --failing.times;
    response.error = -failing.error;
    return;
  }
  if (failing.done > 0) --failing.done;
  response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
}

// Not ioctl(): the C libraries differ in the type of the request.
bool control(int questions, unsigned long request, void* argument) {
  return ::syscall(SYS_ioctl, questions, request, argument) == 0;
}

// Answers the filter's questions until its thread has ended, and all that came of that. It
// allocates nothing: a thread that forks may hold the allocator's lock while it waits for the
// answer.
void answer_all(int questions, std::vector<NumberedCall>& calls, pid_t thread) {
  for (;;) {
    pollfd ready = {questions, POLLIN, 0};
    if (::poll(&ready, 1, -1) < 0 && errno == EINTR) continue;
    if ((ready.revents & POLLIN) == 0) return;
    seccomp_notif question = {};
    // A signal may end a call while it waits for its answer; then there is nobody to be answered.
    if (!control(questions, SECCOMP_IOCTL_NOTIF_RECV, &question)) {
      check(errno == ENOENT || errno == EINTR, "question");
      continue;
    }
    seccomp_notif_resp response = {};
    response.id = question.id;
    FailingCall& failing = find_call(calls, question.data);
    if (failing.of_children || static_cast<pid_t>(question.pid) == thread) {
      answer(failing, question.data, response);
    } else {
      response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    }
    check(control(questions, SECCOMP_IOCTL_NOTIF_SEND, &response) || errno == ENOENT, "answer");
  }
}

// The test is skipped where there are no such filters: in Valgrind, which stands in for the kernel.
void skip_without_filters() {
  const unsigned action = SECCOMP_RET_USER_NOTIF;
  if (::syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) == 0) return;
  static constexpr char kReason[] = "system calls cannot be made to fail here";
  [] { GTEST_SKIP() << kReason; }();
  // Ends the test's body.
  throw testing::AssertionException(
      testing::TestPartResult(testing::TestPartResult::kSkip, __FILE__, __LINE__, kReason));
}

}  // namespace

void run_with_failing_calls(const std::vector<FailingCall>& calls,
                            const std::function<void()>& action) {
  skip_without_filters();
  std::vector<NumberedCall> numbered(calls.begin(), calls.end());
  std::promise<UniqueFd> questions;
  std::atomic<bool> listening = false;
  std::atomic<pid_t> thread_id = 0;
  std::thread thread([&] {
    thread_id = static_cast<pid_t>(::syscall(SYS_gettid));
    questions.set_value(make_fail(calls));
    // The action may leave no descriptor, and the sanitizer needs one to look at the promise's
    // class.
    while (!listening) std::this_thread::yield();
    action();
  });
  {
    const UniqueFd asked = questions.get_future().get();
    listening = true;
    answer_all(asked.get(), numbered, thread_id);
  }
  thread.join();
}

std::vector<int> descriptor_flags_at(SystemCall call, const std::function<void()>& action) {
  std::vector<int> flags;
  flags.reserve(64);
  FailingCall look = {call, 0};
  look.decide = [&flags](const CallArguments& arguments) {
    flags.push_back(::fcntl(static_cast<int>(arguments[0]), F_GETFD));
    return std::optional<std::int64_t>();
  };
  run_with_failing_calls({look}, action);
  return flags;
}

}  // namespace support
