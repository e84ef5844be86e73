// The private router is what it says, and the tests run in it on the installed library.

#include "support/private_router.h"

#include <rkutils/memory.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

// Output and exit status of a command.
std::pair<std::string, int> run(const std::string& command) {
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "re");
  std::string output;
  std::array<char, 512> buffer;
  while (std::fgets(buffer.data(), buffer.size(), pipe) != nullptr) output += buffer.data();
  return {output, WEXITSTATUS(::pclose(pipe))};
}

// The same in a router inside this one.
std::pair<std::string, int> run_in_router(const std::string& command) {
  return run(support::built_program("tests/support/private-router") + " -- " + command);
}

TEST(PrivateRouter, IsWhereTestsRun) { EXPECT_TRUE(support::inside_private_router()); }

TEST(PrivateRouter, HasTheLibraryAtItsInstalledPath) {
  std::free(zalloc(1));
  Dl_info info = {};
  ASSERT_NE(::dladdr(::dlsym(RTLD_DEFAULT, "zalloc"), &info), 0);
  EXPECT_EQ(std::filesystem::canonical(info.dli_fname), "/usr/lib/librkutils.so.1.0.0");
}

TEST(PrivateRouter, HasOneProcessTreeOfItsOwn) {
  EXPECT_LT(::getpid(), 100);
  std::ifstream name("/proc/1/comm");
  std::string text;
  std::getline(name, text);
  EXPECT_EQ(text, "private-router");
}

TEST(PrivateRouter, StartsWithEmptyFolders) {
  for (const char* folder : {"/nvstatus", "/tmp", "/var/log", "/var/run", "/var/spool"}) {
    EXPECT_TRUE(std::filesystem::is_directory(folder)) << folder;
  }
  EXPECT_THAT(run_in_router("ls -A /nvstatus /var/run /var/log /var/spool").first,
              testing::Not(HasSubstr("configd")));
}

TEST(PrivateRouter, TakesChangesOfTheSystemsFoldersAndForgetsThem) {
  const auto [first, status] = run_in_router("touch /etc/changed /usr/local/sbin/changed");
  EXPECT_THAT(first, IsEmpty());
  EXPECT_EQ(status, 0);
  EXPECT_NE(run_in_router("test -e /etc/changed").second, 0);
  EXPECT_FALSE(std::filesystem::exists("/etc/changed"));
}

TEST(PrivateRouter, HasANetworkOfItsOwn) {
  EXPECT_EQ(run_in_router("ls /sys/class/net").first, "lo\n");
}

TEST(PrivateRouter, ReturnsTheStatusOfItsCommand) {
  EXPECT_EQ(run_in_router("sh -c 'exit 42'").second, 42);
  EXPECT_EQ(run_in_router("sh -c 'kill -TERM $$'").second, 128 + 15);
}

TEST(PrivateRouter, EndsWhateverItsCommandLeaves) {
  EXPECT_EQ(run_in_router("sh -c 'sleep 1000 & exit 0'").second, 0);
  EXPECT_THAT(run("cat /proc/[0-9]*/cmdline | tr '\\0' ' '").first,
              testing::Not(HasSubstr("sleep 1000")));
}

TEST(PrivateRouter, IsRefusedWithoutTheRightToIt) {
  const auto [output, status] =
      run("setpriv --bounding-set=-sys_admin --inh-caps=-sys_admin " +
          support::built_program("tests/support/private-router") + " -- true");
  EXPECT_EQ(status, 77);
  EXPECT_THAT(output, HasSubstr("refused here: unshare"));
}

TEST(PrivateRouter, ReportsACommandThatIsNotThere) {
  const auto [output, status] = run_in_router("/no/such/command");
  EXPECT_EQ(status, 125);
  EXPECT_THAT(output, HasSubstr("/no/such/command"));
}

}  // namespace
