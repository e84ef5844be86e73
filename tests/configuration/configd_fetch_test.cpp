// The batched reader: queueing keys, fetching them at once, and clearing the batch.

#include <clocale>
#include <cwchar>

#include "configd_fixture.h"
#include "support/allocation_faults.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A format whose value no C library can convert in the "C" locale: it makes vsnprintf() fail.
constexpr wint_t kNoCharacter = 0x7fffffff;

// Without the attribute by which a compiler checks the format.
int (*const unchecked_add_query)(configd_connection*, const char*, ...) = configd_add_query;
const char* (*const unchecked_fetch)(configd_connection*, const char*, ...) = configd_fetch;

class ConfigdAddQuery : public ConfigdTest {};

TEST_F(ConfigdAddQuery, FormatsTheKeyAndAsksForNothingYet) {
  const Connection connection = connect();
  EXPECT_EQ(configd_add_query(connection.get(), "interface.%d.%s", 1, "address"), 0);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
  configd_fetch(connection.get(), "interface.1.address");
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("interface.1.address")));
}

TEST_F(ConfigdAddQuery, Queues512KeysAndRefusesTheNext) {
  const Connection connection = connect();
  for (int i = 0; i < 512; ++i) {
    ASSERT_EQ(configd_add_query(connection.get(), "key.%d", i), 0) << i;
  }
  EXPECT_EQ(configd_add_query(connection.get(), "key.512"), -1);
  EXPECT_EQ(configd_add_query(connection.get(), "key.511"), 0) << "queued already";
  EXPECT_EQ(configd_get(connection.get(), nullptr), 0);
  std::vector<std::string> expected;
  expected.reserve(512);
  for (int i = 0; i < 512; ++i) expected.push_back(query_of("key." + std::to_string(i)));
  EXPECT_EQ(daemon_->requests(), expected);
}

TEST_F(ConfigdAddQuery, QueuesAKeyOnce) {
  const Connection connection = connect();
  EXPECT_EQ(configd_add_query(connection.get(), "a"), 0);
  EXPECT_EQ(configd_add_query(connection.get(), "b"), 0);
  EXPECT_EQ(configd_add_query(connection.get(), "%c", 'a'), 0);
  EXPECT_EQ(configd_get(connection.get(), nullptr), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("a"), query_of("b")));
}

TEST_F(ConfigdAddQuery, DoesNotCountADuplicate) {
  const Connection connection = connect();
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(configd_add_query(connection.get(), "same"), 0);
  for (int i = 1; i < 512; ++i) ASSERT_EQ(configd_add_query(connection.get(), "key.%d", i), 0);
  EXPECT_EQ(configd_add_query(connection.get(), "one.more"), -1);
}

TEST_F(ConfigdAddQuery, TellsKeysApartByCase) {
  const Connection connection = connect();
  EXPECT_EQ(configd_add_query(connection.get(), "key"), 0);
  EXPECT_EQ(configd_add_query(connection.get(), "KEY"), 0);
  EXPECT_EQ(configd_get(connection.get(), nullptr), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("key"), query_of("KEY")));
}

// "costarring" and "liquid" have the same 32-bit FNV-1a hash.
TEST_F(ConfigdAddQuery, TellsKeysOfTheSameHashApart) {
  const Connection connection = connect();
  daemon_->set_value("costarring", "1");
  daemon_->set_value("liquid", "2");
  EXPECT_EQ(configd_add_query(connection.get(), "costarring"), 0);
  EXPECT_EQ(configd_add_query(connection.get(), "liquid"), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "costarring"), "1");
  EXPECT_STREQ(configd_fetch(connection.get(), "liquid"), "2");
}

TEST_F(ConfigdAddQuery, CutsAKeyTo254Characters) {
  const Connection connection = connect();
  const std::string key(254, 'k');
  for (const std::size_t length : {254U, 255U, 300U}) {
    EXPECT_EQ(configd_add_query(connection.get(), "%s", std::string(length, 'k').c_str()), 0);
  }
  EXPECT_EQ(configd_get(connection.get(), nullptr), 0);
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of(key)));
}

TEST_F(ConfigdAddQuery, TakesTheEmptyKey) {
  const Connection connection = connect();
  daemon_->set_value("", "nameless");
  EXPECT_EQ(configd_add_query(connection.get(), "%s", ""), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "%s", ""), "nameless");
  EXPECT_THAT(daemon_->requests(), ElementsAre(bytes("?\n\0")));
}

TEST_F(ConfigdAddQuery, RefusesNull) {
  const Connection connection = connect();
  EXPECT_EQ(configd_add_query(nullptr, "a"), -1);
  EXPECT_EQ(unchecked_add_query(connection.get(), nullptr), -1);
}

TEST_F(ConfigdAddQuery, RefusesAKeyThatCannotBeFormatted) {
  const Connection connection = connect();
  EXPECT_EQ(configd_add_query(connection.get(), "%lc", kNoCharacter), -1);
  EXPECT_EQ(configd_get(connection.get(), nullptr), 0);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigdAddQuery, WithoutMemoryIsMinus1AndQueuesNothing) {
  const Connection connection = connect();
  {
    const support::FailingAllocation no_memory(1);
    EXPECT_EQ(configd_add_query(connection.get(), "a"), -1);
    EXPECT_TRUE(no_memory.happened());
  }
  EXPECT_EQ(configd_get(connection.get(), nullptr), 0);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
  EXPECT_EQ(configd_add_query(connection.get(), "a"), 0);
}

class ConfigdFetch : public ConfigdTest {};

TEST_F(ConfigdFetch, AsksForAllKeysAtTheFirstCallOnly) {
  const Connection connection = connect();
  daemon_->set_value("a", "1");
  daemon_->set_value("b", "2");
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  ASSERT_EQ(configd_add_query(connection.get(), "b"), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "b"), "2");
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "1");
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("a"), query_of("b")));
}

TEST_F(ConfigdFetch, FormatsTheKey) {
  const Connection connection = connect();
  daemon_->set_value("interface.7.name", "wan");
  ASSERT_EQ(configd_add_query(connection.get(), "interface.%d.%s", 7, "name"), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "interface.%d.%s", 7, "name"), "wan");
}

TEST_F(ConfigdFetch, FindsEachOf512Keys) {
  const Connection connection = connect();
  for (int i = 0; i < 512; ++i) {
    daemon_->set_value("key." + std::to_string(i), "value " + std::to_string(i));
    ASSERT_EQ(configd_add_query(connection.get(), "key.%d", i), 0);
  }
  for (int i = 0; i < 512; ++i) {
    EXPECT_EQ(configd_fetch(connection.get(), "key.%d", i), "value " + std::to_string(i));
  }
}

TEST_F(ConfigdFetch, CutsTheKeyTo254CharactersAsQueueingDoes) {
  const Connection connection = connect();
  const std::string key(254, 'k');
  daemon_->set_value(key, "long");
  ASSERT_EQ(configd_add_query(connection.get(), "%s", key.c_str()), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "%s.and.more", key.c_str()), "long");
}

TEST_F(ConfigdFetch, ReturnsAValueThatStaysWhereItIs) {
  const Connection connection = connect();
  daemon_->set_value("a", "1");
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  ASSERT_EQ(configd_add_query(connection.get(), "b"), 0);
  const char* value = configd_fetch(connection.get(), "a");
  configd_fetch(connection.get(), "b");
  ASSERT_EQ(configd_add_query(connection.get(), "c"), 0);
  EXPECT_EQ(configd_fetch(connection.get(), "a"), value);
  EXPECT_STREQ(value, "1");
}

TEST_F(ConfigdFetch, OfAKeyThatIsNotQueuedFetchesTheBatchAndSaysSo) {
  const Connection connection = connect();
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "other.%d", 1), "");
  EXPECT_STREQ(configd_fetch(connection.get(), "other.%d", 2), "");
  EXPECT_THAT(log_.take(),
              ElementsAre(debug("key 'other.1' not found"), debug("key 'other.2' not found")));
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("a")));
}

TEST_F(ConfigdFetch, OfAnEmptyBatchAsksForNothingAndCountsAsFetched) {
  const Connection connection = connect();
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "");
  EXPECT_THAT(log_.take(), ElementsAre(debug("key 'a' not found")));
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "");
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigdFetch, DoesNotAskForKeysAddedAfterwards) {
  const Connection connection = connect();
  daemon_->set_value("b", "2");
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  configd_fetch(connection.get(), "a");
  ASSERT_EQ(configd_add_query(connection.get(), "b"), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "b"), "");
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("a")));
}

TEST_F(ConfigdFetch, OfNullIsEmptyAndAsksForNothing) {
  const Connection connection = connect();
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  EXPECT_STREQ(unchecked_fetch(connection.get(), nullptr), "");
  EXPECT_STREQ(configd_fetch(nullptr, "a"), "");
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigdFetch, OfAKeyThatCannotBeFormattedFindsNothing) {
  const Connection connection = connect();
  daemon_->set_value("", "nameless");
  ASSERT_EQ(configd_add_query(connection.get(), "%s", ""), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "%lc", kNoCharacter), "");
  EXPECT_THAT(log_.take(), ElementsAre(debug("key '' not found")));
}

TEST_F(ConfigdFetch, FailsWithTheBatchAndTriesAgain) {
  const Connection connection = connect();
  daemon_->set_value("a", "1");
  daemon_->set_value("b", "2");
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  ASSERT_EQ(configd_add_query(connection.get(), "b"), 0);
  const ino_t socket_before = client_socket_id();
  daemon_->command("fault 1 delay 0");
  daemon_->command("fault 1 reply \"x\"");
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "");
  EXPECT_THAT(log_.take(),
              ElementsAre(err("no response from configd (len 1)"), err("configd_get failed")));
  EXPECT_NE(client_socket_id(), socket_before);
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "1");
  EXPECT_STREQ(configd_fetch(connection.get(), "b"), "2");
}

TEST_F(ConfigdFetch, WithoutADaemonFailsAndTriesAgain) {
  const Connection connection = connect();
  daemon_->set_value("a", "1");
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  daemon_->command("gone");
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "");
  EXPECT_THAT(log_.take(),
              ElementsAre(err("unable to send query to configd"), err("configd_get failed")));
  daemon_->command("back");
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "1");
}

TEST_F(ConfigdFetch, LogsTheFailureBeforeItMakesANewSocketAndTheBatchAfterwards) {
  const Connection connection = connect();
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  daemon_->command("fault 1 reply \"x\"");
  {
    const support::NoMoreDescriptors none;
    EXPECT_STREQ(configd_fetch(connection.get(), "a"), "");
  }
  EXPECT_THAT(log_.take(),
              ElementsAre(err("no response from configd (len 1)"),
                          err("cannot open socket to configd"), err("configd_get failed")));
}

TEST_F(ConfigdFetch, WorksOnASmallStackFromOpeningToClosing) {
  daemon_->set_value("a", "1");
  std::string value;
  support::run_on_small_stack([&] {
    const Connection connection = connect();
    configd_add_query(connection.get(), "%s", "a");
    value = configd_fetch(connection.get(), "%s", "a");
  });
  EXPECT_EQ(value, "1");
}

TEST_F(ConfigdFetch, AsksThoughCancelled) {
  daemon_->set_value("a", "1");
  const Connection connection = connect();
  configd_add_query(connection.get(), "a");
  const char* value = nullptr;
  EXPECT_TRUE(
      support::finishes_though_cancelled([&] { value = configd_fetch(connection.get(), "a"); }));
  EXPECT_STREQ(value, "1");
  EXPECT_TRUE(
      support::finishes_though_cancelled([&] { value = configd_fetch(connection.get(), "b"); }));
  EXPECT_STREQ(value, "");
  EXPECT_THAT(log_.take(), ElementsAre(debug("key 'b' not found")));
}

TEST_F(ConfigdFetch, FailsThoughCancelled) {
  const Connection connection = connect();
  configd_add_query(connection.get(), "a");
  daemon_->kill();
  EXPECT_TRUE(support::finishes_though_cancelled([&] { configd_fetch(connection.get(), "a"); }));
  EXPECT_THAT(log_.take(),
              ElementsAre(err("unable to send query to configd"), err("configd_get failed")));
}

TEST_F(ConfigdFetch, AllocatesNothing) {
  const Connection connection = connect();
  for (int i = 0; i < 512; ++i) ASSERT_EQ(configd_add_query(connection.get(), "key.%d", i), 0);
  const unsigned long before = support::allocation_count();
  for (int i = 0; i < 512; ++i) configd_fetch(connection.get(), "key.%d", i);
  EXPECT_EQ(support::allocation_count() - before, 0U);
}

class ConfigdClear : public ConfigdTest {};

TEST_F(ConfigdClear, OfNullDoesNothing) { configd_clear(nullptr); }

TEST_F(ConfigdClear, BeginsANewBatch) {
  const Connection connection = connect();
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  configd_fetch(connection.get(), "a");
  configd_clear(connection.get());
  daemon_->set_value("b", "2");
  ASSERT_EQ(configd_add_query(connection.get(), "b"), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "b"), "2");
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "");
  EXPECT_THAT(log_.take(), ElementsAre(debug("key 'a' not found")));
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("a"), query_of("b")));
}

TEST_F(ConfigdClear, MakesRoomFor512KeysAgain) {
  const Connection connection = connect();
  for (int i = 0; i < 512; ++i) ASSERT_EQ(configd_add_query(connection.get(), "old.%d", i), 0);
  configd_clear(connection.get());
  for (int i = 0; i < 512; ++i) ASSERT_EQ(configd_add_query(connection.get(), "new.%d", i), 0);
  EXPECT_EQ(configd_add_query(connection.get(), "one.more"), -1);
}

TEST_F(ConfigdClear, LetsTheSameKeyBeFetchedAnew) {
  const Connection connection = connect();
  daemon_->set_value("a", "old");
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "old");
  daemon_->set_value("a", "new");
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "old");
  configd_clear(connection.get());
  ASSERT_EQ(configd_add_query(connection.get(), "a"), 0);
  EXPECT_STREQ(configd_fetch(connection.get(), "a"), "new");
}

TEST_F(ConfigdClear, KeepsTheConnection) {
  const Connection connection = connect();
  const ino_t socket_before = client_socket_id();
  configd_clear(connection.get());
  EXPECT_EQ(client_socket_id(), socket_before);
  expect_exchange_succeeds(connection.get());
}

}  // namespace
