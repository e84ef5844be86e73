// String: finding characters and texts.

#include <rkutils/foundations/string/buffer.h>
#include <rkutils/foundations/text/ascii.h>
#include <rkutils/string.h>
#include <rkutils/text.h>

#include <algorithm>
#include <cstring>

namespace {

using rkutils::text::as_size;

// How a needle is compared with the text at one position; 0 where they are the same.
using Compare = int (*)(const char*, const char*, std::size_t);

char other_case(char character) {
  return rkutils::text::is_lower(character) ? rkutils::text::to_upper(character)
                                            : rkutils::text::to_lower(character);
}

// The first such character in a range; `end` where there is none.
const char* find_first(const char* begin, const char* end, char character) {
  const void* const found = std::memchr(begin, character, static_cast<std::size_t>(end - begin));
  return found == nullptr ? end : static_cast<const char*>(found);
}

// The position of the last such character among the first `count`; -1 where there is none.
long find_last(const char* text, long count, char character) {
  const void* const found = ::memrchr(text, character, as_size(count));
  return found == nullptr ? -1 : static_cast<const char*>(found) - text;
}

// The last position not after `start` where `needle` stands; the negative `start` itself where
// there is no position to try, -1 where it stands nowhere. `first` and `other` are the bytes that
// it may begin with; the rest is compared only there.
long find_backwards(const char* text, const char* needle, std::size_t length, long start,
                    char first, char other, Compare compare) {
  if (start < 0 || length == 0) return start;
  long next_first = find_last(text, start + 1, first);
  long next_other = other == first ? -1 : find_last(text, start + 1, other);
  for (;;) {
    const long at = std::max(next_first, next_other);
    if (at < 0 || compare(text + at, needle, length) == 0) return at;
    if (at == next_first) {
      next_first = find_last(text, at, first);
    } else {
      next_other = find_last(text, at, other);
    }
  }
}

}  // namespace

long String::indexOf(char c) const { return indexOf(c, 0); }

long String::indexOf(char c, long from) const {
  if (c == '\0' || from >= length()) return -1;
  const char* const found = std::strchr(c_str() + std::max(from, 0L), c);
  return found == nullptr ? -1 : found - c_str();
}

long String::indexOf(String const& t) const {
  const char* const found = std::strstr(c_str(), t.c_str());
  return found == nullptr ? -1 : found - c_str();
}

long String::indexOf(String const& t, long from) const {
  if (length() - t.length() < from) return -1;
  const char* const found = std::strstr(c_str() + std::max(from, 0L), t.c_str());
  return found == nullptr ? -1 : found - c_str();
}

long String::indexOfIgnoreCase(String const& t) const { return indexOfIgnoreCase(t, 0); }

long String::indexOfIgnoreCase(String const& t, long from) const {
  const long last = length() - t.length();
  from = std::max(from, 0L);
  if (last < from) return -1;
  if (t.length() == 0) return from;
  // Where the text's first byte stands next, in its own and in the other case.
  const char first = t.c_str()[0];
  const char other = other_case(first);
  const char* const end = c_str() + last + 1;
  const char* next_first = find_first(c_str() + from, end, first);
  const char* next_other = other == first ? end : find_first(c_str() + from, end, other);
  for (;;) {
    const char* const at = std::min(next_first, next_other);
    if (at == end) return -1;
    if (strnicmp(at, t.c_str(), as_size(t.length())) == 0) return at - c_str();
    if (at == next_first) {
      next_first = find_first(at + 1, end, first);
    } else {
      next_other = find_first(at + 1, end, other);
    }
  }
}

long String::lastIndexOf(char c) const { return lastIndexOf(c, length()); }

long String::lastIndexOf(char c, long from) const {
  if (from < 0) return -1;
  return find_last(c_str(), std::min(from, length() - 1) + 1, c);
}

long String::lastIndexOf(String const& t) const { return lastIndexOf(t, length()); }

long String::lastIndexOf(String const& t, long from) const {
  if (from < 0) return -1;
  const char first = t.c_str()[0];
  return find_backwards(c_str(), t.c_str(), std::strlen(t.c_str()),
                        std::min(from, length() - t.length()), first, first, std::strncmp);
}

long String::lastIndexOfIgnoreCase(String const& t) const {
  return lastIndexOfIgnoreCase(t, length());
}

long String::lastIndexOfIgnoreCase(String const& t, long from) const {
  if (from < 0) return -1;
  const char first = t.c_str()[0];
  return find_backwards(c_str(), t.c_str(), as_size(t.length()),
                        std::min(from, length() - t.length()), first, other_case(first), strnicmp);
}
