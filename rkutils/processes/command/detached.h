// Programs that run on their own.
#ifndef RKUTILS_PROCESSES_COMMAND_DETACHED_H
#define RKUTILS_PROCESSES_COMMAND_DETACHED_H

#include <rkutils/processes/command/program.h>

namespace rkutils::processes {

// Begins the program as a process that is no child of this one, in a session of its own, with all
// descriptors closed and /dev/null for the standard ones. Its process id; or -1, after messages,
// when the memory for telling it cannot be had (nothing is begun then), or when no second process
// can be: the program has then run to its end. When there can be no child at all, this process
// becomes the one in between.
int start_detached(const Program& program) noexcept;

}  // namespace rkutils::processes

#endif
