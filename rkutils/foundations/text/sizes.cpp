// Sizes and rates for people.

#include <rkutils/text.h>

#include <cinttypes>
#include <cstdint>
#include <cstdio>

namespace {

constexpr char kUnits[] = " KMGT";

// A number that is not negative by 1024, with rounding, without overflow at the top of the range.
template <typename Integer>
Integer divide_by_1024(Integer value) {
  return value / 1024 + value % 1024 / 512;
}

}  // namespace

char* format_size(int64_t bytes) {
  constexpr std::int64_t kLargest = 9999;
  static char result[256];
  const char* unit = kUnits;
  for (; bytes > kLargest && *unit != 'T'; ++unit) bytes = divide_by_1024(bytes);
  if (*unit == ' ') {
    std::snprintf(result, sizeof result, "%" PRId64 " B", bytes);
  } else {
    std::snprintf(result, sizeof result, "%" PRId64 " %cB", bytes, *unit);
  }
  return result;
}

char* format_rate(int64_t bytesPerSecond) {
  constexpr std::uint64_t kLargest = 99999;
  static char result[256];
  const std::uint64_t magnitude = bytesPerSecond < 0
                                      ? 0 - static_cast<std::uint64_t>(bytesPerSecond)
                                      : static_cast<std::uint64_t>(bytesPerSecond);
  // Hundredths of bits by 1024 with rounding, (magnitude * 800 + 512) / 1024, in a form that does
  // not overflow: 800 / 1024 is 25 / 32.
  std::uint64_t hundredths = magnitude / 32 * 25 + (magnitude % 32 * 25 + 16) / 32;
  const char* unit = kUnits + 1;
  for (; hundredths > kLargest && *unit != 'T'; ++unit) {
    hundredths = divide_by_1024(hundredths);
  }
  hundredths += 5;
  std::snprintf(result, sizeof result, "%s%" PRIu64 ".%" PRIu64 " %cbit/s",
                bytesPerSecond < 0 ? "-" : "", hundredths / 100, hundredths / 10 % 10, *unit);
  return result;
}
