// Sending a command.

#include <climits>
#include <thread>

#include "wwanmd_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using namespace std::string_view_literals;

const auto kBrokenPipe = [](int length) {
  return std::vector<support::LogLine>{debug("could not send " + std::to_string(length) +
                                             " bytes to wwanmd0 (" + text_of(EPIPE) + ")"),
                                       debug("faced stalled wwanmd0"),
                                       debug("sending to wwanmd0 failed (4 failures)")};
};

class WwanmdSend : public WwanmdTest {
 protected:
  // What the daemon gets.
  std::vector<std::string> sent(wwanmd_buffer& buffer) {
    const Connection connection = connect();
    EXPECT_EQ(wwanmd_send(connection.get(), &buffer), 0);
    return daemon_->take_received();
  }
};

TEST_F(WwanmdSend, RefusesNull) {
  const Connection connection = connect();
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_send(nullptr, &buffer), -1);
  EXPECT_EQ(wwanmd_send(connection.get(), nullptr), -1);
  EXPECT_THAT(daemon_->take_received(), IsEmpty());
}

TEST_F(WwanmdSend, EndsTheCommandWithANewline) {
  wwanmd_buffer buffer = command("signal");
  EXPECT_THAT(sent(buffer), ElementsAre("signal\n"));
  EXPECT_THAT(buffer, Holds("signal\n"sv));
}

TEST_F(WwanmdSend, LeavesANewlineThatIsThere) {
  wwanmd_buffer buffer = command("signal\n");
  EXPECT_THAT(sent(buffer), ElementsAre("signal\n"));
  EXPECT_THAT(buffer, Holds("signal\n"sv));
}

TEST_F(WwanmdSend, SendsTheBytesAsTheyAre) {
  const Connection connection = connect();
  daemon_->command("plan 3");  // silence, for three lines come
  wwanmd_buffer buffer = command("a\n\0\xff\nb\0"sv);
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), 0);
  EXPECT_THAT(daemon_->take_received(), ElementsAre("a\n\0\xff\nb\0\n"sv));
}

TEST_F(WwanmdSend, OfNothingSendsANewline) {
  wwanmd_buffer buffer = command("");
  buffer.data[0] = 'x';
  EXPECT_THAT(sent(buffer), ElementsAre("\n"));
  EXPECT_THAT(buffer, Holds("\n"sv));
}

TEST_F(WwanmdSend, SendsUpTo8190BytesAndANewline) {
  wwanmd_buffer buffer = command(std::string(8190, 'x'));
  EXPECT_THAT(sent(buffer), ElementsAre(std::string(8190, 'x') + "\n"));
  EXPECT_EQ(buffer.length, 8191);
}

// For it is too long with its newline.
TEST_F(WwanmdSend, RefusesACommandOf8190BytesASecondTime) {
  const Connection connection = connect();
  wwanmd_buffer buffer = command(std::string(8190, 'x'));
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), 0);
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), -1);
  EXPECT_THAT(log_.take(), ElementsAre(debug("buffer length exceeded")));
}

TEST_F(WwanmdSend, Sends8190BytesThatEndWithANewlineAsTheyAre) {
  const std::string text = std::string(8189, 'x') + "\n";
  wwanmd_buffer buffer = command(text);
  EXPECT_THAT(sent(buffer), ElementsAre(text));
  EXPECT_EQ(buffer.length, 8190);
}

TEST_F(WwanmdSend, RefusesLengthsFrom8191OnAndBelow0) {
  const Connection connection = connect();
  const support::Stopwatch watch;
  for (const int length : {8191, 8192, 8193, INT_MAX, -1, INT_MIN}) {
    wwanmd_buffer buffer = command(std::string(8191, '\n'));
    buffer.length = length;
    EXPECT_EQ(wwanmd_send(connection.get(), &buffer), -1);
    EXPECT_THAT(log_.take(), ElementsAre(debug("buffer length exceeded")));
    EXPECT_EQ(buffer.length, length);
    EXPECT_EQ(wwanmd_command(connection.get(), &buffer), -1);
    EXPECT_THAT(log_.take(), ElementsAre(debug("buffer length exceeded")));
  }
  EXPECT_LT(watch.elapsed(), 3s) << "it is refused before the pause";
  EXPECT_THAT(daemon_->take_received(), IsEmpty());
  EXPECT_EQ(record_of(connection).failures, 0);
  expect_exchange_succeeds(connection);
}

TEST_F(WwanmdSend, RefusesLengthsBeforeItOpensTheConnection) {
  const Connection connection = connect();
  wwanmd_close(connection.get());
  wwanmd_buffer buffer = command("");
  buffer.length = 8191;
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), -1);
  EXPECT_THAT(log_.take(), ElementsAre(debug("buffer length exceeded")));
  EXPECT_EQ(record_of(connection).socket, -1);
}

TEST_F(WwanmdSend, ThrowsAwayWhatCameBefore) {
  const Connection connection = connect();
  daemon_->command(R"(now send "OK late")");
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_command(connection.get(), &buffer), 0);
  EXPECT_THAT(buffer, Holds(""));
  EXPECT_THAT(log_.take(), ElementsAre(debug("flushed 7 bytes from wwanmd0 before sending")));
}

// One receive of 8191 bytes; what is left is taken for the reply.
TEST_F(WwanmdSend, ThrowsAway8191BytesAtMost) {
  const Connection connection = connect();
  daemon_->command("now send \"" + std::string(8191, 'x') + "OK left\"");
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), 0);
  EXPECT_THAT(log_.take(), ElementsAre(debug("flushed 8191 bytes from wwanmd0 before sending")));
  EXPECT_EQ(wwanmd_recv(connection.get(), &buffer), 0);
  EXPECT_THAT(buffer.data, testing::StartsWith(" left"));
}

TEST_F(WwanmdSend, EndsTheFailuresOfReceiving) {
  const Connection connection = connect();
  record_of(connection).failures = 3;
  record_of(connection).busy_count = 3;
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), 0);
  EXPECT_EQ(record_of(connection).failures, 0);
  EXPECT_EQ(record_of(connection).busy_count, 3);
}

TEST_F(WwanmdSend, NotesWhenItEnds) {
  const Connection connection = connect();
  wwanmd_buffer buffer = command("x");
  const auto before = std::chrono::steady_clock::now().time_since_epoch();
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), 0);
  const std::timespec& last = record_of(connection).last_exchange;
  EXPECT_GE(std::chrono::seconds(last.tv_sec) + std::chrono::nanoseconds(last.tv_nsec), before);
}

TEST_F(WwanmdSend, SetsSigpipeToItsDefault) {
  const Connection connection = connect();
  std::signal(SIGPIPE, SIG_IGN);
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), 0);
  EXPECT_EQ(sigpipe_disposition(), SIG_DFL);
}

TEST_F(WwanmdSend, ThatIsRefusedLeavesSigpipeAlone) {
  const Connection connection = connect();
  std::signal(SIGPIPE, SIG_IGN);
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_send(nullptr, &buffer), -1);
  EXPECT_EQ(wwanmd_send(connection.get(), nullptr), -1);
  EXPECT_EQ(sigpipe_disposition(), SIG_IGN);
}

TEST_F(WwanmdSend, OpensAClosedConnection) {
  const Connection connection = connect();
  wwanmd_close(connection.get());
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), 0);
  EXPECT_THAT(daemon_->take_received(), ElementsAre(kInit, "x\n"));
}

TEST_F(WwanmdSend, ThatCannotOpenTheConnectionIsMinus1) {
  const Connection connection = connect();
  wwanmd_close(connection.get());
  daemon_->kill();
  record_of(connection).last_exchange = {};
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("can't bind to wwanmd0 (" + text_of(ECONNREFUSED) + ")")));
  EXPECT_GT(record_of(connection).last_exchange.tv_sec, 0);
  EXPECT_EQ(record_of(connection).failures, 0);
}

// To a daemon that has closed its end, whether or not it runs.
TEST_F(WwanmdSend, ToADaemonThatHasClosedFailsAndOpensTheConnectionAtOnce) {
  const Connection connection = connect();
  daemon_->command("now close");
  wwanmd_buffer buffer = command("signal");
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), -1);
  EXPECT_EQ(log_.take(), kBrokenPipe(7));
  EXPECT_EQ(sigpipe_disposition(), SIG_DFL);
  EXPECT_THAT(daemon_->take_received(), ElementsAre(kInit));
  EXPECT_EQ(record_of(connection).failures, 0);
  EXPECT_THAT(buffer, Holds("signal\n"sv));
  EXPECT_EQ(wwanmd_command(connection.get(), &buffer), 0) << "the same again";
  EXPECT_THAT(daemon_->take_received(), ElementsAre("signal\n"));
}

TEST_F(WwanmdSend, ToADaemonThatHasDiedFailsAndCanBeTriedAgain) {
  const Connection connection = connect();
  daemon_->kill();
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), -1);
  auto expected = kBrokenPipe(2);
  expected.push_back(debug("can't bind to wwanmd0 (" + text_of(ECONNREFUSED) + ")"));
  EXPECT_EQ(log_.take(), expected);
  EXPECT_EQ(record_of(connection).socket, -1);
  daemon_->start();
  EXPECT_EQ(wwanmd_command(connection.get(), &buffer), 0);
}

TEST_F(WwanmdSend, ToADaemonThatRefusesTheNewIntroductionTriesNoFurther) {
  const Connection connection = connect();
  daemon_->command("greet 1 close");
  daemon_->command("now close");
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), -1);
  auto expected = kBrokenPipe(2);
  for (const auto& line : kBrokenPipe(12)) expected.push_back(line);
  expected.push_back(debug("cannot initialize wwanmd0 (" + text_of(EPIPE) + ")"));
  EXPECT_EQ(log_.take(), expected);
  EXPECT_THAT(daemon_->events("open"), SizeIs(2));
  EXPECT_EQ(record_of(connection).socket, -1);
  expect_exchange_succeeds(connection);
}

// What came before the end still counts as unasked.
TEST_F(WwanmdSend, ToADaemonThatHasSpokenAndClosedFails) {
  const Connection connection = connect();
  daemon_->command(R"(now send "bye" close)");
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_send(connection.get(), &buffer), -1);
  auto expected = kBrokenPipe(2);
  expected.insert(expected.begin(), debug("flushed 3 bytes from wwanmd0 before sending"));
  EXPECT_EQ(log_.take(), expected);
}

}  // namespace
