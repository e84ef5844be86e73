// String: making, appending, formatting and editing.

#include <rkutils/foundations/string/buffer.h>
#include <rkutils/foundations/text/ascii.h>
#include <rkutils/string.h>
#include <rkutils/text.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace text = rkutils::text;

namespace {

using text::as_size;
using text::Buffer;

// Empty, and never freed. Constant-initialised: it is there before any code runs.
Buffer shared_empty = {1, 0, 0, {'\0'}};

// Room of a buffer that is made for one character.
constexpr long kCharacterCapacity = 7;
// What the numeric factories format into.
constexpr std::size_t kNumberSize = 32;

Buffer* share_empty() {
  shared_empty.count_handles(1);
  return &shared_empty;
}

long length_of(const char* s) {
  return static_cast<long>(std::min<std::size_t>(std::strlen(s), std::numeric_limits<long>::max()));
}

// Where `s` lies in a buffer's characters; beyond its room for what lies elsewhere.
std::size_t offset_in(Buffer const& buffer, char const* s) {
  return reinterpret_cast<std::uintptr_t>(s) - reinterpret_cast<std::uintptr_t>(buffer.chars);
}

Buffer* buffer_of_character(char c) {
  if (c == '\0') return share_empty();
  Buffer* const buffer = text::make_buffer(kCharacterCapacity);
  buffer->chars[0] = c;
  buffer->chars[1] = '\0';
  buffer->length = 1;
  return buffer;
}

Buffer* buffer_of_text(const char* s) {
  if (s == nullptr || *s == '\0') return share_empty();
  return text::make_buffer_of(s, length_of(s));
}

Buffer* buffer_of_part(const char* s, long offset, long count) {
  if (s == nullptr) return share_empty();
  const long length = length_of(s);
  offset = std::clamp(offset, 0L, length);
  count = std::min(count, length - offset);
  return count <= 0 ? share_empty() : text::make_buffer_of(s + offset, count);
}

// Writes exactly `length` characters, whatever the C library makes of the format: measuring and
// writing may disagree about a conversion that only one of them knows.
RK_PRINTF(3, 0)
void write_formatted(char* destination, long length, const char* format, va_list values) {
  const int written = std::vsnprintf(destination, as_size(length) + 1, format, values);
  const long valid = std::clamp<long>(written, 0, length);
  std::memset(destination + valid, '\0', as_size(length - valid) + 1);
}

// Apart from where a character fits, which needs no memory for it then.
[[gnu::noinline]] String& concat_character(String& text, char c) { return text.concat(&c, 1); }

// What %i of C99 reads into an int. The C library is not asked: newer ones know "0b" too, some take
// a lone "0x" for 0, and they differ in what becomes of numbers that an int cannot hold.
long read_integer(const char* s) {
  constexpr long kNoNumber = -1;
  while (text::is_white(*s)) ++s;
  const bool negative = *s == '-';
  if (*s == '-' || *s == '+') ++s;
  unsigned base = *s == '0' ? 8 : 10;
  if (*s == '0' && (s[1] == 'x' || s[1] == 'X')) {
    base = 16;
    s += 2;
  }
  const char* const digits = s;
  std::uint64_t magnitude = 0;
  bool too_large = false;
  for (; text::hex_value(*s) < base; ++s) {
    too_large = __builtin_mul_overflow(magnitude, base, &magnitude) || too_large;
    too_large = __builtin_add_overflow(magnitude, text::hex_value(*s), &magnitude) || too_large;
  }
  if (s == digits) return kNoNumber;
  if (too_large) magnitude = std::numeric_limits<std::uint64_t>::max();
  return static_cast<std::int32_t>(negative && !too_large ? 0 - magnitude : magnitude);
}

}  // namespace

Buffer* String::StringBuffer::EMPTY() { return &shared_empty; }

void String::free_buffer(StringBuffer* buffer) {
  if (buffer != &shared_empty) std::free(buffer);
}

// The shared empty buffer is nobody's own, whatever its count says: threads may have lost counts.
bool String::is_private() const { return buffer_->handles() < 2 && buffer_ != &shared_empty; }

void String::take(StringBuffer* buffer) {
  release(buffer_);
  buffer_ = buffer;
}

void String::take_empty() { take(share_empty()); }

// For operations that change characters only: a copy with the same room, not by the rule.
void String::make_private_copy() {
  if (is_private()) return;
  Buffer* const copy = text::make_buffer(buffer_->capacity);
  std::memcpy(copy->chars, buffer_->chars, as_size(length()) + 1);
  copy->length = buffer_->length;
  take(copy);
}

void String::set_length(long length) {
  buffer_->chars[length] = '\0';
  buffer_->length = static_cast<std::int32_t>(length);
}

// ---- Making and assigning ----

String::String(char c) : buffer_(buffer_of_character(c)) {}

String::String(char const* s) : buffer_(buffer_of_text(s)) {}

String::String(char const* s, long reserve) : buffer_(nullptr) {
  if (s == nullptr) {
    buffer_ = share_empty();
    return;
  }
  const long length = length_of(s);
  buffer_ = text::make_buffer_for(std::max(length, reserve));
  std::memcpy(buffer_->chars, s, as_size(length));
  set_length(length);
}

String::String(char const* s, long offset, long count)
    : buffer_(buffer_of_part(s, offset, count)) {}

String& String::operator=(char const* s) {
  if (s == nullptr) {
    take_empty();
    return *this;
  }
  const long length = length_of(s);
  if (is_private() && length <= capacity()) {
    std::memmove(buffer_->chars, s, as_size(length));
    set_length(length);
  } else {
    take(text::make_buffer_of(s, length));
  }
  return *this;
}

String& String::operator=(char c) {
  take(buffer_of_character(c));
  return *this;
}

String const& String::EMPTY() {
  static const String empty;
  return empty;
}

String String::stringOf(char c) { return String(c); }

String String::stringOf(char const* s) { return String(s); }

String String::stringOf(char const* s, long offset, long count) { return String(s, offset, count); }

String String::stringOf(long value) {
  char digits[kNumberSize];
  std::snprintf(digits, sizeof digits, "%ld", value);
  return String(digits);
}

String String::stringOf(unsigned long value) {
  char digits[kNumberSize];
  std::snprintf(digits, sizeof digits, "%lu", value);
  return String(digits);
}

String String::stringOf(void* value) {
  char digits[kNumberSize];
  std::snprintf(digits, sizeof digits, "%p", value);
  return String(digits);
}

String String::stringOf(bool value) { return String(value ? "true" : "false"); }

// ---- Reading ----

long String::toInteger() const { return read_integer(c_str()); }

void String::getChars(long begin, long end, char* dst) const {
  if (dst == nullptr) return;
  begin = std::clamp(begin, 0L, length());
  end = std::clamp(end, begin, length());
  std::memmove(dst, c_str() + begin, as_size(end - begin));
}

String String::substring(long from) const {
  if (from < 0 || from >= length()) return EMPTY();
  String rest;
  rest.take(text::make_buffer_of(c_str() + from, length() - from));
  return rest;
}

String String::substring(long from, long to) const {
  if (from >= to || from >= length()) return EMPTY();
  long count = 0;
  if (__builtin_sub_overflow(to, from, &count)) count = std::numeric_limits<long>::max();
  return String(c_str(), from, count);
}

// ---- Appending ----

// Not inlined: it would burden the functions below, which mostly need little of it.
[[gnu::noinline]] String& String::internalConcat(char const* s, long n) {
  const long old_length = length();
  const long new_length = text::add_lengths(old_length, n);
  if (!is_private()) {
    Buffer* const joined = text::make_buffer_for(new_length);
    std::memcpy(joined->chars, c_str(), as_size(old_length));
    std::memcpy(joined->chars + old_length, s, as_size(n));
    take(joined);
    return *this;
  }
  if (new_length > capacity()) {
    // What is appended may be part of this text, and moves with it.
    const std::size_t offset = offset_in(*buffer_, s);
    const bool own = offset <= as_size(capacity());
    buffer_ = text::grow(buffer_, new_length);
    if (own) s = buffer_->chars + offset;
  }
  std::memmove(buffer_->chars + old_length, s, as_size(n));
  set_length(new_length);
  return *this;
}

String& String::concat(String const& t) {
  return t.length() < 1 ? *this : internalConcat(t.c_str(), t.length());
}

String& String::concat(char const* s, long n) {
  return s == nullptr || n <= 0 ? *this : internalConcat(s, n);
}

String& String::operator+=(String const& t) { return concat(t); }

String& String::operator+=(char const* s) {
  return s == nullptr || *s == '\0' ? *this : internalConcat(s, length_of(s));
}

String& String::operator+=(char c) {
  if (c == '\0') return *this;
  Buffer* const buffer = buffer_;
  const std::int32_t length = buffer->length;
  // The shared empty buffer has no room.
  if (buffer->handles() < 2 && length < buffer->capacity) {
    buffer->chars[length] = c;
    buffer->chars[length + 1] = '\0';
    buffer->length = length + 1;
    return *this;
  }
  return concat_character(*this, c);
}

String operator+(String const& left, String const& right) { return String(left) += right; }

String operator+(String const& left, char const* right) { return String(left) += right; }

String operator+(String const& left, char right) { return String(left) += right; }

String operator+(char const* left, String const& right) { return String(left) += right; }

String operator+(char left, String const& right) { return String(left) += right; }

// ---- Formatting ----

// Writes `added` formatted characters behind the first `kept` ones of the text.
void String::write_behind(long kept, long added, char const* fmt, va_list values) {
  const long new_length = text::add_lengths(kept, added);
  if (!is_private() || new_length > capacity()) {
    // The old buffer goes last, for the format and the values may be in it.
    Buffer* const written = text::make_buffer_for(new_length);
    std::memcpy(written->chars, c_str(), as_size(kept));
    write_formatted(written->chars + kept, added, fmt, values);
    take(written);
    return;
  }
  if (offset_in(*buffer_, fmt) <= as_size(capacity())) {
    // A format that is part of this text must not change while it is read.
    const String copy(fmt);
    fmt = copy.c_str();
    write_behind(kept, added, fmt, values);
    return;
  }
  end_own_text(new_length);
  write_formatted(buffer_->chars + kept, added, fmt, values);
  set_length(new_length);
}

// A value that is part of this text loses its NUL while it is read. It ends then at the next
// character that is not written yet, and never behind the buffer: some C libraries use the last
// byte that they are given before they put the NUL there.
void String::end_own_text(long new_length) {
  const long unused = new_length - length();
  if (unused > 0) std::memset(buffer_->chars + length(), '\0', as_size(unused) + 1);
  buffer_->chars[capacity()] = '\0';
}

String& String::format(char const* fmt, ...) {
  va_list values;
  va_start(values, fmt);
  const long length = fmt == nullptr ? 0 : vstrlenf(fmt, values);
  va_end(values);
  if (length < 1) {
    take_empty();
    return *this;
  }
  va_start(values, fmt);
  write_behind(0, length, fmt, values);
  va_end(values);
  return *this;
}

String& String::concatf(char const* fmt, ...) {
  va_list values;
  va_start(values, fmt);
  const long added = fmt == nullptr ? 0 : vstrlenf(fmt, values);
  va_end(values);
  if (added < 1) return *this;
  va_start(values, fmt);
  write_behind(length(), added, fmt, values);
  va_end(values);
  return *this;
}

// ---- Editing ----

String& String::internalInsert(long pos, char const* s, long n) {
  const long old_length = length();
  if (pos < 0 || pos > old_length) return *this;
  const long new_length = text::add_lengths(old_length, n);
  const long tail = old_length - pos;
  if (!is_private() || new_length > capacity()) {
    Buffer* const joined = text::make_buffer_for(new_length);
    std::memcpy(joined->chars, c_str(), as_size(pos));
    std::memcpy(joined->chars + pos, s, as_size(n));
    std::memcpy(joined->chars + pos + n, c_str() + pos, as_size(tail));
    take(joined);
    return *this;
  }
  char* const gap = buffer_->chars + pos;
  std::memmove(gap + n, gap, as_size(tail));
  // Own text from behind the position has moved away with the tail. What begins before it or there
  // ends before gap + n, so that the tail has not overwritten it.
  const std::size_t offset = offset_in(*buffer_, s);
  const bool moved = offset > as_size(pos) && offset < as_size(old_length);
  std::memmove(gap, moved ? buffer_->chars + n + offset : s, as_size(n));
  set_length(new_length);
  return *this;
}

String& String::insert(long pos, char c) { return c == '\0' ? *this : internalInsert(pos, &c, 1); }

String& String::insert(long pos, String const& t) {
  return t.length() < 1 ? *this : internalInsert(pos, t.c_str(), t.length());
}

String& String::insert(long pos, char const* s) {
  return s == nullptr || *s == '\0' ? *this : internalInsert(pos, s, length_of(s));
}

String& String::deleteRegion(long from) {
  if (from >= length() || length() == 0) return *this;
  from = std::max(from, 0L);
  if (is_private()) {
    set_length(from);
  } else {
    take(text::make_buffer_of(c_str(), from));
  }
  return *this;
}

String& String::deleteRegion(long from, long to) {
  from = std::max(from, 0L);
  to = std::min(to, length());
  if (from >= to) return *this;
  const long tail = length() - to;
  if (is_private()) {
    std::memmove(buffer_->chars + from, buffer_->chars + to, as_size(tail));
    set_length(from + tail);
  } else {
    Buffer* const rest = text::make_buffer_for(from + tail);
    std::memcpy(rest->chars, c_str(), as_size(from));
    std::memcpy(rest->chars + from, c_str() + to, as_size(tail));
    take(rest);
  }
  return *this;
}

String& String::toLowerCase() {
  if (length() < 1) return *this;
  make_private_copy();
  std::transform(buffer_->chars, buffer_->chars + length(), buffer_->chars, text::to_lower);
  return *this;
}

String& String::toUpperCase() {
  if (length() < 1) return *this;
  make_private_copy();
  std::transform(buffer_->chars, buffer_->chars + length(), buffer_->chars, text::to_upper);
  return *this;
}

String& String::replace(char from, char to) {
  if (to == '\0' || length() < 1) return *this;
  make_private_copy();
  std::replace(buffer_->chars, buffer_->chars + length(), from, to);
  return *this;
}

String& String::trim() {
  const char* const begin = c_str();
  const char* const end = begin + length();
  const char* const first = std::find_if_not(begin, end, text::is_white);
  if (first == end) {
    take_empty();
    return *this;
  }
  const char* last = end;
  while (text::is_white(last[-1])) --last;
  const long kept = last - first;
  if (kept == length()) return *this;
  if (is_private()) {
    std::memmove(buffer_->chars, first, as_size(kept));
    set_length(kept);
  } else {
    take(text::make_buffer_of(first, kept));
  }
  return *this;
}
