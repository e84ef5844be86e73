// The time zone of a test.
#ifndef TESTS_SUPPORT_TIME_ZONE_H
#define TESTS_SUPPORT_TIME_ZONE_H

#include <cstdlib>
#include <ctime>

namespace support {

// From construction to destruction the zone is this one, and known to the C library already. Without a
// name the GNU C library makes its own anew in each call, under a lock that ThreadSanitizer does not see.
class TimeZone {
 public:
  explicit TimeZone(const char* name) {
    ::setenv("TZ", name, 1);
    ::tzset();
  }
  ~TimeZone() {
    ::unsetenv("TZ");
    ::tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
};

}  // namespace support

#endif
