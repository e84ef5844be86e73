// Numbers with radix suffixes, read and written, beside the rules; and tables of bytes.

#include <rkutils/text.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "foundations/number_rules.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;
using fuzz::Text;

constexpr int kUntouched = 77;

// Whether a text is a number of the type as it is printed.
template <typename Value>
bool is_printed(const std::string& text) {
  const std::size_t sign = text.empty() || text[0] != '-' ? 0 : 1;
  const std::string digits = text.substr(sign);
  if (digits.empty() || digits.size() > 10) return false;
  if (digits.find_first_not_of("0123456789") != std::string::npos) return false;
  const long long value = std::stoll(text);
  return std::to_string(value) == text && value >= std::numeric_limits<Value>::min() &&
         value <= std::numeric_limits<Value>::max();
}

template <typename Value>
struct Functions {
  Value (*read)(const char*);
  Value (*read_valid)(int*, const char*);
  void (*check_range)(int*, const char*, Value, Value);
  char* (*write)(Value, char*, int);
};

// The signed functions take a sign; those of 16 bits cut what those of 32 bits read.
template <typename Value>
void check_reading(const Functions<Value>& functions, const Text& text, Value min, Value max) {
  const auto expected = static_cast<Value>(
      value_by_rules(std::string(text.view()), std::numeric_limits<Value>::is_signed));
  const bool valid = is_printed<Value>(std::string(text.view()));
  expect_equal(functions.read(text.c_str()), expected, "the number");
  int ok = kUntouched;
  expect_equal(functions.read_valid(&ok, text.c_str()), expected, "the number that is checked");
  expect_equal(ok, valid ? 0 : -1, "whether it is valid");
  if (valid)
    expect_equal(static_cast<long long>(expected), std::stoll(text.c_str()), "the valid number");
  ok = kUntouched;
  functions.check_range(&ok, text.c_str(), min, max);
  expect_equal(ok, valid && expected >= min && expected <= max ? 0 : -1, "whether it is in range");
}

template <typename Value>
void check_writing(const Functions<Value>& functions, Value value) {
  constexpr bool kWide = sizeof(Value) == 4;
  using Bits = std::conditional_t<kWide, std::uint32_t, std::uint16_t>;
  for (const int base : {0, 2, 8, 10, 16, 36}) {
    std::array<char, kWide ? 34 : 18> buffer;
    buffer.fill('#');
    const char* const text = functions.write(value, buffer.data(), base);
    const bool negative = value < 0;
    const bool refused =
        base == 0 || base == 36 || (kWide && negative && (base == 8 || base == 16));
    expect(text == (refused ? nullptr : buffer.data()), "its own buffer, or NULL");
    if (refused) {
      expect(buffer[0] == '#', "nothing is written where it is refused");
      continue;
    }
    const std::string expected =
        base == 10 ? std::to_string(value) : by_rules(static_cast<Bits>(value), base);
    expect_equal(std::string(text), expected, "the text");
    expect_equal(functions.read(text), value, "the number read again");
    int ok = kUntouched;
    functions.read_valid(&ok, text);
    expect_equal(ok, base == 10 ? 0 : -1, "whether what is written is valid");
  }
}

// ---- Tables

std::string hex_of(std::uint8_t byte) {
  static const char* const kDigits = "0123456789abcdef";
  return {kDigits[byte / 16], kDigits[byte % 16]};
}

void check_table(const std::string& data, std::uint32_t count, std::uint32_t per_line) {
  std::string expected;
  for (std::size_t at = 0; at < data.size(); at += 4) {
    expected += "0x";
    for (std::size_t i = 0; i < 4; ++i) expected += hex_of(static_cast<std::uint8_t>(data[at + i]));
    expected += ' ';
    // A line feed behind each word that ends a line.
    if (per_line != 0 && (at + 4) % per_line == 0) expected += '\n';
  }
  expected += '\n';
  const std::uint32_t size = nbrOfChars_forDataChunk2String(count, per_line);
  expect(size > expected.size(), "the size is enough");
  if (per_line % 4 == 0 && per_line != 0) {
    const std::uint32_t lines = (count + per_line - 1) / per_line;
    const std::uint32_t regular = lines * (11 * (per_line / 4) + 2) + 1;
    if (regular > expected.size()) expect_equal(size, regular, "the size of regular lines");
  }
  std::vector<char> out(size, '#');
  dataChunk2String(data.data(), out.data(), count, per_line);
  expect_equal(std::string(out.data()), expected, "the table");
}

}  // namespace

// Three numbers, and a text or the table's bytes.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const auto first = input.number<std::uint32_t>();
  const auto second = input.number<std::uint32_t>();
  const std::uint32_t per_line = input.byte() % 40U;
  const std::string rest = input.rest();
  const Text text(rest);

  const Functions<std::int32_t> i32 = {valueOf32, validValueOf32, validRangeValueOf32, i32toa};
  const Functions<std::uint32_t> u32 = {u_valueOf32, u_validValueOf32, u_validRangeValueOf32,
                                        u_i32toa};
  const Functions<std::int16_t> i16 = {valueOf16, validValueOf16, validRangeValueOf16, i16toa};
  const Functions<std::uint16_t> u16 = {u_valueOf16, u_validValueOf16, u_validRangeValueOf16,
                                        u_i16toa};
  check_reading(i32, text, static_cast<std::int32_t>(first), static_cast<std::int32_t>(second));
  check_reading(u32, text, first, second);
  check_reading(i16, text, static_cast<std::int16_t>(first), static_cast<std::int16_t>(second));
  check_reading(u16, text, static_cast<std::uint16_t>(first), static_cast<std::uint16_t>(second));
  check_writing(i32, static_cast<std::int32_t>(first));
  check_writing(u32, first);
  check_writing(i16, static_cast<std::int16_t>(first));
  check_writing(u16, static_cast<std::uint16_t>(first));

  std::uint64_t power = 1;
  while (power < first) power *= 2;
  expect_equal(nextHigherPowerOf2(first), static_cast<std::uint32_t>(power),
               "the next power of two");

  std::string words = rest;
  words.resize((rest.size() + 3) / 4 * 4);
  words.shrink_to_fit();
  check_table(words, static_cast<std::uint32_t>(rest.size()), per_line);
  return 0;
}
