#include <rkutils/internal/errno_restorer.h>
#include <rkutils/messaging/wwanmd/log.h>

#include <cstdarg>

#include <syslog.h>

namespace rkutils::wwanmd {

void debug(const char* format, ...) noexcept {
  const internal::ErrnoRestorer keep_errno;
  va_list values;
  va_start(values, format);
  ::vsyslog(LOG_DEBUG, format, values);
  va_end(values);
}

}  // namespace rkutils::wwanmd
