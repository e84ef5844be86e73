// The ten seconds that a reply is waited for, in real time.

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include <sys/time.h>

#include "configd_fixture.h"
#include "support/stopwatch.h"

namespace {

using namespace std::chrono_literals;
using support::Stopwatch;
using testing::ElementsAre;

constexpr std::chrono::milliseconds kWait = 10s;
// What a busy machine may add.
constexpr std::chrono::milliseconds kSlack = 1500ms;

void expect_full_wait(const Stopwatch& watch) {
  EXPECT_GE(watch.elapsed(), kWait);
  EXPECT_LT(watch.elapsed(), kWait + kSlack);
}

std::atomic<int> alarms = 0;

// Interrupts this process's system calls every `milliseconds`, without restarting them.
class Interruptions {
 public:
  explicit Interruptions(long milliseconds) {
    struct sigaction action = {};
    action.sa_handler = [](int) { ++alarms; };
    ::sigaction(SIGALRM, &action, nullptr);
    const timeval interval = {milliseconds / 1000, milliseconds % 1000 * 1000};
    const itimerval timer = {interval, interval};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
  }
  ~Interruptions() {
    const itimerval off = {};
    ::setitimer(ITIMER_REAL, &off, nullptr);
    std::signal(SIGALRM, SIG_DFL);
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;
};

class ConfigdWait : public ConfigdTest {};

TEST_F(ConfigdWait, OfReceivingEndsAfterTenSecondsAndLeavesTheBuffer) {
  const Connection connection = connect();
  std::signal(SIGPIPE, SIG_IGN);
  std::string buffer(8, '#');
  const Stopwatch watch;
  EXPECT_EQ(configd_recv(connection.get(), buffer.data(), 8), -1);
  expect_full_wait(watch);
  EXPECT_EQ(buffer, "########");
  EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
}

TEST_F(ConfigdWait, GoesOnAfterASignal) {
  const Connection connection = connect();
  char buffer[8];
  const Stopwatch watch;
  alarms = 0;
  {
    const Interruptions interruptions(700);
    EXPECT_EQ(configd_recv(connection.get(), buffer, sizeof buffer), -1);
  }
  expect_full_wait(watch);
  EXPECT_GE(alarms, 10);
}

TEST_F(ConfigdWait, EndsEarlyWhenTheAnswerComes) {
  const Connection connection = connect();
  daemon_->set_value("a", "1");
  daemon_->command("fault 1 delay 1000");
  auto array = entries({{"a", ""}});
  const Stopwatch watch;
  {
    const Interruptions interruptions(100);
    EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
  }
  EXPECT_GE(watch.elapsed(), 1s);
  EXPECT_LT(watch.elapsed(), 1s + kSlack);
  EXPECT_STREQ(array[0].value, "1");
}

TEST_F(ConfigdWait, HasSigpipeIgnored) {
  const Connection connection = connect();
  std::signal(SIGPIPE, SIG_DFL);
  daemon_->command("fault 1 delay 1000");
  std::atomic<bool> ignored = false;
  std::thread observer([&] {
    std::this_thread::sleep_for(500ms);
    struct sigaction action = {};
    ::sigaction(SIGPIPE, nullptr, &action);
    ignored = action.sa_handler == SIG_IGN;
  });
  expect_exchange_succeeds(connection.get());
  observer.join();
  EXPECT_TRUE(ignored);
}

TEST_F(ConfigdWait, OfAQueryInVainIsMinus1AndKeepsTheSocket) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->command("fault 1 silence");
  configd_query one = entry("a", "before");
  const Stopwatch watch;
  EXPECT_EQ(configd_prepare_get(connection.get(), &one), -1);
  expect_full_wait(watch);
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (len -1)")));
  EXPECT_STREQ(one.value, "before");
  EXPECT_EQ(client_socket_id(), socket_before);
}

TEST_F(ConfigdWait, OfAnArrayInVainMakesANewSocket) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->command("fault 1 silence");
  auto array = entries({{"a", ""}, {"b", ""}});
  const Stopwatch watch;
  EXPECT_EQ(configd_get(connection.get(), array.data()), -1);
  expect_full_wait(watch);
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (len -1)")));
  EXPECT_NE(client_socket_id(), socket_before);
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdWait, OfAnAssignmentInVainIsMinus3AndMakesANewSocket) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->command("fault 1 silence");
  const auto array = entries({{"a", "1"}});
  const Stopwatch watch;
  EXPECT_EQ(configd_set(connection.get(), array.data()), -3);
  expect_full_wait(watch);
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (-1 != 5)")));
  EXPECT_NE(client_socket_id(), socket_before);
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdWait, OfTheEndOfChangesInVainIsMinus4WithAnEmptyText) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  // An earlier answer must not be taken for one to this.
  EXPECT_EQ(configd_done(connection.get()), 0);
  daemon_->command("fault 1 silence");
  const Stopwatch watch;
  EXPECT_EQ(configd_done(connection.get()), -4);
  expect_full_wait(watch);
  EXPECT_THAT(log_.take(), ElementsAre(err("invalid response <> from configd")));
  EXPECT_NE(client_socket_id(), socket_before);
  EXPECT_EQ(configd_done(connection.get()), 0);
}

TEST_F(ConfigdWait, OfAFetchInVainIsEmptyAndTriesAgain) {
  const Connection connection = connect();
  daemon_->set_value("a", "1");
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  daemon_->command("fault 1 silence");
  const Stopwatch watch;
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "");
  expect_full_wait(watch);
  EXPECT_THAT(log_.take(),
              ElementsAre(err("no response from configd (len -1)"), err("configd_get failed")));
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "1");
}

}  // namespace
