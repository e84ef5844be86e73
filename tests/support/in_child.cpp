#include "support/in_child.h"

#include <rkutils/internal/unique_fd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support {
namespace {

using rkutils::internal::UniqueFd;

[[noreturn]] void send_result(int pipe, const std::function<std::string()>& action) {
  // What the action throws must not reach the tests of the copied process.
  try {
    const std::string result = action();
    if (::write(pipe, result.data(), result.size()) == static_cast<ssize_t>(result.size())) {
      ::_exit(0);
    }
  } catch (...) {
  }
  ::_exit(1);
}

std::string receive_result(int pipe) {
  std::string result;
  std::array<char, 4096> buffer;
  for (;;) {
    const ssize_t length = ::read(pipe, buffer.data(), buffer.size());
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) throw std::system_error(errno, std::generic_category(), "read");
    if (length == 0) return result;
    result.append(buffer.data(), static_cast<std::size_t>(length));
  }
}

int wait_for(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) != child) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return status;
}

}  // namespace

std::string in_child(const std::function<std::string()>& action) {
  ChildEnd end = end_of_child(action);
  if (end.status != 0) throw std::runtime_error("the child failed");
  return std::move(end.result);
}

ChildEnd end_of_child(const std::function<std::string()>& action) {
  std::array<int, 2> ends = {-1, -1};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  const pid_t child = ::fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) send_result(writer.get(), action);
  writer.reset();

  std::string result = receive_result(reader.get());
  return {wait_for(child), std::move(result)};
}

}  // namespace support
