// Commands run for their output.

#include <rkutils/command.h>
#include <rkutils/foundations/file/line_source.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/processes/command/output.h>

#include <cstdio>
#include <utility>

#include <fcntl.h>
#include <sys/wait.h>

namespace {

using rkutils::file::LineSource;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueFd;
using rkutils::processes::Output;

constexpr std::size_t kPieceLength = 1023;

// Reads to the end of the pipe, by its descriptor: a signal would make fgets() lose a part of a
// line. False when there is no second descriptor for it.
bool read_output(std::FILE* pipe, Output& output) {
  UniqueFd descriptor(::fcntl(::fileno(pipe), F_DUPFD_CLOEXEC, 0));
  if (!descriptor) return false;
  LineSource lines(std::move(descriptor), kPieceLength);
  while (const char* const line = lines.next()) output.append(line);
  return true;
}

}  // namespace

int eval_command(const char* command, char* buffer, size_t size) {
  if (command == nullptr || *command == '\0' || buffer == nullptr || size == 0) return -1;
  const PostponedCancellation postponed;
  Output output(buffer, size);
  std::FILE* const pipe = ::popen(command, "re");
  if (pipe == nullptr) return -1;
  const bool read = read_output(pipe, output);
  // The whole byte is looked at, also of -1 and of a status that no exit has left.
  const int status = ::pclose(pipe);
  return read && WEXITSTATUS(status) == 0 ? output.length() : -1;
}
