// Files of a test's in /proc and /sys.

#include "support/kernel_folder.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/open_descriptors.h"
#include "support/private_router.h"
#include "support/run_program.h"

namespace {

namespace fs = std::filesystem;

using support::KernelFolder;
using support::run_program;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

std::string contents_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.good()) << path;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::set<std::string> names_in(const std::string& folder) {
  std::set<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    names.insert(entry.path().filename());
  }
  return names;
}

// What a folder is, to tell it from another at the same path.
std::pair<dev_t, ino_t> identity(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return {status.st_dev, status.st_ino};
}

TEST(KernelFolder, TakesFilesThatTheKernelDoesNotHave) {
  const KernelFolder proc("/proc");
  EXPECT_EQ(proc.at("sysinfo/dwhw"), "/proc/sysinfo/dwhw");
  proc.put("sysinfo/dwhw", "18\n");
  proc.put("sysinfo/bd/0/prod_name", std::string("\0x", 2));
  EXPECT_EQ(contents_of("/proc/sysinfo/dwhw"), "18\n");
  EXPECT_EQ(contents_of("/proc/sysinfo/bd/0/prod_name"), std::string("\0x", 2));
  proc.put("sysinfo/dwhw", "1");
  EXPECT_EQ(contents_of("/proc/sysinfo/dwhw"), "1");
}

TEST(KernelFolder, IsAnOrdinaryFolderWhereItHasBeenMade) {
  const KernelFolder proc("/proc");
  proc.make_folder("sysinfo/bd");
  proc.make_folder("sysinfo/bd");
  EXPECT_THAT(names_in("/proc/sysinfo/bd"), IsEmpty());
  fs::create_symlink("nowhere", proc.at("sysinfo/dwhw"));
  EXPECT_THAT(names_in("/proc/sysinfo"), testing::ElementsAre("bd", "dwhw"));
  proc.put("sysinfo/bd", "a file now");
  proc.put("sysinfo/dwhw", "not a link");
  EXPECT_EQ(contents_of("/proc/sysinfo/bd"), "a file now");
  EXPECT_EQ(contents_of("/proc/sysinfo/dwhw"), "not a link");
  EXPECT_FALSE(fs::is_symlink("/proc/sysinfo/dwhw"));
  proc.make_folder("sysinfo/bd/0");
  EXPECT_TRUE(fs::is_directory("/proc/sysinfo/bd/0"));
}

TEST(KernelFolder, ReplacesTheKernelsFilesAndKeepsTheirNeighbours) {
  const std::set<std::string> net = names_in("/proc/net");
  const KernelFolder proc("/proc");
  proc.put("net/arp", "nobody\n");
  EXPECT_EQ(contents_of("/proc/net/arp"), "nobody\n");
  EXPECT_EQ(names_in("/proc/net"), net);
  EXPECT_THAT(contents_of("/proc/net/dev"), HasSubstr("lo:"));
  EXPECT_THAT(contents_of("/proc/self/net/arp"), Not(HasSubstr("nobody")));
}

TEST(KernelFolder, IsSeenByOtherProcesses) {
  const KernelFolder proc("/proc");
  proc.put("net/arp", "nobody\n");
  EXPECT_EQ(run_program({"cat", "/proc/net/arp"}).output, "nobody\n");
}

TEST(KernelFolder, KeepsAllThatTheKernelHas) {
  const std::set<std::string> before = names_in("/proc");
  const std::string version = contents_of("/proc/version");
  const KernelFolder proc("/proc");
  EXPECT_THAT(names_in("/proc"), IsSupersetOf(before));
  EXPECT_EQ(contents_of("/proc/version"), version);
  EXPECT_EQ(contents_of("/proc/sys/kernel/ostype"), "Linux\n");
  EXPECT_THAT(contents_of("/proc/mounts"), HasSubstr(" / tmpfs "));
}

TEST(KernelFolder, LetsTheKernelsFilesBeWritten) {
  const KernelFolder proc("/proc");
  char before[16] = "";
  char after[16] = "";
  ::prctl(PR_GET_NAME, before);
  std::ofstream("/proc/thread-self/comm") << "changed";
  ::prctl(PR_GET_NAME, after);
  ::prctl(PR_SET_NAME, before);
  EXPECT_STREQ(after, "changed");
}

TEST(KernelFolder, HasEachProcessUnderSelf) {
  const KernelFolder proc("/proc");
  EXPECT_EQ(identity("/proc/self"), identity("/proc/" + std::to_string(::getpid())));
  EXPECT_EQ(fs::read_symlink("/proc/self/exe"),
            support::built_program("tests/support/tests/kernel_folder_test"));
  EXPECT_TRUE(support::inside_private_router());
  EXPECT_EQ(run_program({"cat", "/proc/self/comm"}).output, "cat\n");
  EXPECT_EQ(run_program({"sh", "-c", "cd /proc/self/cwd/ && cat /proc/$$/comm; true"}).output,
            "sh\n");
}

TEST(KernelFolder, HasEachThreadUnderThreadSelf) {
  const KernelFolder proc("/proc");
  std::thread([] {
    const std::string id = std::to_string(::gettid());
    EXPECT_EQ(identity("/proc/thread-self"),
              identity("/proc/" + std::to_string(::getpid()) + "/task/" + id));
    EXPECT_EQ(contents_of("/proc/" + id + "/comm"), contents_of("/proc/self/comm"));
  }).join();
}

TEST(KernelFolder, LeadsToWhatADescriptorIs) {
  const KernelFolder proc("/proc");
  const std::string path = "/tmp/kernel-folder-test";
  std::ofstream(path) << "abc";
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  fs::remove(path);
  EXPECT_EQ(contents_of("/proc/self/fd/" + std::to_string(file)), "abc");
  EXPECT_EQ(contents_of("/dev/fd/" + std::to_string(file)), "abc");
  ::close(file);
}

TEST(KernelFolder, HasProcessesThatComeAndGo) {
  const KernelFolder proc("/proc");
  const pid_t child = ::fork();
  if (child == 0) {
    ::pause();
    ::_exit(0);
  }
  const std::string folder = "/proc/" + std::to_string(child);
  EXPECT_TRUE(fs::is_directory(folder));
  EXPECT_THAT(contents_of(folder + "/stat"), HasSubstr(std::to_string(child) + " ("));
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  EXPECT_FALSE(fs::exists(folder));
}

int newest_process() {
  std::ifstream load("/proc/loadavg");
  std::string field;
  while (load >> field) {
  }
  return std::stoi(field);
}

TEST(KernelFolder, HasRoomForProcessesFromItsMakingOn) {
  // Not from this process's id on.
  for (int i = 0; i < 5; ++i) run_program({"true"});
  const int before = newest_process();
  const KernelFolder proc("/proc");
  const int after = newest_process();
  EXPECT_TRUE(fs::is_symlink("/proc/" + std::to_string(before + KernelFolder::kProcesses)));
  EXPECT_FALSE(fs::is_symlink("/proc/" + std::to_string(after + KernelFolder::kProcesses + 1)));
}

TEST(KernelFolder, MakesRoomInSysToo) {
  const std::set<std::string> devices = names_in("/sys/devices");
  const KernelFolder sys("/sys");
  sys.put("devices/halcyonix/in1", "0\n");
  EXPECT_EQ(contents_of("/sys/devices/halcyonix/in1"), "0\n");
  EXPECT_THAT(names_in("/sys/devices"), IsSupersetOf(devices));
  EXPECT_EQ(contents_of("/sys/class/net/lo/ifindex"), "1\n");
}

TEST(KernelFolder, ProtectsTheKernelsSys) {
  const KernelFolder sys("/sys");
  sys.put("class/net/number", "1\n");
  EXPECT_EQ(::open("/sys/class/net/lo/mtu", O_WRONLY | O_CLOEXEC), -1);
  EXPECT_EQ(errno, EROFS);
  std::ofstream("/sys/class/net/number") << "2\n";
  EXPECT_EQ(contents_of("/sys/class/net/number"), "2\n");
}

TEST(KernelFolder, WorksForBothAtOnce) {
  const KernelFolder proc("/proc");
  const KernelFolder sys("/sys");
  proc.put("one", "in proc");
  sys.put("one", "in sys");
  EXPECT_EQ(contents_of("/proc/one"), "in proc");
  EXPECT_EQ(contents_of("/sys/one"), "in sys");
}

TEST(KernelFolder, LeavesEverythingAsItWas) {
  const auto proc_before = identity("/proc");
  const auto sys_before = identity("/sys");
  const std::string mounts = contents_of("/proc/mounts");
  const auto descriptors = support::open_descriptors();
  {
    const KernelFolder proc("/proc");
    const KernelFolder sys("/sys");
    proc.put("net/arp", "nobody\n");
    sys.put("devices/halcyonix/in1", "0\n");
    EXPECT_NE(identity("/proc"), proc_before);
  }
  EXPECT_EQ(identity("/proc"), proc_before);
  EXPECT_EQ(identity("/sys"), sys_before);
  EXPECT_EQ(contents_of("/proc/mounts"), mounts);
  EXPECT_EQ(support::open_descriptors(), descriptors);
  EXPECT_FALSE(fs::exists("/proc/sysinfo"));
}

int error_of_making(const std::string& folder) {
  try {
    const KernelFolder one(folder);
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

TEST(KernelFolder, IsRefusedASecondTime) {
  const KernelFolder proc("/proc");
  proc.put("sysinfo/dwhw", "18\n");
  EXPECT_EQ(error_of_making("/proc"), EBUSY);
  EXPECT_EQ(contents_of("/proc/sysinfo/dwhw"), "18\n");
}

TEST(KernelFolder, IsRefusedForOtherFolders) {
  const std::string mounts = contents_of("/proc/mounts");
  for (const char* folder : {"", "/", "/proc/", "/sys/", "/proc/sys", "//proc", "proc", "/tmp"}) {
    EXPECT_EQ(error_of_making(folder), EINVAL) << folder;
  }
  EXPECT_EQ(contents_of("/proc/mounts"), mounts);
}

// So that no mistake in a test program mounts anything on the host.
TEST(KernelFolder, IsRefusedOutsideOfARouter) {
  const std::string mounts = contents_of("/proc/mounts");
  const std::string marker = contents_of("/run/private-router");
  std::ofstream("/run/private-router") << "mnt:[1]";
  EXPECT_EQ(error_of_making("/proc"), EPERM);
  std::ofstream("/run/private-router") << marker;
  EXPECT_EQ(contents_of("/proc/mounts"), mounts);
}

}  // namespace
