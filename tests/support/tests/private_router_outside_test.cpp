// What a private router is, seen from outside of one. Nothing here may be run on the host but the
// router's program itself.

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "support/private_router.h"
#include "support/run_program.h"

namespace {

using support::Outcome;
using testing::HasSubstr;
using testing::IsEmpty;

// Runs a shell's commands in a router with these options.
Outcome in_router(const std::string& commands, const std::vector<std::string>& options = {}) {
  std::vector<std::string> words = {support::built_program("tests/support/private-router")};
  words.insert(words.end(), options.begin(), options.end());
  words.insert(words.end(), {"--", "sh", "-c", commands});
  return support::run_program(words);
}

class PrivateRouterOutside : public testing::Test {
 protected:
  void SetUp() override {
    const Outcome first = in_router("true");
    if (first.status == 77) GTEST_SKIP() << first.output;
  }
};

std::string host_namespace(const char* kind) {
  return std::filesystem::read_symlink(std::string("/proc/self/ns/") + kind);
}

TEST_F(PrivateRouterOutside, HasNamespacesOfItsOwn) {
  for (const char* kind : {"ipc", "mnt", "net", "pid", "uts"}) {
    const Outcome outcome = in_router(std::string("readlink /proc/self/ns/") + kind);
    EXPECT_THAT(outcome.output, HasSubstr(kind));
    EXPECT_NE(outcome.output, host_namespace(kind) + "\n");
  }
}

TEST_F(PrivateRouterOutside, StartsWithEmptyFolders) {
  const Outcome outcome = in_router("find /nvstatus /run /tmp /var /dev/shm -not -type d");
  EXPECT_EQ(outcome.output, "/run/private-router\n");
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(PrivateRouterOutside, TakesChangesOfTheSystemsFoldersAndForgetsThem) {
  const std::string file = "rkutils-changed";
  for (const std::string folder :
       {"/etc/", "/usr/lib/", "/usr/local/sbin/", "/dev/", "/run/", "/var/"}) {
    const std::string path = folder + file;
    const Outcome outcome = in_router("touch " + path);
    EXPECT_THAT(outcome.output, IsEmpty());
    EXPECT_EQ(outcome.status, 0);
    EXPECT_FALSE(std::filesystem::exists(path));
  }
}

TEST_F(PrivateRouterOutside, HasTheHostsDevices) {
  for (const std::string device : {"/dev/fuse", "/dev/net/tun", "/dev/null"}) {
    const Outcome outcome = in_router("test -c " + device);
    EXPECT_EQ(outcome.status == 0, std::filesystem::is_character_file(device)) << device;
  }
}

TEST_F(PrivateRouterOutside, HasNoNetworkButALoopbackThatIsUp) {
  EXPECT_EQ(in_router("ls /sys/class/net; cat /sys/class/net/lo/flags").output, "lo\n0x9\n");
}

TEST_F(PrivateRouterOutside, HasAHostNameOfItsOwn) {
  EXPECT_EQ(in_router("cat /proc/sys/kernel/hostname").output, "router\n");
}

TEST_F(PrivateRouterOutside, KeepsTheWorkingFolderWhereItIsStillThere) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(support::source_file("tests"));
  EXPECT_EQ(in_router("pwd", {"--keep", support::source_file("")}).output,
            support::source_file("tests") + "\n");
  std::filesystem::current_path(before);
}

TEST_F(PrivateRouterOutside, KeepsNothingThatItReplaces) {
  for (const char* folder : {"/", "/dev", "/etc", "/run", "/tmp", "/usr", "/var", "/proc/self"}) {
    const Outcome outcome = in_router("true", {"--keep", folder});
    EXPECT_EQ(outcome.status, 125) << folder;
    EXPECT_THAT(outcome.output, HasSubstr("which the router replaces"));
  }
}

TEST_F(PrivateRouterOutside, FailsForAFolderThatIsNotThere) {
  EXPECT_EQ(in_router("true", {"--keep", "/no/such/folder"}).status, 125);
}

TEST_F(PrivateRouterOutside, ReturnsTheStatusOfItsCommand) {
  EXPECT_EQ(in_router("exit 42").status, 42);
  EXPECT_EQ(in_router("kill -TERM $$").status, 128 + 15);
}

TEST_F(PrivateRouterOutside, EndsWhateverItsCommandLeaves) {
  EXPECT_EQ(in_router("sleep 98765 & exit 0").status, 0);
  const Outcome processes =
      support::run_program({"sh", "-c", "cat /proc/[0-9]*/cmdline | tr '\\0' ' '"});
  EXPECT_THAT(processes.output, testing::Not(HasSubstr("sleep 98765 ")));
}

TEST_F(PrivateRouterOutside, ReportsACommandThatIsNotThere) {
  const Outcome outcome = support::run_program(
      {support::built_program("tests/support/private-router"), "--", "/no/such/command"});
  EXPECT_EQ(outcome.status, 125);
  EXPECT_THAT(outcome.output, HasSubstr("/no/such/command"));
}

TEST_F(PrivateRouterOutside, IsRefusedWithoutTheRightToIt) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to give the right up";
  Outcome outcome = {};
  std::thread without_right([&outcome] {
    ASSERT_EQ(::prctl(PR_CAPBSET_DROP, CAP_SYS_ADMIN), 0);
    outcome = support::run_program(
        {support::built_program("tests/support/private-router"), "--", "true"});
  });
  without_right.join();
  EXPECT_EQ(outcome.status, 77);
  EXPECT_THAT(outcome.output, HasSubstr("refused here: unshare"));
}

}  // namespace
