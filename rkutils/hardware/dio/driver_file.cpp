#include <rkutils/dio.h>
#include <rkutils/foundations/text/digits.h>
#include <rkutils/hardware/dio/driver_file.h>
#include <rkutils/internal/errno_restorer.h>

#include <cerrno>
#include <cstring>

#include <syslog.h>
#include <unistd.h>

namespace rkutils::dio {

using internal::ErrnoRestorer;
using internal::UniqueFd;

bool is_in_range(std::uint32_t number) noexcept {
  // For outputs as for inputs.
  static_assert(DIORONUMBER_MIN == DIORWNUMBER_MIN && DIORONUMBER_MAX == DIORWNUMBER_MAX);
  constexpr unsigned kMaximum = DIORONUMBER_MAX;
  if (number >= DIORONUMBER_MIN && number <= kMaximum) return true;
  ::syslog(LOG_WARNING, "DIO number out of range (%u > %u)", unsigned{number}, kMaximum);
  return false;
}

DriverPath::DriverPath(const char* direction, std::uint32_t number, const char* name) noexcept {
  char digits[] = "99";
  char* const digits_end = digits + sizeof digits - 1;
  char* end = ::stpcpy(text_, kDriverFolder);
  end = ::stpcpy(end, direction);
  end = ::stpcpy(end, text::write_decimal(digits_end, number));
  *end++ = '/';
  ::stpcpy(end, name);
}

unsigned refuse_null() noexcept {
  errno = EINVAL;
  return DIO_ERR_IO;
}

void log_failed_call(const char* call, const char* path) noexcept {
  const ErrnoRestorer keep_errno;
  ::syslog(LOG_ERR, "Can't %s(%s) - (%s)", call, path, std::strerror(errno));
}

void log_failed_transfer(const char* transfer, const char* path) noexcept {
  const ErrnoRestorer keep_errno;
  ::syslog(LOG_ERR, "Can't %s \"%s\" - (%s)", transfer, path, std::strerror(errno));
}

void log_lexical_error(const char* path) noexcept {
  ::syslog(LOG_ERR, "Lexical error on input from \"%s\"", path);
}

unsigned fail_to_open(const char* call, const char* path) noexcept {
  log_failed_call(call, path);
  return errno == ENOENT ? DIO_ERR_NOENT : DIO_ERR_IO;
}

ssize_t write_at_once(int file, const DriverPath& path, const char* bytes) noexcept {
  const std::size_t length = std::strlen(bytes);
  errno = 0;
  const ssize_t count = file::write_some(file, bytes, length);
  if (count != static_cast<ssize_t>(length)) log_failed_transfer("write to", path.c_str());
  return count;
}

void close_file(UniqueFd file, const DriverPath& path) noexcept {
  const ErrnoRestorer keep_errno;
  if (::close(file.release()) != 0) log_failed_call("close", path.c_str());
}

}  // namespace rkutils::dio
