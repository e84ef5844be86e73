#include <rkutils/memory.h>

#include <cstdlib>
#include <cstring>

void* zalloc(size_t size) { return std::calloc(size, 1); }

size_t strlcpy(char* dst, const char* src, size_t size) RKUTILS_STRLCPY_NOEXCEPT {
  const size_t length = std::strlen(src);
  if (size > 0) {
    const size_t copied = length < size ? length : size - 1;
    std::memcpy(dst, src, copied);
    dst[copied] = '\0';
  }
  return length;
}
