/*
 * Zero-filled allocation and bounded string copy.
 *
 *     char name[16];
 *     lease *one = zalloc(sizeof *one);
 *     if (one == NULL) return -1;
 *     if (strlcpy(name, text, sizeof name) >= sizeof name) syslog(LOG_WARNING, "name cut");
 *     free(one);
 *
 * Threads and signals: safe from several threads, as calloc() is; zalloc() is not for signal
 * handlers.
 */
#ifndef RKUTILS_MEMORY_H
#define RKUTILS_MEMORY_H

#include <rkutils/export.h>

#include <stddef.h>
#include <string.h> /* where a C library that has strlcpy() declares it */

/* Newer versions of glibc declare it in a way that a second declaration would have to follow to the
 * letter: attributes, exceptions, and an inline definition with FORTIFY. It is theirs then. */
#if defined(__GLIBC__) && defined(__USE_MISC)
#if __GLIBC_PREREQ(2, 38)
#define RKUTILS_C_LIBRARY_DECLARES_STRLCPY 1
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Allocates `size` bytes, all zero: calloc(size, 1).
 *
 * Returns the memory, which the caller releases with free(), or NULL when there is none (errno
 * ENOMEM). A size of 0 gives what calloc() gives for it.
 */
RK_API void* zalloc(size_t size);

/*
 * Copies the text `src` into the buffer `dst` of `size` bytes: at most size - 1 bytes, and a NUL
 * after them whenever `size` is above 0. With a size of 0 nothing is written; `dst` may be NULL
 * then, unless the C library has a strlcpy() of its own and declares otherwise. The two must not
 * overlap. strlcpy(3) of the BSDs.
 *
 * Returns strlen(src); a result of `size` or more means that the copy was cut.
 */
#ifndef RKUTILS_C_LIBRARY_DECLARES_STRLCPY
RK_API size_t strlcpy(char* dst, const char* src, size_t size);
#endif

#ifdef __cplusplus
}
#endif

#endif
