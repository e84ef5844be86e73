// Sending: the file, the tool, and what becomes of both.

#include <rkutils/simple_sms.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "../foundations/file_fixture.h"
#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/failing_calls.h"
#include "support/open_descriptors.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"

namespace {

using namespace std::string_literals;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

constexpr char kTool[] = "/usr/local/sbin/send-sms";
constexpr char kTold[] = "/var/sms-test/told";  // what the tool says about its calls
constexpr char kFile[] = "/var/sms-test/file";  // the file as it found it

std::vector<std::string> outgoing_files() {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
    const std::string path = entry.path();
    if (path.find("outgoing") != std::string::npos) files.push_back(path);
  }
  return files;
}

// With a tool that tells how it was called and does what the test wants.
class SmsSend : public FileTest {
 protected:
  SmsSend() {
    make_folders("/var/sms-test");
    install("exit 0");
  }
  ~SmsSend() override {
    std::filesystem::remove_all("/var/sms-test");
    std::filesystem::remove(kTool);
    for (const std::string& path : outgoing_files()) std::filesystem::remove(path);
  }

  static void install(const std::string& action) {
    std::filesystem::remove(kTool);
    put(kTool, "#!/bin/sh\necho \"$0 $# $1\" >> "s + kTold + "\ncat \"$1\" > " + kFile + "\n" +
                   action + "\n");
    ::chmod(kTool, 0755);
  }

  // "PATH ARGUMENTS FILE" for each call.
  static std::string told() { return exists(kTold) ? contents_of(kTold) : ""; }
};

TEST_F(SmsSend, RunsTheToolOnTheFileAndLeavesItThere) {
  EXPECT_EQ(CSimpleSMS("+4930123456", "Hello").send(), 0);
  EXPECT_EQ(contents_of(kFile), "To: +4930123456\n\nHello\n");
  ASSERT_THAT(outgoing_files(), SizeIs(1));
  const std::string path = outgoing_files()[0];
  EXPECT_THAT(path, MatchesRegex("/tmp/outgoing-sms\\.[A-Za-z0-9]{6}"));
  EXPECT_EQ(told(), "/usr/local/sbin/send-sms 1 " + path + "\n");
  EXPECT_EQ(contents_of(path), "To: +4930123456\n\nHello\n");
  EXPECT_EQ(mode_of(path), 0600U);
}

TEST_F(SmsSend, LetsTheToolTakeTheFile) {
  install("rm \"$1\"");
  EXPECT_EQ(CSimpleSMS("1", "x").send(), 0);
  EXPECT_THAT(outgoing_files(), IsEmpty());
}

TEST_F(SmsSend, WaitsForTheTool) {
  install("sleep 0.2; echo end >> "s + kTold);
  EXPECT_EQ(CSimpleSMS("1", "x").send(), 0);
  EXPECT_THAT(told(), testing::EndsWith("\nend\n"));
}

TEST_F(SmsSend, MakesAFileOfItsOwnEachTime) {
  CSimpleSMS sms("1", "x");
  EXPECT_EQ(sms.send(), 0);
  EXPECT_EQ(sms.send(), 0);
  EXPECT_THAT(outgoing_files(), SizeIs(2));
  EXPECT_EQ(sms.address, "1");
  EXPECT_EQ(sms.received, "");
  EXPECT_EQ(sms.text, "x");
}

struct Contents {
  const char* name;
  std::string address;
  std::string text;
  std::string file;
};

class SmsSendContents : public SmsSend, public testing::WithParamInterface<Contents> {};

TEST_P(SmsSendContents, AreTheAddressAndTheTextAsTheyAre) {
  CSimpleSMS sms(GetParam().address, GetParam().text);
  sms.received = "not written";
  EXPECT_EQ(sms.send(), 0);
  EXPECT_TRUE(contents_of(kFile) == GetParam().file);
}

const std::string kLong(300000, 'x');

INSTANTIATE_TEST_SUITE_P(
    Cases, SmsSendContents,
    testing::Values(Contents{"Empty", "", "", "To: \n\n\n"},
                    Contents{"SeveralLines", "1", "a\n\nb\n", "To: 1\n\na\n\nb\n\n"},
                    Contents{"Blanks", " 1 ", " \t ", "To:  1 \n\n \t \n"},
                    Contents{"PercentSigns", "%s%n", "%d%%", "To: %s%n\n\n%d%%\n"},
                    Contents{"ShellCharacters", "$(reboot)", "`;|&'\"\\",
                             "To: $(reboot)\n\n`;|&'\"\\\n"},
                    Contents{"HighBytes", "\xff", "\x80\xc3\xa4", "To: \xff\n\n\x80\xc3\xa4\n"},
                    Contents{"UpToTheFirstNul", "1\0 2"s, "a\0b"s, "To: 1\n\na\n"},
                    Contents{"Long", "1" + kLong, kLong, "To: 1" + kLong + "\n\n" + kLong + "\n"}),
    support::CaseName());

TEST_F(SmsSend, OfAToolThatFailsIsMinus1AndLeavesNoFile) {
  for (const char* status : {"1", "2", "127", "128", "255"}) {
    install("exit "s + status);
    EXPECT_EQ(CSimpleSMS("1", "x").send(), -1) << status;
    EXPECT_THAT(outgoing_files(), IsEmpty()) << status;
  }
}

TEST_F(SmsSend, OfAToolThatIsKilledIsMinus1AndLeavesNoFile) {
  install("kill -9 $$");
  EXPECT_EQ(CSimpleSMS("1", "x").send(), -1);
  EXPECT_THAT(outgoing_files(), IsEmpty());
  EXPECT_NE(told(), "");
  log_.take();  // run_command() reports it
}

TEST_F(SmsSend, WithoutTheToolIsMinus1AndLeavesNoFile) {
  ::chmod(kTool, 0644);
  EXPECT_EQ(CSimpleSMS("1", "x").send(), -1);
  std::filesystem::remove(kTool);
  EXPECT_EQ(CSimpleSMS("1", "x").send(), -1);
  EXPECT_THAT(outgoing_files(), IsEmpty());
}

TEST_F(SmsSend, OfAToolThatTakesTheFileAndFailsIsMinus1) {
  install("rm \"$1\"; exit 1");
  EXPECT_EQ(CSimpleSMS("1", "x").send(), -1);
}

TEST_F(SmsSend, OntoAFullDiskIsMinus1WithoutTheTool) {
  // Nearly full, where the text does not fit, and wholly full.
  struct Fullness {
    std::size_t taken;
    std::size_t text;
  };
  for (const auto& [taken, text] : {Fullness{0, 2 * TinyDisk::kSize}, {TinyDisk::kSize, 10}}) {
    const TinyDisk disk("/tmp");
    std::ofstream("/tmp/filling") << std::string(taken, '.');
    EXPECT_EQ(CSimpleSMS("1", std::string(text, 'x')).send(), -1) << text;
    EXPECT_THAT(outgoing_files(), IsEmpty()) << text;
    EXPECT_EQ(told(), "") << text;
  }
}

TEST_F(SmsSend, ToADiskThatTakesNoFilesIsMinus1WithoutTheTool) {
  TinyDisk disk("/tmp");
  disk.make_read_only();
  EXPECT_EQ(CSimpleSMS("1", "x").send(), -1);
  EXPECT_EQ(errno, EROFS);
  EXPECT_EQ(told(), "");
}

TEST_F(SmsSend, WithoutADescriptorIsMinus1) {
  CSimpleSMS sms("1", "x");
  int result = 0;
  {
    const support::NoMoreDescriptors none;
    result = sms.send();
  }
  EXPECT_EQ(result, -1);
  EXPECT_THAT(outgoing_files(), IsEmpty());
  EXPECT_EQ(told(), "");
}

TEST_F(SmsSend, NeedsNoMemory) {
  CSimpleSMS sms("1", "x");
  const unsigned long before = support::allocation_count();
  EXPECT_EQ(sms.send(), 0);
  EXPECT_EQ(support::allocation_count(), before);
}

// Where signals interrupt writing, as on a disk of another machine, it goes on; and where closing
// fails, the tool is not run.
TEST_F(SmsSend, WritesThroughInterruptionsAndMindsClosing) {
  CSimpleSMS sms("1", "x");
  int result = -1;
  support::run_with_failing_calls({{support::SystemCall::kWrite, EINTR, 1, 2}},
                                  [&] { result = sms.send(); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(contents_of(kFile), "To: 1\n\nx\n");
  const std::string first = told();

  support::FailingCall closing = {support::SystemCall::kClose, 0};
  closing.decide = [&](const support::CallArguments& arguments) {
    ::close(static_cast<int>(arguments[0]));
    return std::optional<std::int64_t>(-EDQUOT);
  };
  closing.of_children = false;
  support::run_with_failing_calls({closing}, [&] { result = sms.send(); });
  EXPECT_EQ(result, -1);
  EXPECT_EQ(told(), first);
  EXPECT_THAT(outgoing_files(), SizeIs(1)) << "the first one's";
}

TEST_F(SmsSend, NeedsLittleStack) {
  CSimpleSMS sms("1", kLong);
  int result = -2;
  support::run_on_small_stack([&] { result = sms.send(); });
  EXPECT_EQ(result, 0);
}

TEST_F(SmsSend, SendsThoughCancelled) {
  int result = -1;
  EXPECT_TRUE(
      support::finishes_though_cancelled([&] { result = CSimpleSMS("1", "Hello").send(); }));
  EXPECT_EQ(result, 0);
  EXPECT_EQ(contents_of(kFile), "To: 1\n\nHello\n");
  install("exit 1");
  EXPECT_TRUE(
      support::finishes_though_cancelled([&] { result = CSimpleSMS("1", "Hello").send(); }));
  EXPECT_EQ(result, -1);
  EXPECT_THAT(outgoing_files(), SizeIs(1)) << "the first one's";
}

}  // namespace
