#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/processes/table/process_file.h>
#include <rkutils/text.h>

#include <cstring>

#include <sys/types.h>

namespace rkutils::processes {

ProcessPath::ProcessPath(int process, std::string_view file) noexcept : text_("/proc/") {
  char* const number = text_ + std::strlen(text_);
  char* const end = number + std::strlen(i32toa(process, number, 10));
  end[file.copy(end, file.size())] = '\0';
}

std::optional<std::size_t> read_process_file(int process, std::string_view file, char* buffer,
                                             std::size_t size) noexcept {
  const internal::PostponedCancellation postponed;
  const internal::UniqueFd opened = file::open_to_read(ProcessPath(process, file).get());
  if (!opened) return std::nullopt;
  std::memset(buffer, 0, size);
  const ssize_t length = file::read_some(opened.get(), buffer, size - 1);
  return length > 0 ? static_cast<std::size_t>(length) : 0;
}

}  // namespace rkutils::processes
