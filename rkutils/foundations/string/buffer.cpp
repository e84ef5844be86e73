#include <rkutils/foundations/string/buffer.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace rkutils::text {
namespace {

// Leaves room in a buffer's 32-bit fields for the rule's rounding.
constexpr long kLongest = std::numeric_limits<std::int32_t>::max() - 256;

std::size_t block_size(long capacity) { return offsetof(Buffer, chars) + as_size(capacity) + 1; }

// What the callers cannot do anything about.
Buffer* or_abort(void* block) {
  if (block == nullptr) std::abort();
  return static_cast<Buffer*>(block);
}

void check_length(long length) {
  if (length > kLongest) std::abort();
}

}  // namespace

long add_lengths(long a, long b) {
  if (b > kLongest || a > kLongest - b) std::abort();
  return a + b;
}

Buffer* make_buffer(long capacity) {
  Buffer* const buffer = or_abort(std::malloc(block_size(capacity)));
  buffer->refCount = 1;
  buffer->capacity = static_cast<std::int32_t>(capacity);
  buffer->length = 0;
  buffer->chars[0] = '\0';
  return buffer;
}

Buffer* make_buffer_for(long length) {
  check_length(length);
  Buffer* const buffer = make_buffer(capacity_for(length));
  buffer->length = static_cast<std::int32_t>(length);
  buffer->chars[length] = '\0';
  return buffer;
}

Buffer* make_buffer_of(const char* bytes, long length) {
  Buffer* const buffer = make_buffer_for(length);
  std::memcpy(buffer->chars, bytes, as_size(length));
  return buffer;
}

Buffer* grow(Buffer* buffer, long length) {
  check_length(length);
  const long capacity = capacity_for(length);
  Buffer* const grown = or_abort(std::realloc(buffer, block_size(capacity)));
  grown->capacity = static_cast<std::int32_t>(capacity);
  return grown;
}

}  // namespace rkutils::text
