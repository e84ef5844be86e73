// Pauses between exchanges and waits for the daemon, in real time. That pauses are not longer than
// they must be is for the clock of wwanmd_calls_test.cpp, which a busy machine does not hold up.

#include <functional>
#include <thread>

#include <syslog.h>

#include "support/interruption.h"
#include "wwanmd_fixture.h"

namespace {

using support::Interruption;
using support::Stopwatch;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::SizeIs;

using Clock = std::chrono::steady_clock;

constexpr auto kPause = 300ms;

class WwanmdPause : public WwanmdTest {
 protected:
  // When the daemon got each of the commands since the last call.
  std::vector<Clock::time_point> arrivals() {
    std::vector<Clock::time_point> times;
    const auto events = daemon_->events("recv");
    for (; taken_ < events.size(); ++taken_) times.push_back(events[taken_].time);
    return times;
  }
  Clock::time_point last_arrival() { return arrivals().back(); }

 private:
  std::size_t taken_ = 0;
};

TEST_F(WwanmdPause, IsBetweenTheIntroductionAndTheFirstCommand) {
  const auto start = Clock::now();
  const Connection connection = connect();
  expect_exchange_succeeds(connection);
  EXPECT_GE(last_arrival() - start, kPause);
}

TEST_F(WwanmdPause, IsBetweenTwoCommands) {
  const Connection connection = connect();
  std::this_thread::sleep_for(kPause);  // and so there is none before the first
  const auto start = Clock::now();
  expect_exchange_succeeds(connection);
  expect_exchange_succeeds(connection);
  EXPECT_GE(last_arrival() - start, kPause);
}

TEST_F(WwanmdPause, IsBeforeTheIntroductionAndTheCommandThatOpensTheConnection) {
  const Connection connection = connect();
  wwanmd_close(connection.get());
  arrivals();
  const auto start = Clock::now();
  expect_exchange_succeeds(connection);
  const auto times = arrivals();
  ASSERT_THAT(times, SizeIs(2));
  EXPECT_GE(times[0] - start, kPause);
  EXPECT_GE(times[1] - start, 2 * kPause);
}

TEST_F(WwanmdPause, GoesOnAfterASignal) {
  const Connection connection = connect();
  std::this_thread::sleep_for(kPause);
  Clock::time_point start;
  const Interruption interruption;
  std::thread sender([&] {
    start = Clock::now();
    expect_exchange_succeeds(connection);
    expect_exchange_succeeds(connection);
    std::this_thread::sleep_for(1s);  // for the signals that come late
  });
  for (int i = 0; i < 4; ++i) Interruption::send(sender);
  sender.join();
  EXPECT_GE(last_arrival() - start, kPause);
}

// Each wait is another card's, so that all pass at once.
class WwanmdWait : public WwanmdTest {
 protected:
  struct Wait {
    std::string plan;                                     // the daemon's
    int timeout;                                          // the buffer's
    std::chrono::milliseconds duration;                   // of receiving
    int result;                                           // of receiving
    std::function<void(const wwanmd_buffer&)> expect;     // of the buffer
    std::function<void(std::vector<std::string>)> heard;  // of the messages
  };

  // Sends a command to the card and receives its reply.
  void receive(int card, const Connection& connection, const Wait& wait) {
    wwanmd_buffer buffer = command("x", wait.timeout);
    // The daemon's time passes as soon as it has the command, wherever this thread is by then.
    const Stopwatch watch;
    ASSERT_EQ(wwanmd_send(connection.get(), &buffer), 0);
    EXPECT_EQ(wwanmd_recv(connection.get(), &buffer), wait.result) << card;
    EXPECT_GE(watch.elapsed(), wait.duration - 10ms) << card;
    EXPECT_LT(watch.elapsed(), wait.duration + kSlack) << card;
    wait.expect(buffer);
  }
};

TEST_F(WwanmdWait, ForTheReplyIsAsLongAsTheBufferSays) {
  using namespace std::string_view_literals;
  const auto nothing = [](const wwanmd_buffer& buffer) { EXPECT_THAT(buffer, HoldsNothing()); };
  const auto timed_out = [](const std::string& card) {
    return [card](const std::vector<std::string>& lines) {
      EXPECT_THAT(lines, ElementsAre("recv from wwanmd" + card + " timed out",
                                     "receiving from wwanmd" + card + " failed (1 failures)"));
    };
  };
  const std::map<int, Wait> waits = {
      {1, {"plan 1", 0, 5s, -1, nothing, timed_out("1")}},
      {2, {"plan 1", 6, 6s, -1, nothing, timed_out("2")}},
      {3, {"plan 1", -7, 5s, -1, nothing, timed_out("3")}},
      // In time.
      {4,
       {R"(plan 1 wait 4000 send "OK slow")", 5, 4s, 0,
        [](const wwanmd_buffer& buffer) { EXPECT_THAT(buffer, Holds(" slow"sv)); },
        [](const auto& lines) { EXPECT_THAT(lines, SizeIs(0)); }}},
      // One time for all replies, not one for each.
      {5,
       {R"(plan 1 wait 2000 send "BUSY")", 5, 5s, -1, nothing,
        [](const auto& lines) {
          ASSERT_THAT(lines, SizeIs(3));
          EXPECT_THAT(lines[0],
                      MatchesRegex("wwanmd5 is busy, remaining timeout is [23]\\.[0-9]{1,6}s"));
          EXPECT_EQ(lines[1], "recv from wwanmd5 timed out");
        }}},
      // Less than a second is left.
      {10,
       {R"(plan 1 wait 1000 send "BUSY" wait 3300 send "BUSY now" send "OK")", 5, 4300ms, -1,
        [](const wwanmd_buffer& buffer) { EXPECT_THAT(buffer, Holds(" now"sv)); },
        [](const auto& lines) {
          ASSERT_THAT(lines, SizeIs(3));
          EXPECT_THAT(lines[0],
                      MatchesRegex("wwanmd10 is busy, remaining timeout is 3\\.[0-9]{1,6}s"));
          EXPECT_THAT(lines[1],
                      MatchesRegex("wwanmd10 is busy, remaining timeout is 0\\.[0-9]{1,6}s"));
          EXPECT_EQ(lines[2], "wwanmd10 is busy");
        }}},
  };
  std::vector<std::unique_ptr<support::WwanmdStandIn>> daemons;
  std::map<int, Connection> connections;
  for (const auto& [card, wait] : waits) {
    daemons.push_back(std::make_unique<support::WwanmdStandIn>(card));
    connections[card] = connect(card);
    daemons.back()->command(wait.plan);
  }
  const Interruption interruption;
  std::map<int, std::thread> receivers;
  for (const auto& [number, reply] : waits) {
    receivers[number] = std::thread([this, card = number, &wait = reply, &connections] {
      receive(card, connections[card], wait);
    });
  }
  std::this_thread::sleep_for(1s);
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN);
  for (int i = 0; i < 5; ++i) Interruption::send(receivers[3]);
  for (auto& [card, receiver] : receivers) receiver.join();

  const auto all = log_.take();
  for (const auto& [card, wait] : waits) {
    std::vector<std::string> lines;
    for (const auto& line : all) {
      EXPECT_EQ(line.level, LOG_DEBUG);
      if (line.text.find("wwanmd" + std::to_string(card) + " ") != std::string::npos) {
        lines.push_back(line.text);
      }
    }
    wait.heard(lines);
  }
}

TEST_F(WwanmdWait, ForTheIntroductionIsFiveSeconds) {
  daemon_->command("plan 1");
  const Stopwatch watch;
  EXPECT_EQ(wwanmd_init(0, kName), nullptr);
  EXPECT_GE(watch.elapsed(), 5s);
  EXPECT_LT(watch.elapsed(), 5s + kSlack);
  EXPECT_THAT(
      log_.take(),
      ElementsAre(debug("recv from wwanmd0 timed out"),
                  debug("receiving from wwanmd0 failed (1 failures)"), debug("command failed"),
                  debug("cannot initialize wwanmd0 (" + text_of(ETIMEDOUT) + ")")));
}

// The kernel keeps some commands for a daemon that does not read; then sending waits. The fourth
// failure in a row opens the connection anew.
TEST_F(WwanmdWait, ForRoomToSendIsAsLongAsTheBufferSays) {
  const Connection connection = connect();
  daemon_->command("deaf");
  wwanmd_buffer buffer = command(std::string(8189, 'x') + "\n", 0);
  const Interruption interruption;
  std::thread sender([&] {
    Stopwatch watch;
    for (int i = 0; i < 60 && wwanmd_send(connection.get(), &buffer) == 0; ++i) watch = Stopwatch();
    EXPECT_GE(watch.elapsed(), 5s);
    EXPECT_LT(watch.elapsed(), 5s + kPause + kSlack);
  });
  std::this_thread::sleep_for(5s);
  for (int i = 0; i < 5; ++i) Interruption::send(sender);
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN);
  sender.join();
  EXPECT_EQ(sigpipe_disposition(), SIG_DFL);
  EXPECT_THAT(log_.take(), ElementsAre(debug("sending to wwanmd0 timed out"),
                                       debug("cannot send command to wwanmd0"),
                                       debug("sending to wwanmd0 failed (1 failures)")));
  EXPECT_EQ(record_of(connection).failures, 1);
  record_of(connection).failures = 3;
  buffer.timeout = 6;
  daemon_->command("gone");
  const Stopwatch watch;
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), -1);
  EXPECT_GE(watch.elapsed(), 6s);
  EXPECT_THAT(log_.take(), ElementsAre(debug("sending to wwanmd0 timed out"),
                                       debug("cannot send command to wwanmd0"),
                                       debug("sending to wwanmd0 failed (4 failures)"),
                                       debug("can't bind to wwanmd0 (" + text_of(ENOENT) + ")")));
  EXPECT_EQ(record_of(connection).socket, -1);
}

}  // namespace
