// The driver's file of a frequency, whatever is in it.

#include <rkutils/dio.h>

#include <cstdint>
#include <optional>
#include <string>

#include "support/kernel_folder.h"
#include "target.h"

namespace {

using fuzz::expect_equal;

constexpr const char* kFile = "devices/halcyonix/din1/frequency";

bool is_white(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

// White space, a sign and digits. `large` becomes true for what 31 bits cannot hold, of which the C
// library makes this or that.
std::optional<long> take_number(const std::string& text, std::size_t& at, bool& large) {
  while (at < text.size() && is_white(text[at])) ++at;
  const bool negative = at < text.size() && text[at] == '-';
  if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
  const std::size_t begin = at;
  long number = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    const long digit = text[at] - '0';
    large = large || number > (INT32_MAX - digit) / 10;
    if (!large) number = number * 10 + digit;
  }
  if (at == begin) return std::nullopt;
  return negative ? -number : number;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const support::KernelFolder sys("/sys");
  fuzz::Input input(data, size);
  const std::string text = input.rest();
  sys.put(kFile, text);
  DioFrequency frequency = {77, 77, 77};
  const unsigned result = dio_frequency(1, &frequency);

  std::size_t at = 0;
  bool large = false;
  const auto first = take_number(text, at, large);
  const auto second = first ? take_number(text, at, large) : std::nullopt;
  const auto value = second ? take_number(text, at, large) : std::nullopt;
  if (!value) {
    // A file of nothing but white space ends before the first number.
    const bool ends = text.find_first_not_of(" \t\n\v\f\r") == std::string::npos;
    expect_equal(result, static_cast<unsigned>(ends ? DIO_ERR_IO : DIO_ERR_LEXICAL), "the result");
    return 0;
  }
  if (large) return 0;
  expect_equal(result,
               static_cast<unsigned>(*first == 0 && *second == 0 ? DIO_ERR_INACTIVE : DIO_OK),
               "the result");
  expect_equal(frequency.first, *first, "the first number");
  expect_equal(frequency.second, *second, "the second number");
  expect_equal(frequency.value, static_cast<unsigned long>(static_cast<std::uint32_t>(*value)),
               "the value");
  return 0;
}
