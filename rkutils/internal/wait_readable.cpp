#include <rkutils/internal/wait_readable.h>

#include <cerrno>

#include <poll.h>

namespace rkutils::internal {
namespace {

bool wait_for(short events, int descriptor, const Deadline& deadline) noexcept {
  pollfd entry = {};
  entry.fd = descriptor;
  entry.events = events;

  int ready = 0;
  do {
    ready = ::poll(&entry, 1, deadline.remaining_ms());
  } while (ready < 0 && errno == EINTR);

  if (ready == 0) {
    errno = ETIMEDOUT;
    return false;
  }
  if (ready > 0 && (entry.revents & POLLNVAL) != 0) {
    errno = EBADF;
    return false;
  }
  return ready > 0;
}

}  // namespace

bool wait_readable(int descriptor, int timeout_ms) noexcept {
  return wait_readable(descriptor, Deadline(timeout_ms));
}

bool wait_readable(int descriptor, const Deadline& deadline) noexcept {
  return wait_for(POLLIN, descriptor, deadline);
}

bool wait_writable(int descriptor, const Deadline& deadline) noexcept {
  return wait_for(POLLOUT, descriptor, deadline);
}

}  // namespace rkutils::internal
