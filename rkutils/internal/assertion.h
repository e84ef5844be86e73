// Checks that stay in every build type.
#ifndef RKUTILS_INTERNAL_ASSERTION_H
#define RKUTILS_INTERNAL_ASSERTION_H

namespace rkutils::internal {

// Reports a failed assertion on standard error, as the C library's assert() does, and aborts.
[[noreturn]] void assertion_failed(const char* condition, const char* source, int line,
                                   const char* function) noexcept;

// The assertions of one source. `source` is the name that the report carries; people look for it in
// logs, so it does not change when a file moves.
//
//     constexpr Assertions check{"rkutils/memstream"};
//     check(stream != nullptr, "stream != NULL");
//
// Line and function are those of the calling line.
class Assertions {
 public:
  explicit constexpr Assertions(const char* source) noexcept : source_(source) {}

  void operator()(bool holds, const char* condition, int line = __builtin_LINE(),
                  const char* function = __builtin_FUNCTION()) const noexcept {
    if (__builtin_expect(static_cast<long>(!holds), 0) != 0) {
      assertion_failed(condition, source_, line, function);
    }
  }

 private:
  const char* source_;
};

}  // namespace rkutils::internal

#endif
