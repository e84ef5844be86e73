// What the modem daemon's client logs.
#ifndef RKUTILS_MESSAGING_WWANMD_LOG_H
#define RKUTILS_MESSAGING_WWANMD_LOG_H

#include <rkutils/export.h>

namespace rkutils::wwanmd {

// Logs at LOG_DEBUG and keeps errno: several messages tell of one failure, and the last of them may
// still name its cause.
RK_PRINTF(1, 2) void debug(const char* format, ...) noexcept;

}  // namespace rkutils::wwanmd

#endif
