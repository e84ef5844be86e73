/* A C library whose <string.h> declares strlcpy() as glibc does from 2.38 on. */
#ifndef TESTS_API_NEWER_C_LIBRARY_STRING_H
#define TESTS_API_NEWER_C_LIBRARY_STRING_H

#include_next <string.h>

#undef __GLIBC_MINOR__
#define __GLIBC_MINOR__ 38

#ifdef __cplusplus
extern "C" size_t strlcpy(char* __restrict dst, const char* __restrict src,
                          size_t size) noexcept(true) __attribute__((__nonnull__(1, 2)));
#else
extern size_t strlcpy(char* __restrict dst, const char* __restrict src, size_t size)
    __attribute__((__nothrow__, __leaf__, __nonnull__(1, 2)));
#endif

#ifdef FORTIFIED
extern __inline __attribute__((__always_inline__, __gnu_inline__, __artificial__)) size_t strlcpy(
    char* __restrict dst, const char* __restrict src, size_t size)
#ifdef __cplusplus
    noexcept(true)
#endif
{
  (void)dst;
  (void)src;
  return size;
}
#endif

#endif
