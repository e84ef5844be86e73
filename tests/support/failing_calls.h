// System calls that fail.
#ifndef TESTS_SUPPORT_FAILING_CALLS_H
#define TESTS_SUPPORT_FAILING_CALLS_H

#include <functional>
#include <vector>

namespace support {

// System calls by what they do, under whatever names and numbers this machine has for it.
enum class SystemCall {
  kChangeModeByName,        // chmod(2), fchmodat(2)
  kChangeModeByDescriptor,  // fchmod(2)
  kClose,
  kCopyRange,  // copy_file_range(2)
  kList,       // what is behind readdir(3)
  kRead,
  kSendfile,
};

struct FailingCall {
  SystemCall call;
  int error;  // what errno is then; 0: the call gives 0
};

// Calls `action` on a thread of its own in which the system calls fail, all of their kind and
// without doing anything, and returns when it has ended. Not more than a few calls.
void run_with_failing_calls(const std::vector<FailingCall>& calls,
                            const std::function<void()>& action);

}  // namespace support

#endif
