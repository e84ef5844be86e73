// Whole exchanges, with a daemon that keeps to them and with one that does not.

#include <filesystem>

#include "support/case_name.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"
#include "wwanmd_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using namespace std::string_view_literals;

class WwanmdCommand : public WwanmdTest {};

TEST_F(WwanmdCommand, GivesTheAnswerInTheSameBuffer) {
  const Connection connection = connect();
  daemon_->command(R"(answer "signal" "OK -71 dBm\n")");
  wwanmd_buffer buffer = command("signal");
  EXPECT_EQ(wwanmd_command(connection.get(), &buffer), 0);
  EXPECT_THAT(buffer, Holds(" -71 dBm\n"sv));
  EXPECT_THAT(daemon_->take_received(), ElementsAre("signal\n"));
}

TEST_F(WwanmdCommand, RefusesNullWithoutOpening) {
  const Connection connection = connect();
  wwanmd_close(connection.get());
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_command(nullptr, &buffer), -1);
  EXPECT_EQ(wwanmd_command(connection.get(), nullptr), -1);
  EXPECT_EQ(record_of(connection).socket, -1);
  EXPECT_THAT(daemon_->take_received(), IsEmpty());
}

TEST_F(WwanmdCommand, NotAnsweredWithOkFails) {
  const Connection connection = connect();
  daemon_->command(R"(plan 1 send "ERROR no SIM")");
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_command(connection.get(), &buffer), -1);
  EXPECT_THAT(buffer, Holds(" no SIM"sv));
  EXPECT_THAT(log_.take(), ElementsAre(debug("receiving from wwanmd0 failed (1 failures)"),
                                       debug("command failed")));
  expect_exchange_succeeds(connection);
}

// For sending each of them has ended the row of failures.
TEST_F(WwanmdCommand, ThatFailsFourTimesInARowKeepsTheConnection) {
  const Connection connection = connect();
  daemon_->command(R"(plan 5 send "ERROR")");
  for (int i = 0; i < 5; ++i) {
    wwanmd_buffer buffer = command("x");
    EXPECT_EQ(wwanmd_command(connection.get(), &buffer), -1);
    EXPECT_THAT(log_.take(), ElementsAre(debug("receiving from wwanmd0 failed (1 failures)"),
                                         debug("command failed")));
  }
  EXPECT_THAT(daemon_->events("open"), SizeIs(1));
}

TEST_F(WwanmdCommand, OpensAClosedConnection) {
  const Connection connection = connect();
  wwanmd_close(connection.get());
  expect_exchange_succeeds(connection);
  EXPECT_THAT(daemon_->take_received(), ElementsAre(kInit, "still there?\n"));
}

TEST_F(WwanmdCommand, ThatCannotOpenTheConnectionIsMinus1) {
  const Connection connection = connect();
  wwanmd_close(connection.get());
  daemon_->kill();
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_command(connection.get(), &buffer), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("can't bind to wwanmd0 (" + text_of(ECONNREFUSED) + ")")));
  EXPECT_THAT(buffer, Holds("x"sv));
}

TEST_F(WwanmdCommand, ThatCannotBeSentIsMinus1) {
  const Connection connection = connect();
  daemon_->command("now close");
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_command(connection.get(), &buffer), -1);
  EXPECT_THAT(log_.take(), SizeIs(3)) << "without \"command failed\"";
}

TEST_F(WwanmdCommand, CarriesTheLongestBothWays) {
  const Connection connection = connect();
  const std::string longest(8190, 'c');
  daemon_->command("plan 1 send \"OK" + std::string(8189, 'r') + "\"");
  wwanmd_buffer buffer = command(longest);
  EXPECT_EQ(wwanmd_command(connection.get(), &buffer), 0);
  EXPECT_THAT(buffer, Holds(std::string(8189, 'r')));
  EXPECT_THAT(daemon_->take_received(), ElementsAre(longest + "\n"));
}

TEST_F(WwanmdCommand, WorksOnASmallStack) {
  int results[] = {-1, 0, -1};
  support::run_on_small_stack([&] {
    const Connection connection(wwanmd_init(0, kName));
    wwanmd_buffer buffer = command("x");
    results[0] = wwanmd_command(connection.get(), &buffer);
    // The deepest: sending opens the connection anew.
    daemon_->command("now close");
    results[1] = wwanmd_command(connection.get(), &buffer);
    results[2] = wwanmd_command(connection.get(), &buffer);
  });
  EXPECT_THAT(results, ElementsAre(0, -1, 0));
  EXPECT_THAT(log_.take(), SizeIs(3));
}

// Where in its life with an application the daemon dies.
struct Death {
  const char* name;
  const char* command;  // what makes it do so
  bool opening;         // during an introduction, otherwise during a command
  int result;           // of a command then
};

class WwanmdDeath : public WwanmdTest, public testing::WithParamInterface<Death> {};

// Whatever happened, the next command but one at the latest is answered, with the same connection.
TEST_P(WwanmdDeath, IsSurvivedByTheConnection) {
  const auto [name, death, opening, result] = GetParam();
  const Connection connection = connect();
  if (opening) wwanmd_close(connection.get());
  daemon_->command(death);
  wwanmd_buffer buffer = command("x");
  EXPECT_EQ(wwanmd_command(connection.get(), &buffer), result);
  daemon_->kill();
  buffer = command("y");
  const support::Stopwatch watch;
  EXPECT_EQ(wwanmd_command(connection.get(), &buffer), -1);
  EXPECT_LT(watch.elapsed(), 4s);
  daemon_->start();
  for (int i = 0; i < 2; ++i) {
    buffer = command("z");
    if (wwanmd_command(connection.get(), &buffer) == 0) break;
  }
  log_.take();
  expect_exchange_succeeds(connection);
  EXPECT_EQ(sigpipe_disposition(), SIG_DFL);
}

INSTANTIATE_TEST_SUITE_P(
    , WwanmdDeath,
    testing::Values(Death{"BeforeConnecting", "gone", true, -1},
                    Death{"AfterConnecting", "greet 1 close", true, -1},
                    Death{"BeforeReadingTheIntroduction", "greet 1 wait 500 close", true, -1},
                    Death{"AfterReadingTheIntroduction", "plan 1 close", true, -1},
                    Death{"WithinTheAnswerToIt", R"(plan 1 send "O" close)", true, -1},
                    Death{"AfterTheAnswerToIt", "plan 1 answer close", true, -1},
                    Death{"WhileBusyWithIt", R"(plan 1 send "BUSY" close)", true, -1},
                    Death{"BeforeTheCommand", "now close", false, -1},
                    Death{"BeforeTheCommandWithWordsLeft", R"(now send "OK" close)", false, -1},
                    Death{"AfterReadingTheCommand", "plan 1 close", false, -1},
                    Death{"WithinTheAnswer", R"(plan 1 send "E" close)", false, -1},
                    Death{"AfterTheAnswer", "plan 1 answer close", false, 0},
                    Death{"WhileBusy", R"(plan 1 send "BUSY" close)", false, -1}),
    support::CaseName{});

// ---- On threads that are cancelled ----

using WwanmdCancelled = WwanmdTest;

TEST_F(WwanmdCancelled, ThreadsFinishTheirExchanges) {
  Connection connection;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { connection.reset(wwanmd_init(0, kName)); }));
  ASSERT_NE(connection, nullptr);
  wwanmd_buffer buffer = command("x");
  int result = -1;
  const auto each = {&wwanmd_command, &wwanmd_send, &wwanmd_recv};
  for (const auto& call : each) {
    EXPECT_TRUE(
        support::finishes_though_cancelled([&] { result = call(connection.get(), &buffer); }));
    EXPECT_EQ(result, 0);
  }
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = wwanmd_open(connection.get()); }));
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(support::finishes_though_cancelled([&] { wwanmd_close(connection.get()); }));
  expect_exchange_succeeds(connection);
  EXPECT_TRUE(support::finishes_though_cancelled([&] { connection.reset(); }));
}

TEST_F(WwanmdCancelled, ThreadsFinishWhatFails) {
  int result = 0;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = wwanmd_in_reset(7); }));
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = wwanmd_is_suspended(8); }));
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(support::finishes_though_cancelled([] { wwanmd_init(9, kName); }));
  EXPECT_THAT(log_.take(), SizeIs(3));
  const Connection connection = connect();
  wwanmd_buffer buffer = command("x");
  daemon_->command(R"(plan 1 send "ERROR")");
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { result = wwanmd_command(connection.get(), &buffer); }));
  EXPECT_EQ(result, -1);
  EXPECT_EQ(log_.take().back(), debug("command failed"));
  daemon_->kill();
  const auto each = {&wwanmd_recv, &wwanmd_send, &wwanmd_command};
  for (const auto& call : each) {
    EXPECT_TRUE(
        support::finishes_though_cancelled([&] { result = call(connection.get(), &buffer); }));
    EXPECT_EQ(result, -1);
  }
  EXPECT_FALSE(log_.take().empty());
}

TEST_F(WwanmdCancelled, ThreadsFinishLookingAtAMarker) {
  int result = 0;
  {
    const Marker reset(0, "reset");
    EXPECT_TRUE(support::finishes_though_cancelled([&] { result = wwanmd_in_reset(0); }));
  }
  EXPECT_EQ(result, 1);
}

}  // namespace
