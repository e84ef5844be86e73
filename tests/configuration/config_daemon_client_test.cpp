// The configuration daemon as an object.

#include <rkutils/config_daemon_client.h>

#include <climits>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "configd_fixture.h"
#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/member_type.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"
#include "support/virtual_slot.h"

namespace {

using support::kIs;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// ---- What the class is ----

using Client = ConfigDaemonClient;
static_assert(kIs<&Client::setValue, bool (Client::*)(String const&, String const&) const>);
static_assert(kIs<&Client::setValueAsInt, bool (Client::*)(String const&, long) const>);
static_assert(kIs<&Client::setIndexedValue,
                  bool (Client::*)(String const&, unsigned long, String const&) const>);
static_assert(
    kIs<&Client::setIndexedValueAsInt, bool (Client::*)(String const&, unsigned long, long) const>);
static_assert(kIs<&Client::getValue, String& (Client::*)(String const&, String&) const>);
static_assert(kIs<&Client::getValueAsInt, long (Client::*)(String const&, long&) const>);
static_assert(kIs<&Client::getIndexedValue,
                  String& (Client::*)(String const&, unsigned long, String&) const>);
static_assert(kIs<&Client::getIndexedValueAsInt,
                  long (Client::*)(String const&, unsigned long, long&) const>);
static_assert(!std::is_copy_constructible_v<Client> && !std::is_copy_assignable_v<Client>);
static_assert(std::has_virtual_destructor_v<Client>);
static_assert(sizeof(Client) == 2 * sizeof(void*), "the table of virtual members, the connection");

TEST(ConfigDaemonClientClass, HasItsVirtualMembersBehindTheDestructorsTwo) {
  EXPECT_THAT(
      std::vector(
          {support::virtual_slot(&Client::setValue), support::virtual_slot(&Client::setValueAsInt),
           support::virtual_slot(&Client::setIndexedValue),
           support::virtual_slot(&Client::setIndexedValueAsInt),
           support::virtual_slot(&Client::getValue), support::virtual_slot(&Client::getValueAsInt),
           support::virtual_slot(&Client::getIndexedValue),
           support::virtual_slot(&Client::getIndexedValueAsInt)}),
      ElementsAre(2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U));
}

// ---- The connection ----

class ConfigDaemonClientTest : public ConfigdTest {};

TEST_F(ConfigDaemonClientTest, IsOneConnectionForAsLongAsItLives) {
  {
    const ConfigDaemonClient client;
    const std::string file = client_file();
    EXPECT_TRUE(client.setValue("a", "1"));
    EXPECT_EQ(client_file(), file);
  }
  EXPECT_THAT(client_files(), IsEmpty());
}

TEST_F(ConfigDaemonClientTest, IsDestroyedThroughAPointer) {
  struct Derived : ConfigDaemonClient {
    bool setValue(String const& /*key*/, String const& /*value*/) const override { return false; }
    std::vector<int> member = {1, 2, 3};  // the leak checker sees it when it stays
  };
  std::unique_ptr<ConfigDaemonClient> client = std::make_unique<Derived>();
  EXPECT_FALSE(client->setValue("a", "1"));
  EXPECT_THAT(client_files(), SizeIs(1));
  client.reset();
  EXPECT_THAT(client_files(), IsEmpty());
}

// Notes which of its members are called.
class NotingClient : public ConfigDaemonClient {
 public:
  bool setValue(String const& key, String const& value) const override {
    calls_.emplace_back("setValue");
    return ConfigDaemonClient::setValue(key, value);
  }
  bool setValueAsInt(String const& key, long value) const override {
    calls_.emplace_back("setValueAsInt");
    return ConfigDaemonClient::setValueAsInt(key, value);
  }
  bool setIndexedValue(String const& key, unsigned long index, String const& value) const override {
    calls_.emplace_back("setIndexedValue");
    return ConfigDaemonClient::setIndexedValue(key, index, value);
  }
  bool setIndexedValueAsInt(String const& key, unsigned long index, long value) const override {
    calls_.emplace_back("setIndexedValueAsInt");
    return ConfigDaemonClient::setIndexedValueAsInt(key, index, value);
  }
  String& getValue(String const& key, String& value) const override {
    calls_.emplace_back("getValue");
    return ConfigDaemonClient::getValue(key, value);
  }
  long getValueAsInt(String const& key, long& value) const override {
    calls_.emplace_back("getValueAsInt");
    return ConfigDaemonClient::getValueAsInt(key, value);
  }
  String& getIndexedValue(String const& key, unsigned long index, String& value) const override {
    calls_.emplace_back("getIndexedValue");
    return ConfigDaemonClient::getIndexedValue(key, index, value);
  }
  long getIndexedValueAsInt(String const& key, unsigned long index, long& value) const override {
    calls_.emplace_back("getIndexedValueAsInt");
    return ConfigDaemonClient::getIndexedValueAsInt(key, index, value);
  }

  [[nodiscard]] const std::vector<std::string>& calls() const { return calls_; }

 private:
  mutable std::vector<std::string> calls_;
};

TEST_F(ConfigDaemonClientTest, CallsNoMemberAsADerivedClassHasIt) {
  const NotingClient client;
  EXPECT_TRUE(client.setValue("a", "1"));
  EXPECT_TRUE(client.setValueAsInt("b", 2));
  EXPECT_TRUE(client.setIndexedValue("c%lu", 3, "3"));
  EXPECT_TRUE(client.setIndexedValueAsInt("d%lu", 4, 4));
  String text;
  EXPECT_EQ(client.getValue("a", text), "1");
  EXPECT_EQ(client.getIndexedValue("c%lu", 3, text), "3");
  long number = 0;
  EXPECT_EQ(client.getValueAsInt("b", number), 2);
  EXPECT_EQ(client.getIndexedValueAsInt("d%lu", 4, number), 4);
  EXPECT_THAT(client.calls(),
              ElementsAre("setValue", "setValueAsInt", "setIndexedValue", "setIndexedValueAsInt",
                          "getValue", "getIndexedValue", "getValueAsInt", "getIndexedValueAsInt"));
}

TEST_F(ConfigDaemonClientTest, DoesNotDisturbAnother) {
  const ConfigDaemonClient one;
  const ConfigDaemonClient other;
  EXPECT_THAT(client_files(), SizeIs(2));
  EXPECT_TRUE(one.setValue("a", "1"));
  String value;
  EXPECT_EQ(other.getValue("a", value), "1");
}

TEST_F(ConfigDaemonClientTest, NeverEndsTheChanges) {
  {
    const ConfigDaemonClient client;
    client.setValue("a", "1");
  }
  EXPECT_THAT(daemon_->requests(), ElementsAre(bytes("a=1\n\0")));
}

TEST_F(ConfigDaemonClientTest, WorksOnASmallStack) {
  const ConfigDaemonClient client;
  bool set = false;
  long value = 0;
  support::run_on_small_stack([&] {
    set = client.setIndexedValue("card%lu.name", 1, String(std::string(1023, 'v').c_str())) &&
          client.setValueAsInt("mtu", 1500);
    client.getIndexedValueAsInt("mtu", 0, value);
  });
  EXPECT_TRUE(set);
  EXPECT_EQ(value, 1500);
}

// With a client that is connected.
class ConnectedClient : public ConfigDaemonClientTest {
 protected:
  void TearDown() override {
    client_.reset();
    ConfigDaemonClientTest::TearDown();
  }

  // The last call failed on the way: the next one has a fresh socket, and works.
  void expect_fresh_socket(ino_t socket_before) {
    EXPECT_NE(client_socket_id(), socket_before);
    EXPECT_TRUE(client_->setValue("next", "works"));
  }

  std::unique_ptr<const ConfigDaemonClient> client_ = std::make_unique<ConfigDaemonClient>();
};

String text_of(std::size_t length, char character) {
  return String(std::string(length, character).c_str());
}

// ---- Setting ----

class ConfigDaemonClientSet : public ConnectedClient {};

TEST_F(ConfigDaemonClientSet, SendsOneAssignment) {
  EXPECT_TRUE(client_->setValue("lan.address", "192.0.2.1"));
  EXPECT_THAT(daemon_->requests(), ElementsAre(bytes("lan.address=192.0.2.1\n\0")));
}

TEST_F(ConfigDaemonClientSet, TakesTheEmptyValue) {
  EXPECT_TRUE(client_->setValue("a", ""));
  EXPECT_THAT(daemon_->requests(), ElementsAre(bytes("a=\n\0")));
}

TEST_F(ConfigDaemonClientSet, TakesTheLongestKeyAndValue) {
  EXPECT_TRUE(client_->setValue(text_of(255, 'k'), text_of(1023, 'v')));
  EXPECT_THAT(daemon_->requests(),
              ElementsAre(std::string(255, 'k') + "=" + std::string(1023, 'v') + bytes("\n\0")));
}

TEST_F(ConfigDaemonClientSet, RefusesALongerKey) {
  EXPECT_FALSE(client_->setValue(text_of(256, 'k'), "1"));
  EXPECT_FALSE(client_->setValueAsInt(text_of(256, 'k'), 1));
  EXPECT_FALSE(client_->setIndexedValue(text_of(256, 'k'), 1, "1"));
  EXPECT_FALSE(client_->setIndexedValueAsInt(text_of(256, 'k'), 1, 1));
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigDaemonClientSet, RefusesALongerValue) {
  EXPECT_FALSE(client_->setValue("k", text_of(1024, 'v')));
  EXPECT_FALSE(client_->setIndexedValue("k%lu", 1, text_of(1024, 'v')));
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigDaemonClientSet, OfAnEmptyKeyFailsWithoutAnExchange) {
  const ino_t socket_before = client_socket_id();
  EXPECT_FALSE(client_->setValue("", "1"));
  EXPECT_FALSE(client_->setValueAsInt("", 1));
  EXPECT_FALSE(client_->setIndexedValue("", 1, "1"));
  EXPECT_FALSE(client_->setIndexedValueAsInt("", 1, 1));
  EXPECT_FALSE(client_->setIndexedValue("%.0lu", 0, "1"));
  EXPECT_FALSE(client_->setIndexedValueAsInt("%.0lu", 0, 1));
  EXPECT_EQ(client_socket_id(), socket_before);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigDaemonClientSet, CountsWhatIsBehindANulButDoesNotSendIt) {
  String key("key");
  key.concat("\0hidden", 7);
  String value("value");
  value.concat("\0hidden", 7);
  EXPECT_TRUE(client_->setValue(key, value));
  EXPECT_THAT(daemon_->requests(), ElementsAre(bytes("key=value\n\0")));
  const std::string filler(1100, '\0');
  EXPECT_FALSE(client_->setValue(String(key).concat(filler.data(), 256 - key.length()), "1"));
  EXPECT_FALSE(client_->setValue("k", String(value).concat(filler.data(), 1024 - value.length())));
  EXPECT_THAT(daemon_->requests(), SizeIs(1));
}

TEST_F(ConfigDaemonClientSet, WritesNumbersInDecimal) {
  EXPECT_TRUE(client_->setValueAsInt("mtu", 1500));
  EXPECT_TRUE(client_->setValueAsInt("mtu", 0));
  EXPECT_TRUE(client_->setValueAsInt("mtu", -1));
  EXPECT_TRUE(client_->setValueAsInt("mtu", LONG_MAX));
  EXPECT_TRUE(client_->setValueAsInt("mtu", LONG_MIN));
  EXPECT_THAT(daemon_->requests(),
              ElementsAre(bytes("mtu=1500\n\0"), bytes("mtu=0\n\0"), bytes("mtu=-1\n\0"),
                          "mtu=" + std::to_string(LONG_MAX) + bytes("\n\0"),
                          "mtu=" + std::to_string(LONG_MIN) + bytes("\n\0")));
}

TEST_F(ConfigDaemonClientSet, PutsTheIndexIntoThePattern) {
  EXPECT_TRUE(client_->setIndexedValue("lan.%lu.name", 2, "office"));
  EXPECT_TRUE(client_->setIndexedValueAsInt("lan.%lu.mtu", ULONG_MAX, -9));
  EXPECT_TRUE(client_->setIndexedValue("lan.%04lx", 255, "hexadecimal"));
  EXPECT_TRUE(client_->setIndexedValue("100%%", 7, "no number"));
  EXPECT_THAT(daemon_->requests(),
              ElementsAre(bytes("lan.2.name=office\n\0"),
                          "lan." + std::to_string(ULONG_MAX) + bytes(".mtu=-9\n\0"),
                          bytes("lan.00ff=hexadecimal\n\0"), bytes("100%=no number\n\0")));
}

TEST_F(ConfigDaemonClientSet, DoesNotTakeAPlainKeyForAPattern) {
  EXPECT_TRUE(client_->setValue("a%lub%s", "%d%n"));
  EXPECT_TRUE(client_->setValueAsInt("a%lub%s", 1));
  EXPECT_THAT(daemon_->requests(), ElementsAre(bytes("a%lub%s=%d%n\n\0"), bytes("a%lub%s=1\n\0")));
}

TEST_F(ConfigDaemonClientSet, TakesTheLongestPatternAndTheLongestKeyOfOne) {
  EXPECT_TRUE(client_->setIndexedValue(text_of(253, 'p') + "%c", 'x', "1"));
  EXPECT_TRUE(client_->setIndexedValueAsInt("%255lu", 7, 1));
  EXPECT_THAT(daemon_->requests(), ElementsAre(std::string(253, 'p') + bytes("x=1\n\0"),
                                               std::string(254, ' ') + bytes("7=1\n\0")));
}

TEST_F(ConfigDaemonClientSet, RefusesALongerPatternThoughItsKeyWereShort) {
  const String pattern = text_of(256, '%');  // 128 signs
  EXPECT_FALSE(client_->setIndexedValue(pattern, 1, "1"));
  EXPECT_FALSE(client_->setIndexedValueAsInt(pattern, 1, 1));
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigDaemonClientSet, RefusesAPatternWhoseKeyIsTooLong) {
  for (const char* pattern : {"%256lu", "%0256lu", "k%.255lu", "%2000000000lu", "%2147483647lu",
                              "%2147483647lu%%", "%9999999999lu"}) {
    EXPECT_FALSE(client_->setIndexedValue(pattern, 1, "1")) << pattern;
    EXPECT_FALSE(client_->setIndexedValueAsInt(pattern, 1, 1)) << pattern;
  }
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

// The call by its name, for what all setters do alike.
struct Setter {
  const char* name;
  std::function<bool(const ConfigDaemonClient&)> call;  // of "a1" to "5"
};

class ConfigDaemonClientSetters : public ConnectedClient,
                                  public testing::WithParamInterface<Setter> {};

TEST_P(ConfigDaemonClientSetters, SucceedOnlyWithTheEcho) {
  struct SpoiltEcho {
    const char* fault;
    const char* message;
  };
  constexpr SpoiltEcho kEchoes[] = {
      {R"(reply "")", "no response from configd (0 != 6)"},
      {"shorten 1", "no response from configd (5 != 6)"},
      {"lengthen 20000", "no response from configd (16382 != 6)"},
      {"alter 0", "invalid response from configd"},
      {R"(reply "Busy\n\0")", "invalid response from configd"},
  };
  for (const SpoiltEcho& echo : kEchoes) {
    const ino_t socket_before = client_socket_id();
    daemon_->command(std::string("fault 1 ") + echo.fault);
    EXPECT_FALSE(GetParam().call(*client_)) << echo.fault;
    EXPECT_THAT(log_.take(), ElementsAre(err(echo.message)));
    expect_fresh_socket(socket_before);
  }
  EXPECT_TRUE(GetParam().call(*client_));
  EXPECT_EQ(daemon_->requests().back(), bytes("a1=5\n\0"));
}

TEST_P(ConfigDaemonClientSetters, FailWhileTheDaemonIsAway) {
  daemon_->kill();
  EXPECT_FALSE(GetParam().call(*client_));
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
  daemon_->start();
  EXPECT_TRUE(GetParam().call(*client_));
}

INSTANTIATE_TEST_SUITE_P(
    Are, ConfigDaemonClientSetters,
    testing::Values(
        Setter{"SetValue", [](const Client& client) { return client.setValue("a1", "5"); }},
        Setter{"SetValueAsInt", [](const Client& client) { return client.setValueAsInt("a1", 5); }},
        Setter{"SetIndexedValue",
               [](const Client& client) { return client.setIndexedValue("a%lu", 1, "5"); }},
        Setter{"SetIndexedValueAsInt",
               [](const Client& client) { return client.setIndexedValueAsInt("a%lu", 1, 5); }}),
    support::CaseName());

// ---- Getting ----

class ConfigDaemonClientGet : public ConnectedClient {};

TEST_F(ConfigDaemonClientGet, AsksForOneKeyAndReturnsTheOutput) {
  daemon_->set_value("lan.address", "192.0.2.1");
  String value("before");
  EXPECT_EQ(&client_->getValue("lan.address", value), &value);
  EXPECT_EQ(value, "192.0.2.1");
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("lan.address")));
}

TEST_F(ConfigDaemonClientGet, TakesTheEmptyValue) {
  daemon_->set_value("a", "");
  String value("before");
  EXPECT_EQ(client_->getValue("a", value), "");
  long number = 7;
  EXPECT_EQ(client_->getValueAsInt("a", number), 0);
  EXPECT_EQ(number, 0);
}

TEST_F(ConfigDaemonClientGet, CutsAValueTo1023Characters) {
  daemon_->command("fault 1 reply \"" + std::string(3000, 'v') + "\\n\\0\"");
  String value;
  EXPECT_EQ(client_->getValue("a", value), text_of(1023, 'v'));
}

TEST_F(ConfigDaemonClientGet, AnswersIntoTheKeysOwnString) {
  daemon_->set_value("a", "1");
  String text("a");
  EXPECT_EQ(client_->getValue(text, text), "1");
}

TEST_F(ConfigDaemonClientGet, LeavesCopiesOfTheOutputAsTheyAre) {
  daemon_->set_value("a", "1");
  String value("before");
  const String copy = value;
  client_->getValue("a", value);
  EXPECT_EQ(copy, "before");
}

TEST_F(ConfigDaemonClientGet, PutsTheIndexIntoThePattern) {
  daemon_->set_value("lan.2.name", "office");
  daemon_->set_value("lan." + std::to_string(ULONG_MAX) + ".mtu", "1500");
  String name;
  EXPECT_EQ(&client_->getIndexedValue("lan.%lu.name", 2, name), &name);
  EXPECT_EQ(name, "office");
  long mtu = 0;
  EXPECT_EQ(client_->getIndexedValueAsInt("lan.%lu.mtu", ULONG_MAX, mtu), 1500);
  EXPECT_EQ(mtu, 1500);
}

TEST_F(ConfigDaemonClientGet, DoesNotTakeAPlainKeyForAPattern) {
  String value;
  client_->getValue("a%lu%s", value);
  long number = 0;
  client_->getValueAsInt("a%lu%s", number);
  EXPECT_THAT(daemon_->requests(), ElementsAre(query_of("a%lu%s"), query_of("a%lu%s")));
}

TEST_F(ConfigDaemonClientGet, AsksForWhatIsBeforeANul) {
  daemon_->set_value("a1", "5");
  const String key = String("a1").concat("\0hidden", 7);
  const String pattern = String("a%lu").concat("\0%s", 3);
  String value;
  EXPECT_EQ(client_->getValue(key, value), "5");
  value = "";
  EXPECT_EQ(client_->getIndexedValue(pattern, 1, value), "5");
  long number = 0;
  EXPECT_EQ(client_->getValueAsInt(key, number), 5);
  number = 0;
  EXPECT_EQ(client_->getIndexedValueAsInt(pattern, 1, number), 5);
  EXPECT_THAT(daemon_->requests(), testing::Each(query_of("a1")));
}

TEST_F(ConfigDaemonClientGet, TakesTheLongestKeyAndPattern) {
  String value;
  long number = 0;
  client_->getValue(text_of(255, 'k'), value);
  client_->getValueAsInt(text_of(255, 'k'), number);
  client_->getIndexedValue(text_of(253, 'p') + "%c", 'x', value);
  client_->getIndexedValueAsInt("%255lu", 7, number);
  EXPECT_THAT(
      daemon_->requests(),
      ElementsAre(query_of(std::string(255, 'k')), query_of(std::string(255, 'k')),
                  query_of(std::string(253, 'p') + "x"), query_of(std::string(254, ' ') + "7")));
}

// Four kinds of keys that are refused; none of them may be asked for.
TEST_F(ConfigDaemonClientGet, OfARefusedKeyLeavesTheOutput) {
  String value("before");
  long number = 7;
  EXPECT_EQ(client_->getValue(text_of(256, 'k'), value), "before");
  EXPECT_EQ(client_->getValueAsInt(text_of(256, 'k'), number), 7);
  for (const String& pattern :
       {text_of(256, '%'), String("%256lu"), String("%2000000000lu"), String("%2147483647lu%%")}) {
    EXPECT_EQ(client_->getIndexedValue(pattern, 1, value), "before") << pattern.c_str();
    EXPECT_EQ(client_->getIndexedValueAsInt(pattern, 1, number), 7) << pattern.c_str();
  }
  EXPECT_EQ(number, 7);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(ConfigDaemonClientGet, OfAnEmptyKeyIsTheEmptyTextWithoutAnExchange) {
  daemon_->kill();
  String value("before");
  EXPECT_EQ(client_->getValue("", value), "");
  value = "before";
  EXPECT_EQ(client_->getIndexedValue("", 1, value), "");
  value = "before";
  EXPECT_EQ(client_->getIndexedValue("%.0lu", 0, value), "");
  long number = 7;
  EXPECT_EQ(client_->getValueAsInt("", number), 0);
  EXPECT_EQ(number, 0);
  number = 7;
  EXPECT_EQ(client_->getIndexedValueAsInt("", 1, number), 0);
  EXPECT_EQ(number, 0);
  number = 7;
  EXPECT_EQ(client_->getIndexedValueAsInt("%.0lu", 0, number), 0);
  EXPECT_EQ(number, 0);
}

struct NumberCase {
  const char* name;
  const char* text;
  long number;
};

class ConfigDaemonClientNumber : public ConnectedClient,
                                 public testing::WithParamInterface<NumberCase> {};

TEST_P(ConfigDaemonClientNumber, IsWhatTheTextBeginsWith) {
  daemon_->set_value("a1", GetParam().text);
  long number = 77;
  EXPECT_EQ(client_->getValueAsInt("a1", number), GetParam().number);
  EXPECT_EQ(number, GetParam().number);
  number = 77;
  EXPECT_EQ(client_->getIndexedValueAsInt("a%lu", 1, number), GetParam().number);
  EXPECT_EQ(number, GetParam().number);
}

INSTANTIATE_TEST_SUITE_P(
    Of, ConfigDaemonClientNumber,
    testing::Values(NumberCase{"Digits", "42", 42}, NumberCase{"DigitsAndLetters", "12abc", 12},
                    NumberCase{"Letters", "abc", 0}, NumberCase{"AWord", "on", 0},
                    NumberCase{"ANegative", "-5", -5}, NumberCase{"APlus", "+5", 5},
                    NumberCase{"ASignAlone", "-", 0}, NumberCase{"LeadingBlanks", " \t7", 7},
                    NumberCase{"LeadingZeros", "010", 10}, NumberCase{"Hexadecimal", "0x10", 0},
                    NumberCase{"AHexadecimalSuffix", "1Fh", 1},
                    NumberCase{"ADecimalPoint", "1.9", 1},
                    NumberCase{"TheLargest", "2147483647", 2147483647},
                    NumberCase{"TheSmallest", "-2147483648", -2147483647L - 1},
                    NumberCase{"OneAboveTheLargest", "2147483648", -2147483647L - 1},
                    NumberCase{"OneBelowTheSmallest", "-2147483649", 2147483647},
                    NumberCase{"OneThatWraps", "4294967298", 2}),
    support::CaseName());

// The call by its name, for what all getters do alike. It makes the text of the output from what it
// held and returned.
struct Getter {
  const char* name;
  std::function<std::string(const ConfigDaemonClient&)> call;  // of "a1", output 7 before
};

class ConfigDaemonClientGetters : public ConnectedClient,
                                  public testing::WithParamInterface<Getter> {};

TEST_P(ConfigDaemonClientGetters, LeaveTheOutputWhenTheExchangeFails) {
  daemon_->set_value("a1", "5");
  for (const char* fault : {R"(reply "")", R"(reply "5")"}) {
    const ino_t socket_before = client_socket_id();
    daemon_->command(std::string("fault 1 ") + fault);
    EXPECT_EQ(GetParam().call(*client_), "7") << fault;
    EXPECT_THAT(log_.take(), SizeIs(1));
    expect_fresh_socket(socket_before);
  }
  EXPECT_EQ(GetParam().call(*client_), "5");
  EXPECT_EQ(daemon_->requests().back(), query_of("a1"));
}

TEST_P(ConfigDaemonClientGetters, LeaveTheOutputWhileTheDaemonIsAway) {
  daemon_->kill();
  EXPECT_EQ(GetParam().call(*client_), "7");
  EXPECT_THAT(log_.take(), ElementsAre(err("unable to send query to configd")));
  daemon_->start();
  daemon_->set_value("a1", "5");
  EXPECT_EQ(GetParam().call(*client_), "5");
}

std::string text_got(String const& (*get)(const Client&, String&), const Client& client) {
  String value("7");
  String const& result = get(client, value);
  return &result == &value ? value.c_str() : "another String";
}

std::string number_got(long (*get)(const Client&, long&), const Client& client) {
  long value = 7;
  const long result = get(client, value);
  return result == value ? std::to_string(value) : "two numbers";
}

INSTANTIATE_TEST_SUITE_P(
    All, ConfigDaemonClientGetters,
    testing::Values(Getter{"GetValue",
                           [](const Client& client) {
                             return text_got(
                                 [](const Client& of, String& value) -> String const& {
                                   return of.getValue("a1", value);
                                 },
                                 client);
                           }},
                    Getter{"GetIndexedValue",
                           [](const Client& client) {
                             return text_got(
                                 [](const Client& of, String& value) -> String const& {
                                   return of.getIndexedValue("a%lu", 1, value);
                                 },
                                 client);
                           }},
                    Getter{"GetValueAsInt",
                           [](const Client& client) {
                             return number_got(
                                 [](const Client& of, long& value) {
                                   return of.getValueAsInt("a1", value);
                                 },
                                 client);
                           }},
                    Getter{"GetIndexedValueAsInt",
                           [](const Client& client) {
                             return number_got(
                                 [](const Client& of, long& value) {
                                   return of.getIndexedValueAsInt("a%lu", 1, value);
                                 },
                                 client);
                           }}),
    support::CaseName());

// A real wait: ten seconds.
TEST_F(ConfigDaemonClientGet, GivesASilentDaemonUp) {
  daemon_->set_value("a", "5");
  daemon_->command("fault 1 silence");
  long number = 7;
  EXPECT_EQ(client_->getValueAsInt("a", number), 7);
  EXPECT_THAT(log_.take(), ElementsAre(err("no response from configd (len -1)")));
  EXPECT_EQ(client_->getValueAsInt("a", number), 5);
}

// ---- Without a connection ----

class UnconnectedClient : public ConfigDaemonClientTest {
 protected:
  static void expect_every_call_fails(const ConfigDaemonClient& client) {
    EXPECT_FALSE(client.setValue("a", "1"));
    EXPECT_FALSE(client.setValueAsInt("a", 1));
    EXPECT_FALSE(client.setIndexedValue("a%lu", 1, "1"));
    EXPECT_FALSE(client.setIndexedValueAsInt("a%lu", 1, 1));
    String value("before");
    EXPECT_EQ(&client.getValue("a", value), &value);
    EXPECT_EQ(&client.getIndexedValue("a%lu", 1, value), &value);
    EXPECT_EQ(&client.getValue("", value), &value);
    EXPECT_EQ(value, "before");
    long number = 7;
    EXPECT_EQ(client.getValueAsInt("a", number), 7);
    EXPECT_EQ(client.getIndexedValueAsInt("a%lu", 1, number), 7);
    EXPECT_EQ(client.getValueAsInt("", number), 7);
    EXPECT_EQ(number, 7);
  }
};

TEST_F(UnconnectedClient, WithoutTheDaemonsFolderFailsEveryCallAndGoesOnSo) {
  daemon_.reset();
  const ConfigDaemonClient client;
  EXPECT_THAT(log_.take(), ElementsAre(err("cannot bind to configd")));
  expect_every_call_fails(client);
  daemon_ = std::make_unique<support::ConfigdStandIn>();
  expect_every_call_fails(client);
  EXPECT_THAT(daemon_->requests(), IsEmpty());
}

TEST_F(UnconnectedClient, WithoutDescriptorsFailsEveryCall) {
  // The sanitizer needs a descriptor, once, to make sure of the class that an object belongs to.
  std::unique_ptr<ConfigDaemonClient> client = std::make_unique<ConfigDaemonClient>();
  {
    const support::NoMoreDescriptors none;
    client = std::make_unique<ConfigDaemonClient>();
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("cannot open socket to configd")));
  expect_every_call_fails(*client);
}

TEST_F(UnconnectedClient, WithoutMemoryFailsEveryCall) {
  const support::FailingAllocation handle(1);
  const ConfigDaemonClient client;
  EXPECT_TRUE(handle.happened());
  EXPECT_THAT(log_.take(), ElementsAre(err("no mem for configd connection")));
  expect_every_call_fails(client);
}

// ---- On threads that are cancelled ----

TEST_F(ConfigDaemonClientTest, FinishesThoughCancelled) {
  bool set = false;
  String value;
  EXPECT_TRUE(support::finishes_though_cancelled([&] {
    const ConfigDaemonClient client;
    set = client.setValue("name", "box");
    client.getValue("name", value);
  }));
  EXPECT_TRUE(set);
  EXPECT_STREQ(value.c_str(), "box");
}

}  // namespace
