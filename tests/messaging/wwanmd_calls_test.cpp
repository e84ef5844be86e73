// The socket calls behind an exchange, as the kernel gets them; what becomes of an exchange in
// which they fail; and its times, to the microsecond.

#include <rkutils/export.h>
#include <rkutils/internal/errno_restorer.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include "support/stopped_clock.h"
#include "wwanmd_fixture.h"

namespace {

// What a call is to do instead of its work.
struct Failure {
  int error;        // what errno is then; the result is -1
  int result = -1;  // if not: so many bytes are sent
};

// For this thread's next calls, one for each.
thread_local std::deque<Failure> connect_failures;
thread_local std::deque<Failure> poll_failures;
thread_local std::deque<Failure> send_failures;
thread_local std::deque<Failure> recv_failures;

// What this thread has called.
thread_local std::vector<std::pair<sockaddr_un, socklen_t>> connects;
thread_local std::vector<std::pair<std::size_t, int>> sends;     // sizes and flags
thread_local std::vector<std::pair<std::size_t, int>> receives;  // of buffers
thread_local std::vector<std::pair<int, int>> polls;             // events and time-outs

// What happens at the end of each of this thread's calls.
thread_local std::function<void()> after_connecting;
thread_local std::function<void()> after_waiting;
thread_local std::function<void()> after_sending;

void forget_calls() {
  connects.clear();
  sends.clear();
  receives.clear();
  polls.clear();
}

// Whether the call is to fail; errno then says how, where it does.
bool fails(std::deque<Failure>& failures, Failure& failure) {
  if (failures.empty()) return false;
  failure = failures.front();
  failures.pop_front();
  if (failure.error != 0) errno = failure.error;
  return true;
}

// Does it as it goes, whatever became of the call.
class Aftermath {
 public:
  explicit Aftermath(const std::function<void()>& action) : action_(action) {}
  ~Aftermath() {
    const rkutils::internal::ErrnoRestorer keep_errno;
    if (action_) action_();
  }
  Aftermath(const Aftermath&) = delete;
  Aftermath& operator=(const Aftermath&) = delete;

 private:
  const std::function<void()>& action_;
};

}  // namespace

// Stand before the C library's and make the system calls themselves.
// NOLINTBEGIN(readability-redundant-declaration,readability-inconsistent-declaration-parameter-name)
extern "C" {
RK_API int connect(int socket, const sockaddr* address, socklen_t length);
RK_API int poll(pollfd* entries, nfds_t count, int timeout_ms);
RK_API ssize_t send(int socket, const void* bytes, std::size_t size, int flags);
RK_API ssize_t recv(int socket, void* bytes, std::size_t size, int flags);
// What a fortified library calls.
RK_API int __poll_chk(pollfd* entries, nfds_t count, int timeout_ms, std::size_t entries_size);
RK_API ssize_t __recv_chk(int socket, void* bytes, std::size_t size, std::size_t bytes_size,
                          int flags);
}

int connect(int socket, const sockaddr* address, socklen_t length) {
  sockaddr_un copy = {};
  std::memcpy(&copy, address, std::min<std::size_t>(length, sizeof copy));
  connects.emplace_back(copy, length);
  const Aftermath aftermath(after_connecting);
  Failure failure = {};
  if (fails(connect_failures, failure)) return failure.result;
  return static_cast<int>(::syscall(SYS_connect, socket, address, length));
}

int poll(pollfd* entries, nfds_t count, int timeout_ms) {
  if (count == 1) polls.emplace_back(entries->events, timeout_ms);
  const Aftermath aftermath(after_waiting);
  Failure failure = {};
  if (fails(poll_failures, failure)) return failure.result;
  timespec timeout = {timeout_ms / 1000, timeout_ms % 1000 * 1000000L};
  return ::ppoll(entries, count, timeout_ms < 0 ? nullptr : &timeout, nullptr);
}

ssize_t send(int socket, const void* bytes, std::size_t size, int flags) {
  sends.emplace_back(size, flags);
  const Aftermath aftermath(after_sending);
  Failure failure = {};
  if (fails(send_failures, failure)) {
    if (failure.result < 0) return failure.result;
    size = static_cast<std::size_t>(failure.result);
  }
  return ::sendto(socket, bytes, size, flags, nullptr, 0);
}

ssize_t recv(int socket, void* bytes, std::size_t size, int flags) {
  receives.emplace_back(size, flags);
  Failure failure = {};
  if (fails(recv_failures, failure)) return failure.result;
  return ::recvfrom(socket, bytes, size, flags, nullptr, nullptr);
}

int __poll_chk(pollfd* entries, nfds_t count, int timeout_ms, std::size_t) {
  return poll(entries, count, timeout_ms);
}

ssize_t __recv_chk(int socket, void* bytes, std::size_t size, std::size_t, int flags) {
  return recv(socket, bytes, size, flags);
}
// NOLINTEND(readability-redundant-declaration,readability-inconsistent-declaration-parameter-name)

namespace {

using testing::ElementsAre;
using testing::Pair;
using testing::SizeIs;

class WwanmdCalls : public WwanmdTest {
 protected:
  WwanmdCalls() : connection_(connect()) { forget_calls(); }

  void TearDown() override {
    after_connecting = after_waiting = after_sending = nullptr;
    EXPECT_THAT(connect_failures, SizeIs(0));
    EXPECT_THAT(poll_failures, SizeIs(0));
    EXPECT_THAT(send_failures, SizeIs(0));
    EXPECT_THAT(recv_failures, SizeIs(0));
    connection_.reset();
    WwanmdTest::TearDown();
  }

  Connection connection_;
  wwanmd_buffer buffer_ = command("signal", 7);
};

TEST_F(WwanmdCalls, ConnectWithTheLengthOfThePathAnd2) {
  EXPECT_EQ(wwanmd_open(connection_.get()), 0);
  ASSERT_THAT(connects, SizeIs(1));
  EXPECT_EQ(connects[0].first.sun_family, AF_UNIX);
  EXPECT_STREQ(connects[0].first.sun_path, "/var/run/wwanmd0/server");
  EXPECT_EQ(connects[0].second, std::strlen("/var/run/wwanmd0/server") + 2);
}

TEST_F(WwanmdCalls, SendAndReceiveWithTheSizesOfTheBuffer) {
  EXPECT_EQ(wwanmd_command(connection_.get(), &buffer_), 0);
  EXPECT_THAT(sends, ElementsAre(Pair(7U, 0)));
  EXPECT_THAT(receives, ElementsAre(Pair(8191U, MSG_DONTWAIT), Pair(8191U, 0)));
}

TEST_F(WwanmdCalls, ThatASignalInterruptsAreRepeated) {
  connect_failures = {{EINTR}, {EINTR}};
  EXPECT_EQ(wwanmd_open(connection_.get()), 0);
  EXPECT_THAT(connects, SizeIs(3));
  forget_calls();
  recv_failures = {{EINTR}, {EINTR}};
  poll_failures = {{EINTR}, {EINTR}};
  send_failures = {{EINTR}, {EINTR}};
  EXPECT_EQ(wwanmd_command(connection_.get(), &buffer_), 0);
  EXPECT_THAT(receives, SizeIs(4));
  EXPECT_THAT(polls, SizeIs(4));
  EXPECT_THAT(sends, SizeIs(3));
}

TEST_F(WwanmdCalls, OfWaitingToSendThatFailAreFailures) {
  poll_failures = {{ENOMEM}};
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), -1);
  EXPECT_THAT(sends, SizeIs(0));
  EXPECT_THAT(log_.take(), ElementsAre(debug("cannot send command to wwanmd0"),
                                       debug("sending to wwanmd0 failed (1 failures)")));
  EXPECT_EQ(record_of(connection_).failures, 1);
}

TEST_F(WwanmdCalls, OfWaitingToSendThatFindABrokenPipeOpenTheConnectionAnew) {
  poll_failures = {{EPIPE}};
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), -1);
  EXPECT_THAT(log_.take(), ElementsAre(debug("faced stalled wwanmd0"),
                                       debug("sending to wwanmd0 failed (4 failures)")));
  EXPECT_THAT(daemon_->take_received(), ElementsAre(kInit));
}

TEST_F(WwanmdCalls, OfSendingThatFailAreFailures) {
  send_failures = {{ENOBUFS}};
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("could not send 7 bytes to wwanmd0 (" + text_of(ENOBUFS) + ")"),
                          debug("sending to wwanmd0 failed (1 failures)")));
  EXPECT_EQ(record_of(connection_).failures, 1);
}

// An errno of before is not the cause.
TEST_F(WwanmdCalls, OfSendingThatSendAPartAreFailures) {
  send_failures = {{0, 3}};
  errno = EPIPE;
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("could not send 7 bytes to wwanmd0 (" + text_of(0) + ")"),
                          debug("sending to wwanmd0 failed (1 failures)")));
  EXPECT_THAT(daemon_->take_received(), ElementsAre("sig"));
}

TEST_F(WwanmdCalls, OfSendingThatFailFourTimesInARowOpenTheConnectionAnew) {
  for (int failures = 1; failures <= 4; ++failures) {
    EXPECT_THAT(daemon_->events("open"), SizeIs(1));
    send_failures = {{ENOBUFS}};
    EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), -1);
    EXPECT_THAT(log_.take(),
                ElementsAre(debug("could not send 7 bytes to wwanmd0 (" + text_of(ENOBUFS) + ")"),
                            debug("sending to wwanmd0 failed (" + std::to_string(failures) +
                                  " failures)")));
  }
  EXPECT_THAT(daemon_->take_received(), ElementsAre(kInit));
  EXPECT_EQ(record_of(connection_).failures, 0);
  EXPECT_EQ(wwanmd_command(connection_.get(), &buffer_), 0);
}

TEST_F(WwanmdCalls, OfAnIntroductionThatFailAreTheFirstFailure) {
  record_of(connection_).failures = 3;
  send_failures = {{ENOBUFS}};
  EXPECT_EQ(wwanmd_open(connection_.get()), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("could not send 12 bytes to wwanmd0 (" + text_of(ENOBUFS) + ")"),
                          debug("sending to wwanmd0 failed (1 failures)"),
                          debug("cannot initialize wwanmd0 (" + text_of(ENOBUFS) + ")")));
  EXPECT_THAT(daemon_->events("open"), SizeIs(2));
}

TEST_F(WwanmdCalls, OfWaitingToReceiveThatFailAreFailures) {
  poll_failures = {{ENOMEM}};
  EXPECT_EQ(wwanmd_recv(connection_.get(), &buffer_), -1);
  EXPECT_THAT(buffer_, HoldsNothing());
  EXPECT_THAT(log_.take(), ElementsAre(debug("receiving from wwanmd0 failed (1 failures)")));
}

TEST_F(WwanmdCalls, OfReceivingThatFailAreFailures) {
  daemon_->command(R"(now send "OK")");
  recv_failures = {{ENOMEM}};
  EXPECT_EQ(wwanmd_recv(connection_.get(), &buffer_), -1);
  EXPECT_THAT(buffer_, HoldsNothing());
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("couldn't read from wwanmd0 (" + text_of(ENOMEM) + ")"),
                          debug("receiving from wwanmd0 failed (1 failures)")));
}

TEST_F(WwanmdCalls, OfReceivingThatFindABrokenPipeOpenTheConnectionAnew) {
  daemon_->command(R"(now send "OK")");
  recv_failures = {{EPIPE}};
  EXPECT_EQ(wwanmd_recv(connection_.get(), &buffer_), -1);
  EXPECT_THAT(log_.take(), ElementsAre(debug("couldn't read from wwanmd0 (" + text_of(EPIPE) + ")"),
                                       debug("faced stalled wwanmd0"),
                                       debug("receiving from wwanmd0 failed (4 failures)")));
  EXPECT_THAT(daemon_->take_received(), ElementsAre(kInit));
  EXPECT_EQ(record_of(connection_).failures, 0);
}

// Neither a broken pipe of long ago.
TEST_F(WwanmdCalls, DoNotTakeAnEarlierErrorForTheirs) {
  daemon_->command("now close");
  errno = EPIPE;
  EXPECT_EQ(wwanmd_recv(connection_.get(), &buffer_), -1);
  EXPECT_THAT(log_.take(), ElementsAre(debug("couldn't read from wwanmd0 (" + text_of(0) + ")"),
                                       debug("receiving from wwanmd0 failed (1 failures)")));
}

TEST_F(WwanmdCalls, OfConnectingThatFailCloseTheSocket) {
  connect_failures = {{EACCES}};
  const auto descriptors = support::open_descriptors().size();
  EXPECT_EQ(wwanmd_open(connection_.get()), -1);
  EXPECT_THAT(log_.take(), ElementsAre(debug("can't bind to wwanmd0 (" + text_of(EACCES) + ")")));
  EXPECT_THAT(support::open_descriptors(), SizeIs(descriptors - 1));
  EXPECT_EQ(record_of(connection_).socket, -1);
}

// With a clock that goes on only where a test or a pause says so.
class WwanmdTime : public WwanmdCalls {
 protected:
  static constexpr std::int64_t kSecondUs = 1000000;
  static constexpr std::int64_t kPauseUs = 300000;

  // Whether the time of the last exchange is the clock's.
  void expect_noted_now() {
    const std::timespec& noted = record_of(connection_).last_exchange;
    EXPECT_EQ(noted.tv_sec, clock_.now().tv_sec);
    EXPECT_EQ(noted.tv_nsec, clock_.now().tv_nsec);
  }

  // Lets time pass while the descriptor is waited for.
  void let_each_wait_take(std::deque<std::int64_t> durations_us) {
    after_waiting = [this, durations_us]() mutable {
      ASSERT_FALSE(durations_us.empty());
      clock_.advance_us(durations_us.front());
      durations_us.pop_front();
    };
  }

  support::StoppedClock clock_;
};

TEST_F(WwanmdTime, BetweenTwoCommandsIs300Milliseconds) {
  daemon_->command("plan 100");  // silence
  for (const auto& [passed_us, pauses_us] :
       {std::pair(INT64_C(0), std::vector<std::int64_t>{300000}),
        {INT64_C(1), {299999}},
        {INT64_C(150000), {150000}},
        {INT64_C(299999), {1}},
        {INT64_C(300000), {}},
        {INT64_C(300001), {}},
        {kSecondUs, {}},
        // The clock's microseconds pass 31 and 32 bits after 36 and 72 minutes.
        {INT64_C(2147483648), {}},
        {INT64_C(2147600000), {}},
        {INT64_C(4294967296), {}},
        {INT64_C(4295100000), {}},
        {100000000 * kSecondUs, {}}}) {
    record_of(connection_).last_exchange = clock_.now();
    clock_.advance_us(passed_us);
    EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), 0);
    EXPECT_EQ(clock_.take_pauses_us(), pauses_us) << passed_us;
  }
}

TEST_F(WwanmdTime, BetweenTwoCommandsCountsFromTheEndOfSending) {
  after_waiting = [this] { clock_.advance_us(2 * kSecondUs); };
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), 0);
  expect_noted_now();

  send_failures = {{ENOBUFS}};
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), -1);
  expect_noted_now();
  send_failures = {{EPIPE}};
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), -1);
  expect_noted_now();
  EXPECT_THAT(daemon_->events("open"), SizeIs(2));

  wwanmd_close(connection_.get());
  connect_failures = {{EACCES}};
  after_connecting = after_waiting;
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), -1);
  expect_noted_now();
  log_.take();
}

TEST_F(WwanmdTime, BeforeTheFirstIntroductionIsNone) {
  const Connection another = connect();
  EXPECT_THAT(clock_.take_pauses_us(), ElementsAre());
  expect_exchange_succeeds(another);
  EXPECT_THAT(clock_.take_pauses_us(), ElementsAre(kPauseUs));
}

TEST_F(WwanmdTime, BeforeALaterIntroductionIsAPauseWheneverItIs) {
  clock_.advance_us(kSecondUs);
  EXPECT_EQ(wwanmd_open(connection_.get()), 0);
  EXPECT_THAT(clock_.take_pauses_us(), ElementsAre(kPauseUs));

  wwanmd_close(connection_.get());
  clock_.advance_us(kSecondUs);
  expect_exchange_succeeds(connection_);
  EXPECT_THAT(clock_.take_pauses_us(), ElementsAre(kPauseUs, kPauseUs));

  // The command's own comes first here.
  wwanmd_close(connection_.get());
  clock_.advance_us(kSecondUs);
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), 0);
  EXPECT_THAT(clock_.take_pauses_us(), ElementsAre(kPauseUs));

  clock_.advance_us(kSecondUs);
  send_failures = {{EPIPE}};
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), -1);
  EXPECT_THAT(clock_.take_pauses_us(), ElementsAre(kPauseUs));
  log_.take();
}

TEST_F(WwanmdTime, ToWaitIsFiveToThreeHundredSeconds) {
  for (const auto& [timeout, ms] :
       {std::pair(7, 7000), {0, 5000}, {-1, 5000}, {300, 300000}, {1000, 300000}}) {
    forget_calls();
    buffer_ = command("x", timeout);
    EXPECT_EQ(wwanmd_command(connection_.get(), &buffer_), 0);
    EXPECT_THAT(polls, ElementsAre(Pair(POLLOUT, ms), Pair(POLLIN, ms)));
  }
  forget_calls();
  EXPECT_EQ(wwanmd_open(connection_.get()), 0);
  EXPECT_THAT(polls, ElementsAre(Pair(POLLOUT, 5000), Pair(POLLIN, 5000)));
}

// A whole second must be left for another attempt.
TEST_F(WwanmdTime, ThatABusyDaemonLeavesIsForTheRepliesToCome) {
  daemon_->command(R"(plan 1 send "BUSY" send "BUSY" send "BUSY now")");
  buffer_.timeout = 0;
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), 0);
  forget_calls();
  let_each_wait_take({949950, 3050050, 1});
  EXPECT_EQ(wwanmd_recv(connection_.get(), &buffer_), -1);
  EXPECT_THAT(buffer_, Holds(" now"));
  EXPECT_THAT(polls, ElementsAre(Pair(POLLIN, 5000), Pair(POLLIN, 4051), Pair(POLLIN, 1000)));
  EXPECT_THAT(log_.take(), ElementsAre(debug("wwanmd0 is busy, remaining timeout is 4.50050s"),
                                       debug("wwanmd0 is busy, remaining timeout is 1.0s"),
                                       debug("wwanmd0 is busy, remaining timeout is 0.999999s"),
                                       debug("wwanmd0 is busy")));
}

TEST_F(WwanmdTime, OfAReplyThatCameTooLateIsNone) {
  daemon_->command(R"(plan 1 send "BUSY")");
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), 0);
  let_each_wait_take({100 * kSecondUs});
  EXPECT_EQ(wwanmd_recv(connection_.get(), &buffer_), -1);
  EXPECT_THAT(log_.take(), ElementsAre(debug("wwanmd0 is busy, remaining timeout is 0.0s"),
                                       debug("wwanmd0 is busy")));
}

// Five looks, a second after each.
TEST_F(WwanmdTime, InResetIsFiveSecondsAtMost) {
  for (int seconds = 1; seconds <= 6; ++seconds) {
    Marker marker(0, "reset");
    clock_.at_pauses([&](int pause) {
      if (pause == seconds) marker.remove();
    });
    EXPECT_EQ(wwanmd_in_reset(0), seconds < 5 ? 0 : 1) << seconds;
    const auto pauses = static_cast<std::size_t>(std::min(seconds + 1, 5));
    EXPECT_EQ(clock_.take_pauses_us(), std::vector<std::int64_t>(pauses, kSecondUs));
  }
  EXPECT_EQ(wwanmd_in_reset(0), 0);
  EXPECT_THAT(clock_.take_pauses_us(), SizeIs(0));
}

// What a card in reset, or one that comes into reset meanwhile, does to a call.
class WwanmdReset : public WwanmdTime {
 protected:
  // For a reset that begins when it is called.
  std::function<void()> reset() {
    return [this] { marker_ = std::make_unique<Marker>(0, "reset"); };
  }

  void expect_in_reset() {
    EXPECT_THAT(log_.take(), ElementsAre(debug("wwanmd0 is currently in reset")));
    EXPECT_EQ(record_of(connection_).socket, -1);
    EXPECT_THAT(clock_.take_pauses_us(), testing::Each(kSecondUs));
  }

  std::unique_ptr<Marker> marker_;
};

TEST_F(WwanmdReset, KeepsACommandFromBeingSent) {
  daemon_->command(R"(now send "OK late")");
  record_of(connection_).failures = 2;
  clock_.advance_us(kSecondUs);
  const auto noted = record_of(connection_).last_exchange;
  std::signal(SIGPIPE, SIG_IGN);
  reset()();
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), -11);
  expect_in_reset();
  EXPECT_THAT(buffer_, Holds("signal\n"));
  EXPECT_EQ(record_of(connection_).failures, 2);
  EXPECT_EQ(record_of(connection_).last_exchange.tv_sec, noted.tv_sec);
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN) << "nothing was waited for";
  EXPECT_THAT(daemon_->take_received(), SizeIs(0));
}

TEST_F(WwanmdReset, KeepsAReplyFromBeingReceived) {
  daemon_->command(R"(now send "OK late")");
  reset()();
  clock_.at_pauses([](int) { EXPECT_EQ(sigpipe_disposition(), SIG_IGN) << "already"; });
  EXPECT_EQ(wwanmd_recv(connection_.get(), &buffer_), -11);
  expect_in_reset();
  EXPECT_THAT(buffer_, Holds("signal"));
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN);
}

TEST_F(WwanmdReset, KeepsAConnectionFromBeingOpened) {
  reset()();
  record_of(connection_).failures = 2;
  record_of(connection_).busy_count = 3;
  EXPECT_EQ(wwanmd_open(connection_.get()), -11);
  expect_in_reset();
  EXPECT_EQ(record_of(connection_).failures, 2);
  EXPECT_EQ(record_of(connection_).busy_count, 3);
  EXPECT_EQ(sigpipe_disposition(), SIG_DFL);
  EXPECT_EQ(wwanmd_init(0, kName), nullptr);
  expect_in_reset();
}

// -1 then, for it is opening that failed.
TEST_F(WwanmdReset, KeepsAClosedConnectionFromBeingUsed) {
  wwanmd_close(connection_.get());
  clock_.advance_us(kSecondUs);
  reset()();
  EXPECT_EQ(wwanmd_send(connection_.get(), &buffer_), -1);
  expect_in_reset();
  expect_noted_now();
  EXPECT_EQ(wwanmd_command(connection_.get(), &buffer_), -1);
  expect_in_reset();
  EXPECT_EQ(sigpipe_disposition(), SIG_DFL);
  EXPECT_EQ(wwanmd_recv(connection_.get(), &buffer_), -1);
  expect_in_reset();
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN);
  marker_.reset();
  expect_exchange_succeeds(connection_);
}

TEST_F(WwanmdReset, ThatBeginsBeforeTheIntroductionMakesOpeningFail) {
  after_connecting = reset();
  EXPECT_EQ(wwanmd_open(connection_.get()), -1);
  EXPECT_THAT(log_.take(), ElementsAre(debug("wwanmd0 is currently in reset"),
                                       debug("cannot initialize wwanmd0 (" + text_of(0) + ")")));
  EXPECT_EQ(record_of(connection_).socket, -1);
  EXPECT_THAT(daemon_->take_received(), SizeIs(0));
}

TEST_F(WwanmdReset, ThatBeginsBeforeTheAnswerToTheIntroductionMakesOpeningFail) {
  after_sending = reset();
  EXPECT_EQ(wwanmd_open(connection_.get()), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("wwanmd0 is currently in reset"), debug("command failed"),
                          debug("cannot initialize wwanmd0 (" + text_of(0) + ")")));
  EXPECT_EQ(record_of(connection_).socket, -1);
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN);
}

TEST_F(WwanmdReset, ThatBeginsBeforeTheReplyMakesACommandFail) {
  after_sending = reset();
  EXPECT_EQ(wwanmd_command(connection_.get(), &buffer_), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("wwanmd0 is currently in reset"), debug("command failed")));
  EXPECT_EQ(record_of(connection_).socket, -1);
  EXPECT_EQ(record_of(connection_).failures, 0);
}

}  // namespace
