// Numbers as text with a radix suffix, and hexadecimal dumps.

#include <rkutils/foundations/text/ascii.h>
#include <rkutils/foundations/text/digits.h>
#include <rkutils/text.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

namespace {

// valueOf32() looks at no more of a text.
constexpr std::size_t kSignificant = 33;

// Writes a decimal number with its NUL.
char* write_decimal(char* buffer, bool negative, std::uint32_t magnitude) {
  char* const first = negative ? buffer + 1 : buffer;
  char* const end = first + rkutils::text::count_decimal_digits(magnitude);
  rkutils::text::write_decimal(end, magnitude);
  *end = '\0';
  if (negative) *buffer = '-';
  return buffer;
}

// Writes a number in digits of 1, 3 or 4 bits, with the suffix and a NUL.
char* write_digits_of_bits(char* buffer, std::uint32_t value, unsigned bits, char suffix) {
  char* const end = buffer + rkutils::text::count_digits_of_bits(value, bits);
  rkutils::text::write_power_of_two(end, value, bits, true);
  end[0] = suffix;
  end[1] = '\0';
  return buffer;
}

// `value` in base 2, 8 or 16; NULL for any other.
char* write_in_base(std::uint32_t value, char* buffer, int base) {
  switch (base) {
    case 2:
      return write_digits_of_bits(buffer, value, 1, 'b');
    case 8:
      return write_digits_of_bits(buffer, value, 3, 'o');
    case 16:
      return write_digits_of_bits(buffer, value, 4, 'h');
    default:
      return nullptr;
  }
}

std::uint32_t magnitude_of(std::int32_t value) {
  // Negated as unsigned: the smallest value has no positive counterpart.
  return value < 0 ? 0 - static_cast<std::uint32_t>(value) : static_cast<std::uint32_t>(value);
}

std::uint32_t digit_value(char character, std::uint32_t base) {
  if (base == 16 && rkutils::text::hex_value(character) < 16) {
    return rkutils::text::hex_value(character);
  }
  return static_cast<std::uint32_t>(static_cast<unsigned char>(character)) - '0';
}

// The digits from `begin` to `end` as a number, in the base of the suffix at `end`.
std::uint32_t read_with_suffix(const char* begin, const char* end) {
  std::uint32_t base = 10;
  if (*end == 'b') base = 2;
  if (*end == 'o') base = 8;
  if (*end == 'h' || *end == 'x') base = 16;
  std::uint32_t value = 0;
  for (; begin != end; ++begin) value = value * base + digit_value(*begin, base);
  return value;
}

// The 32-bit words that hold so many bytes.
std::uint32_t count_words(std::uint32_t bytes) {
  constexpr std::uint32_t kWordSize = sizeof(std::uint32_t);
  return bytes / kWordSize + (bytes % kWordSize != 0 ? 1 : 0);
}

// The first `most` characters of a text as a number, suffix included. Read as a decimal one, until
// the last character shows that it is something else.
std::uint32_t read_number(const char* text, std::size_t most) {
  std::uint32_t value = 0;
  std::size_t length = 0;
  for (; length < most && text[length] != '\0'; ++length) {
    value = value * 10 + digit_value(text[length], 10);
  }
  if (length == 0 || !rkutils::text::is_lower(text[length - 1])) return value;
  return read_with_suffix(text, text + length - 1);
}

// Whether the text is a decimal number of that range as printf() writes it, so that what is read
// from it would be printed the same.
bool is_printed_number(const char* text, std::int64_t min, std::int64_t max) {
  constexpr int kMostDigits = 10;
  const bool negative = *text == '-';
  if (negative) ++text;
  if (*text == '0') return !negative && text[1] == '\0';
  std::int64_t value = 0;
  int digits = 0;
  for (; rkutils::text::is_digit(*text); ++text) {
    if (++digits > kMostDigits) return false;
    value = value * 10 + (*text - '0');
  }
  if (negative) value = -value;
  return digits > 0 && *text == '\0' && value >= min && value <= max;
}

// The four validValueOf… functions.
template <typename Value>
Value read_printed(int* ok, const char* s, Value (*read)(const char*)) {
  using Limits = std::numeric_limits<Value>;
  if (ok != nullptr) {
    *ok = s != nullptr && is_printed_number(s, Limits::min(), Limits::max()) ? 0 : -1;
  }
  return read(s);
}

// The four validRangeValueOf… functions.
template <typename Value>
void check_range(int* ok, const char* s, Value min, Value max, Value (*read)(int*, const char*)) {
  if (ok == nullptr) return;
  const Value value = read(ok, s);
  if (value < min || value > max) *ok = -1;
}

}  // namespace

char* i32toa(int32_t value, char* buf, int base) {
  if (buf == nullptr) return nullptr;
  if (base == 10) return write_decimal(buf, value < 0, magnitude_of(value));
  if (value < 0 && base != 2) return nullptr;
  return write_in_base(static_cast<std::uint32_t>(value), buf, base);
}

char* u_i32toa(uint32_t value, char* buf, int base) {
  if (buf == nullptr) return nullptr;
  if (base == 10) return write_decimal(buf, false, value);
  return write_in_base(value, buf, base);
}

char* i16toa(int16_t value, char* buf, int base) {
  if (base == 10) return i32toa(value, buf, base);
  return u_i32toa(static_cast<std::uint16_t>(value), buf, base);
}

char* u_i16toa(uint16_t value, char* buf, int base) { return u_i32toa(value, buf, base); }

int32_t valueOf32(const char* s) {
  if (s == nullptr) return 0;
  if (*s != '-') return static_cast<std::int32_t>(read_number(s, kSignificant));
  return static_cast<std::int32_t>(0 - read_number(s + 1, kSignificant - 1));
}

uint32_t u_valueOf32(const char* s) { return s == nullptr ? 0 : read_number(s, kSignificant); }

int16_t valueOf16(const char* s) { return static_cast<std::int16_t>(valueOf32(s)); }

uint16_t u_valueOf16(const char* s) { return static_cast<std::uint16_t>(u_valueOf32(s)); }

int32_t validValueOf32(int* ok, const char* s) { return read_printed(ok, s, valueOf32); }

uint32_t u_validValueOf32(int* ok, const char* s) { return read_printed(ok, s, u_valueOf32); }

int16_t validValueOf16(int* ok, const char* s) { return read_printed(ok, s, valueOf16); }

uint16_t u_validValueOf16(int* ok, const char* s) { return read_printed(ok, s, u_valueOf16); }

void validRangeValueOf32(int* ok, const char* s, int32_t min, int32_t max) {
  check_range(ok, s, min, max, validValueOf32);
}

void u_validRangeValueOf32(int* ok, const char* s, uint32_t min, uint32_t max) {
  check_range(ok, s, min, max, u_validValueOf32);
}

void validRangeValueOf16(int* ok, const char* s, int16_t min, int16_t max) {
  check_range(ok, s, min, max, validValueOf16);
}

void u_validRangeValueOf16(int* ok, const char* s, uint16_t min, uint16_t max) {
  check_range(ok, s, min, max, u_validValueOf16);
}

uint32_t nextHigherPowerOf2(uint32_t x) {
  constexpr std::uint32_t kLargest = 1U << 31U;
  if (x <= 1) return 1;
  if (x > kLargest) return 0;
  return kLargest >> (static_cast<unsigned>(__builtin_clz(x - 1)) - 1);
}

#define HEX_PAIR(high, low) \
  { high, low, '\0' }
#define HEX_ROW(high)                                                                     \
  HEX_PAIR(high, '0'), HEX_PAIR(high, '1'), HEX_PAIR(high, '2'), HEX_PAIR(high, '3'),     \
      HEX_PAIR(high, '4'), HEX_PAIR(high, '5'), HEX_PAIR(high, '6'), HEX_PAIR(high, '7'), \
      HEX_PAIR(high, '8'), HEX_PAIR(high, '9'), HEX_PAIR(high, 'a'), HEX_PAIR(high, 'b'), \
      HEX_PAIR(high, 'c'), HEX_PAIR(high, 'd'), HEX_PAIR(high, 'e'), HEX_PAIR(high, 'f')

// An array cannot be the result of a function, so that no function could fill this one.
const char binToHexLut[256][3] = {HEX_ROW('0'), HEX_ROW('1'), HEX_ROW('2'), HEX_ROW('3'),
                                  HEX_ROW('4'), HEX_ROW('5'), HEX_ROW('6'), HEX_ROW('7'),
                                  HEX_ROW('8'), HEX_ROW('9'), HEX_ROW('a'), HEX_ROW('b'),
                                  HEX_ROW('c'), HEX_ROW('d'), HEX_ROW('e'), HEX_ROW('f')};

#undef HEX_ROW
#undef HEX_PAIR

void convBinToHex(uint32_t value, char* out) {
  unsigned char bytes[sizeof value];
  std::memcpy(bytes, &value, sizeof value);
  *out++ = '0';
  *out++ = 'x';
  for (const unsigned char byte : bytes) {
    std::memcpy(out, binToHexLut[byte], 2);
    out += 2;
  }
  *out = '\0';
}

void dataChunk2String(const void* data, char* out, uint32_t byteCount, uint32_t bytesPerLine) {
  constexpr std::size_t kWordText = 10;
  constexpr std::uint32_t kWordSize = sizeof(std::uint32_t);
  const auto* bytes = static_cast<const unsigned char*>(data);
  std::uint32_t left_in_line = bytesPerLine;
  for (std::uint32_t words = count_words(byteCount); words > 0; --words) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes, kWordSize);
    bytes += kWordSize;
    convBinToHex(word, out);
    out += kWordText;
    *out++ = ' ';
    if (left_in_line > kWordSize) {
      left_in_line -= kWordSize;
    } else if (bytesPerLine != 0) {
      // The end of one line or, where lines are no whole words, of several.
      const std::uint32_t in_next_line = (kWordSize - left_in_line) % bytesPerLine;
      if (in_next_line == 0) *out++ = '\n';
      left_in_line = bytesPerLine - in_next_line;
    }
  }
  *out++ = '\n';
  *out = '\0';
}

uint32_t nbrOfChars_forDataChunk2String(uint32_t byteCount, uint32_t bytesPerLine) {
  constexpr std::uint64_t kWordSize = sizeof(std::uint32_t);
  constexpr std::uint64_t kWordText = 11;
  const std::uint64_t words = count_words(byteCount);
  const std::uint64_t per_line = bytesPerLine == 0 ? words * kWordSize : bytesPerLine;
  const std::uint64_t lines = per_line == 0 ? 1 : (byteCount + per_line - 1) / per_line;
  const std::uint64_t regular = lines * (kWordText * (per_line / kWordSize) + 2) + 1;
  // The text itself, with a line feed after every word at most.
  const std::uint64_t line_feeds = bytesPerLine == 0 ? 0 : words * kWordSize / bytesPerLine;
  const std::uint64_t needed = words * kWordText + std::min(line_feeds, words) + 2;
  const std::uint64_t size = std::max(regular, needed);
  return static_cast<std::uint32_t>(
      std::min<std::uint64_t>(size, std::numeric_limits<std::uint32_t>::max()));
}
