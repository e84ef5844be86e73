// Time: reading, writing, measuring, validating.

#include <rkutils/foundations/text/identifier.h>
#include <rkutils/text.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <sys/sysinfo.h>

namespace {

constexpr std::int32_t kNanosecondsPerSecond = 1000000000;

struct Range {
  long first;
  long last;
};

constexpr Range kYear = {1999, 2035};
constexpr Range kMonth = {1, 12};
constexpr Range kDay = {1, 31};
constexpr Range kHour = {0, 23};
constexpr Range kMinute = {0, 59};
constexpr Range kSecond = {0, 59};

// A number of a validated text, and the character that stands before it; NUL before the first.
struct Field {
  char separator;
  Range range;
};

// Whether `s` begins with the fields, each within its range. As sscanf() with "%d" would have it,
// but numbers too large for an int are out of range instead of undefined.
template <std::size_t kCount>
int validate(const char* s, const std::array<Field, kCount>& fields) {
  if (s == nullptr) return -1;
  for (const Field& field : fields) {
    if (field.separator != '\0' && *s++ != field.separator) return -1;
    char* end = nullptr;
    const long number = std::strtol(s, &end, 10);
    if (end == s || number < field.range.first || number > field.range.last) return -1;
    s = end;
  }
  return 0;
}

// Reads `s` as local time. False where it is not of this form.
bool parse_local_time(const char* s, const char* form, std::time_t& time) {
  std::tm fields = {};
  if (::strptime(s, form, &fields) == nullptr) return false;
  fields.tm_isdst = -1;  // whether summer time was in force, the C library knows best
  time = std::mktime(&fields);
  return true;
}

}  // namespace

long jiffy(void) {
  struct sysinfo information = {};
  return ::sysinfo(&information) == 0 ? static_cast<long>(information.uptime) : 0;
}

char* timeformat(const time_t* t) {
  static char result[256];
  const std::time_t time = t != nullptr ? *t : std::time(nullptr);
  std::tm fields = {};
  ::tzset();  // glibc's localtime_r() does not notice that the zone has changed
  if (::localtime_r(&time, &fields) == nullptr) return std::strcpy(result, "1970-01-01 00:00:00");
  // A year may have more digits than an int.
  std::snprintf(result, sizeof result, "%04lld-%02d-%02d %02d:%02d:%02d", 1900LL + fields.tm_year,
                fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
  return result;
}

time_t timeparse(const char* s) {
  if (s == nullptr || *s == '\0') return 0;
  std::time_t time = 0;
  if (!parse_local_time(s, "%y-%m-%d %H:%M:%S", time) &&
      !parse_local_time(s, "%Y-%m-%d %H:%M:%S", time)) {
    return 0;
  }
  std::tm fields = {};
  if (::gmtime_r(&time, &fields) == nullptr) return 0;
  return std::mktime(&fields);
}

time_difference diffts(const struct timespec* a, const struct timespec* b) {
  // In unsigned arithmetic, which wraps where the 32 bits of the result would overflow.
  auto seconds = static_cast<std::uint64_t>(b->tv_sec) - static_cast<std::uint64_t>(a->tv_sec);
  std::int64_t nanoseconds = static_cast<std::int64_t>(b->tv_nsec) - a->tv_nsec;
  if (nanoseconds < 0) {
    nanoseconds += kNanosecondsPerSecond;
    --seconds;
  }
  return {static_cast<std::int32_t>(seconds), static_cast<std::int32_t>(nanoseconds)};
}

int64_t uselapsed(const struct timespec* a, const struct timespec* b) {
  constexpr std::uint64_t kMicrosecondsPerSecond = 1000000;
  constexpr std::int64_t kNanosecondsPerMicrosecond = 1000;
  const std::int64_t fraction =
      (static_cast<std::int64_t>(b->tv_nsec) - a->tv_nsec) / kNanosecondsPerMicrosecond;
  const std::uint64_t seconds =
      static_cast<std::uint64_t>(b->tv_sec) - static_cast<std::uint64_t>(a->tv_sec);
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(fraction) +
                                   kMicrosecondsPerSecond * seconds);
}

uint32_t mkid(void) {
  return rkutils::text::make_identifier(static_cast<std::uint32_t>(std::time(nullptr)),
                                        static_cast<std::uint32_t>(::random()));
}

int validateTimeString(const char* s) {
  return validate<6>(
      s,
      {{{'\0', kYear}, {'-', kMonth}, {'-', kDay}, {'T', kHour}, {':', kMinute}, {':', kSecond}}});
}

int validateDate(const char* s) {
  return validate<3>(s, {{{'\0', kYear}, {'-', kMonth}, {'-', kDay}}});
}

int validateTime(const char* s) {
  return validate<3>(s, {{{'\0', kHour}, {':', kMinute}, {':', kSecond}}});
}
