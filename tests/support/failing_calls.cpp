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

#include <linux/filter.h>
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
constexpr unsigned kFchmodat2 = 452;
constexpr unsigned kPpollTime64 = 414;       // which machines of 64 bits do not have
constexpr unsigned kSemtimedopTime64 = 420;  // likewise

// The numbers that a call has. New machines lack some of the old ones; those of 32 bits have more.
std::vector<unsigned> numbers_of(SystemCall call) {
  switch (call) {
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
    case SystemCall::kControl:
      return {SYS_ioctl};
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
          SYS_semop, kSemtimedopTime64};
    case SystemCall::kOpen:
      return {
#ifdef SYS_open
          SYS_open,
#endif
          SYS_openat};
    case SystemCall::kPoll:
      return {
#ifdef SYS_poll
          SYS_poll,
#endif
          SYS_ppoll, kPpollTime64};
    case SystemCall::kRead:
      return {SYS_read};
    case SystemCall::kReceive:
      return {
#ifdef SYS_recv
          SYS_recv,
#endif
          SYS_recvfrom};
    case SystemCall::kReceiveMessage:
      return {SYS_recvmsg};
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
    case SystemCall::kSocket:
      return {SYS_socket};
    case SystemCall::kSynchronise:
      return {SYS_fsync};
    case SystemCall::kTruncate:
      return {
#ifdef SYS_ftruncate64
          SYS_ftruncate64,
#endif
          SYS_ftruncate};
    case SystemCall::kWrite:
      return {SYS_write};
  }
  return {};
}

void check(bool done, const char* step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

// Whether the filter, which cannot count, is to ask about each call.
bool is_asked_about(const FailingCall& failing) {
  return failing.done != 0 || failing.times != FailingCall{}.times || failing.meanwhile ||
         failing.decide;
}

// Lets the call with this number have the verdict, and goes on with the next statement for others.
void add_verdict(std::vector<sock_filter>& program, SystemCall call, unsigned number,
                 unsigned verdict) {
  constexpr std::size_t kMapFlags = 3;  // the argument
  if (call == SystemCall::kMapFile) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 4));
    program.push_back(
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args) + kMapFlags * 8));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, MAP_ANONYMOUS, 1, 0));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, verdict));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  } else {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, verdict));
  }
}

// The filter is for the calling thread alone, and for all of its life. Gives the descriptor that
// its questions come from.
UniqueFd make_fail(const std::vector<FailingCall>& calls) {
  std::vector<sock_filter> program = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const FailingCall& failing : calls) {
    const unsigned verdict = is_asked_about(failing)
                                 ? SECCOMP_RET_USER_NOTIF
                                 : SECCOMP_RET_ERRNO | static_cast<unsigned>(failing.error);
    for (const unsigned number : numbers_of(failing.call)) {
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
  const std::vector<unsigned> numbers;
};

FailingCall& find_call(std::vector<NumberedCall>& calls, int number) {
  return std::find_if(calls.begin(), calls.end(),
                      [number](const NumberedCall& call) {
                        return std::count(call.numbers.begin(), call.numbers.end(),
                                          static_cast<unsigned>(number)) != 0;
                      })
      ->failing;
}

// Decides about a call, and counts it.
void answer(FailingCall& failing, const seccomp_data& call, seccomp_notif_resp& response) {
  if (failing.decide) {
    CallArguments arguments = {};
    std::copy(std::begin(call.args), std::end(call.args), arguments.begin());
    const std::optional<std::int64_t> result = failing.decide(arguments);
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

// Answers the filter's questions until its thread has ended. It allocates nothing: a thread that
// forks may hold the allocator's lock while it waits for the answer.
void answer_all(int questions, std::vector<NumberedCall>& calls) {
  for (;;) {
    pollfd ready = {questions, POLLIN, 0};
    if (::poll(&ready, 1, -1) < 0 && errno == EINTR) continue;
    if ((ready.revents & POLLIN) == 0) return;
    seccomp_notif question = {};
    check(control(questions, SECCOMP_IOCTL_NOTIF_RECV, &question), "question");
    seccomp_notif_resp response = {};
    response.id = question.id;
    answer(find_call(calls, question.data.nr), question.data, response);
    check(control(questions, SECCOMP_IOCTL_NOTIF_SEND, &response), "answer");
  }
}

}  // namespace

void run_with_failing_calls(const std::vector<FailingCall>& calls,
                            const std::function<void()>& action) {
  std::vector<NumberedCall> numbered(calls.begin(), calls.end());
  std::promise<UniqueFd> questions;
  std::atomic<bool> listening = false;
  std::thread thread([&] {
    questions.set_value(make_fail(calls));
    // The action may leave no descriptor, and the sanitizer needs one to look at the promise's class.
    while (!listening) std::this_thread::yield();
    action();
  });
  {
    const UniqueFd asked = questions.get_future().get();
    listening = true;
    answer_all(asked.get(), numbered);
  }
  thread.join();
}

}  // namespace support
