// Programs and shell commands started.

#include <rkutils/command.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/processes/command/detached.h>
#include <rkutils/processes/command/program.h>
#include <rkutils/processes/command/waited.h>

#include <cstdarg>
#include <cstddef>

#include <syslog.h>
#include <unistd.h>

namespace {

using rkutils::internal::PostponedCancellation;
using rkutils::processes::Program;

constexpr const char* kShell = "/bin/sh";

enum Mode { kKeepStandard = 0, kDetached = 1, kKeepStandardAsWell = 2 };

// Behind the first argument, which has a slot as the NULL has that ends them.
constexpr std::size_t kMostFollowing = 15;
constexpr std::size_t kSlots = 1 + kMostFollowing + 1;

// Takes the arguments up to a NULL, which is taken too. False when there are too many.
bool take_arguments(std::va_list following, const char** slots) {
  for (std::size_t i = 0; i < kMostFollowing; ++i) {
    slots[i] = va_arg(following, const char*);
    if (slots[i] == nullptr) return true;
  }
  return va_arg(following, const char*) == nullptr;
}

int first_closed(int mode) {
  return mode == kKeepStandard || mode == kKeepStandardAsWell ? STDERR_FILENO + 1 : 0;
}

}  // namespace

int _exec_command(int mode, const char* path, const char* arg0, ...) {
  const PostponedCancellation postponed;
  const char* arguments[kSlots] = {arg0};
  if (arg0 != nullptr) {
    std::va_list following;
    va_start(following, arg0);
    const bool fit = take_arguments(following, arguments + 1);
    va_end(following);
    if (!fit) {
      ::syslog(LOG_ERR, "Too many arguments");
      return -1;
    }
  }
  if (path == nullptr || *path == '\0') return -1;

  const Program program = {path, const_cast<char* const*>(arguments)};
  if (mode == kDetached) return rkutils::processes::start_detached(program);
  return rkutils::processes::run_and_wait(program, first_closed(mode));
}

int run_command(const char* command, int background) {
  return _exec_command(background == 0 ? kKeepStandard : kDetached, kShell, kShell, "-c", command,
                       static_cast<const char*>(nullptr));
}
