// The C library declares its reporter only where assert() is active.
#undef NDEBUG

#include <rkutils/internal/assertion.h>

#include <cassert>

namespace rkutils::internal {
namespace {

// The line is unsigned in glibc and signed in musl.
template <typename Line>
void report(void (*fail)(const char*, const char*, Line, const char*), const char* condition,
            const char* source, int line, const char* function) {
  fail(condition, source, static_cast<Line>(line), function);
}

}  // namespace

// __assert_fail is what assert() itself calls, part of the Linux Standard Base and alike in glibc
// and musl: the report looks as every other program's, and core dump tools find its text.
void assertion_failed(const char* condition, const char* source, int line,
                      const char* function) noexcept {
  report(__assert_fail, condition, source, line, function);
  __builtin_unreachable();
}

}  // namespace rkutils::internal
