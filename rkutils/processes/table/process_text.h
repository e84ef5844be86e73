// The texts that the kernel has about a process.
#ifndef RKUTILS_PROCESSES_TABLE_PROCESS_TEXT_H
#define RKUTILS_PROCESSES_TABLE_PROCESS_TEXT_H

#include <cstddef>
#include <optional>

namespace rkutils::processes {

// The id in the name of a process's folder, which is made of digits. Nothing for a number that no
// process can have.
[[nodiscard]] std::optional<int> to_process_id(const char* digits) noexcept;

// Makes a text of a command line, arguments that each end with a NUL, with single blanks between
// them. It has `length` bytes, one at least, and there is room for one more.
void join_arguments(char* command_line, std::size_t length) noexcept;

// The parent's id in the text of /proc/PID/stat, which is taken apart: the fourth word of its first
// line, whatever that is. Nothing when there are fewer.
[[nodiscard]] std::optional<int> parent_in(char* status) noexcept;

}  // namespace rkutils::processes

#endif
