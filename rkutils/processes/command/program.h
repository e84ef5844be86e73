// What a child does on its way to the program that it is to run. All of it may be called in the
// child of a program with several threads.
#ifndef RKUTILS_PROCESSES_COMMAND_PROGRAM_H
#define RKUTILS_PROCESSES_COMMAND_PROGRAM_H

namespace rkutils::processes {

struct Program {
  const char* path;
  char* const* arguments;  // ends with NULL
};

// Makes this process one as started programs expect it: in the folder "/", with umask 022, and with
// the descriptors from `first_closed` up closed.
void prepare_process(int first_closed) noexcept;

// Makes this process the program. Where that is not possible, it exits with errno as its status.
[[noreturn]] void become(const Program& program) noexcept;

}  // namespace rkutils::processes

#endif
