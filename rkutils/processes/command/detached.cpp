#include <rkutils/processes/command/detached.h>
#include <rkutils/processes/command/shared_word.h>
#include <rkutils/processes/command/wait.h>

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

namespace rkutils::processes {
namespace {

// The process's id that stands for none.
constexpr int kNone = -1;

// Gives the process /dev/null for its standard descriptors. The descriptor of opening it stays too.
void silence() noexcept {
  const int null = ::open("/dev/null", O_RDWR);
  if (null < 0) return;
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(null, standard);
}

// What goes on in the process between the caller and the program.
[[noreturn]] void detach(const Program& program, SharedWord& id) noexcept {
#ifndef __GLIBC__
  // musl's syslog() does not see that its socket was closed with the others.
  ::closelog();
#endif
  prepare_process(0);
  silence();
  ::setsid();
  id.keep_from_children();
  const pid_t child = ::fork();
  if (child < 0) ::syslog(LOG_ERR, "second fork failed");
  if (child <= 0) become(program);
  id.set(child);
  ::_exit(0);
}

}  // namespace

int start_detached(const Program& program) noexcept {
  SharedWord id;
  if (!id.create()) return kNone;
  id.set(kNone);
  const pid_t child = ::fork();
  if (child < 0) {
    ::syslog(LOG_ERR, "fork failed");
    id.remove();  // there will be nobody to do it
  }
  if (child <= 0) detach(program, id);
  wait_for(child);
  return id.get();
}

}  // namespace rkutils::processes
