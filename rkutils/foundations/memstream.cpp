#include <rkutils/internal/assertion.h>
#include <rkutils/memstream.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr rkutils::internal::Assertions check{"rkutils/memstream"};

// Moves the stream onto the NUL that follows `count` characters just written.
void advance(mem_stream* stream, size_t count) {
  stream->buf += count;
  stream->buf_size -= count;
}

}  // namespace

bool mem_stream_free_space_left(const mem_stream* stream) {
  check(stream != nullptr, "stream != NULL");
  return stream->buf_size > 1;
}

size_t mem_stream_get_num_chars_written(const mem_stream* stream, size_t orig_buf_size) {
  check(stream != nullptr, "stream != NULL");
  check(orig_buf_size >= stream->buf_size, "orig_buf_size >= stream->buf_size");
  return orig_buf_size - stream->buf_size;
}

size_t mem_stream_get_num_bytes_written(const mem_stream* stream, size_t orig_buf_size,
                                        const void* orig_buf) {
  check(stream != nullptr, "stream != NULL");
  check(orig_buf_size >= stream->buf_size, "orig_buf_size >= stream->buf_size");
  return orig_buf == nullptr ? 0 : orig_buf_size - stream->buf_size + 1;
}

int mem_stream_printf(mem_stream* stream, const char* format, ...) {
  check(stream != nullptr, "stream != NULL");
  check(stream->buf != nullptr, "stream->buf != NULL");
  check(format != nullptr, "format != NULL");
  if (stream->buf_size == 0) return 1;

  // musl's vsnprintf() fails for a buffer beyond INT_MAX; its result could not tell more anyway.
  const size_t room = std::min<size_t>(stream->buf_size, INT_MAX);
  va_list values;
  va_start(values, format);
  const int num_chars = std::vsnprintf(stream->buf, room, format, values);
  va_end(values);
  check(num_chars >= 0, "num_chars >= 0");

  if (static_cast<size_t>(num_chars) >= room) {
    stream->buf += room - 1;
    stream->buf_size = 1;
    return 1;
  }
  advance(stream, static_cast<size_t>(num_chars));
  check(stream->buf_size >= 1, "stream->buf_size >= 1");
  return 0;
}

int mem_stream_puts(mem_stream* stream, const char* str) {
  check(stream != nullptr, "stream != NULL");
  check(stream->buf != nullptr, "stream->buf != NULL");
  check(str != nullptr, "str != NULL");
  if (stream->buf_size == 0) return 1;

  // Looks no further into the text than the buffer reaches.
  const size_t length = ::strnlen(str, stream->buf_size);
  const bool fits = length < stream->buf_size;
  const size_t copied = fits ? length : stream->buf_size - 1;
  std::memcpy(stream->buf, str, copied);
  stream->buf[copied] = '\0';
  advance(stream, copied);
  check(stream->buf_size >= 1, "stream->buf_size >= 1");
  return fits ? 0 : 1;
}
