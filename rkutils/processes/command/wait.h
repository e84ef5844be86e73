// Waiting for a child.
#ifndef RKUTILS_PROCESSES_COMMAND_WAIT_H
#define RKUTILS_PROCESSES_COMMAND_WAIT_H

#include <optional>

#include <sys/types.h>

namespace rkutils::processes {

// Waits for the child's end, through signals. Its status as waitpid(2) gives it; errno is 0 then.
// Nothing, after a message, when there is no such child, as in a program that ignores SIGCHLD: even
// then the child has ended.
std::optional<int> wait_for(pid_t child) noexcept;

}  // namespace rkutils::processes

#endif
