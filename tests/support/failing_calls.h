// System calls that fail.
#ifndef TESTS_SUPPORT_FAILING_CALLS_H
#define TESTS_SUPPORT_FAILING_CALLS_H

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <vector>

namespace support {

// System calls by what they do, under whatever names and numbers this machine has for it.
enum class SystemCall {
  kAccess,              // access(2), faccessat(2)
  kAttachSharedMemory,  // shmat(2)
  kBind,
  kChangeModeByName,        // chmod(2), fchmodat(2)
  kChangeModeByDescriptor,  // fchmod(2)
  kClose,
  kCloseRange,  // close_range(2)
  kConnect,
  kControl,            // ioctl(2)
  kControlDescriptor,  // fcntl(2)
  kControlSemaphores,  // semctl(2)
  kCopyRange,          // copy_file_range(2)
  kFileSystemUsage,    // statfs(2)
  kFork,               // all that makes a process or a thread
  kGetSemaphores,      // semget(2)
  kGetSharedMemory,    // shmget(2)
  kGetSocketName,      // getsockname(2)
  kList,               // what is behind readdir(3)
  kLockFile,           // flock(2)
  kMakeFolder,         // mkdir(2), mkdirat(2)
  kMakeLink,           // symlink(2), symlinkat(2)
  kMakeNode,           // mknod(2), mknodat(2), which are behind mkfifo(3)
  kMapFile,            // mmap(2) of a file, not of memory without one
  kOperateSemaphores,  // semop(2), semtimedop(2)
  kOpen,
  kPipe,  // pipe(2), pipe2(2)
  kPoll,
  kRead,      // read(2), readv(2)
  kReadAt,    // pread(2)
  kReadLink,  // readlink(2), readlinkat(2)
  kReboot,
  kReceive,         // recv(2), recvfrom(2)
  kReceiveMessage,  // recvmsg(2)
  kRemove,          // unlink(2), rmdir(2), unlinkat(2)
  kRename,
  kSend,  // send(2), which syslog(3) uses, too; sendto(2)
  kSendfile,
  kSendMessage,      // sendmsg(2)
  kSetSocketOption,  // setsockopt(2)
  kSleep,            // nanosleep(2), clock_nanosleep(2)
  kSocket,
  kStatus,       // stat(2), lstat(2), fstat(2), fstatat(2), statx(2)
  kSynchronise,  // fsync(2)
  kTruncate,     // ftruncate(2)
  kWait,         // what is behind wait(2) and waitpid(2)
  kWatch,        // epoll_ctl(2)
  kWrite,        // write(2), writev(2), which streams use, too
  kWriteAt,      // pwrite(2)
};

// The arguments of a call as the kernel gets them.
using CallArguments = std::array<std::uint64_t, 6>;

// What one of them points to. The caller waits while a test decides about its call, so that its
// memory can be read and written.
template <typename Type>
Type* pointer_to(std::uint64_t argument) {
  return reinterpret_cast<Type*>(static_cast<std::uintptr_t>(argument));
}

struct FailingCall {
  SystemCall call;
  int error;  // what errno is then; 0: the call gives 0
  // Which of them fail: all, or only `times` of them after the first `done`, which are done.
  unsigned done = 0;
  unsigned times = std::numeric_limits<unsigned>::max();
  // What happens meanwhile, on the caller's thread, just before the first of them fails. A thread
  // that forks may hold the allocator's lock: nothing may be allocated then.
  std::function<void()> meanwhile = {};
  // Decides about each of them instead, on the caller's thread: gives the call's result, which is a
  // negated errno value for a failure; or nothing, and the call is done.
  std::function<std::optional<std::int64_t>(const CallArguments&)> decide = {};
  // Whether the calls of processes and threads that the action makes are among them; otherwise
  // those are done.
  bool of_children = true;
};

// Calls `action` on a thread of its own in which the system calls fail, without doing anything, and
// returns when it has ended. Not more than a few calls, each of another kind. Skips the test where
// that is not possible: in Valgrind.
void run_with_failing_calls(const std::vector<FailingCall>& calls,
                            const std::function<void()>& action);

// Calls `action` on a thread of its own, and returns the flags (fcntl(2), F_GETFD) of the
// descriptors that these system calls are made for meanwhile.
std::vector<int> descriptor_flags_at(SystemCall call, const std::function<void()>& action);

}  // namespace support

#endif
