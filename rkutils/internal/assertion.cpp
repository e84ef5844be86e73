// The C library declares its reporter only where assert() is active.
#undef NDEBUG

#include <rkutils/internal/assertion.h>

#include <cassert>

namespace rkutils::internal {

// __assert_fail is what assert() itself calls, part of the Linux Standard Base and alike in glibc
// and musl: the report looks as every other program's, and core dump tools find its text.
void assertion_failed(const char* condition, const char* source, int line,
                      const char* function) noexcept {
  __assert_fail(condition, source, static_cast<unsigned>(line), function);
}

}  // namespace rkutils::internal
