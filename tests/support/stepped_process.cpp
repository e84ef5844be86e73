#include "support/stepped_process.h"

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {
namespace {

// The C libraries differ in the type of the request, and of the options.
constexpr auto kEndWithUs = PTRACE_O_EXITKILL;
constexpr auto kShowChildren =
    PTRACE_O_EXITKILL | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE;

void check(bool done, const char* step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

// Also for a process that another one has made, once it is traced.
int wait_for(pid_t process) {
  int status = 0;
  while (::waitpid(process, &status, __WALL) < 0) check(errno == EINTR, "waitpid");
  return status;
}

void set_options(pid_t process, long options) {
  check(::ptrace(PTRACE_SETOPTIONS, process, nullptr, options) == 0, "ptrace options");
}

int exit_status(int status) {
  constexpr int kSignalled = 128;
  return WIFSIGNALED(status) ? kSignalled + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

SteppedProcess::SteppedProcess(const std::function<int()>& life) {
  process_ = ::fork();
  check(process_ >= 0, "fork");
  if (process_ == 0) {
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::raise(SIGSTOP);
    ::_exit(life());
  }
  check(WIFSTOPPED(wait_for(process_)), "stop");
  set_options(process_, kEndWithUs);
}

SteppedProcess::~SteppedProcess() { kill(); }

bool SteppedProcess::go_on(int request, int count) {
  for (int i = 0; i < count; ++i) {
    const bool goes_on = request == PTRACE_SINGLESTEP
                             ? ::ptrace(PTRACE_SINGLESTEP, process_, nullptr, nullptr) == 0
                             : ::ptrace(PTRACE_SYSCALL, process_, nullptr, nullptr) == 0;
    check(goes_on, "ptrace");
    const int status = wait_for(process_);
    if (WIFSTOPPED(status)) continue;
    process_ = -1;
    status_ = exit_status(status);
    return false;
  }
  return true;
}

bool SteppedProcess::go_on(int stops) { return go_on(PTRACE_SYSCALL, stops); }

bool SteppedProcess::go_on_by_instructions(int count) { return go_on(PTRACE_SINGLESTEP, count); }

bool SteppedProcess::has_instructions() {
  SteppedProcess process([] { return 0; });
  try {
    return process.go_on_by_instructions(1);
  } catch (const std::system_error&) {
    return false;
  }
}

pid_t SteppedProcess::follow_its_child() {
  set_options(process_, kShowChildren);
  int status = 0;
  do {
    check(::ptrace(PTRACE_CONT, process_, nullptr, nullptr) == 0, "ptrace");
    status = wait_for(process_);
    if (!WIFSTOPPED(status)) {
      process_ = -1;
      throw std::runtime_error("the process has ended and made none");
    }
    // Behind the signal stands which event it is, if it is one.
  } while (status >> 16 == 0);
  unsigned long child = 0;
  check(::ptrace(PTRACE_GETEVENTMSG, process_, nullptr, &child) == 0, "ptrace");
  const pid_t parent = process_;
  process_ = static_cast<pid_t>(child);
  check(WIFSTOPPED(wait_for(process_)), "stop");
  set_options(process_, kEndWithUs);
  check(::ptrace(PTRACE_DETACH, parent, nullptr, nullptr) == 0, "ptrace");
  return parent;
}

void SteppedProcess::kill() noexcept {
  if (process_ < 0) return;
  ::kill(process_, SIGKILL);
  while (::waitpid(process_, nullptr, __WALL) < 0 && errno == EINTR) {
  }
  process_ = -1;
}

int status_at_end(pid_t process) { return exit_status(wait_for(process)); }

}  // namespace support
