// Receiving a reply.

#include <syslog.h>

#include "wwanmd_fixture.h"

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using testing::SizeIs;

using namespace std::string_view_literals;

// The steps that send each reply once the one before has been fetched.
std::string sending(int count, const std::string& reply) {
  std::string steps;
  for (int i = 0; i < count; ++i) steps += " send \"" + reply + "\"";
  return steps;
}

class WwanmdRecv : public WwanmdTest {
 protected:
  // Has the daemon send replies, as if they were to a command.
  void provoke(const std::string& steps) { daemon_->command("now" + steps); }

  // Has it do so on the way, each when the one before has been fetched.
  void provoke_many(const Connection& connection, const std::string& steps) {
    daemon_->command("plan 1" + steps);
    wwanmd_buffer buffer = command("x");
    ASSERT_EQ(wwanmd_send(connection.get(), &buffer), 0);
  }

  wwanmd_buffer buffer_ = command("what was there before");
};

TEST_F(WwanmdRecv, RefusesNullAndLeavesSigpipeAlone) {
  const Connection connection = connect();
  std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(wwanmd_recv(nullptr, &buffer_), -1);
  EXPECT_EQ(wwanmd_recv(connection.get(), nullptr), -1);
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN);
  EXPECT_THAT(buffer_, Holds("what was there before"sv));
}

TEST_F(WwanmdRecv, OfOkGivesTheTextAfterIt) {
  const Connection connection = connect();
  record_of(connection).failures = 3;
  record_of(connection).busy_count = 3;
  provoke(R"( send "OK -71 dBm")");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0);
  EXPECT_THAT(buffer_, Holds(" -71 dBm"sv));
  EXPECT_EQ(record_of(connection).failures, 0);
  EXPECT_EQ(record_of(connection).busy_count, 0);
}

TEST_F(WwanmdRecv, OfOkAloneGivesTheEmptyText) {
  const Connection connection = connect();
  provoke(R"( send "OK")");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0);
  EXPECT_THAT(buffer_, Holds(""sv));
}

TEST_F(WwanmdRecv, GivesNulsAndNewlinesToo) {
  const Connection connection = connect();
  provoke(R"( send "OK\0a\n\0\n")");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0);
  EXPECT_THAT(buffer_, Holds("\0a\n\0\n"sv));
  provoke(R"( send "ERROR\0\n\xff")");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  EXPECT_THAT(buffer_, Holds("\0\n\xff"sv));
  log_.take();
}

TEST_F(WwanmdRecv, TakesRepliesOf8191Bytes) {
  const Connection connection = connect();
  provoke(" send \"OK" + std::string(8189, 'x') + "\"");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0);
  EXPECT_THAT(buffer_, Holds(std::string(8189, 'x')));
}

TEST_F(WwanmdRecv, TakesWhatIsLongerAsTheNextReply) {
  const Connection connection = connect();
  provoke(" send \"OK" + std::string(8189, 'x') + "OK rest\"");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0);
  EXPECT_THAT(buffer_, Holds(std::string(8189, 'x')));
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0);
  EXPECT_THAT(buffer_, Holds(" rest"sv));
}

TEST_F(WwanmdRecv, OfErrorGivesTheTextAfterItAndIsAFailure) {
  const Connection connection = connect();
  record_of(connection).busy_count = 3;
  provoke(R"( send "ERROR no SIM")");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  EXPECT_THAT(buffer_, Holds(" no SIM"sv));
  EXPECT_THAT(log_.take(), ElementsAre(debug("receiving from wwanmd0 failed (1 failures)")));
  EXPECT_EQ(record_of(connection).failures, 1);
  EXPECT_EQ(record_of(connection).busy_count, 3);
}

TEST_F(WwanmdRecv, OfAnythingElseIsAFailureWithoutAText) {
  const Connection connection = connect();
  for (const char* reply : {"\\0", "O", "x", "ok", "BUS", "ERRO", "READY", "\\nOK", "Busy"}) {
    record_of(connection).failures = 0;
    provoke(std::string(" send \"") + reply + "\"");
    EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
    EXPECT_THAT(buffer_, HoldsNothing());
    EXPECT_THAT(log_.take(), ElementsAre(debug("invalid response received from wwanmd0"),
                                         debug("receiving from wwanmd0 failed (1 failures)")));
  }
  expect_exchange_succeeds(connection);
  EXPECT_THAT(daemon_->events("open"), SizeIs(1));
}

TEST_F(WwanmdRecv, FromADaemonThatHasClosedIsAFailure) {
  const Connection connection = connect();
  provoke(" close");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  EXPECT_THAT(buffer_, HoldsNothing());
  EXPECT_THAT(log_.take(), ElementsAre(debug("couldn't read from wwanmd0 (" + text_of(0) + ")"),
                                       debug("receiving from wwanmd0 failed (1 failures)")));
  EXPECT_GE(record_of(connection).socket, 0) << "it stays open until the fourth";
}

TEST_F(WwanmdRecv, FromADaemonThatDiedBeforeItReadIsAFailure) {
  const Connection connection = connect();
  ::kill(daemon_->process(), SIGSTOP);
  wwanmd_buffer unread = command("x");
  EXPECT_EQ(wwanmd_send(connection.get(), &unread), 0);
  daemon_->kill();
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("couldn't read from wwanmd0 (" + text_of(ECONNRESET) + ")"),
                          debug("receiving from wwanmd0 failed (1 failures)")));
}

TEST_F(WwanmdRecv, OpensTheConnectionAnewAtTheFourthFailureInARow) {
  const Connection connection = connect();
  for (int failures = 1; failures <= 4; ++failures) {
    EXPECT_THAT(daemon_->events("open"), SizeIs(1));
    provoke(R"( send "ERROR x")");
    EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
    EXPECT_THAT(log_.take(), ElementsAre(debug("receiving from wwanmd0 failed (" +
                                               std::to_string(failures) + " failures)")));
  }
  EXPECT_THAT(buffer_, Holds(" x"sv)) << "the new connection's reply is not ours";
  EXPECT_THAT(daemon_->events("open"), SizeIs(2));
  EXPECT_THAT(daemon_->take_received(), ElementsAre(kInit));
  EXPECT_EQ(record_of(connection).failures, 0);
  EXPECT_EQ(sigpipe_disposition(), SIG_DFL);
  expect_exchange_succeeds(connection);
}

TEST_F(WwanmdRecv, CountsFailuresInARowAlone) {
  const Connection connection = connect();
  for (int i = 0; i < 2; ++i) {
    for (int failures = 0; failures < 3; ++failures) {
      provoke(R"( send "ERROR")");
      EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
    }
    provoke(R"( send "OK")");
    EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0);
  }
  EXPECT_THAT(log_.take(), SizeIs(6));
  EXPECT_THAT(daemon_->events("open"), SizeIs(1));
}

TEST_F(WwanmdRecv, ThatCannotOpenTheConnectionAnewLeavesItClosed) {
  const Connection connection = connect();
  daemon_->kill();
  for (int failures = 1; failures <= 4; ++failures) {
    EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  }
  EXPECT_EQ(record_of(connection).socket, -1);
  const auto lines = log_.take();
  ASSERT_THAT(lines, SizeIs(9));
  EXPECT_EQ(lines[7], debug("receiving from wwanmd0 failed (4 failures)"));
  EXPECT_EQ(lines[8], debug("can't bind to wwanmd0 (" + text_of(ECONNREFUSED) + ")"));
  EXPECT_EQ(sigpipe_disposition(), SIG_DFL);
}

TEST_F(WwanmdRecv, WaitsForTheReplyAfterBusy) {
  const Connection connection = connect();
  record_of(connection).failures = 2;
  record_of(connection).busy_count = 3;
  provoke_many(connection, R"( send "BUSY dialling" send "BUSY" send "OK done")");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0);
  EXPECT_THAT(buffer_, Holds(" done"sv));
  EXPECT_EQ(record_of(connection).busy_count, 0);
  const auto lines = log_.take();
  ASSERT_THAT(lines, SizeIs(2));
  for (const auto& line : lines) {
    EXPECT_EQ(line.level, LOG_DEBUG);
    EXPECT_THAT(line.text, MatchesRegex("wwanmd0 is busy, remaining timeout is 4\\.[0-9]{1,6}s"));
  }
}

TEST_F(WwanmdRecv, OfBusyAndErrorIsAFailureWithTheErrorsText) {
  const Connection connection = connect();
  provoke_many(connection, R"( send "BUSY" send "ERROR late")");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  EXPECT_THAT(buffer_, Holds(" late"sv));
  const auto lines = log_.take();
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[1], debug("receiving from wwanmd0 failed (1 failures)"));
}

TEST_F(WwanmdRecv, OfBusyAndNothingMoreKeepsNoText) {
  const Connection connection = connect();
  provoke_many(connection, R"( send "BUSY soon" close)");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  EXPECT_THAT(buffer_, HoldsNothing());
  log_.take();
}

TEST_F(WwanmdRecv, ShowsThatThe1000SecondsOfABufferAre300) {
  const Connection connection = connect();
  buffer_.timeout = 1000;
  provoke_many(connection, R"( send "BUSY" send "OK")");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0);
  const auto lines = log_.take();
  ASSERT_THAT(lines, SizeIs(1));
  EXPECT_THAT(lines[0].text,
              MatchesRegex("wwanmd0 is busy, remaining timeout is 29[89]\\.[0-9]{1,6}s"));
  EXPECT_EQ(buffer_.timeout, 1000) << "it is the caller's";
}

TEST_F(WwanmdRecv, GivesUpAtThe21stBusy) {
  const Connection connection = connect();
  record_of(connection).failures = 2;
  provoke_many(connection, sending(20, "BUSY") + R"( send "BUSY at last" send "OK")");
  record_of(connection).failures = 2;
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  EXPECT_THAT(buffer_, Holds(" at last"sv));
  EXPECT_EQ(record_of(connection).busy_count, 1);
  EXPECT_EQ(record_of(connection).failures, 2) << "it is no failure";
  const auto lines = log_.take();
  ASSERT_THAT(lines, SizeIs(22));
  for (std::size_t i = 0; i < 21; ++i) {
    EXPECT_THAT(lines[i].text, MatchesRegex("wwanmd0 is busy, remaining timeout is .*s"));
  }
  EXPECT_EQ(lines[21], debug("wwanmd0 is busy"));
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0) << "the reply that came after all";
}

TEST_F(WwanmdRecv, TakesTheReplyAfter20Busy) {
  const Connection connection = connect();
  provoke_many(connection, sending(20, "BUSY") + R"( send "OK")");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0);
  EXPECT_THAT(log_.take(), SizeIs(20));
}

// The last of them through whole commands.
TEST_F(WwanmdRecv, OpensTheConnectionAnewAtThe17thThatEndsBusy) {
  const Connection connection = connect();
  provoke_many(connection, sending(15 * 21, "BUSY"));
  for (int ended = 1; ended <= 15; ++ended) {
    EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
    EXPECT_EQ(record_of(connection).busy_count, ended);
  }
  daemon_->command("plan 2" + sending(21, "BUSY!"));
  EXPECT_THAT(log_.take(), SizeIs(15 * 22));
  for (int ended = 16; ended <= 17; ++ended) {
    EXPECT_THAT(daemon_->events("open"), SizeIs(1));
    wwanmd_buffer buffer = command("y");
    EXPECT_EQ(wwanmd_command(connection.get(), &buffer), -1);
    EXPECT_THAT(buffer, Holds("!"sv));
    const auto lines = log_.take();
    ASSERT_THAT(lines, SizeIs(21 + 2));
    EXPECT_EQ(lines[21], debug("wwanmd0 is busy"));
    EXPECT_EQ(lines[22], debug("command failed"));
  }
  EXPECT_THAT(daemon_->take_received(), ElementsAre("x\n", "y\n", "y\n", kInit));
  EXPECT_EQ(record_of(connection).busy_count, 0);
  EXPECT_EQ(sigpipe_disposition(), SIG_DFL);
  expect_exchange_succeeds(connection);
}

TEST_F(WwanmdRecv, SetsSigpipeToItsDefaultHoweverItEnds) {
  const Connection connection = connect();
  for (const char* reply : {"OK", "ERROR", "x"}) {
    std::signal(SIGPIPE, SIG_IGN);
    provoke(std::string(" send \"") + reply + "\"");
    wwanmd_recv(connection.get(), &buffer_);
    EXPECT_EQ(sigpipe_disposition(), SIG_DFL) << reply;
  }
  std::signal(SIGPIPE, SIG_IGN);
  daemon_->command("plan 1" + sending(21, "BUSY"));
  wwanmd_buffer buffer = command("x");
  ASSERT_EQ(wwanmd_send(connection.get(), &buffer), 0);
  std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  EXPECT_EQ(sigpipe_disposition(), SIG_DFL) << "BUSY";
  std::signal(SIGPIPE, SIG_IGN);
  provoke(" close");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  EXPECT_EQ(sigpipe_disposition(), SIG_DFL) << "closed";
  log_.take();
}

TEST_F(WwanmdRecv, ThatCannotOpenTheConnectionLeavesSigpipeIgnored) {
  const Connection connection = connect();
  wwanmd_close(connection.get());
  daemon_->command("gone");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  EXPECT_THAT(log_.take(), ElementsAre(debug("can't bind to wwanmd0 (" + text_of(ENOENT) + ")")));
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN);
  EXPECT_THAT(buffer_, Holds("what was there before"sv));

  std::signal(SIGPIPE, SIG_DFL);
  daemon_->command("back");
  daemon_->command(R"(plan 1 send "ERROR")");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), -1);
  EXPECT_THAT(log_.take(), SizeIs(3));
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN) << "whatever the introduction did";
}

TEST_F(WwanmdRecv, OpensAClosedConnection) {
  const Connection connection = connect();
  wwanmd_close(connection.get());
  daemon_->command(R"(plan 1 answer send "OK unasked")");
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer_), 0);
  EXPECT_THAT(buffer_, Holds(" unasked"sv));
  EXPECT_THAT(daemon_->take_received(), ElementsAre(kInit));
}

}  // namespace
