// The buffers behind String: making them and the rule by which they grow.
#ifndef RKUTILS_FOUNDATIONS_STRING_BUFFER_H
#define RKUTILS_FOUNDATIONS_STRING_BUFFER_H

#include <rkutils/string.h>

#include <cstddef>

namespace rkutils::text {

using Buffer = String::StringBuffer;

static_assert(offsetof(Buffer, refCount) == 0);
static_assert(offsetof(Buffer, capacity) == 4);
static_assert(offsetof(Buffer, length) == 8);
static_assert(offsetof(Buffer, chars) == 12, "programs read the characters behind three words");

// A length, which is never negative, as the C library takes it.
constexpr std::size_t as_size(long length) { return static_cast<std::size_t>(length); }

// The room, in characters, of a buffer that is made for a text of `length` characters.
constexpr long capacity_for(long length) {
  return length < 128 ? ((length + 8) & ~15L) + 7 : ((length - 64) & ~63L) + 127;
}

// The sum of two lengths. Aborts where a buffer's 32-bit fields could not hold it.
long add_lengths(long a, long b);

// A buffer with one handle, room for `capacity` characters, and the empty text. Aborts without
// memory.
Buffer* make_buffer(long capacity);

// A buffer by the rule, with one handle, for `length` characters that the caller writes; it has its
// NUL.
Buffer* make_buffer_for(long length);

// The same with the characters.
Buffer* make_buffer_of(const char* bytes, long length);

// Gives a buffer with one handle the room for a text of `length` characters, keeping its text. The
// buffer may move.
Buffer* grow(Buffer* buffer, long length);

}  // namespace rkutils::text

#endif
