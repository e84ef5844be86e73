// The links to the outside, as the link manager publishes them.

#include <rkutils/file.h>
#include <rkutils/interface.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <string>

#include <gmock/gmock.h>

#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/for_nobody.h"
#include "support/open_descriptors.h"
#include "support/put_file.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using support::put;

const std::string kFolder = "/tmp/status/link-manager";

int have_network_connectivity() { return IpInterfaceStatus().haveNetworkConnectivity(); }

class WanLinkTest : public testing::Test {
 protected:
  WanLinkTest() : descriptors_before_(support::open_descriptors()) {}
  ~WanLinkTest() override { fs::remove_all("/tmp/status"); }
  void TearDown() override {
    EXPECT_THAT(log_.take(), testing::IsEmpty());
    EXPECT_EQ(support::open_descriptors(), descriptors_before_);
  }

  static void put_state(const std::string& link, const std::string& text) {
    put(kFolder + "/" + link + "/state", text);
  }

 private:
  support::SyslogCollector log_;
  const std::map<int, std::string> descriptors_before_;
};

// ---- Whether one is up

using WanlinkIsUp = WanLinkTest;

TEST_F(WanlinkIsUp, IfThereIsAHotLink) {
  EXPECT_EQ(wanlink_is_up(), 0);
  fs::create_directories(kFolder);
  EXPECT_EQ(wanlink_is_up(), 0);
  fs::create_directory(kFolder + "/hotlink");
  EXPECT_EQ(wanlink_is_up(), 1);
}

TEST_F(WanlinkIsUp, WhateverTheHotLinkIs) {
  put(kFolder + "/hotlink", "");
  EXPECT_EQ(wanlink_is_up(), 1);
}

TEST_F(WanlinkIsUp, UnlessItLeadsNowhere) {
  put_state("wanlink1", "connected");
  fs::create_symlink("wanlink1", kFolder + "/hotlink");
  EXPECT_EQ(wanlink_is_up(), 1);
  fs::remove_all(kFolder + "/wanlink1");
  EXPECT_EQ(wanlink_is_up(), 0);
}

TEST_F(WanlinkIsUp, AsACancelledThreadFinds) {
  fs::create_directories(kFolder + "/hotlink");
  int up = 0;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { up = wanlink_is_up(); }));
  EXPECT_EQ(up, 1);
}

TEST_F(WanlinkIsUp, OnlyIfTheRealUserMayReadIt) {
  fs::create_directories(kFolder + "/hotlink");
  support::run_for_nobody([] { EXPECT_EQ(wanlink_is_up(), 1); });
  fs::permissions(kFolder + "/hotlink", fs::perms(0711));
  support::run_for_nobody([] { EXPECT_EQ(wanlink_is_up(), 0); });
  EXPECT_EQ(wanlink_is_up(), 1);
}

// ---- Whether there is connectivity

using HaveNetworkConnectivity = WanLinkTest;

TEST_F(HaveNetworkConnectivity, IfTheHotLinkHasAnInterface) {
  EXPECT_EQ(have_network_connectivity(), 0);
  fs::create_directories(kFolder + "/hotlink");
  EXPECT_EQ(have_network_connectivity(), 0);
  put(kFolder + "/hotlink/interface", "");
  EXPECT_EQ(have_network_connectivity(), 1);
  put(kFolder + "/hotlink/interface", "wwan0\n");
  EXPECT_EQ(have_network_connectivity(), 1);
}

TEST_F(HaveNetworkConnectivity, ThroughLinks) {
  put(kFolder + "/wanlink2/interface", "wwan0");
  fs::create_symlink("wanlink2", kFolder + "/hotlink");
  EXPECT_EQ(have_network_connectivity(), 1);
  fs::remove(kFolder + "/wanlink2/interface");
  EXPECT_EQ(have_network_connectivity(), 0);
}

TEST_F(HaveNetworkConnectivity, NotWithAFileForAHotLink) {
  put(kFolder + "/hotlink", "wwan0");
  EXPECT_EQ(have_network_connectivity(), 0);
}

// Opening is asked, and so the effective user.
TEST_F(HaveNetworkConnectivity, IfItCanBeOpened) {
  put(kFolder + "/hotlink/interface", "wwan0");
  fs::permissions(kFolder + "/hotlink/interface", fs::perms(0600));
  support::run_for_nobody([] { EXPECT_EQ(have_network_connectivity(), 1); });
  const support::NoMoreDescriptors none;
  EXPECT_EQ(have_network_connectivity(), 0);
}

TEST_F(HaveNetworkConnectivity, AsACancelledThreadFinds) {
  put(kFolder + "/hotlink/interface", "wwan0");
  int connected = 0;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { connected = have_network_connectivity(); }));
  EXPECT_EQ(connected, 1);
}

// ---- How many are in use

using WanlinkCount = WanLinkTest;

TEST_F(WanlinkCount, IsZeroWithoutAFolder) {
  EXPECT_EQ(wanlink_count(), 0);
  fs::create_directories(kFolder);
  EXPECT_EQ(wanlink_count(), 0);
}

TEST_F(WanlinkCount, IsZeroWithAFileForAFolder) {
  put(kFolder, "wanlink1");
  EXPECT_EQ(wanlink_count(), 0);
}

TEST_F(WanlinkCount, CountsThoseWithAState) {
  put_state("wanlink1", "connected\n");
  EXPECT_EQ(wanlink_count(), 1);
  put_state("wanlink2", "");
  EXPECT_EQ(wanlink_count(), 1);
  put_state("wanlink3", "disabled\n");
  EXPECT_EQ(wanlink_count(), 1);
  put_state("wanlink10", "connecting\n");
  EXPECT_EQ(wanlink_count(), 2);
  fs::remove_all(kFolder + "/wanlink1");
  EXPECT_EQ(wanlink_count(), 1);
}

TEST_F(WanlinkCount, CountsManyOnce) {
  for (int link = 0; link < 200; ++link) {
    put_state("wanlink" + std::to_string(link), link % 4 == 0 ? "disabled" : "up");
  }
  EXPECT_EQ(wanlink_count(), 150);
}

TEST_F(WanlinkCount, GoesByTheBeginningOfTheName) {
  for (const char* other :
       {"hotlink", "wanlin", "Wanlink1", "xwanlink1", ".wanlink1", "wan-link1", " wanlink1"}) {
    put_state(other, "connected");
    EXPECT_EQ(wanlink_count(), 0) << other;
  }
  int count = 0;
  for (const std::string& link :
       {"wanlink"s, "wanlinks"s, "wanlink 1"s, "wanlink-%s"s, "wanlink" + std::string(248, 'x')}) {
    put_state(link, "connected");
    EXPECT_EQ(wanlink_count(), ++count) << link;
  }
}

TEST_F(WanlinkCount, TakesLinksToFolders) {
  put("/tmp/status/elsewhere/state", "connected");
  fs::create_directories(kFolder);
  fs::create_symlink("/tmp/status/elsewhere", kFolder + "/wanlink1");
  fs::create_symlink("/tmp/status/missing", kFolder + "/wanlink2");
  EXPECT_EQ(wanlink_count(), 1);
}

TEST_F(WanlinkCount, LeavesOutWhatHasNoState) {
  put(kFolder + "/wanlink1", "connected");  // a file
  fs::create_directories(kFolder + "/wanlink2");
  fs::create_directories(kFolder + "/wanlink3/state");
  put(kFolder + "/wanlink4/status", "connected");
  EXPECT_EQ(wanlink_count(), 0);
}

TEST_F(WanlinkCount, LeavesOutWhatTheRealUserMayNotRead) {
  put_state("wanlink1", "connected");
  put_state("wanlink2", "connected");
  fs::permissions(kFolder + "/wanlink2/state", fs::perms(0600));
  support::run_for_nobody([] { EXPECT_EQ(wanlink_count(), 1); });
  EXPECT_EQ(wanlink_count(), 2);
}

TEST_F(WanlinkCount, FailsWithoutDescriptors) {
  put_state("wanlink1", "connected");
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(wanlink_count(), 0);
  }
  const support::NoMoreDescriptors one(1);  // which is the folder's
  EXPECT_EQ(wanlink_count(), 0);
}

TEST_F(WanlinkCount, IsZeroWhenTheFolderCannotBeListed) {
  put_state("wanlink1", "connected");
  int count = -1;
  support::run_with_failing_calls({{support::SystemCall::kList, EIO}},
                                  [&] { count = wanlink_count(); });
  EXPECT_EQ(count, 0);
}

TEST_F(WanlinkCount, IsNotDisturbedBySignals) {
  put_state("wanlink1", "connected");
  for (const support::SystemCall call : {support::SystemCall::kOpen, support::SystemCall::kList}) {
    int count = -1;
    support::run_with_failing_calls({{call, EINTR, 0, 2}}, [&] { count = wanlink_count(); });
    EXPECT_EQ(count, 1);
  }
}

TEST_F(WanlinkCount, ReadsWithReadfile) {
  put_state("wanlink1", "  connected \n");
  const char* const text = readfile("/proc/sys/kernel/ostype");
  EXPECT_EQ(wanlink_count(), 1);
  EXPECT_STREQ(text, "connected");
}

TEST_F(WanlinkCount, IsFinishedByACancelledThread) {
  put_state("wanlink1", "connected");
  int count = 0;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { count = wanlink_count(); }));
  EXPECT_EQ(count, 1);
}

TEST_F(WanlinkCount, WorksOnASmallStack) {
  put_state("wanlink1", "connected");
  support::run_on_small_stack([] { EXPECT_EQ(wanlink_count(), 1); });
}

// ---- States

struct StateCase {
  std::string name;
  std::string text;
  bool is_active;
};

class WanlinkState : public WanLinkTest, public testing::WithParamInterface<StateCase> {};

TEST_P(WanlinkState, Counts) {
  put_state("wanlink1", GetParam().text);
  EXPECT_EQ(wanlink_count(), GetParam().is_active ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    Of, WanlinkState,
    testing::Values(
        StateCase{"AWord", "connected", true}, StateCase{"ALine", "idle\n", true},
        StateCase{"OneCharacter", "0", true}, StateCase{"Empty", "", false},
        StateCase{"ALineFeed", "\n", false}, StateCase{"Blanks", " \t\r\n ", false},
        StateCase{"Disabled", "disabled", false}, StateCase{"DisabledLine", "disabled\n", false},
        StateCase{"DisabledWithMore", "disabled by user\n", false},
        StateCase{"DisabledAndLetters", "disabledx", false},
        StateCase{"DisabledBehindBlanks", " \n\tdisabled", false},
        StateCase{"NotAllOfDisabled", "disable", true},
        StateCase{"DisabledInUpperCase", "Disabled", true},
        StateCase{"DisabledFurtherOn", "not disabled", true},
        StateCase{"DisabledInTheSecondLine", "up\ndisabled\n", true},
        StateCase{"NulFirst", "\0connected"s, false}, StateCase{"NulLine", "\0\nconnected"s, true},
        StateCase{"NulWithinDisabled", "disa\0bled"s, true},
        StateCase{"HighBytes", "\xFF\xFE", true}, StateCase{"Long", std::string(5000, 'x'), true},
        StateCase{"BlanksBeyondTheBuffer", std::string(1023, ' ') + "up", false},
        StateCase{"DisabledAtTheBuffersEnd", std::string(1015, ' ') + "disabled", false},
        StateCase{"DisabledAcrossTheBuffersEnd", std::string(1016, ' ') + "disabled", true}),
    support::CaseName());

}  // namespace
