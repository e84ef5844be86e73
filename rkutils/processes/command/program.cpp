#include <rkutils/processes/command/descriptors.h>
#include <rkutils/processes/command/program.h>

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace rkutils::processes {

void prepare_process(int first_closed) noexcept {
  constexpr mode_t kUmask = 022;
  static_cast<void>(!::chdir("/"));  // a program that cannot have it starts where it is
  ::umask(kUmask);
  close_descriptors(first_closed);
}

void become(const Program& program) noexcept {
  ::execv(program.path, program.arguments);
  ::_exit(errno);
}

}  // namespace rkutils::processes
