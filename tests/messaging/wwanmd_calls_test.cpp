// The socket calls behind an exchange, as the kernel gets them, and what becomes of an exchange in
// which they fail.

#include <rkutils/export.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <thread>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

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

// What happens when this thread's next such call is done.
thread_local std::function<void()> after_connect;
thread_local std::function<void()> after_send;

// What this thread has called.
thread_local std::vector<std::pair<sockaddr_un, socklen_t>> connects;
thread_local std::vector<std::pair<std::size_t, int>> sends;     // sizes and flags
thread_local std::vector<std::pair<std::size_t, int>> receives;  // of buffers
thread_local std::vector<std::pair<int, int>> polls;             // events and time-outs

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
  Failure failure = {};
  if (fails(connect_failures, failure)) return failure.result;
  const auto result = static_cast<int>(::syscall(SYS_connect, socket, address, length));
  if (after_connect) std::exchange(after_connect, nullptr)();
  return result;
}

int poll(pollfd* entries, nfds_t count, int timeout_ms) {
  if (count == 1) polls.emplace_back(entries->events, timeout_ms);
  Failure failure = {};
  if (fails(poll_failures, failure)) return failure.result;
  timespec timeout = {timeout_ms / 1000, timeout_ms % 1000 * 1000000L};
  return ::ppoll(entries, count, timeout_ms < 0 ? nullptr : &timeout, nullptr);
}

ssize_t send(int socket, const void* bytes, std::size_t size, int flags) {
  sends.emplace_back(size, flags);
  Failure failure = {};
  if (fails(send_failures, failure)) {
    if (failure.result < 0) return failure.result;
    size = static_cast<std::size_t>(failure.result);
  }
  const ssize_t result = ::sendto(socket, bytes, size, flags, nullptr, 0);
  if (after_send) std::exchange(after_send, nullptr)();
  return result;
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

TEST_F(WwanmdCalls, WaitAndReceiveWithTheSizesAndTimesOfTheBuffer) {
  EXPECT_EQ(wwanmd_command(connection_.get(), &buffer_), 0);
  EXPECT_THAT(sends, ElementsAre(Pair(7U, 0)));
  EXPECT_THAT(receives, ElementsAre(Pair(8191U, MSG_DONTWAIT), Pair(8191U, 0)));
  EXPECT_THAT(polls, ElementsAre(Pair(POLLOUT, 7000), Pair(POLLIN, 7000)));
}

TEST_F(WwanmdCalls, WaitFiveToThreeHundredSeconds) {
  for (const auto& [timeout, ms] :
       {std::pair(0, 5000), {-1, 5000}, {300, 300000}, {1000, 300000}}) {
    forget_calls();
    buffer_ = command("x", timeout);
    EXPECT_EQ(wwanmd_command(connection_.get(), &buffer_), 0);
    EXPECT_THAT(polls, ElementsAre(Pair(POLLOUT, ms), Pair(POLLIN, ms)));
  }
  forget_calls();
  EXPECT_EQ(wwanmd_open(connection_.get()), 0);
  EXPECT_THAT(polls, ElementsAre(Pair(POLLOUT, 5000), Pair(POLLIN, 5000)));
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

// The daemon may mark the card between any two steps.
TEST_F(WwanmdCalls, AfterWhichTheCardIsInResetAreTheLast) {
  support::WwanmdStandIn other(1);
  const Connection opened = connect(1);
  std::unique_ptr<Marker> marker;
  std::unique_ptr<Marker> other_marker;
  std::thread opening([&] {
    after_connect = [&] { other_marker = std::make_unique<Marker>(1, "reset"); };
    EXPECT_EQ(wwanmd_open(opened.get()), -1);
  });
  after_send = [&] { marker = std::make_unique<Marker>(0, "reset"); };
  EXPECT_EQ(wwanmd_command(connection_.get(), &buffer_), -1);
  opening.join();
  EXPECT_THAT(log_.take(), testing::UnorderedElementsAre(
                               debug("wwanmd0 is currently in reset"), debug("command failed"),
                               debug("wwanmd1 is currently in reset"),
                               debug("cannot initialize wwanmd1 (" + text_of(0) + ")")));
  EXPECT_EQ(record_of(connection_).socket, -1);
  EXPECT_EQ(record_of(opened).socket, -1);
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN);
  EXPECT_THAT(daemon_->take_received(), ElementsAre("signal\n"));
  EXPECT_THAT(other.take_received(), ElementsAre(kInit)) << "of before";
}

}  // namespace
