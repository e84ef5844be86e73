// Assigning values and ending the changes.

#include <cstring>
#include <map>

#include "configd_fixture.h"
#include "support/case_name.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ConfigdSet : public ConfigdTest {};

TEST_F(ConfigdSet, SendsAllAssignmentsAsLinesWithOneNul) {
  const Connection connection = connect();
  const auto array = entries({{"lan.address", "192.0.2.1"}, {"lan.netmask", "255.255.255.0"}});
  EXPECT_EQ(configd_set(connection.get(), array.data()), 0);
  EXPECT_THAT(daemon_->requests(),
              ElementsAre(bytes("lan.address=192.0.2.1\nlan.netmask=255.255.255.0\n\0")));
}

TEST_F(ConfigdSet, ChangesWhatTheDaemonHolds) {
  const Connection connection = connect();
  const auto array = entries({{"lan.address", "192.0.2.1"}, {"empty", ""}});
  EXPECT_EQ(configd_set(connection.get(), array.data()), 0);
  EXPECT_EQ(daemon_->saved_values(),
            (std::map<std::string, std::string>{{"lan.address", "192.0.2.1"}, {"empty", ""}}));
}

TEST_F(ConfigdSet, TakesALateEchoOfTheSameBatchForItsOwn) {
  const Connection connection = connect();
  const std::string batch = bytes("a=1\n\0");
  ASSERT_EQ(configd_send(connection.get(), batch.data(), 5), 5);
  EXPECT_EQ(configd_set(connection.get(), entries({{"a", "1"}}).data()), 0);
  auto array = entries({{"a", ""}});
  EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
  EXPECT_STREQ(array[0].value, "a=1");
}

TEST_F(ConfigdSet, OnAClosedConnectionIsMinus2AndOpensIt) {
  const Connection connection = connect();
  __configd_close(connection.get());
  const auto array = entries({{"a", "1"}});
  EXPECT_EQ(configd_set(connection.get(), array.data()), -2);
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
  EXPECT_EQ(configd_set(connection.get(), array.data()), 0);
}

TEST_F(ConfigdSet, SendsNewlinesAndEqualsSignsAsTheyAre) {
  const Connection connection = connect();
  const auto array = entries({{"a", "1\nb=2"}, {"c=d", "=\n"}});
  // An echo, since the stand-in would not take the empty line for an assignment.
  daemon_->command(R"(fault 1 reply "a=1\nb=2\nc=d==\n\n\0")");
  EXPECT_EQ(configd_set(connection.get(), array.data()), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(bytes("a=1\nb=2\nc=d==\n\n\0")));
}

TEST_F(ConfigdSet, KeepsTheSocketWhenItSucceeds) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  EXPECT_EQ(configd_set(connection.get(), entries({{"a", "1"}}).data()), 0);
  EXPECT_EQ(client_socket_id(), socket_before);
}

TEST_F(ConfigdSet, LogsBeforeItMakesANewSocket) {
  const Connection connection = connect();
  const auto array = entries({{"a", "1"}});
  daemon_->command("fault 1 lengthen 1");
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(configd_set(connection.get(), array.data()), -3);
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (6 != 5)"),
                                       err("cannot open socket to configd")));
}

TEST_F(ConfigdSet, EndsTheArrayAtTheEmptyKey) {
  const Connection connection = connect();
  const auto array = entries({{"a", "1"}, {"", "2"}, {"c", "3"}});
  EXPECT_EQ(configd_set(connection.get(), array.data()), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(bytes("a=1\n\0")));
}

TEST_F(ConfigdSet, OfAnEmptyArrayIsMinus1AndTouchesNothing) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  const auto array = entries({});
  EXPECT_EQ(configd_set(connection.get(), array.data()), -1);
  EXPECT_EQ(client_socket_id(), socket_before);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigdSet, RefusesNull) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  const auto array = entries({{"a", "1"}});
  EXPECT_EQ(configd_set(nullptr, array.data()), -1);
  EXPECT_EQ(configd_set(connection.get(), nullptr), -1);
  EXPECT_EQ(client_socket_id(), socket_before);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigdSet, TakesTheLongestKeyAndValue) {
  const Connection connection = connect();
  const std::string key(255, 'k');
  const std::string value(1023, 'v');
  const auto array = entries({{key, value}});
  EXPECT_EQ(configd_set(connection.get(), array.data()), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(key + "=" + value + bytes("\n\0")));
}

TEST_F(ConfigdSet, ReadsTextsWithoutTheirNulNoFurtherThanTheirFields) {
  const Connection connection = connect();
  auto array = entries({{"k", "v"}});
  std::memset(array[0].key, 'k', sizeof array[0].key);
  std::memset(array[0].value, 'v', sizeof array[0].value);
  EXPECT_EQ(configd_set(connection.get(), array.data()), 0);
  EXPECT_THAT(daemon_->requests(),
              ElementsAre(std::string(255, 'k') + "=" + std::string(1023, 'v') + bytes("\n\0")));
}

TEST_F(ConfigdSet, WithoutADaemonIsMinus2AndMakesANewSocket) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->kill();
  const auto array = entries({{"a", "1"}});
  EXPECT_EQ(configd_set(connection.get(), array.data()), -2);
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
  EXPECT_NE(client_socket_id(), socket_before);
  daemon_->start();
  EXPECT_EQ(configd_set(connection.get(), array.data()), 0);
}

// A fault of the echo, what becomes of the call, and the message.
struct SpoiltEcho {
  const char* name;
  const char* fault;
  int result;
  const char* message;
};

class ConfigdSetEcho : public ConfigdTest, public testing::WithParamInterface<SpoiltEcho> {};

// The batch is "a=1\n" and its NUL, five bytes.
TEST_P(ConfigdSetEcho, FailsAndMakesANewSocket) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->command(std::string("fault 1 ") + GetParam().fault);
  const auto array = entries({{"a", "1"}});
  EXPECT_EQ(configd_set(connection.get(), array.data()), GetParam().result);
  EXPECT_THAT(log_.take(), ElementsAre(err(GetParam().message)));
  EXPECT_NE(client_socket_id(), socket_before);
  EXPECT_EQ(configd_set(connection.get(), array.data()), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Of, ConfigdSetEcho,
    testing::Values(
        SpoiltEcho{"NoByte", R"(reply "")", -3, "no response from configd (0 != 5)"},
        SpoiltEcho{"OneByte", R"(reply "a")", -3, "no response from configd (1 != 5)"},
        SpoiltEcho{"OneByteLess", "shorten 1", -3, "no response from configd (4 != 5)"},
        SpoiltEcho{"OneByteMore", "lengthen 1", -3, "no response from configd (6 != 5)"},
        SpoiltEcho{"MoreThanTheBuffer", "lengthen 20000", -3,
                   "no response from configd (16382 != 5)"},
        SpoiltEcho{"AnotherFirstCharacter", "alter 0", -4, "invalid response from configd"},
        SpoiltEcho{"AnotherLastCharacter", "alter 3", -4, "invalid response from configd"},
        SpoiltEcho{"NoNul", "alter 4", -4, "invalid response from configd"},
        SpoiltEcho{"AnEarlyNul", R"(reply "a=\01\n")", -4, "invalid response from configd"}),
    support::CaseName());

class ConfigdSetLength : public ConfigdTest {
 protected:
  // An array whose text has this many characters.
  static std::vector<configd_query> text_of_length(std::size_t length) {
    constexpr std::size_t kWholeLine = 1025;  // "k=", 1022 characters, a newline
    std::vector<configd_query> array;
    for (; length > kWholeLine + 3; length -= kWholeLine) {
      array.push_back(entry("k", std::string(kWholeLine - 3, 'v')));
    }
    if (length > kWholeLine) {
      array.push_back(entry("k", ""));
      length -= 3;
    }
    array.push_back(entry("k", std::string(length - 3, 'w')));
    array.push_back(entry(""));
    return array;
  }
};

TEST_F(ConfigdSetLength, OfUpTo16381CharactersSucceeds) {
  const Connection connection = connect();
  EXPECT_EQ(configd_set(connection.get(), text_of_length(16381).data()), 0);
  ASSERT_THAT(daemon_->requests(), testing::SizeIs(1));
  EXPECT_EQ(daemon_->requests().front().size(), 16382U);
}

TEST_F(ConfigdSetLength, Of16382CharactersIsSentButItsEchoDoesNotFit) {
  const Connection connection = connect();
  EXPECT_EQ(configd_set(connection.get(), text_of_length(16382).data()), -3);
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (16382 != 16383)")));
  EXPECT_EQ(daemon_->requests().front().size(), 16383U);
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdSetLength, OfMoreIsNotSentAndMakesANewSocket) {
  const Connection connection = connect();
  for (const std::size_t length : {16383U, 16384U, 20000U, 2000000U}) {
    const ino_t socket_before = client_socket_id();
    EXPECT_EQ(configd_set(connection.get(), text_of_length(length).data()), -2) << length;
    EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
    EXPECT_NE(client_socket_id(), socket_before);
  }
  EXPECT_THAT(daemon_->requests(), IsEmpty());
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdSetLength, WorksOnASmallStack) {
  const Connection connection = connect();
  const auto array = text_of_length(16000);
  int result = -1;
  support::run_on_small_stack([&] { result = configd_set(connection.get(), array.data()); });
  EXPECT_EQ(result, 0);
}

TEST_F(ConfigdSet, ExchangesThoughCancelled) {
  const Connection connection = connect();
  const auto array = entries({{"a", "1"}});
  int result = -1;
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { result = configd_set(connection.get(), array.data()); }));
  EXPECT_EQ(result, 0);
  daemon_->command("fault 1 reply \"b=1\"");
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { result = configd_set(connection.get(), array.data()); }));
  EXPECT_LT(result, -1);
  EXPECT_THAT(log_.take(), testing::SizeIs(1));
  expect_exchange_succeeds(connection.get());
}

class ConfigdDone : public ConfigdTest {};

TEST_F(ConfigdDone, SendsFiveBytesWithoutANul) {
  const Connection connection = connect();
  EXPECT_EQ(configd_done(connection.get()), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(bytes("Done\n")));
}

// Callers know it as it is: the real answer waits for the next query.
TEST_F(ConfigdDone, TakesALateAnswerForItsOwn) {
  const Connection connection = connect();
  daemon_->set_value("a", "1");
  daemon_->command("fault 1 reply \"Busy\"");
  ASSERT_EQ(configd_send(connection.get(), "Done\n", 5), 5);
  EXPECT_EQ(configd_done(connection.get()), 1);
  auto array = entries({{"a", ""}});
  EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
  EXPECT_STREQ(array[0].value, "Rea");
  daemon_->command("fault 0 silence");  // obeyed after the last reply is sent
  EXPECT_EQ(__configd_open(connection.get()), 0);
  EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
  EXPECT_STREQ(array[0].value, "1");
}

TEST_F(ConfigdDone, AnsweredBusyIs1AndKeepsTheSocket) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->command("fault 2 reply \"Busy\"");
  EXPECT_EQ(configd_done(connection.get()), 1);
  EXPECT_EQ(configd_done(connection.get()), 1);
  EXPECT_EQ(configd_done(connection.get()), 0);
  EXPECT_EQ(client_socket_id(), socket_before);
}

TEST_F(ConfigdDone, LogsBeforeItMakesANewSocket) {
  const Connection connection = connect();
  daemon_->command("fault 1 reply \"No\"");
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(configd_done(connection.get()), -4);
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("invalid response <No> from configd"),
                                       err("cannot open socket to configd")));
}

TEST_F(ConfigdDone, WorksOnASmallStack) {
  const Connection connection = connect();
  daemon_->command("fault 1 reply \"" + std::string(20000, 'r') + "\"");
  int result = 0;
  support::run_on_small_stack([&] { result = configd_done(connection.get()); });
  EXPECT_EQ(result, -4);
  EXPECT_THAT(log_.take(), testing::SizeIs(1));
}

TEST_F(ConfigdDone, OfANullHandleIsMinus1) { EXPECT_EQ(configd_done(nullptr), -1); }

TEST_F(ConfigdDone, WithoutADaemonIsMinus2AndMakesANewSocket) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->kill();
  EXPECT_EQ(configd_done(connection.get()), -2);
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
  EXPECT_NE(client_socket_id(), socket_before);
  daemon_->start();
  EXPECT_EQ(configd_done(connection.get()), 0);
}

TEST_F(ConfigdDone, OnAClosedConnectionIsMinus2AndOpensIt) {
  const Connection connection = connect();
  __configd_close(connection.get());
  EXPECT_EQ(configd_done(connection.get()), -2);
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
  EXPECT_EQ(configd_done(connection.get()), 0);
}

TEST_F(ConfigdDone, AnsweredWithNothingIsMinus3AndMakesANewSocket) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->command("fault 1 reply \"\"");
  EXPECT_EQ(configd_done(connection.get()), -3);
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd")));
  EXPECT_NE(client_socket_id(), socket_before);
  EXPECT_EQ(configd_done(connection.get()), 0);
}

struct WrongAnswer {
  const char* name;
  const char* quoted;
  const char* message;
};

class ConfigdDoneAnswer : public ConfigdTest, public testing::WithParamInterface<WrongAnswer> {};

TEST_P(ConfigdDoneAnswer, IsMinus4AndMakesANewSocket) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->command(std::string("fault 1 reply ") + GetParam().quoted);
  EXPECT_EQ(configd_done(connection.get()), -4);
  EXPECT_THAT(log_.take(), ElementsAre(err(GetParam().message)));
  EXPECT_NE(client_socket_id(), socket_before);
  EXPECT_EQ(configd_done(connection.get()), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Of, ConfigdDoneAnswer,
    testing::Values(
        WrongAnswer{"ReadyWithANewline", R"("Ready\n")", "invalid response <Ready\n> from configd"},
        WrongAnswer{"BusyWithANewline", R"("Busy\n")", "invalid response <Busy\n> from configd"},
        WrongAnswer{"OtherCase", R"("ready")", "invalid response <ready> from configd"},
        WrongAnswer{"Beginning", R"("Read")", "invalid response <Read> from configd"},
        WrongAnswer{"ANulAlone", R"("\0")", "invalid response <> from configd"},
        WrongAnswer{"Percents", R"("%s%n")", "invalid response <%s%n> from configd"}),
    support::CaseName());

TEST_F(ConfigdDone, ComparesUpToTheFirstNul) {
  const Connection connection = connect();
  daemon_->command(R"(fault 1 reply "Ready\0\n")");
  EXPECT_EQ(configd_done(connection.get()), 0);
  daemon_->command(R"(fault 1 reply "Busy\0and more")");
  EXPECT_EQ(configd_done(connection.get()), 1);
}

TEST_F(ConfigdDone, CutsAnAnswerThatDoesNotFit) {
  const Connection connection = connect();
  daemon_->command("fault 1 reply \"" + std::string(20000, 'r') + "\"");
  EXPECT_EQ(configd_done(connection.get()), -4);
  const auto messages = log_.take();
  ASSERT_THAT(messages, testing::SizeIs(1));
  // A C library may cut a message of this length, and then at its end.
  const std::string whole = "invalid response <" + std::string(16382, 'r') + "> from configd";
  EXPECT_EQ(messages.front().text, whole.substr(0, messages.front().text.size()));
}

TEST_F(ConfigdDone, ExchangesThoughCancelled) {
  const Connection connection = connect();
  int result = -1;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = configd_done(connection.get()); }));
  EXPECT_EQ(result, 0);
  daemon_->command("fault 1 reply \"Never\"");
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = configd_done(connection.get()); }));
  EXPECT_EQ(result, -4);
  EXPECT_THAT(log_.take(), testing::SizeIs(1));
  expect_exchange_succeeds(connection.get());
}

}  // namespace
