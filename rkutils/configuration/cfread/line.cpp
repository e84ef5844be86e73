#include <rkutils/configuration/cfread/line.h>
#include <rkutils/text.h>

#include <array>
#include <cstddef>
#include <cstring>

namespace rkutils::cfread {
namespace {

constexpr char kInclude[] = "include ";
constexpr std::size_t kIncludeLength = sizeof kInclude - 1;

// Whether the line ends here, with a line end or without one.
constexpr bool is_end(char byte) { return byte == '\n' || byte == '\r' || byte == '\0'; }

// Files in encodings of more than 7 bits are read as if those characters were not there.
constexpr bool is_dropped(char byte) { return static_cast<unsigned char>(byte) >= 128; }

enum Special : unsigned char { kInKey = 1, kInValue = 2 };

// For each byte, where it is special: anywhere else it is taken as it is. Most bytes of most lines
// are taken as they are, and lie where they belong already.
constexpr std::array<unsigned char, 256> kSpecial = [] {
  std::array<unsigned char, 256> special = {};
  for (unsigned byte = 0; byte < special.size(); ++byte) {
    const char as_char = static_cast<char>(byte);
    if (is_end(as_char) || is_dropped(as_char)) special[byte] = kInKey | kInValue;
    if (as_char == ' ' || as_char == '=') special[byte] = kInKey;
  }
  return special;
}();

char* find_special(char* from, Special where) {
  while ((kSpecial[static_cast<unsigned char>(*from)] & where) == 0) ++from;
  return from;
}

Line parse_entry(char* text) {
  char* from = find_special(text, kInKey);
  if (from - text > kMaxTextLength) return {LineKind::kKeyTooLong};
  char* key_end = from;
  for (; *from != '=' && !is_end(*from); ++from) {
    if (is_dropped(*from)) continue;
    // A space counts here although no key holds it.
    if (key_end == text + kMaxTextLength) return {LineKind::kKeyTooLong};
    if (*from != ' ') *key_end++ = *from;
  }

  if (*from == '=') ++from;
  // Without "=" the line ends here, and the value is what stands before that: nothing.
  while (*from == ' ' || is_dropped(*from)) ++from;
  char* const value = from;
  from = find_special(from, kInValue);
  if (from - value > kMaxTextLength) return {LineKind::kValueTooLong};
  char* value_end = from;
  for (; !is_end(*from); ++from) {
    if (is_dropped(*from)) continue;
    if (value_end == value + kMaxTextLength) return {LineKind::kValueTooLong};
    *value_end++ = *from;
  }

  if (*from == '\0') return {LineKind::kUnterminated};
  *key_end = '\0';
  *value_end = '\0';
  return {LineKind::kEntry, text, value};
}

}  // namespace

Line parse_line(char* text) noexcept {
  if (*text == *kInclude && std::strncmp(text, kInclude, kIncludeLength) == 0) {
    return {LineKind::kInclude, "", stripwhite(text + kIncludeLength)};
  }
  if (*text == '#') return {LineKind::kComment};
  return parse_entry(text);
}

}  // namespace rkutils::cfread
