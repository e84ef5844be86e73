/*
 * Attributes of the public declarations.
 *
 * Every function, class and object that a program may use carries RK_API; the library is compiled
 * with hidden visibility, so that librkutils.so exports what these headers declare and nothing
 * more.
 */
#ifndef RKUTILS_EXPORT_H
#define RKUTILS_EXPORT_H

#if defined(__GNUC__)

/* Exported from the shared library. */
#define RK_API __attribute__((__visibility__("default")))

/* A member of an exported class that only the library calls. */
#define RK_LOCAL __attribute__((__visibility__("hidden")))

/* A printf-like function: the format is argument `format`, counted from 1; the values begin at
 * argument `first` (0 where they arrive as a va_list). The compiler checks one against the other.
 */
#define RK_PRINTF(format, first) __attribute__((__format__(__printf__, format, first)))

#else
#define RK_API
#define RK_LOCAL
#define RK_PRINTF(format, first)
#endif

#endif
