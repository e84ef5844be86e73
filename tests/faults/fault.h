// Faults: the calls that fail in a scenario, by name.
#ifndef TESTS_FAULTS_FAULT_H
#define TESTS_FAULTS_FAULT_H

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "support/failing_calls.h"

namespace faults {

// A kind of system call that can fail.
struct Kind {
  std::string_view name;
  support::SystemCall call;
};

// The kinds that are watched: a scenario that makes such a call has cases for it. In the order of
// their names.
using support::SystemCall;
inline constexpr std::array kKinds = {
    Kind{"access", SystemCall::kAccess},
    Kind{"bind", SystemCall::kBind},
    Kind{"chmod", SystemCall::kChangeModeByName},
    Kind{"close", SystemCall::kClose},
    Kind{"close_range", SystemCall::kCloseRange},
    Kind{"connect", SystemCall::kConnect},
    Kind{"copy_file_range", SystemCall::kCopyRange},
    Kind{"epoll_ctl", SystemCall::kWatch},
    Kind{"fchmod", SystemCall::kChangeModeByDescriptor},
    Kind{"fcntl", SystemCall::kControlDescriptor},
    Kind{"flock", SystemCall::kLockFile},
    Kind{"fork", SystemCall::kFork},
    Kind{"fsync", SystemCall::kSynchronise},
    Kind{"ftruncate", SystemCall::kTruncate},
    Kind{"getdents", SystemCall::kList},
    Kind{"getsockname", SystemCall::kGetSocketName},
    Kind{"ioctl", SystemCall::kControl},
    Kind{"mkdir", SystemCall::kMakeFolder},
    Kind{"mknod", SystemCall::kMakeNode},
    Kind{"mmap", SystemCall::kMapFile},
    Kind{"nanosleep", SystemCall::kSleep},
    Kind{"open", SystemCall::kOpen},
    Kind{"pipe", SystemCall::kPipe},
    Kind{"poll", SystemCall::kPoll},
    Kind{"pread", SystemCall::kReadAt},
    Kind{"pwrite", SystemCall::kWriteAt},
    Kind{"read", SystemCall::kRead},
    Kind{"readlink", SystemCall::kReadLink},
    Kind{"reboot", SystemCall::kReboot},
    Kind{"recv", SystemCall::kReceive},
    Kind{"recvmsg", SystemCall::kReceiveMessage},
    Kind{"rename", SystemCall::kRename},
    Kind{"semctl", SystemCall::kControlSemaphores},
    Kind{"semget", SystemCall::kGetSemaphores},
    Kind{"semop", SystemCall::kOperateSemaphores},
    Kind{"send", SystemCall::kSend},
    Kind{"sendfile", SystemCall::kSendfile},
    Kind{"sendmsg", SystemCall::kSendMessage},
    Kind{"setsockopt", SystemCall::kSetSocketOption},
    Kind{"shmat", SystemCall::kAttachSharedMemory},
    Kind{"shmget", SystemCall::kGetSharedMemory},
    Kind{"socket", SystemCall::kSocket},
    Kind{"stat", SystemCall::kStatus},
    Kind{"statfs", SystemCall::kFileSystemUsage},
    Kind{"symlink", SystemCall::kMakeLink},
    Kind{"unlink", SystemCall::kRemove},
    Kind{"waitpid", SystemCall::kWait},
    Kind{"write", SystemCall::kWrite},
};

// What the table calls allocating memory, and nothing that fails.
inline constexpr std::string_view kMemory = "memory";
inline constexpr std::string_view kNone = "none";

// The place of a kind in kKinds. Throws std::out_of_range for a name that is none.
std::size_t kind_named(std::string_view name);

// One call, or all of its kind, that fail with an errno.
struct CallFault {
  std::size_t kind;
  unsigned nth;  // counted from 1; 0 stands for all
  int error;
};

}  // namespace faults

#endif
