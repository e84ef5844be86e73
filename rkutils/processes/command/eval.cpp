// Commands run for their output.

#include <rkutils/command.h>
#include <rkutils/foundations/file/command_lines.h>
#include <rkutils/processes/command/output.h>

#include <cstddef>

#include <sys/wait.h>

namespace {

using rkutils::file::CommandLines;
using rkutils::processes::Output;

constexpr std::size_t kPieceLength = 1023;

}  // namespace

int eval_command(const char* command, char* buffer, size_t size) {
  if (command == nullptr || *command == '\0' || buffer == nullptr || size == 0) return -1;
  Output output(buffer, size);
  CommandLines lines(command, kPieceLength);
  if (!lines) return -1;
  while (const char* const piece = lines->next()) output.append(piece);
  // The whole byte is looked at, also of -1 and of a status that no exit has left.
  return WEXITSTATUS(lines.finish()) == 0 ? output.length() : -1;
}
