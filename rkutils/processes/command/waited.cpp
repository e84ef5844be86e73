#include <rkutils/processes/command/wait.h>
#include <rkutils/processes/command/waited.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>

#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace rkutils::processes {
namespace {

// Keeps this thread from running anything but the code that stands here: no signal handler begins.
class Seclusion {
 public:
  [[nodiscard]] Seclusion() noexcept {
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &mask_);
  }
  ~Seclusion() { ::pthread_sigmask(SIG_SETMASK, &mask_, nullptr); }
  Seclusion(const Seclusion&) = delete;
  Seclusion& operator=(const Seclusion&) = delete;

  // The signals that were blocked before.
  [[nodiscard]] const sigset_t& mask() const noexcept { return mask_; }

 private:
  sigset_t mask_ = {};
};

// What becoming a program does to them anyway.
void drop_signal_handlers() noexcept {
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action;
    if (::sigaction(signal, nullptr, &action) != 0) continue;  // the C library's own
    if (action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = SIG_DFL;
    ::sigaction(signal, &action, nullptr);
  }
}

// Begins the program in a child that works in this process's memory until it is the program, while
// this thread stands still: copying a large process for that would take several times as long. The
// child has descriptors, folder, umask and signal actions of its own; it must not change anything
// in memory but what is below here on the stack, and errno. The child's id, or -1.
[[gnu::noinline]] pid_t begin(const Program& program, int first_closed) noexcept {
  const Seclusion secluded;
  // NOLINTBEGIN(clang-analyzer-security.insecureAPI.vfork, clang-analyzer-unix.Vfork): posix_spawn()
  // cannot do what the child does here.
  const pid_t child = ::vfork();
  if (child != 0) return child;
  // A handler would run in the parent's memory.
  drop_signal_handlers();
  ::pthread_sigmask(SIG_SETMASK, &secluded.mask(), nullptr);
  prepare_process(first_closed);
  become(program);
  // NOLINTEND(clang-analyzer-security.insecureAPI.vfork, clang-analyzer-unix.Vfork)
}

int result_of(int status) noexcept {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  ::syslog(LOG_ERR, "child didn't exit. error: %s", std::strerror(errno));
  if (WIFSIGNALED(status)) {
    ::syslog(LOG_DEBUG, "child terminated by signal: %i ", WTERMSIG(status));
  }
  return -1;
}

}  // namespace

int run_and_wait(const Program& program, int first_closed) noexcept {
  const pid_t child = begin(program, first_closed);
  if (child < 0) {
    ::syslog(LOG_ERR, "fork failed");
    // Kept for compatibility: the program runs in any case.
    prepare_process(first_closed);
    become(program);
  }
  const std::optional<int> status = wait_for(child);
  return status ? result_of(*status) : -1;
}

}  // namespace rkutils::processes
