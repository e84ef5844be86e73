// The interfaces of bridges, from the table that brctl prints.

#include <rkutils/interface.h>

#include <cerrno>
#include <csignal>
#include <map>
#include <ostream>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <unistd.h>

#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/in_child.h"
#include "support/interruption.h"
#include "support/open_descriptors.h"
#include "support/printing_program.h"
#include "support/run_program.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kBrctl[] = "/usr/sbin/brctl";
const std::string kHeading = "bridge name\tbridge id\t\tSTP enabled\tinterfaces\n";

// The line of a bridge with its first interface, and of one more.
std::string row(const std::string& bridge, const std::string& member) {
  return bridge + "\t\t8000.0242ac110002\tno\t\t" + member + "\n";
}
std::string further(const std::string& member) { return "\t\t\t\t\t\t\t" + member + "\n"; }

struct Result {
  int length;
  std::string text;

  friend bool operator==(const Result& a, const Result& b) {
    return a.length == b.length && a.text == b.text;
  }
  friend std::ostream& operator<<(std::ostream& out, const Result& result) {
    return out << result.length << " \"" << result.text << '"';
  }
};

// With a buffer of this size, whose bytes behind must stay.
Result members_of(const std::string& bridge, std::size_t size = 8192) {
  constexpr std::size_t kGuard = 16;
  std::string buffer(size + kGuard, '#');
  const int length = bridge_members(bridge.c_str(), buffer.data(), size);
  EXPECT_EQ(buffer.substr(size), std::string(kGuard, '#'));
  return {length, buffer.substr(0, buffer.find('\0'))};
}

Result all_of(const std::string& text) { return {static_cast<int>(text.size()), text}; }

class BridgeMembers : public testing::Test {
 protected:
  BridgeMembers() : descriptors_before_(support::open_descriptors()) {}
  void TearDown() override {
    EXPECT_THAT(log_.take(), testing::IsEmpty());
    EXPECT_EQ(support::open_descriptors(), descriptors_before_);
  }

  const support::PrintingProgram brctl_{kBrctl};

 private:
  support::SyslogCollector log_;
  const std::map<int, std::string> descriptors_before_;
};

TEST_F(BridgeMembers, AreThoseOfTheBridgesLines) {
  brctl_.print(kHeading + row("br0", "eth0") + further("eth1") + further("wlan0"));
  EXPECT_EQ(members_of("br0"), all_of("eth0 eth1 wlan0 "));
  EXPECT_THAT(brctl_.starts(), ElementsAre("[show]"));
}

TEST_F(BridgeMembers, OfAnUnknownBridgeAreNone) {
  brctl_.print(kHeading + row("br0", "eth0") + further("eth1"));
  for (const char* bridge :
       {"br1", "br", "br00", "BR0", "eth0", "bridge", "bridge name", "\t", " "}) {
    EXPECT_EQ(members_of(bridge), all_of("")) << bridge;
  }
}

TEST_F(BridgeMembers, MayBeThoseOfOneThatIsCalledLikeTheHeading) {
  brctl_.print(kHeading + row("bridge", "eth0") + further("eth1") + row("bridge-2", "eth2"));
  EXPECT_EQ(members_of("bridge"), all_of("eth0 eth1 "));
  EXPECT_EQ(members_of("bridge-2"), all_of("eth2 "));
}

TEST_F(BridgeMembers, ARefusedArgumentRunsNothingAndLeavesTheBuffer) {
  brctl_.print(kHeading + row("br0", "eth0"));
  char buffer[] = "text";
  EXPECT_EQ(bridge_members(nullptr, buffer, sizeof buffer), -1);
  EXPECT_EQ(bridge_members("", buffer, sizeof buffer), -1);
  EXPECT_EQ(bridge_members("br0", buffer, 0), -1);
  EXPECT_EQ(bridge_members("br0", nullptr, sizeof buffer), -1);
  EXPECT_STREQ(buffer, "text");
  EXPECT_THAT(brctl_.starts(), IsEmpty());
}

// ---- Room

TEST_F(BridgeMembers, FillTheBufferToItsLastByte) {
  brctl_.print(kHeading + row("br0", "eth0") + further("wlan1"));
  const std::string all = "eth0 wlan1 ";
  for (std::size_t size = 1; size <= all.size() + 3; ++size) {
    EXPECT_EQ(members_of("br0", size), all_of(all.substr(0, size - 1))) << size;
  }
}

TEST_F(BridgeMembers, AreCountedAsWritten) {
  std::string table = kHeading + row("br0", "member0");
  std::string all = "member0 ";
  for (int i = 1; i < 200; ++i) {
    const std::string member = "member" + std::to_string(i);
    table += further(member);
    all += member + " ";
  }
  brctl_.print(table);
  EXPECT_EQ(members_of("br0"), all_of(all));
  EXPECT_EQ(members_of("br0", all.size() + 1), all_of(all));
  EXPECT_EQ(members_of("br0", all.size()), all_of(all.substr(0, all.size() - 1)));
  EXPECT_EQ(members_of("br0", 100), all_of(all.substr(0, 99)));
}

// ---- Tables

struct TableCase {
  std::string name;
  std::string table;
  std::string members;  // of br0
};

class BridgeTable : public BridgeMembers, public testing::WithParamInterface<TableCase> {};

TEST_P(BridgeTable, HasTheMembers) {
  brctl_.print(GetParam().table);
  EXPECT_EQ(members_of("br0"), all_of(GetParam().members));
}

INSTANTIATE_TEST_SUITE_P(
    WithBridges, BridgeTable,
    testing::Values(
        TableCase{"None", "", ""}, TableCase{"AHeadingAlone", kHeading, ""},
        TableCase{"WithoutAHeading", row("br0", "eth0"), "eth0 "},
        TableCase{"HeadingsWithin", row("br0", "eth0") + kHeading + further("eth1"), "eth0 eth1 "},
        TableCase{"WithoutMembers", kHeading + row("br0", ""), ""},
        TableCase{"WithoutMembersAndOthersBehind",
                  kHeading + row("br0", "") + row("br1", "eth1") + row("br2", ""), ""},
        TableCase{
            "OthersBefore",
            kHeading + row("br1", "eth1") + further("eth2") + row("br0", "eth0") + further("eth3"),
            "eth0 eth3 "},
        // Known so, and kept: of bridges behind, all but their first interfaces count.
        TableCase{"OthersBehind",
                  kHeading + row("br0", "eth0") + further("eth1") + row("br1", "eth2") +
                      further("eth3") + row("br2", "eth4") + further("eth5"),
                  "eth0 eth1 eth3 eth5 "},
        TableCase{"OthersBehindOneWithoutMembers",
                  kHeading + row("br0", "") + row("br1", "eth2") + further("eth3"), "eth3 "},
        TableCase{"Twice", kHeading + row("br0", "eth0") + row("br0", "eth1"), "eth0 eth1 "},
        TableCase{"NamesThatBeginAlike",
                  kHeading + row("br00", "eth1") + row("br", "eth2") + row("br0", "eth0"), "eth0 "},
        TableCase{"TheNameInAnotherColumn", "x\tbr0\tno\teth1\n" + further("eth2"), ""},
        TableCase{"TheNameAsAMember", row("br1", "br0") + further("br0"), ""}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    OfWhiteSpace, BridgeTable,
    testing::Values(
        TableCase{"SingleTabs", "br0\tid\tno\teth0\n\teth1\n", "eth0 eth1 "},
        TableCase{"ManyTabs", "br0\t\t\t\tid\t\t\tno\t\t\t\teth0\t\t\n\t\t\t\t\teth1\t\n",
                  "eth0 eth1 "},
        TableCase{"ColumnsBehindTheMember", "br0\tid\tno\teth0\teth7\n\teth1\teth8\n",
                  "eth0 eth1 "},
        TableCase{"BlanksAroundMembers", "br0\tid\tno\t eth0 \n\t eth1 \r\n", "eth0 eth1 "},
        TableCase{"BlanksBeforeFurtherMembers", row("br0", "eth0") + "   eth1\n  eth2  \n",
                  "eth0 eth1 eth2 "},
        TableCase{"BlanksWithinMembers", row("br0", "eth 0") + further("eth 1"), "eth 0 eth 1 "},
        TableCase{"ABlankColumn", "br0\t \tno\teth0\teth7\n", "eth0 "},
        TableCase{"ABlankInPlaceOfTheMember", "br0\tid\tno\t \teth0\n \teth1\n", ""},
        TableCase{"LinesOfWhiteSpace", row("br0", "eth0") + "\n\t\n \n\t\t \t\n" + further("eth1"),
                  "eth0 eth1 "},
        TableCase{"CarriageReturns", "br0\tid\tno\teth0\r\n\teth1\r\n", "eth0 eth1 "},
        TableCase{"BlanksAtTheName", "br0 \tid\tno\teth0\n", ""},
        TableCase{"BlanksForTabs", "br0 id no eth0\n" + further("eth1"), ""},
        TableCase{"ANameAlone", "br0\n" + further("eth1"), "eth1 "},
        TableCase{"ThreeColumns", "br0\tid\tno\n" + further("eth1"), "eth1 "},
        TableCase{"NoLineFeedAtTheEnd", row("br0", "eth0") + "\teth1", "eth0 eth1 "},
        TableCase{"NoLineFeedBehindTheBridge", "br0\tid\tno\teth0", "eth0 "},
        TableCase{"HighBytes", "br0\tid\tno\t\xE9th\xFF\n\t\xA0\n", "\xE9th\xFF \xA0 "}),
    support::CaseName());

// A line of this length, its line feed included, that would be taken for a further member.
std::string long_line(std::size_t length, const std::string& beginning) {
  return beginning + std::string(length - beginning.size() - 1, 'x') + "\n";
}

INSTANTIATE_TEST_SUITE_P(
    OfLongLines, BridgeTable,
    testing::Values(
        TableCase{"OneThatFits", row("br0", "eth0") + long_line(1023, "\teth1\t") + further("eth2"),
                  "eth0 eth1 eth2 "},
        TableCase{"OneByteMore", row("br0", "eth0") + long_line(1024, "\teth1\t") + further("eth2"),
                  "eth0 eth1 eth2 "},
        TableCase{"WhoseRestLooksLikeAMember",
                  row("br0", "eth0") + long_line(1024, "\teth1\t").substr(0, 1023) + "\teth9\n" +
                      further("eth2"),
                  "eth0 eth1 eth2 "},
        TableCase{"WhoseRestLooksLikeABridge",
                  long_line(1024, "br1\t").substr(0, 1023) + row("br0", "eth9") + further("eth2"),
                  ""},
        TableCase{"WhoseFarRestLooksLikeABridge",
                  std::string(std::size_t{3} * 1023, 'x') + row("br0", "eth9") + further("eth2") +
                      row("br0", "eth0"),
                  "eth0 "},
        TableCase{"OfOneColumn", "br0\tid\tno\t" + std::string(2000, 'm') + "\n" + further("eth1"),
                  std::string(1013, 'm') + " eth1 "},
        TableCase{"ThatEndsTheTable", row("br0", "eth0") + "\t" + std::string(5000, 'm'),
                  "eth0 " + std::string(1022, 'm') + " "},
        TableCase{"WhoseMemberIsBeyond",
                  "br0\tid\tno" + std::string(1100, '\t') + "eth9\n" + further("eth1"), "eth1 "}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    WithNuls, BridgeTable,
    testing::Values(
        TableCase{"Member", "br0\tid\tno\teth0\0x\n\teth1\0y\teth9\n"s, "eth0 eth1 "},
        TableCase{"Name", "br0\0x\tid\tno\teth0\n\teth1\n"s, "eth1 "},
        TableCase{"LineBegin", row("br0", "eth0") + "\0\teth9\n\teth1\n"s, "eth0 eth1 "},
        TableCase{"LongLine",
                  "br1\0"s + std::string(1019, 'x') + row("br0", "eth9") + further("eth2"), ""}),
    support::CaseName());

// ---- The command

TEST_F(BridgeMembers, OfACommandThatFailsAreWhatItPrinted) {
  brctl_.print(kHeading + row("br0", "eth0"));
  brctl_.run(brctl_.print_output() + "; exit 3");
  EXPECT_EQ(members_of("br0"), all_of("eth0 "));
  brctl_.run(brctl_.print_output() + "; kill -9 $$");
  EXPECT_EQ(members_of("br0"), all_of("eth0 "));
}

TEST_F(BridgeMembers, OfACommandThatIsNotThereAreNone) {
  ASSERT_EQ(::unlink(kBrctl), 0);
  EXPECT_EQ(members_of("br0"), all_of(""));
}

TEST_F(BridgeMembers, NothingIsShownOfWhatTheCommandComplains) {
  brctl_.run("echo br0 complaint >&2; readlink /proc/$$/fd/2 > /tmp/brctl.error");
  EXPECT_EQ(members_of("br0"), all_of(""));
  EXPECT_EQ(support::run_program({"cat", "/tmp/brctl.error"}).output, "/dev/null\n");
  ::unlink("/tmp/brctl.error");
}

TEST_F(BridgeMembers, WithoutACommandAreMinus1) {
  brctl_.print(kHeading + row("br0", "eth0"));
  char buffer[16] = "text";
  int length = 0;
  support::run_with_failing_calls({{support::SystemCall::kFork, EAGAIN}},
                                  [&] { length = bridge_members("br0", buffer, sizeof buffer); });
  EXPECT_EQ(length, -1);
  EXPECT_STREQ(buffer, "");
  for (const unsigned spare : {0U, 1U}) {
    const support::NoMoreDescriptors none(spare);
    EXPECT_EQ(members_of("br0"), (Result{-1, ""})) << spare;
  }
}

TEST_F(BridgeMembers, AreFoundWhereSigchldIsIgnored) {
  brctl_.print(kHeading + row("br0", "eth0"));
  EXPECT_EQ(support::in_child([] {
              ::signal(SIGCHLD, SIG_IGN);
              const Result result = members_of("br0");
              return std::to_string(result.length) + result.text;
            }),
            "5eth0 ");
}

TEST_F(BridgeMembers, ASignalLosesNone) {
  brctl_.run("printf 'br0\\tid\\tno\\te'; sleep 0.3; printf 'th0\\n\\teth1\\n'");
  const support::Interruption interruption;
  Result result = {};
  std::thread thread([&] { result = members_of("br0"); });
  support::Interruption::send(thread);
  thread.join();
  EXPECT_EQ(result, all_of("eth0 eth1 "));
}

TEST_F(BridgeMembers, AreFoundByACancelledThread) {
  brctl_.print(kHeading + row("br0", "eth0"));
  Result result = {};
  EXPECT_TRUE(support::finishes_though_cancelled([&] { result = members_of("br0"); }));
  EXPECT_EQ(result, all_of("eth0 "));
}

TEST_F(BridgeMembers, AreFoundOnASmallStack) {
  brctl_.print(kHeading + row("br0", "eth0"));
  support::run_on_small_stack([] { EXPECT_EQ(members_of("br0"), all_of("eth0 ")); });
}

// ---- The system's own brctl

class BridgeOfTheKernel : public testing::Test {
 protected:
  ~BridgeOfTheKernel() override {
    for (const char* name : {"br0", "br1", "lan0", "lan1"}) {
      support::run_program({"ip", "link", "del", name});
    }
  }

  static void ip(const std::string& words) {
    const support::Outcome outcome = support::run_program({"sh", "-c", "ip " + words});
    ASSERT_EQ(outcome.status, 0) << words << ": " << outcome.output;
  }
};

TEST_F(BridgeOfTheKernel, HasItsMembers) {
  ASSERT_EQ(::access(kBrctl, X_OK), 0) << "bridge-utils is not installed";
  ip("link add br0 type bridge");
  ip("link add br1 type bridge");
  EXPECT_EQ(members_of("br0"), all_of(""));
  ip("link add lan0 type veth");  // with veth0
  ip("link set lan0 master br0");
  EXPECT_EQ(members_of("br0"), all_of("lan0 "));
  ip("link set veth0 master br0");
  EXPECT_EQ(members_of("br0"), all_of("lan0 veth0 "));
  EXPECT_EQ(members_of("br1"), all_of(""));
  ip("link add lan1 type veth");  // with veth1
  ip("link set lan1 master br1");
  EXPECT_EQ(members_of("br1"), all_of("lan1 "));
  EXPECT_EQ(members_of("br2"), all_of(""));
  ip("link set veth1 master br1");
  EXPECT_EQ(members_of("br1"), all_of("lan1 veth1 "));
  EXPECT_EQ(members_of("br0"), all_of("lan0 veth0 veth1 "));  // the last is known so, and kept
}

}  // namespace
