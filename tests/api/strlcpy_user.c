/* Compiled as C and as C++, with several C libraries' own declarations of strlcpy(). */

#ifdef DECLARED_BEFORE
#include <stddef.h>
#ifdef __cplusplus
extern "C"
#endif
    size_t
    strlcpy(char* dst, const char* src, size_t size);
#endif

#include <rkutils/memory.h>

size_t copy(char* dst, const char* src, size_t size);

size_t copy(char* dst, const char* src, size_t size) { return strlcpy(dst, src, size); }
