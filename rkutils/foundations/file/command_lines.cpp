#include <rkutils/foundations/file/command_lines.h>
#include <rkutils/internal/unique_fd.h>

#include <utility>

#include <fcntl.h>

namespace rkutils::file {

using internal::UniqueFd;

CommandLines::CommandLines(const char* command, std::size_t piece_length) noexcept
    : pipe_(::popen(command, "re")) {
  if (pipe_ == nullptr) return;
  // Read by a descriptor of its own: a signal would make fgets() lose a part of a line.
  UniqueFd descriptor(::fcntl(::fileno(pipe_), F_DUPFD_CLOEXEC, 0));
  if (descriptor) lines_.emplace(std::move(descriptor), piece_length);
}

int CommandLines::finish() noexcept {
  // All descriptors of the pipe have to go, or a command that writes on would wait for ever.
  lines_.reset();
  std::FILE* const pipe = std::exchange(pipe_, nullptr);
  return pipe == nullptr ? -1 : ::pclose(pipe);
}

}  // namespace rkutils::file
