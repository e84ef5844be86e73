// Interfaces asked about and changed, beside what ip(8) shows of them and does to them.

#include <rkutils/interface.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include "support/failing_calls.h"
#include "support/member_type.h"
#include "support/open_descriptors.h"
#include "support/run_program.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"
#include "support/without_privileges.h"

namespace {

using support::kIs;
using testing::Contains;
using testing::IsSupersetOf;
using testing::Not;

using Status = IpInterfaceStatus;
static_assert(kIs<&Status::isInterfaceAvailable, int (Status::*)(char const*) const>);
static_assert(kIs<&Status::isInterfaceUp, int (Status::*)(char const*) const>);
static_assert(kIs<&Status::setInterfaceUp, int (Status::*)(char const*, int) const>);
static_assert(kIs<&Status::setTxQueueLen, int (Status::*)(char const*, unsigned int) const>);
static_assert(kIs<&Status::getIpV4Address, unsigned int (Status::*)(char const*) const>);
static_assert(kIs<&Status::setIpV4Address, int (Status::*)(char const*, unsigned int) const>);
static_assert(kIs<&Status::getIpV4Mask, unsigned int (Status::*)(char const*) const>);
static_assert(kIs<&Status::setIpV4Mask, int (Status::*)(char const*, unsigned int) const>);
static_assert(kIs<&Status::haveNetworkConnectivity, int (Status::*)() const>);
static_assert(std::has_virtual_destructor_v<Status> && sizeof(Status) == sizeof(void*));

// 192.0.2.1 and what belongs to it; 10.1.2.3.
constexpr unsigned int kAddress = 0xC0000201;
constexpr unsigned int kMask = 0xFFFFFF00;
constexpr unsigned int kOtherAddress = 0x0A010203;

std::string ip(const std::string& words) {
  std::vector<std::string> command = {"ip"};
  std::istringstream stream(words);
  for (std::string word; stream >> word;) command.push_back(word);
  const support::Outcome outcome = support::run_program(command);
  if (outcome.status != 0) throw std::runtime_error("ip " + words + ": " + outcome.output);
  return outcome.output;
}

std::string link_of(const std::string& name) { return ip("link show dev " + name); }

// The flags that ip(8) shows in angle brackets.
std::set<std::string> flags_of(const std::string& name) {
  const std::string shown = link_of(name);
  const std::size_t begin = shown.find('<') + 1;
  std::istringstream words(shown.substr(begin, shown.find('>') - begin));
  std::set<std::string> flags;
  for (std::string flag; std::getline(words, flag, ',');) flags.insert(flag);
  return flags;
}

std::string found(const std::string& text, const std::string& expression) {
  std::smatch match;
  return std::regex_search(text, match, std::regex(expression)) ? match[1].str() : "";
}

std::string queue_length_of(const std::string& name) { return found(link_of(name), "qlen (\\d+)"); }

// "192.0.2.1/24"; of several the first.
std::string address_of(const std::string& name) {
  return found(ip("-4 addr show dev " + name), "inet ([0-9./]+)");
}

// An interface that just got or lost its carrier says so a little later.
bool comes_to(int up, const char* name) {
  constexpr int kMostWaits = 10000;
  for (int waits = 0; waits < kMostWaits; ++waits) {
    if (Status().isInterfaceUp(name) == up) return true;
    ::usleep(1000);
  }
  return false;
}

// The router has the loopback and a pair of interfaces, lan0 and veth0, that are down and have no
// address.
class IpInterfaceStatusTest : public testing::Test {
 protected:
  IpInterfaceStatusTest() {
    ip("link add lan0 type veth");
    descriptors_before_ = support::open_descriptors();
  }
  ~IpInterfaceStatusTest() override { support::run_program({"ip", "link", "del", "lan0"}); }
  void TearDown() override {
    EXPECT_THAT(log_.take(), testing::IsEmpty());
    EXPECT_EQ(support::open_descriptors(), descriptors_before_);
  }

  const IpInterfaceStatus status_;

 private:
  support::SyslogCollector log_;
  std::map<int, std::string> descriptors_before_;
};

// ---- Names

using IsInterfaceAvailable = IpInterfaceStatusTest;

TEST_F(IsInterfaceAvailable, FindsNames) {
  EXPECT_EQ(status_.isInterfaceAvailable("lo"), 1);
  EXPECT_EQ(status_.isInterfaceAvailable("lan0"), 1);
  EXPECT_EQ(status_.isInterfaceAvailable("veth0"), 1);
  EXPECT_EQ(status_.isInterfaceAvailable("lan1"), 0);
}

TEST_F(IsInterfaceAvailable, FindsPartsOfNames) {
  for (const char* part : {"eth", "eth0", "th", "v", "0", "an", ""}) {
    EXPECT_EQ(status_.isInterfaceAvailable(part), 1) << part;
  }
}

TEST_F(IsInterfaceAvailable, FindsNothingElse) {
  for (const char* other : {"LAN0", "lan00", "lan0 ", " lan0", "lan0veth0", "x", "1",
                            "ethernet-of-a-name-that-is-long"}) {
    EXPECT_EQ(status_.isInterfaceAvailable(other), 0) << other;
  }
}

TEST_F(IsInterfaceAvailable, SeesThemComeAndGo) {
  ip("link del lan0");
  EXPECT_EQ(status_.isInterfaceAvailable("lan0"), 0);
  EXPECT_EQ(status_.isInterfaceAvailable("eth"), 0);
  ip("link add lan0 type veth");
  EXPECT_EQ(status_.isInterfaceAvailable("lan0"), 1);
}

TEST_F(IsInterfaceAvailable, FindsLabels) {
  EXPECT_EQ(status_.isInterfaceAvailable("lan0:backup"), 0);
  ip("addr add 192.0.2.1/24 dev lan0 label lan0:backup");
  EXPECT_EQ(status_.isInterfaceAvailable("lan0:backup"), 1);
}

// ---- Up and down

using IsInterfaceUp = IpInterfaceStatusTest;

TEST_F(IsInterfaceUp, IsSoOfTheLoopback) {
  EXPECT_EQ(status_.isInterfaceUp("lo"), 1);
  ip("link set lo down");
  EXPECT_EQ(status_.isInterfaceUp("lo"), 0);
  ip("link set lo up");
  EXPECT_EQ(status_.isInterfaceUp("lo"), 1);
}

TEST_F(IsInterfaceUp, TakesACarrier) {
  EXPECT_EQ(status_.isInterfaceUp("lan0"), 0);
  ip("link set lan0 up");
  EXPECT_TRUE(comes_to(0, "lan0"));
  EXPECT_THAT(flags_of("lan0"), IsSupersetOf({"UP", "NO-CARRIER"}));
  ip("link set veth0 up");
  EXPECT_TRUE(comes_to(1, "lan0"));
  EXPECT_THAT(flags_of("lan0"), IsSupersetOf({"UP", "LOWER_UP"}));
  ip("link set veth0 down");
  EXPECT_TRUE(comes_to(0, "lan0"));
}

using SetInterfaceUp = IpInterfaceStatusTest;

TEST_F(SetInterfaceUp, SwitchesOnAndOff) {
  EXPECT_EQ(status_.setInterfaceUp("lan0", 1), 1);
  EXPECT_THAT(flags_of("lan0"), Contains("UP"));
  EXPECT_EQ(status_.setInterfaceUp("lan0", 1), 1);
  EXPECT_THAT(flags_of("lan0"), Contains("UP"));
  EXPECT_THAT(flags_of("veth0"), Not(Contains("UP")));
  EXPECT_EQ(status_.setInterfaceUp("veth0", 1), 1);
  EXPECT_TRUE(comes_to(1, "lan0"));
  EXPECT_TRUE(comes_to(1, "veth0"));
  EXPECT_EQ(status_.setInterfaceUp("lan0", 0), 1);
  EXPECT_THAT(flags_of("lan0"), Not(Contains("UP")));
  EXPECT_EQ(status_.setInterfaceUp("lan0", 0), 1);
  EXPECT_EQ(status_.isInterfaceUp("lan0"), 0);
}

TEST_F(SetInterfaceUp, SwitchesOnWith1Alone) {
  for (const int off : {0, 2, -1, 256 + 1, INT32_MIN}) {
    ip("link set lan0 up");
    EXPECT_EQ(status_.setInterfaceUp("lan0", off), 1) << off;
    EXPECT_THAT(flags_of("lan0"), Not(Contains("UP"))) << off;
  }
}

TEST_F(SetInterfaceUp, LeavesTheOtherFlags) {
  ip("link set lan0 arp off");
  const std::set<std::string> before = flags_of("lan0");
  EXPECT_THAT(before, IsSupersetOf({"BROADCAST", "MULTICAST", "NOARP"}));
  EXPECT_EQ(status_.setInterfaceUp("lan0", 1), 1);
  EXPECT_THAT(flags_of("lan0"), IsSupersetOf({"BROADCAST", "MULTICAST", "NOARP", "UP"}));
  EXPECT_EQ(status_.setInterfaceUp("lan0", 0), 1);
  EXPECT_EQ(flags_of("lan0"), before);
}

// The kernel's way to switch off one address alone.
TEST_F(SetInterfaceUp, TakesTheAddressOfALabelAwayWithOff) {
  ASSERT_EQ(status_.setInterfaceUp("lan0", 1), 1);
  ASSERT_EQ(status_.setIpV4Address("lan0", kOtherAddress), 1);
  ASSERT_EQ(status_.setIpV4Address("lan0:backup", kAddress), 1);
  EXPECT_EQ(status_.setInterfaceUp("lan0:backup", 1), 1);
  EXPECT_EQ(status_.getIpV4Address("lan0:backup"), kAddress);
  EXPECT_EQ(status_.setInterfaceUp("lan0:backup", 0), 1);
  EXPECT_EQ(status_.getIpV4Address("lan0:backup"), 0U);
  EXPECT_EQ(status_.getIpV4Address("lan0"), kOtherAddress);
  EXPECT_THAT(flags_of("lan0"), Contains("UP"));
}

TEST_F(SetInterfaceUp, SetsNothingWhereTheFlagsCannotBeRead) {
  int result = -1;
  support::run_with_failing_calls({{support::SystemCall::kControl, EIO, 0, 1}},
                                  [&] { result = status_.setInterfaceUp("lan0", 1); });
  EXPECT_EQ(result, 0);
  EXPECT_THAT(flags_of("lan0"), Not(Contains("UP")));
}

// ---- The queue

using SetTxQueueLen = IpInterfaceStatusTest;

TEST_F(SetTxQueueLen, Sets) {
  for (const unsigned int packets : {1U, 500U, 0x12345U, 0U}) {
    EXPECT_EQ(status_.setTxQueueLen("lan0", packets), 1);
    const std::string shown = queue_length_of("lan0");
    EXPECT_EQ(shown, packets == 0 ? "" : std::to_string(packets));
  }
}

TEST_F(SetTxQueueLen, FailsBeyondTheKernelsNumbers) {
  ASSERT_EQ(status_.setTxQueueLen("lan0", 500), 1);
  EXPECT_EQ(status_.setTxQueueLen("lan0", 0x80000000), 0);
  EXPECT_EQ(status_.setTxQueueLen("lan0", 0xFFFFFFFF), 0);
  EXPECT_EQ(queue_length_of("lan0"), "500");
}

// ---- Addresses

using GetIpV4Address = IpInterfaceStatusTest;

TEST_F(GetIpV4Address, IsInHostOrder) {
  EXPECT_EQ(status_.getIpV4Address("lo"), 0x7F000001U);
  EXPECT_EQ(status_.getIpV4Mask("lo"), 0xFF000000U);
  ip("addr add 192.0.2.1/29 dev lan0");
  EXPECT_EQ(status_.getIpV4Address("lan0"), kAddress);
  EXPECT_EQ(status_.getIpV4Mask("lan0"), 0xFFFFFFF8U);
  EXPECT_EQ(status_.getIpV4Address("veth0"), 0U);
}

TEST_F(GetIpV4Address, IsZeroWithoutOne) {
  EXPECT_EQ(status_.getIpV4Address("lan0"), 0U);
  EXPECT_EQ(status_.getIpV4Mask("lan0"), 0U);
}

TEST_F(GetIpV4Address, IsTheFirstOfSeveral) {
  ip("addr add 10.1.2.3/8 dev lan0");
  ip("addr add 192.0.2.1/24 dev lan0");
  EXPECT_EQ(status_.getIpV4Address("lan0"), kOtherAddress);
  EXPECT_EQ(status_.getIpV4Mask("lan0"), 0xFF000000U);
}

TEST_F(GetIpV4Address, IsThatOfALabel) {
  ip("addr add 10.1.2.3/8 dev lan0");
  ip("addr add 192.0.2.1/24 dev lan0 label lan0:backup");
  EXPECT_EQ(status_.getIpV4Address("lan0"), kOtherAddress);
  EXPECT_EQ(status_.getIpV4Address("lan0:backup"), kAddress);
  EXPECT_EQ(status_.getIpV4Mask("lan0:backup"), kMask);
  EXPECT_EQ(status_.getIpV4Address("lan0:other"), 0U);
}

using SetIpV4Address = IpInterfaceStatusTest;

TEST_F(SetIpV4Address, SetsItWithTheMaskOfItsClass) {
  EXPECT_EQ(status_.setIpV4Address("lan0", kAddress), 1);
  EXPECT_EQ(address_of("lan0"), "192.0.2.1/24");
  EXPECT_EQ(status_.getIpV4Address("lan0"), kAddress);
  EXPECT_EQ(status_.getIpV4Mask("lan0"), kMask);
  EXPECT_EQ(status_.setIpV4Address("lan0", kOtherAddress), 1);
  EXPECT_EQ(address_of("lan0"), "10.1.2.3/8");
  EXPECT_EQ(status_.setIpV4Address("lan0", 0xAC100001), 1);
  EXPECT_EQ(address_of("lan0"), "172.16.0.1/16");
  EXPECT_EQ(address_of("veth0"), "");
}

TEST_F(SetIpV4Address, TakesItAwayWith0) {
  ASSERT_EQ(status_.setIpV4Address("lan0", kAddress), 1);
  EXPECT_EQ(status_.setIpV4Address("lan0", 0), 1);
  EXPECT_EQ(address_of("lan0"), "");
  EXPECT_EQ(status_.getIpV4Address("lan0"), 0U);
}

TEST_F(SetIpV4Address, FailsForGroups) {
  ASSERT_EQ(status_.setIpV4Address("lan0", kAddress), 1);
  EXPECT_EQ(status_.setIpV4Address("lan0", 0xE0000001), 0);
  EXPECT_EQ(address_of("lan0"), "192.0.2.1/24");
}

TEST_F(SetIpV4Address, OfALabelIsOneMore) {
  ASSERT_EQ(status_.setIpV4Address("lan0", kOtherAddress), 1);
  EXPECT_EQ(status_.setIpV4Address("lan0:backup", kAddress), 1);
  EXPECT_EQ(status_.getIpV4Address("lan0"), kOtherAddress);
  EXPECT_EQ(status_.getIpV4Address("lan0:backup"), kAddress);
  EXPECT_THAT(ip("-4 addr show dev lan0"), testing::ContainsRegex("192.0.2.1/24 .*lan0:backup"));
}

using SetIpV4Mask = IpInterfaceStatusTest;

TEST_F(SetIpV4Mask, SetsIt) {
  ASSERT_EQ(status_.setIpV4Address("lan0", kAddress), 1);
  EXPECT_EQ(status_.setIpV4Mask("lan0", 0xFFFFFFF0), 1);
  EXPECT_EQ(address_of("lan0"), "192.0.2.1/28");
  EXPECT_EQ(status_.getIpV4Mask("lan0"), 0xFFFFFFF0U);
  EXPECT_EQ(status_.getIpV4Address("lan0"), kAddress);
  EXPECT_EQ(status_.setIpV4Mask("lan0", 0xFFFF0000), 1);
  EXPECT_EQ(address_of("lan0"), "192.0.2.1/16");
}

TEST_F(SetIpV4Mask, FailsForOtherNumbers) {
  ASSERT_EQ(status_.setIpV4Address("lan0", kAddress), 1);
  EXPECT_EQ(status_.setIpV4Mask("lan0", 0xFF00FF00), 0);
  EXPECT_EQ(status_.setIpV4Mask("lan0", 0x00FFFFFF), 0);
  EXPECT_EQ(address_of("lan0"), "192.0.2.1/24");
}

TEST_F(SetIpV4Mask, FailsWithoutAnAddress) {
  EXPECT_EQ(status_.setIpV4Mask("lan0", kMask), 0);
  EXPECT_EQ(address_of("lan0"), "");
}

// ---- Names that are long, wrong or none

TEST_F(IpInterfaceStatusTest, KnowsNamesOf15Characters) {
  const std::string name = "abcdefghijklmno";
  ip("link set lan0 name " + name);
  EXPECT_EQ(status_.isInterfaceAvailable(name.c_str()), 1);
  EXPECT_EQ(status_.setInterfaceUp(name.c_str(), 1), 1);
  EXPECT_EQ(status_.setTxQueueLen(name.c_str(), 500), 1);
  EXPECT_EQ(status_.setIpV4Address(name.c_str(), kAddress), 1);
  EXPECT_EQ(status_.setIpV4Mask(name.c_str(), 0xFFFFFFFC), 1);
  EXPECT_THAT(flags_of(name), Contains("UP"));
  EXPECT_EQ(queue_length_of(name), "500");
  EXPECT_EQ(address_of(name), "192.0.2.1/30");
  ip("link set " + name + " down");
  ip("link set " + name + " name lan0");
}

TEST_F(IpInterfaceStatusTest, TakesTheFirst15CharactersOfLongerNames) {
  ip("link set lan0 name abcdefghijklmno");
  for (const std::string& name :
       {std::string("abcdefghijklmnop"), "abcdefghijklmno" + std::string(5000, 'x')}) {
    EXPECT_EQ(status_.isInterfaceAvailable(name.c_str()), 0);
    EXPECT_EQ(status_.setInterfaceUp(name.c_str(), 1), 1);
    EXPECT_THAT(flags_of("abcdefghijklmno"), Contains("UP"));
    EXPECT_EQ(status_.setIpV4Address(name.c_str(), kAddress), 1);
    EXPECT_EQ(status_.getIpV4Address(name.c_str()), kAddress);
    EXPECT_EQ(status_.getIpV4Address("abcdefghijklmno"), kAddress);
    EXPECT_EQ(status_.setInterfaceUp(name.c_str(), 0), 1);
    EXPECT_THAT(flags_of("abcdefghijklmno"), Not(Contains("UP")));
    EXPECT_EQ(status_.setIpV4Address(name.c_str(), 0), 1);
  }
  EXPECT_EQ(status_.setInterfaceUp("abcdefghijklmnx", 1), 0);
  ip("link set abcdefghijklmno name lan0");
}

// What all eight give, changes first.
std::array<unsigned int, 8> results_of(const Status& status, const char* name) {
  return {static_cast<unsigned int>(status.setInterfaceUp(name, 1)),
          static_cast<unsigned int>(status.setTxQueueLen(name, 500)),
          static_cast<unsigned int>(status.setIpV4Address(name, kAddress)),
          static_cast<unsigned int>(status.setIpV4Mask(name, 0xFFFFFFF0)),
          static_cast<unsigned int>(status.isInterfaceAvailable(name)),
          static_cast<unsigned int>(status.isInterfaceUp(name)),
          status.getIpV4Address(name),
          status.getIpV4Mask(name)};
}

constexpr std::array<unsigned int, 8> kFailures = {};

TEST_F(IpInterfaceStatusTest, FailsForOtherNames) {
  for (const char* name : {"lan1", "LAN0", "lan0/", " lan0", "lan0 ", "192.0.2.1"}) {
    EXPECT_EQ(results_of(status_, name), kFailures) << name;
  }
  EXPECT_EQ(results_of(status_, nullptr), kFailures);
  // This is a part of each name, and no name.
  EXPECT_EQ(results_of(status_, ""), (std::array<unsigned int, 8>{0, 0, 0, 0, 1, 0, 0, 0}));
}

// ---- What may go wrong

TEST_F(IpInterfaceStatusTest, FailsWithoutASocket) {
  ip("addr add 10.1.2.3/8 dev lan0");
  std::array<unsigned int, 8> results = {1};
  support::run_with_failing_calls({{support::SystemCall::kSocket, EACCES}},
                                  [&] { results = results_of(status_, "lan0"); });
  EXPECT_EQ(results, kFailures);
  {
    const support::NoMoreDescriptors none;
    results = results_of(status_, "lan0");
  }
  EXPECT_EQ(results, kFailures);
  EXPECT_THAT(flags_of("lan0"), Not(Contains("UP")));
  EXPECT_EQ(address_of("lan0"), "10.1.2.3/8");
}

TEST_F(IpInterfaceStatusTest, NeedsOneDescriptor) {
  // The sanitizer needs one too when it first sees an object of a class.
  std::array<unsigned int, 8> results = results_of(status_, "lan1");
  EXPECT_EQ(results, kFailures);
  {
    const support::NoMoreDescriptors one(1);
    results = results_of(status_, "lan0");
  }
  results[5] = 0;  // isInterfaceUp(): the kernel may not have seen yet that there is no carrier
  EXPECT_EQ(results, (std::array<unsigned int, 8>{1, 1, 1, 1, 1, 0, kAddress, 0xFFFFFFF0}));
}

TEST_F(IpInterfaceStatusTest, RepeatsInterruptedRequests) {
  std::array<int, 2> results = {};
  support::run_with_failing_calls({{support::SystemCall::kControl, EINTR, 1, 3}}, [&] {
    results = {status_.setInterfaceUp("lan0", 1), status_.isInterfaceUp("lo")};
  });
  EXPECT_THAT(results, testing::Each(1));
  EXPECT_THAT(flags_of("lan0"), Contains("UP"));
}

TEST_F(IpInterfaceStatusTest, FailsWithTheRequests) {
  ip("addr add 192.0.2.1/24 dev lan0");
  std::array<unsigned int, 8> results = {};
  support::run_with_failing_calls({{support::SystemCall::kControl, EIO}},
                                  [&] { results = results_of(status_, "lan0"); });
  EXPECT_EQ(results, (std::array<unsigned int, 8>{0, 0, 0, 0, 1, 0, 0, 0}));
}

TEST_F(IpInterfaceStatusTest, WithoutPrivilegesCanAskAndNotChange) {
  ip("addr add 10.1.2.3/8 dev lan0");
  ip("link set lan0 qlen 77");
  std::array<unsigned int, 8> results = {};
  support::run_without_privileges([&] { results = results_of(status_, "lan0"); });
  EXPECT_EQ(results, (std::array<unsigned int, 8>{0, 0, 0, 0, 1, 0, kOtherAddress, 0xFF000000}));
  EXPECT_THAT(flags_of("lan0"), Not(Contains("UP")));
  EXPECT_EQ(queue_length_of("lan0"), "77");
  EXPECT_EQ(address_of("lan0"), "10.1.2.3/8");
}

TEST_F(IpInterfaceStatusTest, HasSocketsForNoOtherProgram) {
  std::vector<int> flags;
  flags.reserve(16);
  support::FailingCall request = {support::SystemCall::kControl, 0};
  request.decide = [&](const support::CallArguments& arguments) {
    flags.push_back(::fcntl(static_cast<int>(arguments[0]), F_GETFD));
    return std::optional<std::int64_t>();
  };
  support::run_with_failing_calls({request}, [&] { results_of(status_, "lan0"); });
  EXPECT_THAT(flags, testing::AllOf(testing::SizeIs(testing::Ge(8U)), testing::Each(FD_CLOEXEC)));
}

TEST_F(IpInterfaceStatusTest, IsFinishedByACancelledThread) {
  std::array<unsigned int, 8> results = {};
  EXPECT_TRUE(support::finishes_though_cancelled([&] { results = results_of(status_, "lan0"); }));
  results[5] = 0;  // as above
  EXPECT_EQ(results, (std::array<unsigned int, 8>{1, 1, 1, 1, 1, 0, kAddress, 0xFFFFFFF0}));
}

TEST_F(IpInterfaceStatusTest, WorksOnASmallStack) {
  std::array<unsigned int, 8> results = {};
  support::run_on_small_stack([&] { results = results_of(status_, "lan0"); });
  results[5] = 0;  // as above
  EXPECT_EQ(results, (std::array<unsigned int, 8>{1, 1, 1, 1, 1, 0, kAddress, 0xFFFFFFF0}));
}

// ---- The object

TEST(IpInterfaceStatusObject, IsDestroyedByItsBase) {
  struct Derived : IpInterfaceStatus {
    explicit Derived(bool& destroyed) : destroyed_(destroyed) {}
    ~Derived() override { destroyed_ = true; }
    Derived(const Derived&) = delete;
    Derived& operator=(const Derived&) = delete;
    bool& destroyed_;
  };
  bool destroyed = false;
  std::unique_ptr<IpInterfaceStatus> status = std::make_unique<Derived>(destroyed);
  EXPECT_EQ(status->isInterfaceUp("lo"), 1);
  status.reset();
  EXPECT_TRUE(destroyed);
}

}  // namespace
