// Times as texts, beside a calendar that counts days.

#include <rkutils/text.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "target.h"

namespace {

using fuzz::expect_equal;
using fuzz::Input;
using fuzz::Text;

// ---- What begins with numbers in ranges

struct Field {
  char separator;
  int first;
  int last;
};

bool is_white(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

// Takes white space, a sign and digits. False where there is no number, or one out of range.
bool take_field(const char*& text, const Field& field) {
  if (field.separator != '\0' && *text++ != field.separator) return false;
  while (is_white(*text)) ++text;
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  if (*text < '0' || *text > '9') return false;
  long number = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    if (number < 100000) number = number * 10 + (*text - '0');
  }
  if (negative) number = -number;
  return number >= field.first && number <= field.last;
}

template <std::size_t kCount>
int validated(const char* text, const std::array<Field, kCount>& fields) {
  for (const Field& field : fields) {
    if (!take_field(text, field)) return -1;
  }
  return 0;
}

void check_validation(const Text& text) {
  const std::array<Field, 3> date = {{{'\0', 1999, 2035}, {'-', 1, 12}, {'-', 1, 31}}};
  const std::array<Field, 3> time = {{{'\0', 0, 23}, {':', 0, 59}, {':', 0, 59}}};
  const std::array<Field, 6> both = {
      {date[0], date[1], date[2], {'T', 0, 23}, {':', 0, 59}, {':', 0, 59}}};
  expect_equal(validateDate(text.c_str()), validated(text.c_str(), date), "whether it is a date");
  expect_equal(validateTime(text.c_str()), validated(text.c_str(), time), "whether it is a time");
  expect_equal(validateTimeString(text.c_str()), validated(text.c_str(), both),
               "whether it is both");
}

// ---- The calendar

bool is_leap(long year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// Days from 1970 to the first day of a year.
long days_to(long year) {
  long days = 0;
  for (long each = 1970; each < year; ++each) days += is_leap(each) ? 366 : 365;
  for (long each = year; each < 1970; ++each) days -= is_leap(each) ? 366 : 365;
  return days;
}

void check_calendar(Input& input) {
  const int year = static_cast<int>(input.below(400)) + 1800;
  const int month = static_cast<int>(input.below(12)) + 1;
  const int day = static_cast<int>(input.below(31)) + 1;
  const int hour = static_cast<int>(input.below(24));
  const int minute = static_cast<int>(input.below(60));
  const int second = static_cast<int>(input.below(60));
  static const std::array<int, 12> kDaysBefore = {0,   31,  59,  90,  120, 151,
                                                  181, 212, 243, 273, 304, 334};
  const long days = days_to(year) + kDaysBefore[static_cast<std::size_t>(month - 1)] +
                    (month > 2 && is_leap(year) ? 1 : 0) + day - 1;
  const long long seconds =
      ((static_cast<long long>(days) * 24 + hour) * 60 + minute) * 60 + second;
  const auto expected = static_cast<std::time_t>(seconds);
  if (expected != seconds) return;  // of a time_t of 32 bits
  char text[96];  // as a compiler wants it that does not know how large the numbers are
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", year, month, day, hour, minute,
                second);
  expect_equal(timeparse(text), expected, "the time read");
  // A day that the month does not have is written as one of the next.
  const std::string written = timeformat(&expected);
  expect_equal(timeparse(written.c_str()), expected, "the time read again");
  if (day <= 28) expect_equal(written, std::string(text), "the time written");
  if (year >= 1969 && year <= 2068) {
    expect_equal(timeparse(text + 2), expected, "the time with a short year");
  }
}

void check_any(const Text& text) {
  const std::time_t time = timeparse(text.c_str());
  const std::string written = timeformat(&time);
  // Of years with four digits, all that is read is written, and read again.
  if (written.size() == 19 && written[0] != '-') {
    expect_equal(timeparse(written.c_str()), time, "any time read again");
  }
}

}  // namespace

// Numbers for the calendar, and a text.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int kUtc = setenv("TZ", "UTC", 1);
  if (kUtc != 0) return 0;
  Input input(data, size);
  check_calendar(input);
  const Text text(input.rest());
  check_validation(text);
  check_any(text);
  return 0;
}
