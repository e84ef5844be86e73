// What a command writes, by lines.
#ifndef RKUTILS_FOUNDATIONS_FILE_COMMAND_LINES_H
#define RKUTILS_FOUNDATIONS_FILE_COMMAND_LINES_H

#include <rkutils/foundations/file/line_source.h>
#include <rkutils/internal/postponed_cancellation.h>

#include <cstddef>
#include <cstdio>
#include <optional>

namespace rkutils::file {

// Runs a shell command as popen(3) does and reads its standard output to the end, or as far as is
// wanted. The end of the scope waits for the command's: one that writes on, unread, gets SIGPIPE.
// Signals lose nothing of its output, and a thread that is cancelled waits for it too.
//
//     CommandLines lines("/usr/sbin/brctl show", 1023);
//     if (!lines) return -1;
//     while (char* const line = lines->next()) use(line);
class CommandLines {
 public:
  // The output comes in pieces of at most `piece_length` bytes, as LineSource has them.
  CommandLines(const char* command, std::size_t piece_length) noexcept;
  ~CommandLines() { finish(); }
  CommandLines(const CommandLines&) = delete;
  CommandLines& operator=(const CommandLines&) = delete;

  // False when the command could not be started, or its output not be read.
  explicit operator bool() const noexcept { return lines_.has_value(); }

  // Until finish().
  LineSource* operator->() noexcept { return &*lines_; }

  // Reads no more and waits for the command's end. Its status as pclose(3) gives it, -1 where there
  // is none.
  int finish() noexcept;

 private:
  const internal::PostponedCancellation postponed_;
  std::FILE* pipe_;
  std::optional<LineSource> lines_;
};

}  // namespace rkutils::file

#endif
