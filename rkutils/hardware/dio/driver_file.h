// The files of the digital I/O driver, and what is logged about them.
#ifndef RKUTILS_HARDWARE_DIO_DRIVER_FILE_H
#define RKUTILS_HARDWARE_DIO_DRIVER_FILE_H

#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/unique_fd.h>

#include <cstdint>
#include <utility>

namespace rkutils::dio {

// The driver's folder. In there the folders of inputs and outputs begin with these.
constexpr char kDriverFolder[] = "/sys/devices/halcyonix/";
constexpr char kInput[] = "din";
constexpr char kOutput[] = "dout";

// Whether there may be an input or output of this number. One that is out of range is logged.
[[nodiscard]] bool is_in_range(std::uint32_t number) noexcept;

// The path of a file, "/sys/devices/halcyonix/din7/value".
class DriverPath {
 public:
  // The number is in range.
  DriverPath(const char* direction, std::uint32_t number, const char* name) noexcept;

  [[nodiscard]] const char* c_str() const noexcept { return text_; }

 private:
  char text_[sizeof "/sys/devices/halcyonix/din99/frequency"];  // the longest
};

// What to return where there is no place for the result: DIO_ERR_IO, with errno set.
[[nodiscard]] unsigned refuse_null() noexcept;

// These log a failure with the cause that errno tells, and keep errno. `call` is what failed,
// "open"; `transfer` likewise, "read from".
void log_failed_call(const char* call, const char* path) noexcept;
void log_failed_transfer(const char* transfer, const char* path) noexcept;

// Logs that a file holds something else than it should.
void log_lexical_error(const char* path) noexcept;

// Logs that a file could not be opened, and gives the result for it.
[[nodiscard]] unsigned fail_to_open(const char* call, const char* path) noexcept;

// Writes the text `bytes` with one write, and logs it unless all of it has gone. Returns what the
// write returned; errno is 0 where that was less than all.
[[nodiscard]] ssize_t write_at_once(int file, const DriverPath& path, const char* bytes) noexcept;

// Closes the file; errno stays as it was, also when that fails, which is logged.
void close_file(internal::UniqueFd file, const DriverPath& path) noexcept;

// Opens a file, calls `use` with its descriptor, and closes it. Returns what `use` returned, or why
// the file could not be opened.
template <typename Use>
unsigned use_file(const DriverPath& path, int flags, Use use) noexcept {
  internal::UniqueFd file = file::open_at(AT_FDCWD, path.c_str(), flags);
  if (!file) return fail_to_open("open", path.c_str());
  const unsigned result = use(file.get());
  close_file(std::move(file), path);
  return result;
}

}  // namespace rkutils::dio

#endif
