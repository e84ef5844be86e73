// A C library that has strlcpy() may define it inline with FORTIFY; this is the other definition.
#undef _FORTIFY_SOURCE

#include <rkutils/memory.h>

#include <cstdlib>
#include <cstring>

void* zalloc(size_t size) { return std::calloc(size, 1); }

#ifdef RKUTILS_C_LIBRARY_DECLARES_STRLCPY
RK_API size_t strlcpy(char* dst, const char* src, size_t size) noexcept {
#else
size_t strlcpy(char* dst, const char* src, size_t size) {
#endif
  const size_t length = std::strlen(src);
  if (size > 0) {
    const size_t copied = length < size ? length : size - 1;
    std::memcpy(dst, src, copied);
    dst[copied] = '\0';
  }
  return length;
}
