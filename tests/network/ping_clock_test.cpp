// What pings with IP packets take from the time of day: identifiers, and how long they took, to the
// nanosecond.

#include <rkutils/export.h>
#include <rkutils/ping.h>

#include <ctime>
#include <deque>
#include <regex>
#include <string>

#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/syslog_collector.h"

namespace {

// What this thread's next looks at the time of day give, one after the other.
thread_local std::deque<std::timespec> times_of_day;

#ifdef SYS_clock_gettime
constexpr long kGetTime = SYS_clock_gettime;
#else
constexpr long kGetTime = SYS_clock_gettime64;
#endif

}  // namespace

// Stands before the C library's and makes the system call itself.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" RK_API int clock_gettime(clockid_t clock, std::timespec* time) {
  if (clock == CLOCK_REALTIME && !times_of_day.empty()) {
    *time = times_of_day.front();
    times_of_day.pop_front();
    return 0;
  }
  return static_cast<int>(::syscall(kGetTime, clock, time));
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace {

// Pings the router itself, which its own request comes to before the answer.
class PingClock : public testing::Test {
 protected:
  // With these times: of the call, of sending, of the request's and of the answer's coming.
  void ping_at(const std::deque<std::timespec>& times) {
    times_of_day = times;
    EXPECT_EQ(__rawping("lo", "127.0.0.1", nullptr, nullptr, nullptr, 10000, -1, &took_, nullptr),
              0);
    EXPECT_THAT(times_of_day, testing::IsEmpty());
    const auto lines = log_.take();
    ASSERT_GE(lines.size(), 2U);
    std::smatch found;
    const std::string text = lines[lines.size() - 2].text;
    ASSERT_TRUE(std::regex_search(text, found, std::regex("need seq 1, id ([0-9]+)"))) << text;
    identifier_ = std::stoi(found[1].str());
  }

  support::SyslogCollector log_;
  time_difference took_ = {};
  int identifier_ = -1;
};

TEST_F(PingClock, MakesIdentifiersOfSecondsTimesMicroseconds) {
  const std::timespec other = {1000000, 0};
  struct Case {
    std::timespec time;
    int identifier;
  };
  for (const Case& each : {
           Case{{2, 3999}, 6},
           Case{{65536 + 2, 65536000 + 3000}, 6},
           Case{{0x7FFF, 2000}, 0xFFFE},
           Case{{0xFFFF, 3000}, 0xFFFD},  // -1 × 3
           Case{{0xFFFF, 65535000}, 1},   // -1 × -1
           Case{{300, 300000}, 90000 - 65536},
           Case{{7, 999}, 0},
       }) {
    ping_at({each.time, other, other, other});
    EXPECT_EQ(identifier_, each.identifier);
  }
}

TEST_F(PingClock, TellsTheTimeFromSendingToTheAnswer) {
  ping_at({{5, 0}, {100, 999999999}, {200, 0}, {101, 1}});
  EXPECT_EQ(took_.seconds, 0);
  EXPECT_EQ(took_.nanoseconds, 2);
  ping_at({{5, 0}, {100, 5}, {100, 6}, {103, 7}});
  EXPECT_EQ(took_.seconds, 3);
  EXPECT_EQ(took_.nanoseconds, 2);
  // Somebody has set the clock back.
  ping_at({{5, 0}, {100, 5}, {100, 6}, {99, 4}});
  EXPECT_EQ(took_.seconds, -2);
  EXPECT_EQ(took_.nanoseconds, 999999999);
}

}  // namespace
