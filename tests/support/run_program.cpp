#include "support/run_program.h"

#include <rkutils/internal/unique_fd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include <sys/wait.h>
#include <unistd.h>

namespace support {
namespace {

using rkutils::internal::UniqueFd;

constexpr int kSignalled = 128;

}  // namespace

Outcome run_program(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);

  std::array<int, 2> ends = {-1, -1};
  if (::pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(writer.get(), STDOUT_FILENO);
    ::dup2(writer.get(), STDERR_FILENO);
    ::close(reader.get());
    ::close(writer.get());
    ::execvp(arguments[0], arguments.data());
    ::_exit(kSignalled - 1);
  }
  writer.reset();

  Outcome outcome = {};
  std::array<char, 4096> buffer;
  ssize_t length = 0;
  while ((length = ::read(reader.get(), buffer.data(), buffer.size())) > 0) {
    outcome.output.append(buffer.data(), static_cast<std::size_t>(length));
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  outcome.status = WIFSIGNALED(status) ? kSignalled + WTERMSIG(status) : WEXITSTATUS(status);
  return outcome;
}

}  // namespace support
