// Making, opening, closing and freeing a connection.

#include <algorithm>
#include <array>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "wwanmd_fixture.h"

namespace {

using support::open_descriptors;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class WwanmdInit : public WwanmdTest {};

TEST_F(WwanmdInit, IntroducesTheApplication) {
  const Connection connection(wwanmd_init(0, "uplinkd"));
  ASSERT_NE(connection, nullptr);
  EXPECT_THAT(daemon_->take_received(), ElementsAre("init uplinkd\n"));
}

TEST_F(WwanmdInit, FillsTheRecord) {
  const auto before = std::chrono::steady_clock::now().time_since_epoch();
  const Connection connection = connect();
  const auto after = std::chrono::steady_clock::now().time_since_epoch();
  const ConnectionRecord& record = record_of(connection);
  EXPECT_EQ(record.card, 0);
  EXPECT_STREQ(record.application_name, kName);
  EXPECT_GE(record.socket, 3);
  EXPECT_EQ(record.flags, 1);
  EXPECT_EQ(record.failures, 0);
  EXPECT_EQ(record.busy_count, 0);
  const auto last = std::chrono::seconds(record.last_exchange.tv_sec) +
                    std::chrono::nanoseconds(record.last_exchange.tv_nsec);
  EXPECT_GE(last, before);
  EXPECT_LE(last, after);
}

TEST_F(WwanmdInit, TakesNamesOf1To15Characters) {
  for (const char* name : {"x", "123456789012345", "with space", "\xff"}) {
    const Connection connection(wwanmd_init(0, name));
    ASSERT_NE(connection, nullptr) << name;
    EXPECT_THAT(daemon_->take_received(), ElementsAre(std::string("init ") + name + "\n"));
  }
}

TEST_F(WwanmdInit, RefusesOtherNames) {
  for (const char* name : {static_cast<const char*>(nullptr), "", "1234567890123456",
                           "a name that is longer by far than what a connection keeps"}) {
    EXPECT_EQ(wwanmd_init(0, name), nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(debug("invalid app name for wwanmd connection")));
  }
  EXPECT_THAT(daemon_->events(), IsEmpty());
}

// The card comes first.
TEST_F(WwanmdInit, ThatIsRefusedLeavesTheLogAsItIs) {
  ::openlog("before", LOG_PID, LOG_DAEMON);
  EXPECT_EQ(wwanmd_init(6, "x"), nullptr);
  EXPECT_EQ(wwanmd_init(6, nullptr), nullptr);
  EXPECT_EQ(wwanmd_init(0, "1234567890123456"), nullptr);
  const auto lines = log_.take();
  EXPECT_THAT(lines, ElementsAre(err("invalid wwan card 6"), err("invalid wwan card 6"),
                                 debug("invalid app name for wwanmd connection")));
  for (const support::LogLine& line : lines) {
    EXPECT_EQ(line.program, "before");
    EXPECT_EQ(line.facility, LOG_DAEMON);
  }
}

TEST_F(WwanmdInit, LogsInTheNameOfTheApplication) {
  daemon_->command("gone");
  EXPECT_EQ(wwanmd_init(0, "its name"), nullptr);
  ::syslog(LOG_INFO, "the program's own");
  const auto lines = log_.take();
  ASSERT_THAT(lines, SizeIs(2));
  for (const support::LogLine& line : lines) {
    EXPECT_EQ(line.program, "its name");
    EXPECT_EQ(line.facility, LOG_USER);
  }
}

// With the process id, over a connection that is made at once.
TEST(WwanmdInitLog, IsOpenedAtOnceAndHasTheProcessId) {
  ::closelog();
  const rkutils::internal::UniqueFd inbox = support::open_log_socket();
  const std::size_t descriptors = open_descriptors().size();
  EXPECT_EQ(wwanmd_init(0, kName), nullptr);
  EXPECT_THAT(open_descriptors(), SizeIs(descriptors + 1)) << "it stays open";
  std::array<char, 256> buffer = {};
  ASSERT_GT(::recv(inbox.get(), buffer.data(), buffer.size() - 1, MSG_DONTWAIT), 0);
  EXPECT_THAT(buffer.data(),
              testing::HasSubstr("tester[" + std::to_string(::getpid()) + "]: can't"));
  ::closelog();
}

TEST_F(WwanmdInit, GivesTheLogTheCallersOwnText) {
#ifdef __GLIBC__
  const std::string kept = "First";
#else
  const std::string kept = "first";  // musl's openlog() copies it
#endif
  static char name[] = "first";
  const Connection connection(wwanmd_init(0, name));
  name[0] = 'F';
  ::syslog(LOG_INFO, "x");
  const auto lines = log_.take();
  ASSERT_THAT(lines, SizeIs(1));
  EXPECT_EQ(lines[0].program, kept);
}

TEST_F(WwanmdInit, CopiesTheNameForTheDaemon) {
  static char name[] = "first";
  const Connection connection(wwanmd_init(0, name));
  name[0] = 'F';
  EXPECT_EQ(wwanmd_open(connection.get()), 0);
  EXPECT_THAT(daemon_->take_received(), ElementsAre("init first\n", "init first\n"));
}

TEST_F(WwanmdInit, WithoutMemoryLogsAndReturnsNull) {
  ::openlog(kName, LOG_PID | LOG_NDELAY, LOG_USER);  // what opening it takes is not what fails
  const support::FailingAllocation no_memory(1);
  EXPECT_EQ(wwanmd_init(0, kName), nullptr);
  EXPECT_TRUE(no_memory.happened());
  EXPECT_THAT(log_.take(), ElementsAre(debug("no mem for wwanmd connection")));
  EXPECT_THAT(daemon_->events(), IsEmpty());
}

TEST_F(WwanmdInit, WithoutADaemonLogsAndReturnsNull) {
  daemon_->kill();
  EXPECT_EQ(wwanmd_init(0, kName), nullptr);
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("can't bind to wwanmd0 (" + text_of(ECONNREFUSED) + ")")));
  const long unfreed = support::unfreed_count();  // after what the log has allocated for good
  EXPECT_EQ(wwanmd_init(0, kName), nullptr);
  EXPECT_EQ(support::unfreed_count(), unfreed);
  EXPECT_THAT(log_.take(), SizeIs(1));
}

class WwanmdOpen : public WwanmdTest {};

TEST_F(WwanmdOpen, OfNullIsMinus1) { EXPECT_EQ(wwanmd_open(nullptr), -1); }

TEST_F(WwanmdOpen, MakesAStreamSocketThatDoesNotBlockAndIsClosedOnExec) {
  const Connection connection = connect();
  const int socket = record_of(connection).socket;
  EXPECT_EQ(::fcntl(socket, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  EXPECT_EQ(::fcntl(socket, F_GETFL), O_RDWR | O_NONBLOCK);
  int type = 0;
  socklen_t length = sizeof type;
  ASSERT_EQ(::getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &length), 0);
  EXPECT_EQ(type, SOCK_STREAM);
}

TEST_F(WwanmdOpen, ClosesTheOldSocketAndCountsAnew) {
  const Connection connection = connect();
  const auto descriptors = open_descriptors().size();
  record_of(connection).failures = 2;
  record_of(connection).busy_count = 15;
  EXPECT_EQ(wwanmd_open(connection.get()), 0);
  EXPECT_THAT(open_descriptors(), SizeIs(descriptors));
  EXPECT_THAT(daemon_->events("gone"), SizeIs(1));
  EXPECT_THAT(daemon_->take_received(), ElementsAre(kInit));
  EXPECT_EQ(record_of(connection).failures, 0);
  EXPECT_EQ(record_of(connection).busy_count, 0);
  expect_exchange_succeeds(connection);
}

TEST_F(WwanmdOpen, WithoutADescriptorFailsAndCanBeTriedAgain) {
  const Connection connection = connect();
  wwanmd_close(connection.get());
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(wwanmd_open(connection.get()), -1);
  }
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("can't open socket to wwanmd0 (" + text_of(EMFILE) + ")")));
  EXPECT_EQ(wwanmd_open(connection.get()), 0);
  expect_exchange_succeeds(connection);
}

TEST_F(WwanmdOpen, WithoutADaemonFailsAndCanBeTriedAgain) {
  const Connection connection = connect();
  daemon_->kill();
  EXPECT_EQ(wwanmd_open(connection.get()), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("can't bind to wwanmd0 (" + text_of(ECONNREFUSED) + ")")));
  EXPECT_EQ(record_of(connection).socket, -1);
  std::filesystem::remove("/var/run/wwanmd0/server");
  EXPECT_EQ(wwanmd_open(connection.get()), -1);
  EXPECT_THAT(log_.take(), ElementsAre(debug("can't bind to wwanmd0 (" + text_of(ENOENT) + ")")));
  daemon_->start();
  EXPECT_EQ(wwanmd_open(connection.get()), 0);
  expect_exchange_succeeds(connection);
}

// Whatever the daemon does with the introduction: one connection is made, and it is closed again.
class WwanmdIntroduction : public WwanmdTest {
 protected:
  // Opens a connection that was open once, so that its introduction is paced.
  void expect_failure(const Connection& connection, const std::vector<support::LogLine>& messages) {
    wwanmd_close(connection.get());
    record_of(connection).failures = 2;  // of before, which do not count
    record_of(connection).busy_count = 2;
    const auto descriptors = open_descriptors().size();
    const auto connections = daemon_->events("open").size();
    EXPECT_EQ(wwanmd_open(connection.get()), -1);
    EXPECT_EQ(log_.take(), messages);
    EXPECT_EQ(record_of(connection).socket, -1);
    EXPECT_EQ(record_of(connection).flags, 1);
    EXPECT_EQ(record_of(connection).busy_count, 0);
    EXPECT_THAT(open_descriptors(), SizeIs(descriptors));
    EXPECT_THAT(daemon_->events("open"), SizeIs(connections + 1));
    EXPECT_EQ(sigpipe_disposition(), SIG_DFL);
    expect_exchange_succeeds(connection);
  }
};

TEST_F(WwanmdIntroduction, AnsweredWithErrorFails) {
  const Connection connection = connect();
  daemon_->command(R"(plan 1 send "ERROR not you")");
  expect_failure(connection,
                 {debug("receiving from wwanmd0 failed (1 failures)"), debug("command failed"),
                  debug("cannot initialize wwanmd0 (" + text_of(0) + ")")});
}

TEST_F(WwanmdIntroduction, AnsweredWithAnythingElseFails) {
  const Connection connection = connect();
  daemon_->command(R"(plan 1 send "hello")");
  expect_failure(connection,
                 {debug("invalid response received from wwanmd0"),
                  debug("receiving from wwanmd0 failed (1 failures)"), debug("command failed"),
                  debug("cannot initialize wwanmd0 (" + text_of(0) + ")")});
}

TEST_F(WwanmdIntroduction, NotAnsweredBeforeTheDaemonClosesFails) {
  const Connection connection = connect();
  daemon_->command("plan 1 close");
  expect_failure(connection,
                 {debug("couldn't read from wwanmd0 (" + text_of(0) + ")"),
                  debug("receiving from wwanmd0 failed (1 failures)"), debug("command failed"),
                  debug("cannot initialize wwanmd0 (" + text_of(0) + ")")});
}

TEST_F(WwanmdIntroduction, HalfAnsweredFails) {
  const Connection connection = connect();
  daemon_->command(R"(plan 1 send "O" close)");
  expect_failure(connection,
                 {debug("invalid response received from wwanmd0"),
                  debug("receiving from wwanmd0 failed (1 failures)"), debug("command failed"),
                  debug("cannot initialize wwanmd0 (" + text_of(0) + ")")});
}

TEST_F(WwanmdIntroduction, NotReadBeforeTheDaemonClosesFails) {
  const Connection connection = connect();
  daemon_->command("greet 1 wait 600 close");
  expect_failure(connection,
                 {debug("couldn't read from wwanmd0 (" + text_of(ECONNRESET) + ")"),
                  debug("receiving from wwanmd0 failed (1 failures)"), debug("command failed"),
                  debug("cannot initialize wwanmd0 (" + text_of(ECONNRESET) + ")")});
}

// The count of failures is 4 then, but a connection that is being opened is not opened anew.
TEST_F(WwanmdIntroduction, NotTakenByADaemonThatHasClosedFailsWithoutAnotherAttempt) {
  const Connection connection = connect();
  daemon_->command("greet 1 close");
  expect_failure(connection,
                 {debug("could not send 12 bytes to wwanmd0 (" + text_of(EPIPE) + ")"),
                  debug("faced stalled wwanmd0"), debug("sending to wwanmd0 failed (4 failures)"),
                  debug("cannot initialize wwanmd0 (" + text_of(EPIPE) + ")")});
}

TEST_F(WwanmdIntroduction, AnsweredWithBusy21TimesFails) {
  const Connection connection = connect();
  std::string busy = "plan 1";
  for (int i = 0; i < 21; ++i) busy += R"( send "BUSY")";
  daemon_->command(busy);
  wwanmd_close(connection.get());
  EXPECT_EQ(wwanmd_open(connection.get()), -1);
  const auto lines = log_.take();
  ASSERT_THAT(lines, SizeIs(21 + 3));
  EXPECT_EQ(lines[21], debug("wwanmd0 is busy"));
  EXPECT_EQ(lines[22], debug("command failed"));
  EXPECT_EQ(lines[23], debug("cannot initialize wwanmd0 (" + text_of(0) + ")"));
  EXPECT_EQ(record_of(connection).socket, -1);
  expect_exchange_succeeds(connection);
}

TEST_F(WwanmdIntroduction, MayBeAnsweredWithBusyFirst) {
  const Connection connection = connect();
  daemon_->command(R"(plan 1 send "BUSY" send "OK")");
  EXPECT_EQ(wwanmd_open(connection.get()), 0);
  EXPECT_THAT(log_.take(), SizeIs(1));
  expect_exchange_succeeds(connection);
}

TEST_F(WwanmdIntroduction, ThatFailsMakesNoConnectionAtFirst) {
  daemon_->command(R"(plan 1 send "ERROR")");
  EXPECT_EQ(wwanmd_init(0, kName), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(debug("receiving from wwanmd0 failed (1 failures)"),
                                       debug("command failed"),
                                       debug("cannot initialize wwanmd0 (" + text_of(0) + ")")));
  EXPECT_THAT(daemon_->take_received(), ElementsAre(kInit));
  EXPECT_THAT(daemon_->events("gone"), SizeIs(1));
}

TEST_F(WwanmdIntroduction, ThrowsAwayAGreetingFirst) {
  const Connection connection = connect();
  daemon_->command(R"(greet 1 send "OK welcome")");
  EXPECT_EQ(wwanmd_open(connection.get()), 0);
  EXPECT_THAT(log_.take(), ElementsAre(debug("flushed 10 bytes from wwanmd0 before sending")));
  expect_exchange_succeeds(connection);
}

class WwanmdShut : public WwanmdTest {};

TEST_F(WwanmdShut, OfNullDoesNothing) {
  wwanmd_close(nullptr);
  wwanmd_free(nullptr);
}

TEST_F(WwanmdShut, ClosesTheSocket) {
  const auto before = open_descriptors();
  const Connection connection = connect();
  wwanmd_close(connection.get());
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_EQ(record_of(connection).socket, -1);
  EXPECT_THAT(daemon_->events("gone"), SizeIs(1));
}

TEST_F(WwanmdShut, OfAClosedConnectionDoesNothing) {
  const Connection connection = connect();
  wwanmd_close(connection.get());
  const auto descriptors = open_descriptors();
  wwanmd_close(connection.get());
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(WwanmdShut, FreesTheConnection) {
  const auto before = open_descriptors();
  const long unfreed = support::unfreed_count();
  wwanmd_connection* const connection = wwanmd_init(0, kName);
  wwanmd_free(connection);
  EXPECT_EQ(support::unfreed_count(), unfreed);
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(WwanmdShut, LeavesAnotherConnectionToTheCard) {
  const Connection one = connect();
  const Connection two = connect();
  EXPECT_THAT(daemon_->events("open"), SizeIs(2));
  wwanmd_close(one.get());
  expect_exchange_succeeds(two);
}

class WwanmdDescriptor : public WwanmdTest {};

// A daemon may have closed its standard input.
TEST_F(WwanmdDescriptor, MayBeZero) {
  const rkutils::internal::UniqueFd standard_input(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  ::close(STDIN_FILENO);
  Connection connection = connect();
  EXPECT_EQ(record_of(connection).socket, 0);
  expect_exchange_succeeds(connection);
  connection.reset();
  EXPECT_EQ(::fcntl(STDIN_FILENO, F_GETFD), -1) << "still open";
  ::dup2(standard_input.get(), STDIN_FILENO);
}

TEST_F(WwanmdDescriptor, MayBeBeyond1024) {
  rlimit limits = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limits), 0);
  limits.rlim_cur = std::max<rlim_t>(limits.rlim_cur, 2048);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limits), 0);
  std::vector<rkutils::internal::UniqueFd> fillers;
  while (fillers.empty() || fillers.back().get() < 1100) {
    fillers.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_TRUE(fillers.back());
  }
  const Connection connection = connect();
  EXPECT_GT(record_of(connection).socket, 1024);
  expect_exchange_succeeds(connection);
}

}  // namespace
