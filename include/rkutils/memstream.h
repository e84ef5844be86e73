/*
 * Text written piece by piece into a fixed buffer, with the truncation reported.
 *
 *     char line[80];
 *     mem_stream out = {line, sizeof line};
 *     mem_stream_puts(&out, "uptime ");
 *     if (mem_stream_printf(&out, "%lu s", seconds) != 0) syslog(LOG_WARNING, "line cut");
 *     write(fd, line, mem_stream_get_num_chars_written(&out, sizeof line));
 *
 * The caller fills in both fields, the buffer's start and its full size, and keeps the original
 * size to ask later how much was written. A stream that was cut stays on its terminating NUL: what
 * is written later is dropped, and each such write says so.
 *
 * Misuse is a programming error and aborts the process in every build type, through the C library's
 * assertion report on standard error. It names the condition as given below, the source
 * "rkutils/memstream", the line, and the function.
 *
 * Threads and signals: a stream belongs to one thread at a time; nothing is shared between streams.
 */
#ifndef RKUTILS_MEMSTREAM_H
#define RKUTILS_MEMSTREAM_H

#include <rkutils/export.h>

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct mem_stream {
  char* buf;       /* where the next character goes; after a write it points at the NUL */
  size_t buf_size; /* bytes from buf to the end of the buffer, the NUL's included */
} mem_stream;

/*
 * True when at least one more character fits before the NUL, that is, `buf_size` is above 1.
 *
 * Asserts "stream != NULL".
 */
RK_API bool mem_stream_free_space_left(const mem_stream* stream);

/*
 * The number of characters written so far, without the NUL; `orig_buf_size` is the buffer's full
 * size in bytes. Counts from the full size down to `buf_size`, so it is right as long as the caller
 * has not touched the fields.
 *
 * Asserts "stream != NULL" and "orig_buf_size >= stream->buf_size", in this order.
 */
RK_API size_t mem_stream_get_num_chars_written(const mem_stream* stream, size_t orig_buf_size);

/*
 * The number of bytes that the text occupies, its NUL included: characters written plus 1; but 0
 * when `orig_buf`, the buffer's start, is NULL, so that the size of a text that was never made is
 * 0. `orig_buf` is only compared with NULL.
 *
 * Asserts "stream != NULL" and "orig_buf_size >= stream->buf_size", in this order.
 */
RK_API size_t mem_stream_get_num_bytes_written(const mem_stream* stream, size_t orig_buf_size,
                                               const void* orig_buf);

/*
 * Appends text formatted as by printf(3). Neither the format nor a value may lie in the stream's
 * own buffer, and a text from outside is a value, never the format.
 *
 * Returns 0 when all of it fitted, 1 when it was cut or nothing fitted; a `buf_size` of 0 writes
 * nothing, not even a NUL. An empty text fits into any buffer that has room for its NUL. No more
 * than INT_MAX - 1 characters are written in one call, the formatter's own bound.
 *
 * Asserts "stream != NULL", "stream->buf != NULL", "format != NULL", in this order and before
 * anything else, and after formatting "num_chars >= 0" (the C library refused the format or a
 * value) and "stream->buf_size >= 1".
 */
RK_API int mem_stream_printf(mem_stream* stream, const char* format, ...) RK_PRINTF(2, 3);

/*
 * Appends the text `str`, which must not lie in the stream's own buffer.
 *
 * Returns 0 when all of it fitted (a text of exactly buf_size - 1 characters does), 1 when it was
 * cut or nothing fitted; a `buf_size` of 0 writes nothing, not even a NUL.
 *
 * Asserts "stream != NULL", "stream->buf != NULL", "str != NULL", in this order and before anything
 * else, and after copying "stream->buf_size >= 1".
 */
RK_API int mem_stream_puts(mem_stream* stream, const char* str);

#ifdef __cplusplus
}
#endif

#endif
