#include <rkutils/configuration/cfread/value_number.h>

#include <cstdint>
#include <cstring>

namespace rkutils::cfread {
namespace {

constexpr long kNoNumber = -1;

bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

// Of digits to the end of the text.
long number_of_digits(const char* digits, bool negative) {
  // What strtol() gives where it overflows on the target. Programs know them as no number, so they
  // are none where written out either.
  const std::int64_t limit = negative ? -std::int64_t{INT32_MIN} : INT32_MAX;
  std::int64_t magnitude = 0;
  for (; is_digit(*digits); ++digits) {
    magnitude = magnitude * 10 + (*digits - '0');
    if (magnitude >= limit) magnitude = limit;
  }
  if (*digits != '\0' || magnitude == limit) return kNoNumber;
  return static_cast<long>(negative ? -magnitude : magnitude);
}

}  // namespace

long number_of_value(const char* value) noexcept {
  if (*value == '+' || *value == '-') return number_of_digits(value + 1, *value == '-');
  if (is_digit(*value)) return number_of_digits(value, false);
  if (std::strcmp(value, "true") == 0) return 1;
  if (std::strcmp(value, "false") == 0) return 0;
  return kNoNumber;
}

}  // namespace rkutils::cfread
