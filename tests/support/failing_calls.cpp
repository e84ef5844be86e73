#include "support/failing_calls.h"

#include <cerrno>
#include <cstddef>
#include <system_error>
#include <thread>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace support {
namespace {

// Kernels of 6.6 and above have it, and C libraries use it before their headers tell its number,
// which is the same on all machines.
constexpr unsigned kFchmodat2 = 452;

// The numbers that a call has. New machines lack some of the old ones; those of 32 bits have more.
std::vector<unsigned> numbers_of(SystemCall call) {
  switch (call) {
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
    case SystemCall::kCopyRange:
      return {SYS_copy_file_range};
    case SystemCall::kList:
      return {
#ifdef SYS_getdents
          SYS_getdents,
#endif
          SYS_getdents64};
    case SystemCall::kRead:
      return {SYS_read};
    case SystemCall::kSendfile:
      return {
#ifdef SYS_sendfile64
          SYS_sendfile64,
#endif
          SYS_sendfile};
  }
  return {};
}

void check(bool done, const char* step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

// The filter is for the calling thread alone, and for all of its life.
void make_fail(const std::vector<FailingCall>& calls) {
  std::vector<sock_filter> program = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (const FailingCall& failing : calls) {
    for (const unsigned number : numbers_of(failing.call)) {
      program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1));
      program.push_back(
          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(failing.error)));
    }
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  const sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
  check(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "no new privileges");
  check(::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &filter) == 0, "seccomp");
}

}  // namespace

void run_with_failing_calls(const std::vector<FailingCall>& calls,
                            const std::function<void()>& action) {
  std::thread thread([&] {
    make_fail(calls);
    action();
  });
  thread.join();
}

}  // namespace support
