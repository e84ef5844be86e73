// What the kernel tells of a process, file by file.
#ifndef RKUTILS_PROCESSES_TABLE_PROCESS_FILE_H
#define RKUTILS_PROCESSES_TABLE_PROCESS_FILE_H

#include <cstddef>
#include <optional>
#include <string_view>

namespace rkutils::processes {

// The path of a process's folder in /proc, or of a file in it.
class ProcessPath {
 public:
  // `file` is "" or one of the names below.
  explicit ProcessPath(int process, std::string_view file = "") noexcept;

  [[nodiscard]] const char* get() const noexcept { return text_; }

 private:
  char text_[sizeof "/proc/-2147483648/cmdline"];
};

// The files that are read. Their texts are made for each read, which gets as much as it asks for.
constexpr std::string_view kCommandLine = "/cmdline";
constexpr std::string_view kCommandName = "/comm";
constexpr std::string_view kStatus = "/stat";

// Fills `buffer` with the beginning of a file, and with zeros behind it, its last byte at least.
// The number of the file's bytes: 0 also when they cannot be read, as of a process that has just
// ended. Nothing when there is no such file, or no descriptor left for it; then the buffer is as it
// was.
[[nodiscard]] std::optional<std::size_t> read_process_file(int process, std::string_view file,
                                                           char* buffer, std::size_t size) noexcept;

}  // namespace rkutils::processes

#endif
