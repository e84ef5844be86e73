// Plain strings: case, trimming, comparing, escaping.

#include <rkutils/foundations/text/ascii.h>
#include <rkutils/text.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::size_t kFormatSize = 2048;
constexpr std::size_t kAttributeSize = 1024;

bool is_empty(const char* s) { return s == nullptr || *s == '\0'; }

// The letter that follows the backslash; NUL for a byte without such a form.
char escape_letter(unsigned char byte) {
  switch (byte) {
    case '\t':
      return 't';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    default:
      return '\0';
  }
}

}  // namespace

char* strtolower(char* s) {
  if (is_empty(s)) return s;
  for (char* at = s; *at != '\0'; ++at) {
    *at = static_cast<char>(std::tolower(static_cast<unsigned char>(*at)));
  }
  return s;
}

char* strtoupper(char* s) {
  if (is_empty(s)) return s;
  for (char* at = s; *at != '\0'; ++at) {
    *at = static_cast<char>(std::toupper(static_cast<unsigned char>(*at)));
  }
  return s;
}

bool is_number(const char* s) { return s != nullptr && s[std::strspn(s, "+-0123456789")] == '\0'; }

char* skipchars(const char* s, const char* set) {
  const std::size_t skipped = is_empty(s) || is_empty(set) ? 0 : std::strspn(s, set);
  // As strchr() does: whether the result may be written to is the caller's to know.
  return const_cast<char*>(s + skipped);
}

char* stripchars(char* s, const char* set) {
  if (s == nullptr || set == nullptr) return nullptr;
  char* const begin = skipchars(s, set);
  char* const end = begin + std::strlen(begin);
  char* kept = end;
  while (kept > begin && std::strchr(set, kept[-1]) != nullptr) --kept;
  if (kept < end) *kept = '\0';
  return begin;
}

char* stripwhite(char* s) { return stripchars(s, " \t\r\n"); }

void reverse(char* s) {
  if (s != nullptr) std::reverse(s, s + std::strlen(s));
}

int stricmp(const char* a, const char* b) { return strnicmp(a, b, static_cast<std::size_t>(-1)); }

int strnicmp(const char* a, const char* b, size_t n) {
  if (a == nullptr) a = "";
  if (b == nullptr) b = "";
  for (; n > 0; --n, ++a, ++b) {
    const auto left = static_cast<unsigned char>(rkutils::text::to_lower(*a));
    const auto right = static_cast<unsigned char>(rkutils::text::to_lower(*b));
    if (left != right) return left < right ? -1 : 1;
    if (left == '\0') return 0;
  }
  return 0;
}

char* escape(const char* src, size_t srcLen, char* dst, size_t dstSize) {
  constexpr unsigned char kFirstPrintable = 32;
  constexpr unsigned char kCaretOffset = 64;
  if (dst == nullptr || dstSize == 0) return dst;
  const std::size_t limit = src == nullptr || dstSize < 2 ? 0 : dstSize - 2;
  std::size_t length = 0;
  for (std::size_t i = 0; i < srcLen && length < limit && src[i] != '\0'; ++i) {
    const auto byte = static_cast<unsigned char>(src[i]);
    const char letter = escape_letter(byte);
    if (letter != '\0') {
      dst[length++] = '\\';
      dst[length++] = letter;
    } else if (byte < kFirstPrintable) {
      dst[length++] = '^';
      dst[length++] = static_cast<char>(byte + kCaretOffset);
    } else {
      dst[length++] = src[i];
    }
  }
  dst[length] = '\0';
  return dst;
}

char* strformat(const char* fmt, ...) {
  static char result[kFormatSize];
  // Formatted elsewhere first, for the values may point into the last result.
  char text[kFormatSize];
  int length = -1;
  if (fmt != nullptr) {
    va_list values;
    va_start(values, fmt);
    length = std::vsnprintf(text, sizeof text, fmt, values);
    va_end(values);
  }
  // Not measured again: a %c may have written a NUL.
  const std::size_t stored =
      length < 0 ? 0 : std::min(static_cast<std::size_t>(length), sizeof text - 1);
  std::memcpy(result, text, stored);
  result[stored] = '\0';
  return result;
}

char* xml_readattr(const char* text, const char* tag) {
  static char result[kAttributeSize];
  if (is_empty(text) || is_empty(tag)) return nullptr;

  const char* const opening = strformat("<%s>", tag);
  const char* found = std::strstr(text, opening);
  if (found == nullptr) return nullptr;
  found += std::strlen(opening);
  if (*found == '\0') return nullptr;
  // Text and tag may be in the last result: both are read before it is overwritten.
  const char* const closing_tag = strformat("</%s>", tag);
  const std::size_t copied = ::strnlen(found, sizeof result - 1);
  std::memmove(result, found, copied);
  result[copied] = '\0';

  char* const closing = std::strstr(result, closing_tag);
  if (closing == nullptr) return nullptr;
  *closing = '\0';
  return result;
}

int e164Number(const char* s) {
  if (s == nullptr) return -1;
  for (; *s != '\0'; ++s) {
    const bool letter_or_digit = rkutils::text::is_upper(*s) || rkutils::text::is_digit(*s);
    if (!letter_or_digit && *s != '*' && *s != '#' && *s != '?') return -1;
  }
  return 0;
}
