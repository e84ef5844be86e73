#include <rkutils/processes/command/wait.h>

#include <cerrno>
#include <cstring>

#include <sys/wait.h>
#include <syslog.h>

namespace rkutils::processes {

std::optional<int> wait_for(pid_t child) noexcept {
  int status = 0;
  do {
    errno = 0;
    if (::waitpid(child, &status, 0) == child) return status;
  } while (errno == EINTR);
  const int error = errno;
  ::syslog(LOG_ERR, "Waiting for child process failed: %s (%d)", std::strerror(error), error);
  return std::nullopt;
}

}  // namespace rkutils::processes
