// The formatting engine, beside the C library's. Tests of their own pin what the two differ in on
// purpose (format_generator.h).

#include <rkutils/text.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include "foundations/format_generator.h"
#include "support/choices.h"
#include "support/rounds.h"

namespace {

// Without the attribute by which a compiler checks the format, and volatile so that none looks
// through them: formats are made at run time here, and some are wrong on purpose.
int (*volatile c_library)(char*, std::size_t, const char*, ...) = std::snprintf;
int (*volatile measured)(const char*, ...) = strlenf;
int (*volatile windowed)(char*, std::size_t, std::size_t, const char*, ...) = snxprintf;

// The characters from `skip` on, with room for `size` of them and the NUL, as the engine makes
// them.
template <typename... Values>
std::string window(std::size_t skip, std::size_t size, const char* format, Values... values) {
  std::string buffer(size + 2, '#');
  const int stored = windowed(buffer.data(), skip, size, format, values...);
  EXPECT_EQ(buffer.substr(size), "##") << "written beyond the buffer";
  if (stored < 0) return "(refused)";
  if (size > 0) {
    EXPECT_EQ(buffer[static_cast<std::size_t>(stored)], '\0');
  }
  return buffer.substr(0, static_cast<std::size_t>(stored));
}

template <typename... Values>
std::string engine(const char* format, Values... values) {
  const int length = measured(format, values...);
  std::string text = window(0, 4096, format, values...);
  EXPECT_EQ(text.size(), static_cast<std::size_t>(length)) << "measuring and writing disagree";
  return text;
}

template <typename... Values>
std::string reference(const char* format, Values... values) {
  std::vector<char> buffer(4096);
  const int length = c_library(buffer.data(), buffer.size(), format, values...);
  return std::string(buffer.data(), static_cast<std::size_t>(length));
}

using format_generator::Format;
using format_generator::Generator;
using format_generator::with_values;

// Choices of a seed.
support::Choices choices_of(unsigned seed) {
  return [random = std::mt19937_64(seed)](std::size_t bound) mutable { return random() % bound; };
}

// A million in all, in parts that run side by side.
class Differential : public testing::TestWithParam<unsigned> {};

TEST_P(Differential, AgreesWithTheCLibrary) {
  const int formats = support::rounds(250000);
  Generator generator(choices_of(GetParam()));
  for (int i = 0; i < formats; ++i) {
    const Format format = generator.next();
    const std::size_t skip = generator.below(40);
    const std::size_t size = generator.below(40);
    with_values(format, [&](const char* text, auto... values) {
      const std::string expected = reference(text, values...);
      ASSERT_EQ(engine(text, values...), expected) << '"' << text << '"';
      const std::string rest = expected.substr(std::min(skip, expected.size()));
      ASSERT_EQ(window(skip, size, text, values...), rest.substr(0, size > 0 ? size - 1 : 0))
          << '"' << text << "\", skip " << skip << ", size " << size;
    });
    if (HasFatalFailure()) return;
  }
}

TEST_P(Differential, AgreesInEveryWindow) {
  const int formats = support::rounds(150);
  Generator generator(choices_of(GetParam() + 100));
  for (int i = 0; i < formats; ++i) {
    const Format format = generator.next();
    with_values(format, [&](const char* text, auto... values) {
      const std::string expected = reference(text, values...);
      for (std::size_t skip = 0; skip <= expected.size() + 1; ++skip) {
        const std::string rest = expected.substr(std::min(skip, expected.size()));
        for (std::size_t size = 0; size <= rest.size() + 2; ++size) {
          ASSERT_EQ(window(skip, size, text, values...), rest.substr(0, size > 0 ? size - 1 : 0))
              << '"' << text << "\", skip " << skip << ", size " << size;
        }
      }
    });
    if (HasFatalFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Seed, Differential, testing::Values(1U, 2U, 3U, 4U));

const char* no_text = nullptr;

TEST(FormatEngine, PrintsANullStringAsItsName) {
  EXPECT_EQ(engine("%s", no_text), "(null)");
  EXPECT_EQ(engine("%8s|", no_text), "  (null)|");
  EXPECT_EQ(engine("%.3s", no_text), "(nu");
  EXPECT_EQ(engine("%.9s", no_text), "(null)");
}

TEST(FormatEngine, PrintsAPointerInHexadecimal) {
  const auto pointer = [](std::uintptr_t value) { return reinterpret_cast<void*>(value); };
  EXPECT_EQ(engine("%p", pointer(0xbeef)), "0xbeef");
  EXPECT_EQ(engine("%10p|%-10p|", pointer(0xbeef), pointer(0xcafe)), "    0xbeef|0xcafe    |");
  EXPECT_EQ(engine("%p", pointer(0)), "0x0");
}

TEST(FormatEngine, TakesWideConversionsForNarrowOnes) {
  EXPECT_EQ(engine("%lc%ls", 'a', "bc"), "abc");
}

TEST(FormatEngine, PrintsAnUnknownConversionsCharacter) {
  EXPECT_EQ(engine("%y%d", 5), "y5");
  EXPECT_EQ(engine("%5q|%-03.2Q", 0), "q|Q");
  EXPECT_EQ(engine("%f%e%g%a", 0), "fega");
  EXPECT_EQ(engine("%zd", 5), "zd");
  EXPECT_EQ(engine("%5%|", 0), "%|");
}

TEST(FormatEngine, PrintsNothingForAConversionThatTheFormatEndsIn) {
  for (const char* format : {"ab%", "ab%-", "ab%5", "ab%5.", "ab%5.3", "ab%l", "ab%hh"}) {
    EXPECT_EQ(engine(format, 0), "ab") << format;
  }
  EXPECT_EQ(engine("ab%*", 5), "ab");
}

TEST(FormatEngine, PrintsNothingForAnEmptyFormat) {
  EXPECT_EQ(engine("", 0), "");
  EXPECT_EQ(window(5, 4, "", 0), "");
}

TEST(FormatEngine, TakesANegativeWidthForLeftAndANegativePrecisionForNone) {
  EXPECT_EQ(engine("%*d|", -5, 42), "42   |");
  EXPECT_EQ(engine("%0*d|", -5, 42), "42   |");
  EXPECT_EQ(engine("%.*d|", -5, 42), "42|");
  EXPECT_EQ(engine("%0*.*d|", 5, -1, 42), "00042|");
  EXPECT_EQ(engine("%.*s|", -1, "abc"), "abc|");
}

TEST(FormatEngine, PrintsTheSmallestNumbers) {
  EXPECT_EQ(engine("%d %i", INT_MIN, INT_MIN), "-2147483648 -2147483648");
  EXPECT_EQ(engine("%lld", LLONG_MIN), "-9223372036854775808");
  EXPECT_EQ(engine("%hhd %hd", 128, 32768), "-128 -32768");
}

TEST(FormatEngine, CancelsZerosForLeftAndForAPrecision) {
  EXPECT_EQ(engine("%-05d|%05.3d|%05.d|", 42, 42, 0), "42   |  042|     |");
}

TEST(FormatEngine, StoresTheCountInEachLength) {
  signed char tiny = -1;
  short small = -1;
  int normal = -1;
  long large = -1;
  long long largest = -1;
  EXPECT_EQ(measured("a%hhnb%hnc%nd%lne%lln", &tiny, &small, &normal, &large, &largest), 5);
  EXPECT_EQ(tiny, 1);
  EXPECT_EQ(small, 2);
  EXPECT_EQ(normal, 3);
  EXPECT_EQ(large, 4);
  EXPECT_EQ(largest, 5);
}

TEST(FormatEngine, CountsSkippedAndUnstoredCharacters) {
  int before = -1;
  int after = -1;
  EXPECT_EQ(window(2, 3, "abc%ndefgh%n", &before, &after), "cd");
  EXPECT_EQ(before, 3);
  EXPECT_EQ(after, 8);
}

TEST(FormatEngine, FindsACountBehindAFullWindowInEveryForm) {
  short small = -1;
  long large = -1;
  int padded = -1;
  EXPECT_EQ(window(0, 3, "abc%hn", &small), "ab");
  EXPECT_EQ(window(0, 3, "abc%ln", &large), "ab");
  EXPECT_EQ(window(0, 3, "abc%-5.3n", &padded), "ab");
  EXPECT_EQ(small, 3);
  EXPECT_EQ(large, 3);
  EXPECT_EQ(padded, 3);
}

// Formats one list of values with each of the functions that take one, in this order.
RK_PRINTF(1, 2) void format_list(const char* format, ...) {
  char reference[64];
  char engine[64];
  char rest[64];
  va_list values;
  va_list again;
  va_start(values, format);
  va_copy(again, values);
  const int length = vstrlenf(format, values);
  const int stored = vsnxprintf(engine, 0, sizeof engine, format, values);
  const int stored_rest = vsnxprintf(rest, 2, sizeof rest, format, values);
  // The functions have left the list where it was, and its copy too.
  EXPECT_EQ(std::vsnprintf(reference, sizeof reference, format, values), length);
  EXPECT_STREQ(engine, reference);
  EXPECT_EQ(stored, length);
  EXPECT_STREQ(rest, reference + 2);
  EXPECT_EQ(stored_rest, length - 2);
  EXPECT_EQ(vstrlenf(format, again), length);
  EXPECT_EQ(std::vsnprintf(reference, sizeof reference, format, again), length);
  EXPECT_STREQ(engine, reference);
  va_end(again);
  va_end(values);
}

TEST(FormatEngine, LeavesAListOfValuesWhereItWas) {
  format_list("%d %s %lld", 1, "two", 3LL);
  // More than registers hold.
  format_list("%d %d %d %d %d %d %d %d %s %*d", 1, 2, 3, 4, 5, 6, 7, 8, "nine", 4, 10);
}

// A list that has been read from goes on where it is.
RK_PRINTF(2, 3) int measure_behind_one(int* first, const char* format, ...) {
  va_list values;
  va_start(values, format);
  *first = va_arg(values, int);
  const int length = vstrlenf("%s-%d", values);
  va_end(values);
  return length;
}

TEST(FormatEngine, GoesOnInAListOfValues) {
  int first = 0;
  EXPECT_EQ(measure_behind_one(&first, "%d%s%d", 42, "abc", 100), 7);
  EXPECT_EQ(first, 42);
}

// A conversion's text has an order: what does not follow it ends the conversion, as an unknown one.
TEST(FormatEngine, FindsACountBehindAFullWindowAsItDoesInARoomyOne) {
  for (const char* format : {"abc%+n", "abc%#n", "abc% n", "abc%0n", "abc%-+ #05.3lln", "abc%5-%n",
                             "abc%.-%n", "abc%l %n", "abc%h*%n", "abc%5%%n", "abc%hl5%n",
                             "abc%.3.%n", "abc%%n%n", "abc%5-n", "abc%l-n", "abc%%n", "abc%5%n"}) {
    long long roomy = -1;
    long long full = -1;
    const std::string text = window(0, 64, format, &roomy);
    EXPECT_EQ(window(0, 3, format, &full), "ab") << format;
    EXPECT_EQ(full, roomy) << format;
    long long counted = -1;
    EXPECT_EQ(measured(format, &counted), static_cast<int>(text.size())) << format;
    EXPECT_EQ(counted, roomy) << format;
  }
  int behind_width = -1;
  EXPECT_EQ(window(0, 3, "abc%*n", 5, &behind_width), "ab");
  EXPECT_EQ(behind_width, 3);
  int behind_both = -1;
  EXPECT_EQ(window(0, 3, "abc%-*.*n", 5, 2, &behind_both), "ab");
  EXPECT_EQ(behind_both, 3);
  int behind_unknown = -1;
  EXPECT_EQ(window(0, 3, "abc%5-%n", &behind_unknown), "ab");
  EXPECT_EQ(behind_unknown, 4);
}

TEST(FormatEngine, PrintsTheNulCharacter) {
  EXPECT_EQ(engine("a%cb", 0), std::string("a\0b", 3));
  EXPECT_EQ(engine("%3c", 0), std::string("  \0", 3));
}

TEST(FormatEngine, ReadsNoValueBeyondTheWindow) {
  // The text that the second %s would print is not one.
  const auto* nowhere = reinterpret_cast<const char*>(std::uintptr_t{1});
  EXPECT_EQ(window(0, 4, "%s%s", "abcd", nowhere), "abc");
  EXPECT_EQ(window(0, 4, "%s%%n%s", "abcd", nowhere), "abc") << "a percent sign and an n";
}

TEST(FormatEngine, WritesNothingWithoutRoom) {
  EXPECT_EQ(windowed(nullptr, 0, 0, "%d", 5), 0);
  int count = -1;
  EXPECT_EQ(windowed(nullptr, 0, 0, "%n", &count), 0);
  EXPECT_EQ(count, -1);
  EXPECT_EQ(window(0, 1, "abc", 0), "");
}

TEST(FormatEngine, MeasuresUpToTheLargestInt) {
  EXPECT_EQ(measured("%2147483647d", 1), INT_MAX);
  EXPECT_EQ(measured("%-*s", INT_MAX, "a"), INT_MAX);
  EXPECT_EQ(measured("%*s", -INT_MAX, "a"), INT_MAX);
  EXPECT_EQ(measured("%.2147483647d", 1), INT_MAX);
}

struct TooLong {
  const char* format;
  int number;
};

class FormatEngineRefuses : public testing::TestWithParam<TooLong> {};

TEST_P(FormatEngineRefuses, WhatAnIntCannotTell) {
  errno = 0;
  EXPECT_EQ(measured(GetParam().format, GetParam().number, GetParam().number), -1);
  EXPECT_EQ(errno, EOVERFLOW);
}

INSTANTIATE_TEST_SUITE_P(Formats, FormatEngineRefuses,
                         testing::Values(TooLong{"%2147483647da", 1}, TooLong{"a%2147483647d", 1},
                                         TooLong{"%.2147483647d", -1}, TooLong{"%2147483648d", 1},
                                         TooLong{"%99999999999999999999d", 1},
                                         TooLong{"%.99999999999999999999d", 1},
                                         TooLong{"%*.99999999999999999999d", -5},
                                         TooLong{"%*d", INT_MIN}, TooLong{"%*da", INT_MAX}));

TEST(FormatEngine, LeavesAnEmptyTextWhereItRefuses) {
  char buffer[8] = "before";
  errno = 0;
  EXPECT_EQ(windowed(buffer, 0, sizeof buffer, "ab%2147483648d", 1), -1);
  EXPECT_EQ(errno, EOVERFLOW);
  EXPECT_STREQ(buffer, "");
}

TEST(FormatEngine, ShowsAWindowOfATextLongerThanAnIntCanTell) {
  EXPECT_EQ(window(0, 5, "abcd%2147483647d", 1), "abcd");
  EXPECT_EQ(window(10, 5, "%2147483647dabc", 1), "    ");
  // The window begins beyond what can be counted.
  EXPECT_EQ(window(std::size_t{INT_MAX} + 1, 5, "%2147483647dabc", 1), "(refused)");
  int count = -1;
  EXPECT_EQ(window(0, 5, "%2147483647dabc%n", 1, &count), "(refused)");
}

// A window of more characters than the result can tell; its pages are never all there.
TEST(FormatEngine, RefusesAWindowThatItsResultCannotTell) {
  if (sizeof(std::size_t) < 8) GTEST_SKIP() << "no such window in 32 bits";
  constexpr std::size_t kSize = std::size_t{5} << 29U;
  void* const memory = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* const buffer = static_cast<char*>(memory);
  EXPECT_EQ(windowed(buffer, 0, kSize, "%*s%*s", INT_MAX, "a", INT_MAX, "b"), -1);
  EXPECT_STREQ(buffer, "");
  ::munmap(memory, kSize);
}

}  // namespace
