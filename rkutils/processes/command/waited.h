// Programs that the caller waits for.
#ifndef RKUTILS_PROCESSES_COMMAND_WAITED_H
#define RKUTILS_PROCESSES_COMMAND_WAITED_H

#include <rkutils/processes/command/program.h>

namespace rkutils::processes {

// Runs the program in a child whose descriptors from `first_closed` up are closed, and waits for
// its end. Its exit status; or -1, after messages, when a signal ended it or waiting for it failed.
// When there can be no child, this process becomes the program. The thread must not be cancelled
// meanwhile: that would happen in the child, which has this process's memory at first.
int run_and_wait(const Program& program, int first_closed) noexcept;

}  // namespace rkutils::processes

#endif
