#include <rkutils/text.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "support/time_zone.h"

namespace {

using support::TimeZone;

// Rules written out, so that no table of zones is needed.
constexpr char kBerlin[] = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr char kNewYork[] = "EST5EDT,M3.2.0,M11.1.0";

TEST(Jiffy, IsTheUptimeInSeconds) {
  const auto uptime = [] {
    double seconds = 0;
    std::ifstream("/proc/uptime") >> seconds;
    return static_cast<long>(seconds);
  };
  const long before = uptime();
  const long now = jiffy();
  const long after = uptime();
  EXPECT_GE(now, before);
  EXPECT_LE(now, after + 1) << "sysinfo() rounds up";
}

TEST(Timeformat, WritesLocalTime) {
  const std::time_t time = 1763715959;  // 2025-11-21 09:05:59 UTC
  {
    const TimeZone utc("UTC0");
    EXPECT_STREQ(timeformat(&time), "2025-11-21 09:05:59");
  }
  const TimeZone berlin(kBerlin);
  EXPECT_STREQ(timeformat(&time), "2025-11-21 10:05:59");
}

TEST(Timeformat, NoticesThatTheZoneHasChanged) {
  const TimeZone utc("UTC0");
  const std::time_t time = 1763715959;
  EXPECT_STREQ(timeformat(&time), "2025-11-21 09:05:59");
  ::setenv("TZ", kBerlin, 1);
  EXPECT_STREQ(timeformat(&time), "2025-11-21 10:05:59");
}

TEST(Timeformat, OfAYearBeyondAnInt) {
  if (sizeof(std::time_t) < 8) GTEST_SKIP() << "no such time in 32 bits";
  const TimeZone utc("UTC0");
  const auto time = static_cast<std::time_t>(67767976233532800 + 86400);
  EXPECT_STREQ(timeformat(&time), "2147483648-01-02 00:00:00");
}

TEST(Timeformat, OfNullIsNow) {
  const TimeZone utc("UTC0");
  const std::time_t before = std::time(nullptr);
  const std::string now = timeformat(nullptr);
  const std::time_t after = std::time(nullptr);
  EXPECT_GE(now, timeformat(&before));
  EXPECT_LE(now, timeformat(&after));
}

TEST(Timeformat, PadsTheYear) {
  if (sizeof(std::time_t) < 8) GTEST_SKIP() << "no such time in 32 bits";
  const TimeZone utc("UTC0");
  const auto time = static_cast<std::time_t>(-59011459200);  // the year 100
  EXPECT_STREQ(timeformat(&time), "0100-01-01 00:00:00");
}

TEST(Timeformat, OfATimeThatCannotBeConvertedIsTheEpoch) {
  if (sizeof(std::time_t) < 8) GTEST_SKIP() << "no such time in 32 bits";
  const std::time_t time = std::numeric_limits<std::time_t>::max();
  EXPECT_STREQ(timeformat(&time), "1970-01-01 00:00:00");
}

TEST(Timeformat, HasABufferOfItsOwn) {
  const TimeZone utc("UTC0");
  const std::time_t time = 1763715959;
  const std::time_t later = time + 1;
  const char* first = timeformat(&time);
  EXPECT_EQ(timeformat(&later), first);
  EXPECT_STREQ(first, "2025-11-21 09:06:00");
}

TEST(Timeparse, InUtcIsTheTime) {
  const TimeZone utc("UTC0");
  EXPECT_EQ(timeparse("2025-11-21 09:05:59"), 1763715959);
  EXPECT_EQ(timeparse("25-11-21 09:05:59"), 1763715959);
  EXPECT_EQ(timeparse("25-11-21 09:05:59 and more"), 1763715959);
  EXPECT_EQ(timeparse("2025-11-21 09:05:59 and more"), 1763715959);
}

TEST(Timeparse, TakesTwoDigitYearsFrom1969To2068) {
  const TimeZone utc("UTC0");
  EXPECT_EQ(timeparse("68-01-01 00:00:00"), timeparse("2068-01-01 00:00:00"));
  EXPECT_EQ(timeparse("69-01-02 00:00:00"), -364 * 86400);
  if (sizeof(std::time_t) == 8) {
    EXPECT_EQ(timeparse("0025-11-21 09:05:59"), timeparse("2025-11-21 09:05:59") - 63113904000);
  }
}

TEST(Timeparse, CarriesDaysBeyondTheirMonthOver) {
  const TimeZone utc("UTC0");
  EXPECT_EQ(timeparse("2025-02-31 09:05:59"), timeparse("2025-03-03 09:05:59"));
  EXPECT_EQ(timeparse("25-04-31 09:05:59"), timeparse("2025-05-01 09:05:59"));
}

TEST(Timeparse, OfNothingOrAnotherFormIs0) {
  for (const char* text : {"", "now", "2025-11-21", "2025-11-21T09:05:59", "2025/11/21 09:05:59"}) {
    EXPECT_EQ(timeparse(text), 0) << text;
  }
  EXPECT_EQ(timeparse(nullptr), 0);
}

TEST(Timeparse, IsShiftedByTheDistanceToUtcOnceMore) {
  {
    // 12:00 is 11:00 UTC, which is taken for local time again.
    const TimeZone berlin(kBerlin);
    EXPECT_EQ(timeparse("2025-01-15 12:00:00"), 1736935200);  // 10:00 UTC
  }
  const TimeZone new_york(kNewYork);
  EXPECT_EQ(timeparse("2025-01-15 12:00:00"), 1736978400);  // 22:00 UTC
}

TEST(Timeparse, InSummerTimeIsShiftedByStandardTimeTheSecondTime) {
  const TimeZone berlin(kBerlin);
  // 12:00 is 10:00 UTC, and 10:00 of standard time is 09:00 UTC.
  EXPECT_EQ(timeparse("2025-07-15 12:00:00"), 1752570000);
}

TEST(Timeparse, FindsOutWhetherSummerTimeWasInForce) {
  const TimeZone berlin(kBerlin);
  EXPECT_EQ(timeparse("2025-07-15 12:00:00") - timeparse("2025-03-15 12:00:00"),
            (122 * 24 - 1) * 3600);
}

std::timespec at(long seconds, long nanoseconds) { return {seconds, nanoseconds}; }

TEST(Diffts, IsTheSecondMinusTheFirst) {
  const auto difference = [](std::timespec a, std::timespec b) {
    const time_difference result = diffts(&a, &b);
    return std::pair(result.seconds, result.nanoseconds);
  };
  EXPECT_EQ(difference(at(1, 100), at(3, 300)), std::pair(2, 200));
  EXPECT_EQ(difference(at(1, 900000000), at(3, 100000000)), std::pair(1, 200000000));
  EXPECT_EQ(difference(at(3, 0), at(1, 500000000)), std::pair(-2, 500000000));
  EXPECT_EQ(difference(at(1, 1), at(1, 0)), std::pair(-1, 999999999));
  EXPECT_EQ(difference(at(5, 5), at(5, 5)), std::pair(0, 0));
}

TEST(Diffts, WrapsAtItsEdges) {
  const std::timespec early = at(std::numeric_limits<std::int32_t>::min(), 1);
  const std::timespec zero = at(0, 0);
  EXPECT_EQ(diffts(&early, &zero).seconds, std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(diffts(&early, &zero).nanoseconds, 999999999);
  const std::timespec earliest = at(std::numeric_limits<long>::min(), 0);
  // 2^31 or 2^63 seconds, whose lower 32 bits are left; in microseconds they wrap in 64 bits.
  const bool wide = sizeof(long) == 8;
  EXPECT_EQ(diffts(&earliest, &zero).seconds, wide ? 0 : std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(diffts(&earliest, &zero).nanoseconds, 0);
  EXPECT_EQ(uselapsed(&earliest, &zero), wide ? 0 : 2147483648000000);
}

TEST(Uselapsed, IsInMicroseconds) {
  const auto elapsed = [](std::timespec a, std::timespec b) { return uselapsed(&a, &b); };
  EXPECT_EQ(elapsed(at(1, 0), at(2, 1000)), 1000001);
  EXPECT_EQ(elapsed(at(1, 999999000), at(2, 0)), 1);
  EXPECT_EQ(elapsed(at(2, 0), at(1, 0)), -1000000);
  EXPECT_EQ(elapsed(at(1, 0), at(1, 999)), 0);
  EXPECT_EQ(elapsed(at(1, 999), at(1, 0)), 0) << "divided towards zero";
  EXPECT_EQ(elapsed(at(1, 999), at(1, 1998)), 0) << "divided as one difference";
}

TEST(Uselapsed, DoesNotWrapOnLongUptimes) {
  const std::timespec start = at(0, 0);
  const std::timespec end = at(2000000000, 0);
  EXPECT_EQ(uselapsed(&start, &end), 2000000000000000);
}

TEST(Mkid, IsMadeOfTimeAndRandom) {
  for (unsigned seed = 1; seed < 100; ++seed) {
    ::srandom(seed);
    const auto expected = static_cast<std::uint32_t>(::random()) % 65536 % 65535;
    ::srandom(seed);
    const std::time_t before = std::time(nullptr);
    const std::uint32_t id = mkid();
    const std::time_t after = std::time(nullptr);
    EXPECT_EQ(id & 0xffffU, expected);
    const auto part = [](std::time_t time) {
      return static_cast<std::uint32_t>(time) % 65536 % 65535;
    };
    EXPECT_TRUE(id >> 16U == part(before) || id >> 16U == part(after));
  }
}

TEST(Mkid, HasNo65535) {
  // A seed whose first number ends in these bits.
  unsigned seed = 0;
  do {
    ::srandom(++seed);
  } while ((::random() & 0xffff) != 0xffff);
  ::srandom(seed);
  EXPECT_EQ(mkid() & 0xffffU, 0U);
}

TEST(ValidateDate, HoldsTheBoundsOfEachField) {
  for (const char* text :
       {"1999-01-01", "2035-12-31", "2026-02-31", "2026-1-1", "2026-01-01 x", " 2026-+1- 1"}) {
    EXPECT_EQ(validateDate(text), 0) << text;
  }
  for (const char* text :
       {"1998-12-31", "2036-01-01", "2026-00-01", "2026-13-01", "2026-01-00", "2026-01-32",
        "2026-01", "2026-01-", "2026/01/01", "", "x", "2026 -01-01", "-2026-01-01", "2026--1-01",
        "4294969322-01-01", "18446744073709553642-01-01", "99999999999999999999-01-01"}) {
    EXPECT_EQ(validateDate(text), -1) << text;
  }
  EXPECT_EQ(validateDate(nullptr), -1);
}

TEST(ValidateTime, HoldsTheBoundsOfEachField) {
  for (const char* text :
       {"00:00:00", "23:59:59", "9:5:7", "09:05:07.5", "-0:-0:-0", "\n9:\t+5:07"}) {
    EXPECT_EQ(validateTime(text), 0) << text;
  }
  for (const char* text : {"24:00:00", "23:60:00", "23:59:60", "23:59", "23:59:", "-1:00:00",
                           "00:-1:00", "00:00:-1", "00-00-00", ""}) {
    EXPECT_EQ(validateTime(text), -1) << text;
  }
  EXPECT_EQ(validateTime(nullptr), -1);
}

TEST(ValidateTimeString, HoldsTheBoundsOfEachField) {
  for (const char* text : {"1999-01-01T00:00:00", "2035-12-31T23:59:59", "2026-2-31T9:5:7Z"}) {
    EXPECT_EQ(validateTimeString(text), 0) << text;
  }
  for (const char* text :
       {"1998-12-31T00:00:00", "2036-01-01T00:00:00", "2026-13-01T00:00:00", "2026-00-01T00:00:00",
        "2026-01-32T00:00:00", "2026-01-00T00:00:00", "2026-01-01T24:00:00", "2026-01-01T00:60:00",
        "2026-01-01T00:00:60", "2026-01-01 00:00:00", "2026-01-01t00:00:00", "2026-01-01T00:00", "",
        "2026-01-01T-1:00:00"}) {
    EXPECT_EQ(validateTimeString(text), -1) << text;
  }
  EXPECT_EQ(validateTimeString(nullptr), -1);
}

}  // namespace
