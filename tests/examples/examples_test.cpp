// Every example runs, and the demo shows what it promises.

#include <rkutils/event.h>
#include <rkutils/file.h>
#include <rkutils/semaphore.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <syslog.h>
#include <unistd.h>
#include <zmq.h>

#include "support/configd_stand_in.h"
#include "support/dio_stand_in.h"
#include "support/kernel_folder.h"
#include "support/network/surroundings.h"
#include "support/printing_program.h"
#include "support/private_router.h"
#include "support/put_file.h"
#include "support/run_program.h"
#include "support/syslog_collector.h"
#include "support/wwanmd_stand_in.h"

namespace {

using support::built_program;
using support::run_program;
using support::source_file;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

TEST(ConfigurationValues, PrintsTheValuesOfItsArguments) {
  support::ConfigdStandIn daemon;
  daemon.set_value("lan.address", "192.0.2.1");
  daemon.set_value("odd %s", "100%");
  const auto [output, status] = run_program(
      {built_program("examples/configuration-values"), "lan.address", "odd %s", "missing"});
  EXPECT_EQ(output, "lan.address=192.0.2.1\nodd %s=100%\nmissing=\n");
  EXPECT_EQ(status, 0);
}

TEST(ConfigurationValues, FailsWithoutTheDaemonsFolder) {
  support::SyslogCollector log;
  const auto [output, status] =
      run_program({built_program("examples/configuration-values"), "key"});
  EXPECT_EQ(output, "");
  EXPECT_EQ(status, 1);
  EXPECT_THAT(log.take(), ElementsAre(support::LogLine{LOG_ERR, "cannot bind to configd"}));
}

TEST(ShowFiles, PrintsTheTextOfEachFile) {
  ASSERT_EQ(writefile("/tmp/card0", "  registered, home "), 0);
  ASSERT_EQ(writefile("/tmp/card1", " "), 0);
  const auto [output, status] = run_program(
      {built_program("examples/show-files"), "/tmp/card0", "/tmp/card1", "/tmp/missing"});
  EXPECT_EQ(output, "card0: registered, home\ncard1: (nothing)\nmissing: (nothing)\n");
  EXPECT_EQ(status, 0);
}

TEST(ShowFiles, TakesNamesWithoutAFolderAndMayHaveNone) {
  const auto [nothing, status] = run_program({built_program("examples/show-files")});
  EXPECT_EQ(nothing, "");
  EXPECT_EQ(status, 0);
  const auto [output, other] = run_program({built_program("examples/show-files"), "absent"});
  EXPECT_EQ(output, "absent: (nothing)\n");
  EXPECT_EQ(other, 0);
}

TEST(FileDigests, PrintsTheDigestsOfFiles) {
  support::put("/tmp/abc", "abc");
  support::put("/tmp/zero", std::string(10000, '0'));
  const auto [md5, md5_status] =
      run_program({built_program("examples/file-digests"), "md5", "/tmp/abc", "/tmp/zero"});
  EXPECT_EQ(md5,
            "900150983cd24fb0d6963f7d28e17f72  /tmp/abc\n"
            "45b565af28a2998fa8d5dae7eb6e660e  /tmp/zero\n");
  EXPECT_EQ(md5_status, 0);
  const auto [sha1, sha1_status] =
      run_program({built_program("examples/file-digests"), "sha1", "/tmp/abc"});
  EXPECT_EQ(sha1, "a9993e364706816aba3e25717850c26c9cd0d89d  /tmp/abc\n");
  EXPECT_EQ(sha1_status, 0);
}

TEST(FileDigests, PrintsCodesOfFilesWithAKey) {
  support::put("/tmp/question", "what do ya want for nothing?");
  const auto [md5, md5_status] = run_program({built_program("examples/file-digests"), "hmac-md5",
                                              "Jefe", "/tmp/question", "/tmp/question"});
  EXPECT_EQ(md5,
            "750c783e6ab0b503eaa86e310a5db738  /tmp/question\n"
            "750c783e6ab0b503eaa86e310a5db738  /tmp/question\n");
  EXPECT_EQ(md5_status, 0);
  const auto [sha1, sha1_status] =
      run_program({built_program("examples/file-digests"), "hmac-sha1", "Jefe", "/tmp/question"});
  EXPECT_EQ(sha1, "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79  /tmp/question\n");
  EXPECT_EQ(sha1_status, 0);
}

TEST(FileDigests, FailsWithoutAFileOrADigest) {
  const auto [output, status] = run_program(
      {built_program("examples/file-digests"), "md5", "/tmp", "/tmp/missing", "/dev/null"});
  EXPECT_EQ(output,
            "file-digests: cannot read /tmp\n"
            "file-digests: cannot read /tmp/missing\n"
            "d41d8cd98f00b204e9800998ecf8427e  /dev/null\n");
  EXPECT_EQ(status, 1);
  for (const char* what : {"", "sha2", "hmac-", "hmac-md5"}) {
    EXPECT_EQ(run_program({built_program("examples/file-digests"), what}).status, 1) << what;
  }
}

TEST(AddressRoles, PrintsWhatEachIs) {
  const auto [output, status] =
      run_program({built_program("examples/address-roles"), "192.168.1.1/24", "192.168.1.0/24",
                   "192.168.1.255/24", "192.0.2.17", "0.0.0.0/0", "255.255.255.255"});
  EXPECT_EQ(output,
            "192.168.1.1/24: an interface in 192.168.1.0/24\n"
            "192.168.1.0/24: the network 192.168.1.0/24\n"
            "192.168.1.255/24: the broadcast of 192.168.1.0/24\n"
            "192.0.2.17: a host\n"
            "0.0.0.0/0: all other networks, for a default gateway\n"
            "255.255.255.255: the broadcast of the link\n");
  EXPECT_EQ(status, 0);
}

TEST(AddressRoles, FailsForWhatNoneCanHave) {
  const auto [output, status] = run_program(
      {built_program("examples/address-roles"), "224.0.0.1", "192.168.1.256", "10.0.0.1/8"});
  EXPECT_EQ(output,
            "224.0.0.1: of no use\n"
            "192.168.1.256: of no use\n"
            "10.0.0.1/8: an interface in 10.0.0.0/8\n");
  EXPECT_EQ(status, 1);
}

TEST(InterfaceStatus, PrintsWhatIsUpAndWhatIsNot) {
  const support::PrintingProgram brctl("/usr/sbin/brctl");
  brctl.print("br0\t\t8000.0242ac110002\tno\t\teth0\n\t\t\t\t\t\t\twlan0-1\n");
  support::put("/tmp/status/link-manager/wanlink1/state", "connected");
  support::put("/tmp/status/link-manager/wanlink2/state", "disabled");
  support::put("/tmp/status/link-manager/hotlink/interface", "wwan0");
  const auto [output, status] =
      run_program({built_program("examples/interface-status"), "lo", "br0"});
  std::filesystem::remove_all("/tmp/status");
  EXPECT_EQ(output,
            "LO (lo): up, 127.0.0.1/8\n"
            "BR1 (br0): down, bridges eth0 wlan0-1 \n"
            "links to the outside: 1, connected\n");
  EXPECT_EQ(status, 1);
}

TEST(InterfaceStatus, PrintsTheLinksAlone) {
  const auto [output, status] = run_program({built_program("examples/interface-status")});
  EXPECT_EQ(output, "links to the outside: 0, not connected\n");
  EXPECT_EQ(status, 0);
}

TEST(PingUplink, TellsWhetherAHostAnswersPastTheRoutes) {
  const support::Surroundings surroundings;
  support::SyslogCollector log;
  surroundings.router.ip("route del 10.2.0.0/24");
  const auto [output, status] =
      run_program({built_program("examples/ping-uplink"), "wan0", "10.2.0.2", "10.1.0.2"});
  EXPECT_THAT(output, testing::MatchesRegex(
                          "10\\.2\\.0\\.2: answered through wan0 after 0\\.[0-9]{6} s\n"));
  EXPECT_EQ(status, 0);
}

TEST(PingUplink, FailsWithoutAnAnswer) {
  support::SyslogCollector log;
  const auto [output, status] =
      run_program({built_program("examples/ping-uplink"), "missing0", "127.0.0.1"});
  EXPECT_EQ(output, "127.0.0.1: no answer through missing0\n");
  EXPECT_EQ(status, 1);
  EXPECT_THAT(log.take(), ElementsAre(support::LogLine{
                              LOG_ERR, "rawping[missing0]: can't get interface index (" +
                                           std::string(std::strerror(ENODEV)) + ")"}));
}

TEST(DeviceIdentity, PrintsWhatTheFilesTell) {
  const support::KernelFolder proc("/proc");
  proc.put("sysinfo/dwhw", "18\n");
  proc.put("sysinfo/bd/0/prod_name", "4600\n");
  proc.put("sysinfo/bd/1/prod_variant", "0\n");
  std::filesystem::create_directories("/etc/oem");
  std::ofstream("/etc/oem/oem.conf") << "Vendor = no key\nVendor= Example\nProductType=Gate 1\n";
  std::ofstream("/etc/default/system-info") << "VERSION=1.2.3\nNAME=\"a b\"\n";
  std::filesystem::create_directories("/tmp/progress");
  std::ofstream("/tmp/progress/swupdate") << "";
  const auto [output, status] =
      run_program({built_program("examples/device-identity"), "VERSION", "NAME", "MISSING"});
  for (const char* path : {"/etc/oem", "/etc/default/system-info", "/tmp/progress"}) {
    std::filesystem::remove_all(path);
  }
  EXPECT_EQ(output,
            "vendor   Example\n"
            "product  Gate 1\n"
            "hardware type 18, extension board 0, PoE\n"
            "VERSION=1.2.3\n"
            "NAME=a b\n"
            "MISSING=\n"
            "maintenance is running: do not switch off\n");
  EXPECT_EQ(status, 0);
}

TEST(DeviceIdentity, PrintsWhatItIsWithoutThem) {
  const auto [output, status] = run_program({built_program("examples/device-identity"), "VERSION"});
  EXPECT_EQ(output,
            "vendor   unknown\n"
            "product  DW\n"
            "hardware type -1, extension board -1\n"
            "VERSION=\n"
            "no maintenance\n");
  EXPECT_EQ(status, 0);
}

TEST(RunCommands, TellsHowEachComesOut) {
  const auto [output, status] = run_program(
      {built_program("examples/run-commands"), "echo one; echo two", "true", "exit 3",
       "echo left > /tmp/left.new; mv /tmp/left.new /tmp/left &", std::string(256, ' ') + "&"});
  EXPECT_EQ(output,
            "echo one; echo two is done: one\n"
            "true is done\n"
            "exit 3 has failed\n"
            "echo left > /tmp/left.new; mv /tmp/left.new /tmp/left & runs by itself\n" +
                std::string(256, ' ') + "& is too long\n");
  EXPECT_EQ(status, 0);
  for (int waits = 0; std::string(readfile("/tmp/left")) != "left" && waits < 10000; ++waits) {
    ::usleep(1000);
  }
  EXPECT_STREQ(readfile("/tmp/left"), "left");
  EXPECT_EQ(dropfile("/tmp/left"), 0);
}

class ConfigurationFile : public testing::Test {
 protected:
  ConfigurationFile() {
    std::ofstream("/tmp/uplink.conf") << "mtu = 1430\ninclude mobile.conf\nmtu = 1400\n";
    std::ofstream("/tmp/mobile.conf") << "# The provider's\napn = internet.example\n";
  }

  support::Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), built_program("examples/configuration-file"));
    return run_program(arguments);
  }
};

TEST_F(ConfigurationFile, PrintsAllEntriesOfAFile) {
  const auto [output, status] = run({"/tmp/uplink.conf"});
  EXPECT_EQ(output, "mtu=1430\napn=internet.example\nmtu=1400\n");
  EXPECT_EQ(status, 0);
}

TEST_F(ConfigurationFile, PrintsTheValuesOfKeys) {
  const auto [output, status] = run({"/tmp/uplink.conf", "apn", "mtu"});
  EXPECT_EQ(output, "apn=internet.example (-1)\nmtu=1400 (1400)\n");
  EXPECT_EQ(status, 0);
}

TEST_F(ConfigurationFile, FailsForAMissingKeyOrFile) {
  EXPECT_EQ(run({"/tmp/uplink.conf", "pin"}).output, "no pin\n");
  EXPECT_EQ(run({"/tmp/uplink.conf", "pin"}).status, 1);
  support::SyslogCollector log;
  EXPECT_EQ(run({"/tmp/missing.conf"}).status, 1);
  EXPECT_EQ(run({"/tmp/missing.conf", "mtu"}).status, 1);
  const support::LogLine expected = {LOG_ERR, "cfread: unable to open /tmp/missing.conf"};
  EXPECT_THAT(log.take(), ElementsAre(expected, expected));
}

// What the program says while it takes orders from here.
TEST(DialerStatus, PublishesItsStateAndTakesOrders) {
  support::Outcome outcome;
  std::thread program([&] { outcome = run_program({built_program("examples/dialer-status")}); });
  const auto state_becomes = [](const std::string& state) {
    for (int tries = 0; tries < 1000; ++tries) {
      if (readfile("/tmp/status/dialer/state") == state) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  };
  const auto order = [](const std::string& text) {
    std::ofstream("/tmp/status/dialer/order") << text << std::flush;
  };
  EXPECT_TRUE(state_becomes("offline"));
  order("dial\n");
  EXPECT_TRUE(state_becomes("online"));
  EXPECT_EQ(std::filesystem::read_symlink("/tmp/status/dialer/uplink"), "/tmp/status/wwanmd/card1");
  order("hang-");
  order("up\nand so on\nquit\n");
  program.join();
  EXPECT_EQ(outcome.output,
            "order: dial\norder: hang-up\norder: and so on\nthat is none\norder: quit\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_STREQ(readfile("/tmp/status/dialer/state"), "offline");
  EXPECT_FALSE(std::filesystem::exists("/tmp/status/dialer/order"));
  EXPECT_FALSE(std::filesystem::is_symlink("/tmp/status/dialer/uplink"));
  std::filesystem::remove_all("/tmp/status");
}

TEST(DialerStatus, FailsWithoutItsFolder) {
  support::SyslogCollector log;
  std::ofstream("/tmp/status") << "in the way";
  const auto [output, status] = run_program({built_program("examples/dialer-status")});
  std::filesystem::remove("/tmp/status");
  EXPECT_EQ(output, "");
  EXPECT_EQ(status, 1);
  const std::string folder = "/tmp/status/dialer";
  EXPECT_THAT(log.take(),
              ElementsAre(support::LogLine{LOG_ERR, "Could not create directory " + folder +
                                                        ". Errno:" + std::to_string(ENOTDIR) + "!"},
                          support::LogLine{
                              LOG_ERR, "Could not setup status interface for " + folder + "!"}));
}

class DigitalIo : public testing::Test {
 protected:
  void SetUp() override {
    try {
      driver_.emplace(2, 1);
    } catch (const support::StandInRefused& refusal) {
      GTEST_SKIP() << refusal.what();
    }
  }

  static support::Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), built_program("examples/digital-io"));
    return run_program(arguments);
  }

  std::optional<support::DioStandIn> driver_;
};

TEST_F(DigitalIo, PrintsAllValues) {
  driver_->set_contents("din2/value", "1");
  const auto [output, status] = run({});
  EXPECT_EQ(output, "input 1: 0\ninput 2: 1\noutput 1: 0\n");
  EXPECT_EQ(status, 0);
}

TEST_F(DigitalIo, SwitchesAnOutput) {
  EXPECT_EQ(run({"switch", "1", "1"}).status, 0);
  EXPECT_EQ(driver_->contents("dout1/value"), "1");
  EXPECT_EQ(run({"switch", "1", "0"}).status, 0);
  EXPECT_EQ(driver_->contents("dout1/value"), "0");
}

TEST_F(DigitalIo, MeasuresAFrequency) {
  driver_->set_measured(2, "1 20 50\n");
  EXPECT_EQ(run({"measure", "2"}).output, "1 20 50\n");
  EXPECT_EQ(driver_->contents("din2/frequency"), "0 0 0\n");
}

TEST_F(DigitalIo, LeavesAMeasurementThatIsUnderWay) {
  ASSERT_EQ(run({"measure", "1"}).status, 0);
  driver_->set_contents("din1/frequency", "3 2 1\n");
  driver_->fail("write", "din1/frequency", EEXIST);
  support::SyslogCollector log;
  const auto [output, status] = run({"measure", "1"});
  EXPECT_EQ(output, "3 2 1\n");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(driver_->contents("din1/frequency"), "3 2 1\n");
  EXPECT_THAT(log.take(), testing::SizeIs(1));
}

TEST_F(DigitalIo, TellsTheResultOfAFailure) {
  support::SyslogCollector log;
  const auto [output, status] = run({"switch", "2", "1"});
  EXPECT_EQ(output, "failed: 2\n");
  EXPECT_EQ(status, 1);
  EXPECT_EQ(run({"measure", "0"}).output, "failed: 1\n");
  EXPECT_EQ(run({"switch"}).status, 1);
  EXPECT_THAT(log.take(), testing::SizeIs(2));
}

TEST_F(DigitalIo, TakesNumbersOf32BitsAlone) {
  const std::string refusal = "digital-io: no number from 0 to ";
  for (const char* const text : {"4294967297", ""}) {
    const std::string expected = refusal + "4294967295: " + text + '\n';
    EXPECT_EQ(run({"switch", text, "1"}).output, expected);
    EXPECT_EQ(run({"measure", text}).output, expected);
  }
  for (const char* const text : {"2", "on"}) {
    const auto [output, status] = run({"switch", "1", text});
    EXPECT_EQ(output, refusal + "1: " + text + '\n');
    EXPECT_EQ(status, 1);
  }
  EXPECT_EQ(driver_->contents("dout1/value"), "0");
}

// A program that has not counted yet.
TEST(DigitalIoWithoutADriver, CountsNothing) {
  const support::KernelFolder sys("/sys");
  EXPECT_EQ(run_program({built_program("examples/digital-io")}).output, "");
  sys.put("devices/halcyonix", "a file in its place");
  support::SyslogCollector log;
  const auto [output, status] = run_program({built_program("examples/digital-io")});
  EXPECT_EQ(output, "");
  EXPECT_EQ(status, 0);
  const support::LogLine expected = {
      LOG_ERR,
      std::string("Can't scandir(/sys/devices/halcyonix/) - (") + std::strerror(ENOTDIR) + ")"};
  EXPECT_THAT(log.take(), ElementsAre(expected, expected));
}

class StorageMedia : public testing::Test {
 protected:
  StorageMedia() {
    sys_.make_folder("class/block");
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/block")) {
      std::filesystem::remove(entry.path());
    }
    for (const char* link : {"../ata1/sdy", "../usb1/1-1/sdz"}) {
      const std::filesystem::path text(link);
      std::filesystem::create_symlink(text, "/sys/class/block" / text.filename());
    }
    proc_.put("sysinfo/usbport1/usbName", "1-1\n");
    proc_.put("mounts", "/dev/sdy /nvstatus/missing ext4 rw 0 0\n");
  }

  static support::Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), built_program("examples/storage-media"));
    return run_program(arguments);
  }

  const support::KernelFolder sys_{"/sys"};
  const support::KernelFolder proc_{"/proc"};
};

TEST_F(StorageMedia, PrintsTheListAndTheSupply) {
  sys_.put("bus/iio/devices/iio:device0/in_voltage0_raw", "1000\n");
  sys_.put("bus/iio/devices/iio:device0/in_voltage_scale", "0.4\n");
  const auto [output, status] = run({});
  EXPECT_EQ(output,
            "external 1: sdy, cannot be opened, at /nvstatus/missing\n"
            "usb 1: sdz, cannot be opened\n"
            "supply: 12152 mV\n");
  EXPECT_EQ(status, 0);
}

TEST_F(StorageMedia, PrintsSizesAndUsage) {
  proc_.put("mounts", "/dev/sdy /tmp tmpfs rw 0 0\n");
  support::put("/dev/sdy", "");  // which does not tell its size
  const auto [output, status] = run({"external"});
  std::filesystem::remove("/dev/sdy");
  EXPECT_THAT(output, testing::MatchesRegex("external 1: sdy, at /tmp, [0-9]+ of [0-9]+ free\n"));
  EXPECT_EQ(status, 0);
}

TEST_F(StorageMedia, PrintsTheKindsThatItIsAskedFor) {
  EXPECT_EQ(run({"usb", "flash"}).output, "usb 1: sdz, cannot be opened\n");
  EXPECT_EQ(run({"data"}).output, "");
  EXPECT_EQ(run({"disk"}).status, 1);
}

class EventLog : public testing::Test {
 protected:
  EventLog() {
    std::filesystem::create_directory("/var/log");
    if (!std::filesystem::exists("/etc/fstab")) support::put("/etc/fstab", "");  // as on a router
  }
  ~EventLog() override { std::filesystem::remove_all("/var/log"); }

  static support::Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), built_program("examples/event-log"));
    return run_program(arguments);
  }
};

TEST_F(EventLog, AddsAndPrintsEntries) {
  EXPECT_EQ(run({"add", "12", "SIM card changed"}).status, 0);
  EXPECT_EQ(run({"add", "-3", "door opened"}).status, 0);
  const auto [output, status] = run({});
  EXPECT_EQ(status, 0);
  const std::string time = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}";
  EXPECT_THAT(output, testing::MatchesRegex("-3: " + time + " door opened\n12: " + time +
                                            " SIM card changed\n"));
}

TEST_F(EventLog, IsCleared) {
  EXPECT_EQ(run({"add", "1", "text"}).status, 0);
  EXPECT_EQ(run({"clear"}).status, 0);
  EXPECT_EQ(run({}).output, "");
}

TEST_F(EventLog, TakesNumbersOf32BitsAlone) {
  for (const char* const text : {"4294967297", "-2147483649", "12h"}) {
    const auto [output, status] = run({"add", text, "text"});
    EXPECT_EQ(output, std::string("event-log: no number: ") + text + '\n');
    EXPECT_EQ(status, 1);
  }
  EXPECT_EQ(run({}).output, "");
}

TEST_F(EventLog, SaysWhatFails) {
  EXPECT_EQ(run({"add", "1", ""}).status, 1);
  std::filesystem::remove_all("/var/log");
  const auto [output, status] = run({"add", "1", "text"});
  EXPECT_EQ(output, std::string("open: ") + std::strerror(ENOENT) + "\n");
  EXPECT_EQ(status, 1);
  EXPECT_EQ(run({"print"}).status, 1);
}

class ModemCommand : public testing::Test {
 protected:
  static support::Outcome run(const std::string& card, const std::string& command) {
    return run_program({built_program("examples/modem-command"), card, command});
  }

  support::SyslogCollector log_;
  support::WwanmdStandIn daemon_{10};
};

TEST_F(ModemCommand, PrintsTheAnswer) {
  daemon_.command(R"(answer "signal" "OK-71 dBm")");
  const auto [output, status] = run("10", "signal");
  EXPECT_EQ(output, "-71 dBm\n");
  EXPECT_EQ(status, 0);
  EXPECT_THAT(daemon_.take_received(), ElementsAre("init modem-command\n", "signal\n"));
}

TEST_F(ModemCommand, PrintsWhyItIsNotDone) {
  daemon_.command(R"(plan 1 answer)");
  daemon_.command(R"(plan 1 send "ERRORno SIM")");
  const auto [output, status] = run("10", "signal");
  EXPECT_EQ(output, "not done: no SIM\n");
  EXPECT_EQ(status, 1);
}

TEST_F(ModemCommand, TellsThatNoAnswerCame) {
  daemon_.command("plan 1 answer");
  daemon_.command("plan 1 close");
  const auto [output, status] = run("10", "signal");
  EXPECT_EQ(output, "no answer\n");
  EXPECT_EQ(status, 1);
}

TEST_F(ModemCommand, TellsOfASuspendedCard) {
  support::put("/tmp/status/wwanmd/card10/suspended", "");
  const auto [output, status] = run("10", "signal");
  std::filesystem::remove_all("/tmp/status");
  EXPECT_EQ(output, "card 10 is suspended\n\n");
  EXPECT_EQ(status, 0);
}

TEST_F(ModemCommand, TakesNumbersOf32BitsAlone) {
  for (const char* const text : {"4294967306", "10x", "ten"}) {
    const auto [output, status] = run(text, "signal");
    EXPECT_EQ(output, "usage: modem-command CARD COMMAND\n");
    EXPECT_EQ(status, 1);
  }
  EXPECT_THAT(daemon_.take_received(), testing::IsEmpty());
}

TEST_F(ModemCommand, FailsWithoutACardOrItsDaemon) {
  EXPECT_EQ(run("9", "signal").status, 1);
  EXPECT_EQ(run("11", "signal").status, 1);
  EXPECT_EQ(run_program({built_program("examples/modem-command"), "10"}).status, 1);
  const support::LogLine invalid = {LOG_ERR, "invalid wwan card 9"};
  EXPECT_THAT(log_.take(),
              ElementsAre(invalid, invalid,
                          support::LogLine{LOG_DEBUG, std::string("can't bind to wwanmd11 (") +
                                                          std::strerror(ENOENT) + ")"}));
}

class LockedRun : public testing::Test {
 protected:
  ~LockedRun() override { std::filesystem::remove("/dev/shm/locked-run-test"); }

  static support::Outcome run(const std::string& command) {
    return run_program({built_program("examples/locked-run"), "/locked-run-test", command});
  }

  static support::Outcome try_to_run(const std::string& command) {
    return run_program({built_program("examples/locked-run"), "-n", "/locked-run-test", command});
  }
};

TEST_F(LockedRun, ExitsAsTheCommandDoes) {
  EXPECT_EQ(run("echo one").output, "one\n");
  EXPECT_EQ(run("exit 3").status, 3);
  EXPECT_EQ(try_to_run("exit 0").status, 0);
}

TEST_F(LockedRun, RunsOneCommandAtATime) {
  const std::string command = "cat /tmp/running; echo 1 > /tmp/running; sleep 0.1; > /tmp/running";
  std::ofstream("/tmp/running") << "";
  std::array<support::Outcome, 3> outcomes;
  std::array<std::thread, 3> threads;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    threads[i] = std::thread([&outcomes, &command, i] { outcomes[i] = run(command); });
  }
  for (std::thread& thread : threads) thread.join();
  for (const support::Outcome& outcome : outcomes) {
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.status, 0);
  }
  std::filesystem::remove("/tmp/running");
}

TEST_F(LockedRun, DoesNotWaitIfItIsNotTo) {
  CRecursiveSemaphore lock("/locked-run-test");
  ASSERT_EQ(lock.lock(), 0);
  const auto [output, status] = try_to_run("true");
  EXPECT_EQ(lock.unlock(), 0);
  EXPECT_EQ(output, "another command is running\n");
  EXPECT_EQ(status, 1);
}

TEST_F(LockedRun, TellsThatTheLastOneDied) {
  EXPECT_EQ(run("kill -9 $PPID").status, 128 + 9);
  const auto [output, status] = run("echo two");
  EXPECT_EQ(output, "whoever had the lock last died before its command ended\ntwo\n");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(run("echo three").output, "three\n");
}

TEST_F(LockedRun, FailsWithoutALock) {
  support::SyslogCollector log;
  const auto [output, status] =
      run_program({built_program("examples/locked-run"), "/no/lock", "true"});
  EXPECT_EQ(output, "no lock: see the log\n");
  EXPECT_EQ(status, 1);
  EXPECT_THAT(log.take(), testing::SizeIs(1));
  EXPECT_EQ(run_program({built_program("examples/locked-run"), "-n", "/no"}).status, 1);
}

// Runs it below so many shells.
support::Outcome show_processes_below(int shells, const std::string& text) {
  std::string command = built_program("examples/show-processes") + " " + text;
  for (; shells > 0; --shells) {
    // A shell would become the command if nothing were behind it.
    std::ofstream("/tmp/show-" + std::to_string(shells)) << command << "; exit $?\n";
    command = "sh /tmp/show-" + std::to_string(shells);
  }
  return run_program({"sh", "-c", "exec " + command});
}

TEST(ShowProcesses, TellsWhoAsksBelowShells) {
  std::ifstream file("/proc/self/comm");
  std::string name;
  std::getline(file, name);
  for (const int shells : {0, 1, 2}) {
    const auto [output, status] = show_processes_below(shells, "no-such-process");
    EXPECT_THAT(output, StartsWith(name + " asks\n0 of ")) << shells;
    EXPECT_EQ(status, 1);
  }
  for (const int shells : {3, 4}) {
    EXPECT_THAT(show_processes_below(shells, "no-such-process").output,
                StartsWith("somebody asks\n"));
  }
}

TEST(ShowProcesses, FindsItself) {
  const std::string program = built_program("examples/show-processes");
  const auto [output, status] = run_program({program, program});
  EXPECT_THAT(output, testing::ContainsRegex("\n[0-9]+ \\(.*examples_test\\) " + program + " " +
                                             program + "\n1 of [0-9]+\n"));
  EXPECT_EQ(status, 0);
}

TEST(ShowProcesses, ShowsAllWithoutAText) {
  const auto [output, status] = run_program({built_program("examples/show-processes")});
  EXPECT_THAT(output, HasSubstr("\n1 () "));
  const auto lines = std::count(output.begin(), output.end(), '\n') - 2;
  const std::string count = std::to_string(lines);
  EXPECT_THAT(output, testing::EndsWith("\n" + count + " of " + count + "\n"));
  EXPECT_EQ(status, 0);
}

TEST(Events, RaisesAnEvent) {
  const std::string program = built_program("examples/events");
  EXPECT_EQ(run_program({program, "raise", "1", "2", "text"}).output, "no event manager\n");
  std::filesystem::create_directories("/tmp/status/event-manager");
  std::ofstream("/tmp/status/event-manager/throw") << "";
  const auto [output, status] = run_program({program, "raise", "65", "66", "wwan0"});
  EXPECT_EQ(output, "");
  EXPECT_EQ(status, 0);
  std::ifstream written("/tmp/status/event-manager/throw");
  std::string record(200, '\0');
  written.read(record.data(), 200);
  EXPECT_EQ(written.gcount(), 136);
  const rkevent_record expected = {65, 66, "wwan0"};
  EXPECT_EQ(std::memcmp(record.data(), &expected, sizeof expected), 0);
  std::filesystem::remove_all("/tmp/status");
}

TEST(Events, PrintsThoseOfASource) {
  void* const context = zmq_ctx_new();
  void* const source = create_legacy_source(context);
  std::atomic<bool> done = false;
  std::thread dispatcher([&] {
    const rkevent_record record = {7, 8, "link up"};
    while (!done) {  // it is not told when the program has come
      dispatch_legacy_event(source, &record);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  const auto [output, status] = run_program({built_program("examples/events"), "print", "2"});
  done = true;
  dispatcher.join();
  zmq_close(source);
  zmq_ctx_term(context);
  EXPECT_EQ(output, "event 7, parameter 8: link up\nevent 7, parameter 8: link up\n");
  EXPECT_EQ(status, 0);
}

TEST(Events, TakesNumbersOf32BitsAlone) {
  const std::string program = built_program("examples/events");
  for (const char* const text : {"4294967296", "0x41"}) {
    const std::string refusal = std::string("events: no number: ") + text + '\n';
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"raise", text, "2"},
                                                      {"raise", "1", text},
                                                      {"print", text, "nowhere"}}) {
      std::vector<std::string> words = {program};
      words.insert(words.end(), arguments.begin(), arguments.end());
      const auto [output, status] = run_program(words);
      EXPECT_EQ(output, refusal);
      EXPECT_EQ(status, 1);
    }
  }
}

TEST(Events, PrintsNothingOfAnAddressThatIsNone) {
  const auto [output, status] =
      run_program({built_program("examples/events"), "print", "2", "nowhere"});
  EXPECT_EQ(output, "no sink: Invalid argument\n");
  EXPECT_EQ(status, 1);
}

TEST(Sms, SendsAMessage) {
  EXPECT_EQ(run_program({built_program("examples/sms"), "+49301", "Hello"}).status, 1);
  support::put("/usr/local/sbin/send-sms", "#!/bin/sh\ncat \"$1\"\nrm \"$1\"\n");
  std::filesystem::permissions("/usr/local/sbin/send-sms", std::filesystem::perms::all);
  const auto [output, status] = run_program({built_program("examples/sms"), "+49301", "Hello"});
  std::filesystem::remove("/usr/local/sbin/send-sms");
  EXPECT_EQ(output, "To: +49301\n\nHello\n");
  EXPECT_EQ(status, 0);
}

TEST(Sms, PrintsAndRemovesWhatHasCome) {
  support::put("/var/spool/sms/incoming/1", "From: +49301\nReceived: 09:00\n\nHello\n");
  support::put("/var/spool/sms/incoming/2", "no message");
  support::SyslogCollector log;
  const auto [output, status] = run_program({built_program("examples/sms")});
  EXPECT_EQ(output, "+49301, 09:00:\nHello\n\n");
  EXPECT_EQ(status, 0);
  EXPECT_THAT(log.take(), testing::SizeIs(1));
  EXPECT_FALSE(std::filesystem::exists("/var/spool/sms/incoming/1"));
  EXPECT_TRUE(std::filesystem::exists("/var/spool/sms/incoming/2"));
  std::filesystem::remove_all("/var/spool/sms");
}

TEST(Routes, PrintsTheInterfaces) {
  ASSERT_EQ(run_program({"ip", "link", "add", "wan0", "type", "bridge"}).status, 0);
  ASSERT_EQ(run_program({"ip", "link", "set", "wan0", "up"}).status, 0);
  ASSERT_EQ(run_program({"ip", "route", "add", "192.0.2.0/24", "dev", "wan0"}).status, 0);
  const auto [output, status] = run_program(
      {built_program("examples/routes"), "-b", "wan0", "192.0.2.17", "127.0.0.1", "::1"});
  EXPECT_EQ(output, "192.0.2.17: wan0\n127.0.0.1: lo\n::1: lo\n");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(run_program({"ip", "link", "del", "wan0"}).status, 0);
}

TEST(Routes, TellsWhatHasNone) {
  const auto [output, status] =
      run_program({built_program("examples/routes"), "-x", "wan9", "198.51.100.1", "example"});
  EXPECT_EQ(output, "wan9: no such interface\n198.51.100.1: no way there\nexample: no address\n");
  EXPECT_EQ(status, 1);
}

TEST(ConnectedInputs, PrintsWhatThePlugInTells) {
  support::SyslogCollector log;
  const std::string plug_in = built_program("examples/cabinet.so");
  const auto [output, status] =
      run_program({built_program("examples/connected-inputs"), plug_in, "12"});
  EXPECT_EQ(output, "input 1: cabinet 12 opened, cabinet 12 closed\n");
  EXPECT_EQ(status, 0);
  const auto debug = [&plug_in](const std::string& what) {
    return support::LogLine{LOG_DEBUG, what + " shared library \"" + plug_in + '"'};
  };
  EXPECT_THAT(log.take(), ElementsAre(debug("opened"), debug("calling init function for"),
                                      debug("Retrieving classfactory from"),
                                      debug("Calling done function for"), debug("closing")));
}

TEST(ConnectedInputs, FailsWithoutAPlugIn) {
  support::SyslogCollector log;
  const auto [output, status] =
      run_program({built_program("examples/connected-inputs"), "/tmp/missing.so", "12"});
  EXPECT_THAT(output, testing::AllOf(StartsWith("no plug-in: "), HasSubstr("/tmp/missing.so")));
  EXPECT_EQ(status, 1);
  EXPECT_THAT(log.take(), testing::SizeIs(1));
  EXPECT_EQ(run_program({built_program("examples/connected-inputs")}).status, 1);
}

TEST(ConnectedInputs, FailsForALibraryThatIsNoPlugIn) {
  support::SyslogCollector log;
  const std::string library = built_program("tests/processes/plug-in-bare.so");
  const auto [output, status] =
      run_program({built_program("examples/connected-inputs"), library, "12"});
  EXPECT_EQ(output, "");
  EXPECT_EQ(status, 1);
  EXPECT_THAT(log.take(), testing::Contains(support::LogLine{
                              LOG_ERR, "Symbol \"getClassFactory\" not found in shared library \"" +
                                           library + '"'}));
}

class UplinkDaemon : public testing::Test {
 protected:
  UplinkDaemon() {
    std::filesystem::copy(source_file("examples/uplink"), kFolder);
    daemon_.set_value("uplink.apn", "internet.example");
    modem_.command(R"(answer "connect internet.example" "OKregistered")");
  }
  ~UplinkDaemon() override { std::filesystem::remove_all(kFolder); }

  static support::Outcome run(const std::string& rounds) {
    return run_program({built_program("examples/uplink-daemon"), rounds});
  }

  static constexpr char kFolder[] = "/etc/uplink";
  support::ConfigdStandIn daemon_;
  support::WwanmdStandIn modem_{0};
  support::SyslogCollector log_;
};

TEST_F(UplinkDaemon, StoresItsStateAndConnectsOnce) {
  const auto [output, status] = run("2");
  EXPECT_EQ(output,
            "looking after the uplink of a DW\n"
            "settings from configd: apn internet.example, user , mtu \n"
            "storing two values\n"
            "the changes are in force\n"
            "the modem answers: registered\n"
            "settings from configd: apn internet.example, user , mtu \n");
  EXPECT_EQ(status, 0);
  EXPECT_THAT(modem_.take_received(),
              ElementsAre("init uplink-daemon\n", "connect internet.example\n"));
  EXPECT_EQ(daemon_.saved_values()["uplink.state"], "up");
  EXPECT_EQ(daemon_.saved_values()["uplink.apn.used"], "internet.example");
}

TEST_F(UplinkDaemon, TakesANumberOf32BitsAlone) {
  for (const char* const text : {"4294967297", "two"}) {
    const auto [output, status] = run(text);
    EXPECT_EQ(output, "usage: uplink-daemon [ROUNDS]\n");
    EXPECT_EQ(status, 1);
  }
}

TEST_F(UplinkDaemon, GoesByItsFilesWithoutConfigd) {
  daemon_.kill();
  const auto [output, status] = run("1");
  EXPECT_EQ(output,
            "looking after the uplink of a DW\n"
            "no configd, settings from the file: apn fallback.example, user guest, mtu 1280\n");
  EXPECT_EQ(status, 0);
  EXPECT_THAT(log_.take(), ElementsAre(support::LogLine{LOG_ERR, "unable to send query to configd"},
                                       support::LogLine{LOG_ERR, "configd_get failed"}));
}

TEST_F(UplinkDaemon, GoesOnWithWhatItKnowsWithoutAFile) {
  daemon_.kill();
  std::filesystem::remove_all(kFolder);
  const auto [output, status] = run("1");
  EXPECT_EQ(output,
            "looking after the uplink of a DW\n"
            "neither configd nor the file, going on with: apn , user , mtu \n");
  EXPECT_EQ(status, 0);
  EXPECT_THAT(
      log_.take(),
      ElementsAre(support::LogLine{LOG_ERR, "unable to send query to configd"},
                  support::LogLine{LOG_ERR, "configd_get failed"},
                  support::LogLine{LOG_ERR, "cfread: unable to open /etc/uplink/uplink.conf"}));
}

TEST_F(UplinkDaemon, ConnectsWhenTheModemCan) {
  modem_.command("plan 1 answer");
  modem_.command(R"(plan 1 send "ERRORno SIM")");
  const auto [output, status] = run("2");
  EXPECT_EQ(output,
            "looking after the uplink of a DW\n"
            "settings from configd: apn internet.example, user , mtu \n"
            "storing two values\n"
            "the changes are in force\n"
            "the modem does not connect\n"
            "settings from configd: apn internet.example, user , mtu \n"
            "the modem answers: registered\n");
  EXPECT_EQ(status, 0);
}

TEST_F(UplinkDaemon, GoesOnWithoutTheModemDaemon) {
  modem_.kill();
  const auto [output, status] = run("1");
  EXPECT_EQ(output,
            "looking after the uplink of a DW\n"
            "settings from configd: apn internet.example, user , mtu \n"
            "storing two values\n"
            "the changes are in force\n"
            "the modem does not connect\n");
  EXPECT_EQ(status, 0);
}

TEST_F(UplinkDaemon, GoesOnWithoutThePlugIn) {
  daemon_.set_value("uplink.inputs", "/tmp/missing.so");
  const auto [output, status] = run("1");
  EXPECT_THAT(output, testing::Not(HasSubstr("watching")));
  EXPECT_EQ(status, 0);
  EXPECT_THAT(log_.take(), testing::Contains(testing::Field(
                               &support::LogLine::text,
                               StartsWith("Unable to open shared library \"/tmp/missing.so\""))));
}

TEST_F(UplinkDaemon, WatchesNoInputsWithoutTheDriver) {
  daemon_.set_value("uplink.inputs", built_program("examples/cabinet.so"));
  const auto [output, status] = run("2");
  EXPECT_THAT(output, HasSubstr("the modem answers: registered\nwatching 0 inputs\n"));
  EXPECT_THAT(output, testing::Not(HasSubstr("input 1")));
  EXPECT_EQ(status, 0);
}

// Whether the machine lets the demo have a driver of inputs.
bool has_driver() {
  try {
    const support::DioStandIn driver(0, 0);
    return true;
  } catch (const support::StandInRefused&) {
    return false;
  }
}

// Each text follows the one before it.
void expect_in_order(const std::string& output, const std::vector<std::string>& scenes) {
  std::size_t at = 0;
  for (const std::string& scene : scenes) {
    const std::size_t found = output.find(scene, at);
    ASSERT_NE(found, std::string::npos) << scene << " does not follow in\n" << output;
    at = found + scene.size();
  }
}

TEST(Demo, ShowsABatchChangesBusyDaemonsAFallbackARestartAndADoor) {
  const bool with_driver = has_driver();
  const auto [output, status] = run_program(
      {built_program("tests/support/demo-stage"), built_program("examples/uplink-daemon"),
       source_file("examples/uplink"), built_program("examples/cabinet.so")});
  EXPECT_EQ(status, 0);
  const std::vector<std::string> scenes = {
      "uplink.state=down",
      "include provider.conf",
      "uplink.apn = fallback.example",
      "looking after the uplink of a DW4600\n",
      "sda is at /tmp/stick, with 16 MB free\n",
      "-> configd    \"?uplink.apn\\n\\0\"",
      "<- configd    \"internet.example\\n\\0\"",
      "-> configd    \"?uplink.mtu\\n\\0\"",
      "settings from configd: apn internet.example, user router, mtu 1430\n",
      "-> configd    \"uplink.state=up\\nuplink.apn.used=internet.example\\n\\0\"",
      "-> configd    \"Done\\n\"",
      "<- configd    \"Busy\"",
      "<- configd    \"Ready\"",
      "configd is killed",
      "-> wwanmd     \"init uplink-daemon\\n\"",
      "-> wwanmd     \"connect internet.example\\n\"",
      "<- wwanmd     \"BUSY\"",
      "syslog debug    wwanmd0 is busy, remaining timeout is ",
      "<- wwanmd     \"OKregistered with Example Mobile\"",
      "the modem answers: registered with Example Mobile\n",
      "syslog debug    10.1.0.2 goes to wan0",
      "10.1.0.2 is reached through wan0\n",
      "syslog debug    icmpping: packet transmitted on wan0 for 10.1.0.2 (64 bytes, id 1, seq 0)",
      "the gateway 10.1.0.2 answers\n",
      "no route leads to 10.2.0.2\n",
      "rawping[wan0]: cannot ping 10.2.0.2 directly, must use gateway 10.1.0.2",
      "rawping[wan0] => sending raw ping to 10.2.0.2",
      "rawping[wan0]: raw packet transmitted for 10.2.0.2 (48 bytes)",
      "rawping[wan0]: raw ping to 10.2.0.2 succeeded",
      "behind it 10.2.0.2 answers\n",
      "syslog debug    opened shared library \"/usr/lib/uplink/cabinet.so\"",
      "syslog debug    calling init function for shared library",
      "syslog debug    Retrieving classfactory from shared library",
      with_driver ? "watching 2 inputs\n" : "watching 0 inputs\n",
      "syslog err      unable to send query to configd",
      "no configd, settings from the file: apn fallback.example, user guest, mtu 1280\n",
      "configd is started again",
      "settings from configd: apn internet.example, user router, mtu 1430\n",
      "syslog debug    Calling done function for shared library",
      "syslog debug    closing shared library",
      "uplink.state=up",
  };
  expect_in_order(output, scenes);
  if (!with_driver) {
    EXPECT_THAT(output, HasSubstr("There is no driver of inputs on this machine: "));
    return;
  }
  const std::vector<std::string> door = {
      "<- driver     din1/value \"0\"",
      "<- driver     din2/value \"0\"",
      "watching 2 inputs\n",
      "somebody opens the door at input 1",
      "<- driver     din1/value \"1\"",
      "input 1 is on: cabinet 12 opened\n",
      "and closes it",
      "<- driver     din1/value \"0\"",
      "input 1 is off: cabinet 12 closed\n",
      "The persistent log, newest first:",
      " cabinet 12 closed\n",
      " cabinet 12 opened\n",
  };
  expect_in_order(output, door);
}

}  // namespace
