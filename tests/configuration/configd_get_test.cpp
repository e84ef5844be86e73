// Asking for single values and arrays of them.

#include <cstring>
#include <filesystem>

#include <syslog.h>

#include "configd_fixture.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ConfigdPrepareGet : public ConfigdTest {
 protected:
  // The result of asking for one key that the daemon answers with these bytes, and the value
  // stored.
  std::pair<int, std::string> get_answered_with(const std::string& quoted_reply) {
    const Connection connection = connect();
    daemon_->command("fault 1 reply " + quoted_reply);
    configd_query one = entry("lan.address", "before");
    const int result = configd_prepare_get(connection.get(), &one);
    return {result, one.value};
  }
};

using Answer = std::pair<int, std::string>;

TEST_F(ConfigdPrepareGet, AsksWithMarkKeyNewlineAndNul) {
  const Connection connection = connect();
  configd_query one = entry("lan.address");
  EXPECT_EQ(configd_prepare_get(connection.get(), &one), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(bytes("?lan.address\n\0")));
}

TEST_F(ConfigdPrepareGet, StoresTheValueWithoutItsLineEnd) {
  const Connection connection = connect();
  daemon_->set_value("lan.address", "192.0.2.1");
  configd_query one = entry("lan.address");
  EXPECT_EQ(configd_prepare_get(connection.get(), &one), 0);
  EXPECT_STREQ(one.value, "192.0.2.1");
}

TEST_F(ConfigdPrepareGet, AsksForAnEmptyKeyToo) {
  const Connection connection = connect();
  configd_query one = entry("");
  EXPECT_EQ(configd_prepare_get(connection.get(), &one), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(bytes("?\n\0")));
}

TEST_F(ConfigdPrepareGet, TakesTheLongestKeyOfAnEntry) {
  const Connection connection = connect();
  const std::string key(255, 'k');
  daemon_->set_value(key, "long");
  configd_query one = entry(key);
  EXPECT_EQ(configd_prepare_get(connection.get(), &one), 0);
  EXPECT_STREQ(one.value, "long");
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of(key)));
}

TEST_F(ConfigdPrepareGet, ReadsAKeyWithoutItsNulNoFurtherThanItsField) {
  const Connection connection = connect();
  configd_query one = entry("", "value");
  std::memset(one.key, 'k', sizeof one.key);
  EXPECT_EQ(configd_prepare_get(connection.get(), &one), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of(std::string(255, 'k'))));
}

TEST_F(ConfigdPrepareGet, TakesALineEndAloneForTheEmptyValue) {
  EXPECT_EQ(get_answered_with(R"("\n\0")"), Answer(0, ""));
}

TEST_F(ConfigdPrepareGet, DropsTheLastTwoBytesWhateverTheyAre) {
  EXPECT_EQ(get_answered_with(R"("value")"), Answer(0, "val"));
}

TEST_F(ConfigdPrepareGet, EndsTheValueAtItsFirstNul) {
  EXPECT_EQ(get_answered_with(R"("val\0ue\n\0")"), Answer(0, "val"));
}

TEST_F(ConfigdPrepareGet, KeepsNewlinesInsideTheValue) {
  EXPECT_EQ(get_answered_with(R"("one\ntwo\n\0")"), Answer(0, "one\ntwo"));
}

TEST_F(ConfigdPrepareGet, FailsOnAReplyOfOneByte) {
  EXPECT_EQ(get_answered_with(R"("\n")"), Answer(-1, "before"));
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (len 1)")));
}

TEST_F(ConfigdPrepareGet, FailsOnAnEmptyReply) {
  EXPECT_EQ(get_answered_with(R"("")"), Answer(-1, "before"));
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (len 0)")));
}

TEST_F(ConfigdPrepareGet, WithoutADaemonCannotSend) {
  const Connection connection = connect();
  daemon_->kill();
  configd_query one = entry("lan.address", "before");
  EXPECT_EQ(configd_prepare_get(connection.get(), &one), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
  EXPECT_STREQ(one.value, "before");
}

TEST_F(ConfigdPrepareGet, LeavesTheSocketAsItIsAfterAFailure) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->command("fault 1 reply \"\"");
  configd_query one = entry("lan.address");
  EXPECT_EQ(configd_prepare_get(connection.get(), &one), -1);
  EXPECT_EQ(client_socket_id(), socket_before);
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (len 0)")));
}

TEST_F(ConfigdPrepareGet, OnAClosedConnectionCannotSend) {
  const Connection connection = connect();
  __configd_close(connection.get());
  configd_query one = entry("lan.address");
  EXPECT_EQ(configd_prepare_get(connection.get(), &one), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
}

TEST_F(ConfigdPrepareGet, RefusesNull) {
  const Connection connection = connect();
  configd_query one = entry("lan.address");
  EXPECT_EQ(configd_prepare_get(nullptr, &one), -1);
  EXPECT_EQ(configd_prepare_get(connection.get(), nullptr), -1);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

class ConfigdValueLength : public ConfigdTest, public testing::WithParamInterface<std::size_t> {};

TEST_P(ConfigdValueLength, IsKeptUpTo1023AndCutThere) {
  const Connection connection = connect();
  std::string value;
  for (std::size_t i = 0; i < GetParam(); ++i) value += static_cast<char>('a' + i % 26);
  daemon_->command("fault 1 reply \"" + value + "\\n\\0\"");
  configd_query one = entry("long");
  EXPECT_EQ(configd_prepare_get(connection.get(), &one), 0);
  EXPECT_EQ(one.value, value.substr(0, 1023));
}

// 16381 fills the reply's buffer; what is longer is cut by receiving.
INSTANTIATE_TEST_SUITE_P(Edges, ConfigdValueLength,
                         testing::Values(1, 1022, 1023, 1024, 16000, 16381, 16382, 20000));

class ConfigdGet : public ConfigdTest {};

TEST_F(ConfigdGet, AsksForEachEntryUpToTheEmptyKey) {
  const Connection connection = connect();
  daemon_->set_value("one", "1");
  daemon_->set_value("two", "2");
  auto array = entries({{"one", ""}, {"two", ""}, {"", ""}, {"three", "kept"}});
  EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("one"), query_of("two")));
  EXPECT_STREQ(array[0].value, "1");
  EXPECT_STREQ(array[1].value, "2");
  EXPECT_STREQ(array[3].value, "kept");
}

TEST_F(ConfigdGet, OfAnEmptyArraySucceedsWithoutAnExchange) {
  const Connection connection = connect();
  auto array = entries({});
  EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigdGet, OfNullAsksForTheQueuedKeysInTheirOrder) {
  const Connection connection = connect();
  for (const char* key : {"c", "a", "b"}) {
    ASSERT_EQ(configd_add_query(connection.get(), "%s", key), 0);
  }
  EXPECT_EQ(configd_get(connection.get(), nullptr), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("c"), query_of("a"), query_of("b")));
}

TEST_F(ConfigdGet, OfNullDoesNotEndAtAnEmptyKey) {
  const Connection connection = connect();
  const char* empty = "";
  for (const char* key : {"a", empty, "b"}) {
    ASSERT_EQ(configd_add_query(connection.get(), "%s", key), 0);
  }
  EXPECT_EQ(configd_get(connection.get(), nullptr), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("a"), query_of(""), query_of("b")));
}

TEST_F(ConfigdGet, OfNullWithoutQueuedKeysSucceedsWithoutAnExchange) {
  const Connection connection = connect();
  EXPECT_EQ(configd_get(connection.get(), nullptr), 0);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigdGet, OfANullHandleIsMinus1) {
  auto array = entries({{"one", ""}});
  EXPECT_EQ(configd_get(nullptr, array.data()), -1);
  EXPECT_EQ(configd_get(nullptr, nullptr), -1);
}

TEST_F(ConfigdGet, StopsAtTheFirstFailureAndKeepsWhatItHas) {
  const Connection connection = connect();
  daemon_->set_value("one", "1");
  daemon_->command("fault 1 delay 0");
  daemon_->command("fault 1 reply \"x\"");
  auto array = entries({{"one", ""}, {"two", "old"}, {"three", "old"}});
  EXPECT_EQ(configd_get(connection.get(), array.data()), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (len 1)")));
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("one"), query_of("two")));
  EXPECT_STREQ(array[0].value, "1");
  EXPECT_STREQ(array[1].value, "old");
  EXPECT_STREQ(array[2].value, "old");
}

TEST_F(ConfigdGet, MakesANewSocketAfterAFailure) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  daemon_->command("fault 1 reply \"x\"");
  auto array = entries({{"one", ""}});
  EXPECT_EQ(configd_get(connection.get(), array.data()), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (len 1)")));
  EXPECT_NE(client_socket_id(), socket_before);
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdGet, SurvivesTheDaemonsAbsenceWithTheSameHandle) {
  const Connection connection = connect();
  daemon_->command("gone");
  auto array = entries({{"one", ""}});
  EXPECT_EQ(configd_get(connection.get(), array.data()), -1);
  EXPECT_EQ(configd_get(connection.get(), array.data()), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd"),
                                       err("unable to send query to configd")));
  daemon_->command("back");
  EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
}

TEST_F(ConfigdGet, SurvivesTheDaemonsRestartWithTheSameHandle) {
  const Connection connection = connect();
  expect_exchange_succeeds(connection.get());
  daemon_->kill();
  daemon_->start();
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdGet, KeepsTheSocketWhenItSucceeds) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  expect_exchange_succeeds(connection.get());
  EXPECT_EQ(client_socket_id(), socket_before);
}

TEST_F(ConfigdGet, OfNullStopsAtTheFirstFailure) {
  const Connection connection = connect();
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  ASSERT_EQ(configd_add_query(connection.get(), "b"), 0);
  daemon_->command("fault 1 reply \"x\"");
  EXPECT_EQ(configd_get(connection.get(), nullptr), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (len 1)")));
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("a")));
  EXPECT_EQ(configd_get(connection.get(), nullptr), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("a"), query_of("a"), query_of("b")));
}

TEST_F(ConfigdGet, OfNullDoesNotCountAsTheFetchOfTheBatch) {
  const Connection connection = connect();
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  EXPECT_EQ(configd_get(connection.get(), nullptr), 0);
  configd_fetch(connection.get(), "a");
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("a"), query_of("a")));
}

// Callers know it as it is: the answers stay one behind until the connection is opened anew.
TEST_F(ConfigdGet, TakesALateReplyForTheAnswerToTheNextQuery) {
  const Connection connection = connect();
  daemon_->set_value("a", "1");
  daemon_->set_value("b", "2");
  const std::string late = query_of("a");
  const int length = static_cast<int>(late.size());
  ASSERT_EQ(configd_send(connection.get(), late.data(), length), length);
  auto array = entries({{"b", ""}, {"c", ""}});
  EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
  EXPECT_STREQ(array[0].value, "1");
  EXPECT_STREQ(array[1].value, "2");
  daemon_->command("fault 0 silence");  // obeyed after the last reply is sent
  EXPECT_EQ(__configd_open(connection.get()), 0);
  EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
  EXPECT_STREQ(array[0].value, "2");
}

TEST_F(ConfigdGet, AsksForKeysAsTheyAre) {
  const Connection connection = connect();
  auto array = entries({{"a=b", ""}, {"a\nb", ""}, {"%s", ""}});
  EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("a=b"), query_of("a\nb"), query_of("%s")));
}

TEST_F(ConfigdGet, RecoversFromAResetThatCouldNotBind) {
  const Connection connection = connect();
  auto array = entries({{"one", ""}});
  daemon_->kill();
  std::filesystem::remove_all("/var/run/configd");
  EXPECT_EQ(configd_get(connection.get(), array.data()), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(err("unable to send query to configd"), err("cannot bind to configd")));
  std::filesystem::create_directory("/var/run/configd");
  daemon_->start();
  EXPECT_EQ(configd_get(connection.get(), array.data()), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
  EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
}

TEST_F(ConfigdGet, PrintsNothing) {
  const Connection connection = connect();
  auto array = entries({{"one", ""}});
  daemon_->command("fault 1 reply \"x\"");
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(configd_get(connection.get(), array.data()), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (len 1)")));
}

TEST_F(ConfigdGet, LogsUnderTheProgramsOwnNameAndFacility) {
  const Connection connection = connect();
  ::openlog("some-daemon", LOG_NDELAY, LOG_LOCAL3);
  auto array = entries({{"one", ""}});
  daemon_->command("fault 1 reply \"x\"");
  EXPECT_EQ(configd_get(connection.get(), array.data()), -1);
  const auto messages = log_.take();
  ::openlog(nullptr, LOG_NDELAY, LOG_USER);
  ASSERT_THAT(messages, testing::SizeIs(1));
  EXPECT_EQ(messages[0].facility, LOG_LOCAL3);
  EXPECT_EQ(messages[0].program, "some-daemon");
}

TEST_F(ConfigdGet, RecoversFromAResetWithoutADescriptor) {
  const Connection connection = connect();
  auto array = entries({{"one", ""}});
  daemon_->kill();
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(configd_get(connection.get(), array.data()), -1);
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd"),
                                       err("cannot open socket to configd")));
  EXPECT_THAT(client_files(), IsEmpty());
  daemon_->start();
  // The handle has no socket, so this exchange fails too and makes one.
  EXPECT_EQ(configd_get(connection.get(), array.data()), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
  EXPECT_EQ(configd_get(connection.get(), array.data()), 0);
}

TEST_F(ConfigdGet, WorksOnASmallStack) {
  const Connection connection = connect();
  auto array = entries({{"one", ""}});
  int result = -1;
  support::run_on_small_stack([&] { result = configd_get(connection.get(), array.data()); });
  EXPECT_EQ(result, 0);
}

// The reply is taken, so that it answers no later query.
TEST_F(ConfigdGet, ExchangesThoughCancelled) {
  daemon_->set_value("a", "1");
  daemon_->set_value("b", "2");
  const Connection connection = connect();
  auto array = entries({{"a", ""}, {"b", ""}});
  int result = -1;
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { result = configd_prepare_get(connection.get(), array.data()); }));
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(array[0].value, "1");
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { result = configd_get(connection.get(), array.data()); }));
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(array[1].value, "2");
  expect_exchange_succeeds(connection.get());
}

TEST_F(ConfigdGet, FailsThoughCancelled) {
  const Connection connection = connect();
  auto array = entries({{"a", ""}});
  daemon_->kill();
  int result = 0;
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { result = configd_get(connection.get(), array.data()); }));
  EXPECT_EQ(result, -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
  daemon_->start();
  expect_exchange_succeeds(connection.get());
}

}  // namespace
