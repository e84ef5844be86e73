// The names of interfaces as users know them.

#include <rkutils/file.h>
#include <rkutils/interface.h>

#include <filesystem>
#include <map>
#include <string>

#include <gmock/gmock.h>

#include "support/case_name.h"
#include "support/kernel_folder.h"
#include "support/open_descriptors.h"
#include "support/put_file.h"
#include "support/small_stack.h"
#include "support/syslog_collector.h"
#include "support/though_cancelled.h"

namespace {

using support::put;

struct NameCase {
  std::string name;  // of the case
  std::string kernel_name;
  std::string shown;
};

class Interfaceize : public testing::TestWithParam<NameCase> {};

TEST_P(Interfaceize, Shows) {
  EXPECT_EQ(interfaceize(GetParam().kernel_name.c_str()), GetParam().shown);
}

// ---- Letters and one number

INSTANTIATE_TEST_SUITE_P(
    Name, Interfaceize,
    testing::Values(
        NameCase{"CountsFromOne", "eth0", "ETH1"}, NameCase{"Eleventh", "eth10", "ETH11"},
        NameCase{"NinetyNine", "eth99", "ETH100"}, NameCase{"LeadingZeros", "eth007", "ETH8"},
        NameCase{"Wireless", "wlan0", "WLAN1"}, NameCase{"SecondRadio", "wlan1", "WLAN2"},
        NameCase{"Bridge", "br0", "BR1"}, NameCase{"Modem", "wwan3", "WWAN4"},
        NameCase{"Tunnel", "tun12", "TUN13"}, NameCase{"Loopback", "lo", "LO"},
        NameCase{"WithoutANumber", "lan", "LAN"}, NameCase{"UpperCaseStays", "LAN", "LAN"},
        NameCase{"MixedCase", "eTh3", "ETH4"},
        NameCase{"LettersBehindTheNumber", "eth0abc", "ETH1"},
        NameCase{"DigitsAroundLetters", "a1b2", "A13"},
        NameCase{"LettersBetweenAndBehind", "a1b2c3d", "A124"},
        NameCase{"OtherCharacters", "a_b.c:d5", "A_B.C:D6"}, NameCase{"Blanks", " e 1", " E 2"},
        NameCase{"BytesThatAreNoLetters",
                 "\xC3\xA4\xFF"
                 "1",
                 "\xC3\xA4\xFF"
                 "2"},
        NameCase{"ANumberAlone", "5", "6"}, NameCase{"Zero", "0", "1"},
        NameCase{"ADashAlone", "-", ""}, NameCase{"Empty", "", ""}),
    support::CaseName());

// ---- How much of a name counts

INSTANTIATE_TEST_SUITE_P(
    Limit, Interfaceize,
    testing::Values(NameCase{"SixDigits", "eth123456", "ETH123457"},
                    NameCase{"SevenDigits", "eth1234567", "ETH123457"},
                    NameCase{"LargestNumber", "eth999999", "ETH1000000"},
                    NameCase{"ZerosAreDigits", "eth0000001", "ETH1"},
                    NameCase{"SixDigitsOfTheSecond", "a1-123456", "A2-123457"},
                    NameCase{"SevenDigitsOfTheSecond", "a1-1234567", "A2-123457"},
                    NameCase{"FourteenLetters", "abcdefghijklmn", "ABCDEFGHIJKLMN"},
                    NameCase{"FifteenLetters", "abcdefghijklmno", "ABCDEFGHIJKLMN"},
                    NameCase{"ThirteenLettersAndADigit", "abcdefghijklm0", "ABCDEFGHIJKLM1"},
                    NameCase{"TheNumberIsCut", "abcdefghijklm99", "ABCDEFGHIJKLM1"},
                    NameCase{"NoRoomForTheNumber", "abcdefghijklmn0", "ABCDEFGHIJKLMN"},
                    NameCase{"FifteenLettersAndADigit", "abcdefghijklmno0", "ABCDEFGHIJKLMN"},
                    NameCase{"TheSecondNumberIsCut", "abcdefghij1-23", "ABCDEFGHIJ2-24"},
                    NameCase{"OfTheSecondNumberADigitIsLeft", "abcdefghijk1-23", "ABCDEFGHIJK2-2"},
                    NameCase{"OfTheSecondNumberNothingIsLeft", "abcdefghijkl1-2", "ABCDEFGHIJKL2-"},
                    NameCase{"AllNumbersAtTheirLargest", "ab999999-99999", "AB1000000-1000"},
                    NameCase{"VeryLong", std::string(5000, 'x') + "1", "XXXXXXXXXXXXXX"}),
    support::CaseName());

// ---- Dashes

INSTANTIATE_TEST_SUITE_P(
    Dash, Interfaceize,
    testing::Values(NameCase{"SecondNumber", "eth0-1", "ETH1-2"},
                    NameCase{"SecondNumberZero", "ath1-0", "ATH2-1"},
                    NameCase{"WithoutASecondNumber", "eth0-", "ETH1"},
                    NameCase{"WithLettersBehind", "eth0-abc", "ETH1"},
                    NameCase{"LettersAndASecondNumber", "eth0-vlan7", "ETH1-8"},
                    NameCase{"BeforeTheNumber", "eth-0", "ETH"},
                    NameCase{"BeforeTheLetters", "-eth0", "ETH"},
                    NameCase{"LettersBehindTheSecondNumberAlone", "eth-0abc1d", "ETHABCD"},
                    NameCase{"BetweenLetters", "my-lan", "MYLAN"},
                    NameCase{"BetweenLettersBeforeANumber", "my-lan0", "MYLAN"},
                    NameCase{"Several", "eth0--1", "ETH1-2"},
                    NameCase{"SeveralNumbers", "eth0-1-2", "ETH1-13"},
                    NameCase{"DigitsBehindStayBehind", "eth1-2a3", "ETH2-24"},
                    NameCase{"NumberAlone", "-5", ""}, NameCase{"TwoNumbersAlone", "1-1", "2-2"}),
    support::CaseName());

// ---- PPP: what is behind a name of this prefix depends on its number, or on its length

INSTANTIATE_TEST_SUITE_P(
    Ppp, Interfaceize,
    testing::Values(
        NameCase{"First", "ppp0", "PPP1"}, NameCase{"BelowSerial", "ppp9", "PPP10"},
        NameCase{"FirstSerial", "ppp10", "SERIAL1"}, NameCase{"LastSerial", "ppp19", "SERIAL10"},
        NameCase{"AboveSerial", "ppp20", "PPP21"}, NameCase{"PppoeUnits", "ppp29", "PPP30"},
        NameCase{"WithoutANumber", "ppp", "PPP"}, NameCase{"ADashBefore", "ppp-1", "PPP"},
        NameCase{"ADashBehind", "ppp1-1", "PPP2"},
        NameCase{"SerialWithADash", "ppp10-1", "SERIAL1"},
        NameCase{"SerialWithLetters", "ppp12x", "SERIAL3"},
        NameCase{"NineteenCharacters", "ppp25xxxxxxxxxxxxxx", "PPP26"},
        NameCase{"TwentyCharacters", "ppp25xxxxxxxxxxxxxxx", "PPPOE6"},
        NameCase{"TwentyNineCharacters", "ppp20" + std::string(24, 'x'), "PPPOE1"},
        NameCase{"ThirtyCharacters", "ppp20" + std::string(25, 'x'), "PPP21"},
        NameCase{"LongBelowSerial", "ppp9" + std::string(17, 'x'), "PPPOE-10"},
        NameCase{"LongSerial", "ppp19" + std::string(17, 'x'), "SERIAL10"},
        NameCase{"LongByDigits", "ppp" + std::string(17, '0'), "PPPOE-19"},
        NameCase{"LongByDashes", "ppp21" + std::string(15, '-'), "PPPOE2"},
        NameCase{"LargestNumber", "ppp999999", "PPP1000000"},
        NameCase{"LargestLongNumber", "ppp" + std::string(17, '9'), "PPPOE999980"},
        NameCase{"UpperCase", "PPP10", "PPP11"}, NameCase{"LongerPrefix", "pppx10", "PPPX11"},
        NameCase{"ShorterPrefix", "pp10", "PP11"}, NameCase{"InFront", "xppp10", "XPPP11"}),
    support::CaseName());

// ---- GRE tunnels

INSTANTIATE_TEST_SUITE_P(Gre, Interfaceize,
                         testing::Values(NameCase{"First", "gretun0", "GRE1"},
                                         NameCase{"Tenth", "gretun9", "GRE10"},
                                         NameCase{"WithADash", "gretun0-5", "GRE1"},
                                         NameCase{"WithoutANumber", "gretun", "GRETUN"},
                                         NameCase{"UpperCase", "GRETUN0", "GRETUN1"},
                                         NameCase{"LongerPrefix", "gretunx0", "GRETUNX1"},
                                         NameCase{"ShorterPrefix", "gretu0", "GRETU1"},
                                         NameCase{"OtherTunnels", "gre0", "GRE1"}),
                         support::CaseName());

// ---- Networks of radios

class InterfaceizeRadio : public testing::Test {
 protected:
  InterfaceizeRadio() : descriptors_before_(support::open_descriptors()) {}
  ~InterfaceizeRadio() override { std::filesystem::remove_all("/tmp/status"); }
  void TearDown() override {
    EXPECT_THAT(log_.take(), testing::IsEmpty());
    EXPECT_EQ(support::open_descriptors(), descriptors_before_);
  }

  static void put_status(int radio, const std::string& text) {
    put("/tmp/status/wlan/status-wlan" + std::to_string(radio), text);
  }

 private:
  support::SyslogCollector log_;
  const std::map<int, std::string> descriptors_before_;
};

TEST_F(InterfaceizeRadio, IsLeftOutWhereThereIsOne) {
  EXPECT_STREQ(interfaceize("wlan0-0"), "WLAN1");
  EXPECT_STREQ(interfaceize("wlan0-1"), "WLAN2");
  EXPECT_STREQ(interfaceize("wlan1-1"), "WLAN2");
  EXPECT_STREQ(interfaceize("wlan0-x3"), "WLAN4");
}

TEST_F(InterfaceizeRadio, IsShownWhereThereAreTwo) {
  const support::KernelFolder proc("/proc");
  proc.put("sysinfo/wlan1/type", "ac\n");
  EXPECT_STREQ(interfaceize("wlan0-0"), "WLAN1-0");
  EXPECT_STREQ(interfaceize("wlan0-1"), "WLAN1-1");
  EXPECT_STREQ(interfaceize("wlan1-2"), "WLAN2-2");
  EXPECT_STREQ(interfaceize("wlan1"), "WLAN2");
  EXPECT_STREQ(interfaceize("wlan1-"), "WLAN2");
}

TEST_F(InterfaceizeRadio, ATypeOfBlanksIsNone) {
  const support::KernelFolder proc("/proc");
  proc.put("sysinfo/wlan1/type", " \n");
  EXPECT_STREQ(interfaceize("wlan0-1"), "WLAN2");
}

TEST_F(InterfaceizeRadio, InTwoModesCountsOneMore) {
  for (const char* status : {"dualmode", "mesh-ap", "dualmode client\n", "  mesh-ap2"}) {
    put_status(0, status);
    EXPECT_STREQ(interfaceize("wlan0-0"), "WLAN2") << status;
    EXPECT_STREQ(interfaceize("wlan0-1"), "WLAN3") << status;
    EXPECT_STREQ(interfaceize("wlan1-1"), "WLAN2") << status;
    EXPECT_STREQ(interfaceize("wlan0"), "WLAN1") << status;
  }
}

TEST_F(InterfaceizeRadio, InTwoModesCountsOneMoreBehindItsNumber) {
  const support::KernelFolder proc("/proc");
  proc.put("sysinfo/wlan1/type", "n");
  for (const char* status : {"dualmode", "mesh-ap", "dualmode client\n", "  mesh-ap2"}) {
    put_status(0, status);
    EXPECT_STREQ(interfaceize("wlan0-0"), "WLAN1-1") << status;
    EXPECT_STREQ(interfaceize("wlan0-1"), "WLAN1-2") << status;
    EXPECT_STREQ(interfaceize("wlan1-1"), "WLAN2-1") << status;
  }
}

TEST_F(InterfaceizeRadio, InAnotherModeCountsAsItIs) {
  for (const char* status :
       {"", "ap", "client", "dualmod", "mesh", "mesh-a", "Dualmode", "x mesh-ap"}) {
    put_status(0, status);
    EXPECT_STREQ(interfaceize("wlan0-1"), "WLAN2") << status;
  }
}

TEST_F(InterfaceizeRadio, HasAStatusByItsFirstNumber) {
  put_status(12, "dualmode");
  EXPECT_STREQ(interfaceize("wlan12-1"), "WLAN3");
  EXPECT_STREQ(interfaceize("wlan012-1"), "WLAN3");
  EXPECT_STREQ(interfaceize("wlan1-1"), "WLAN2");
  EXPECT_STREQ(interfaceize("wlan2-1"), "WLAN2");
  put_status(999999, "mesh-ap");
  EXPECT_STREQ(interfaceize("wlan9999999-1"), "WLAN3");
}

TEST_F(InterfaceizeRadio, MayHaveMoreLettersInItsName) {
  put_status(0, "dualmode");
  EXPECT_STREQ(interfaceize("wlanguest0-1"), "WLANGUEST3");
  EXPECT_STREQ(interfaceize("xwlan0-1"), "XWLAN1-2");
  EXPECT_STREQ(interfaceize("WLAN0-1"), "WLAN1-2");
  EXPECT_STREQ(interfaceize("wla0-1"), "WLA1-2");
}

TEST_F(InterfaceizeRadio, IsReadWithReadfile) {
  put_status(0, "dualmode");
  const char* const text = readfile("/proc/sys/kernel/ostype");
  EXPECT_STREQ(text, "Linux");
  interfaceize("wlan0");
  EXPECT_STREQ(text, "Linux");
  interfaceize("wlan0-1");
  EXPECT_STREQ(text, "dualmode");
}

TEST_F(InterfaceizeRadio, IsFoundByACancelledThread) {
  put_status(0, "dualmode");
  std::string shown;
  EXPECT_TRUE(support::finishes_though_cancelled([&] { shown = interfaceize("wlan0-1"); }));
  EXPECT_EQ(shown, "WLAN3");
}

TEST_F(InterfaceizeRadio, IsFoundOnASmallStack) {
  put_status(0, "dualmode");
  support::run_on_small_stack([] { EXPECT_STREQ(interfaceize("wlan0-1"), "WLAN3"); });
}

// ---- The buffer

TEST(InterfaceizeBuffer, IsTheSameForAll) {
  char* const first = interfaceize("eth0");
  EXPECT_STREQ(first, "ETH1");
  EXPECT_EQ(interfaceize("br0"), first);
  EXPECT_STREQ(first, "BR1");
  EXPECT_EQ(interfaceize(nullptr), first);
  EXPECT_STREQ(first, "");
}

TEST(InterfaceizeBuffer, MayBeWrittenAndGivenBack) {
  char* const name = interfaceize("eth0");
  name[0] = 'v';
  EXPECT_STREQ(interfaceize(name), "VTH2");
  EXPECT_STREQ(interfaceize(name), "VTH3");
}

}  // namespace
