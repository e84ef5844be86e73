// Maintenance, and the generations of mobile networks.

#include <rkutils/export.h>
#include <rkutils/systeminfo.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/case_name.h"
#include "support/for_nobody.h"
#include "support/without_override.h"
#include "systeminfo_fixture.h"

namespace {

// The markers that this thread has asked for.
thread_local std::vector<std::string> asked;

}  // namespace

// Stands before the C library's and makes the system call itself. C libraries differ in whether
// they declare it noexcept.
// NOLINTNEXTLINE(readability-redundant-declaration)
extern "C" RK_API int access(const char* path, int mode) noexcept(noexcept(::access(path, mode)));

// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
int access(const char* path, int mode) noexcept(noexcept(::access(path, mode))) {
  constexpr char kFolder[] = "/tmp/progress/";
  if (std::strncmp(path, kFolder, std::strlen(kFolder)) == 0) asked.emplace_back(path);
  return static_cast<int>(::syscall(SYS_faccessat, AT_FDCWD, path, mode));
}

namespace {

using InMaintenance = SysteminfoTest;

TEST_F(InMaintenance, IsFalseWithoutMarkers) {
  EXPECT_EQ(in_maintenance(), 0);
  std::filesystem::create_directory("/tmp/progress");
  EXPECT_EQ(in_maintenance(), 0);
}

TEST_F(InMaintenance, IsTrueForEachOfTheMarkers) {
  for (const std::string name : {"swupdate", "bdupdate", "fwupdate", "config", "switch-software",
                                 "switch-config", "sshkeys"}) {
    const std::string marker = "/tmp/progress/" + name;
    put(marker, "");
    EXPECT_EQ(in_maintenance(), 1) << name;
    std::filesystem::remove(marker);
    EXPECT_EQ(in_maintenance(), 0) << name;
  }
}

TEST_F(InMaintenance, IsTrueForSeveralMarkersAtOnce) {
  put("/tmp/progress/swupdate", "");
  put("/tmp/progress/sshkeys", "");
  EXPECT_EQ(in_maintenance(), 1);
}

TEST_F(InMaintenance, AsksForTheMarkersInOrderUntilOneIsThere) {
  asked.clear();
  EXPECT_EQ(in_maintenance(), 0);
  EXPECT_THAT(asked, testing::ElementsAre("/tmp/progress/swupdate", "/tmp/progress/bdupdate",
                                          "/tmp/progress/fwupdate", "/tmp/progress/config",
                                          "/tmp/progress/switch-software",
                                          "/tmp/progress/switch-config", "/tmp/progress/sshkeys"));
  put("/tmp/progress/fwupdate", "");
  put("/tmp/progress/sshkeys", "");
  asked.clear();
  EXPECT_EQ(in_maintenance(), 1);
  EXPECT_THAT(asked, testing::ElementsAre("/tmp/progress/swupdate", "/tmp/progress/bdupdate",
                                          "/tmp/progress/fwupdate"));
}

TEST_F(InMaintenance, IsFalseForOtherNames) {
  for (const std::string name :
       {"swupdates", "swupdat", "SWUPDATE", "update", "switch", "configs", "sshkey", "reboot"}) {
    put("/tmp/progress/" + name, "");
  }
  EXPECT_EQ(in_maintenance(), 0);
}

TEST_F(InMaintenance, IsTrueForAMarkerOfAnyKind) {
  std::filesystem::create_directories("/tmp/progress/config");
  EXPECT_EQ(in_maintenance(), 1);
}

TEST_F(InMaintenance, IsFalseForALinkThatLeadsNowhere) {
  std::filesystem::create_directory("/tmp/progress");
  std::filesystem::create_symlink("nowhere", "/tmp/progress/config");
  EXPECT_EQ(in_maintenance(), 0);
}

TEST_F(InMaintenance, IsFalseForAMarkerThatIsNotReadable) {
  put("/tmp/progress/config", "");
  ::chmod("/tmp/progress/config", 0200);
  int found = 1;
  support::run_without_override([&] { found = in_maintenance(); });
  EXPECT_EQ(found, 0);
  put("/tmp/progress/sshkeys", "");
  support::run_without_override([&] { found = in_maintenance(); });
  EXPECT_EQ(found, 1);
}

TEST_F(InMaintenance, AsksForTheRealUser) {
  put("/tmp/progress/config", "");
  ::chmod("/tmp/progress/config", 0600);
  int found = 1;
  support::run_for_nobody([&] { found = in_maintenance(); });
  EXPECT_EQ(found, 0);
  ::chmod("/tmp/progress/config", 0644);
  support::run_for_nobody([&] { found = in_maintenance(); });
  EXPECT_EQ(found, 1);
}

struct Technology {
  const char* name;
  const char* technology;
  int generation;
};

class GetGeneration : public testing::TestWithParam<Technology> {};

TEST_P(GetGeneration, OfATechnology) {
  EXPECT_EQ(get_generation(GetParam().technology), GetParam().generation);
}

INSTANTIATE_TEST_SUITE_P(
    Known, GetGeneration,
    testing::Values(Technology{"Csd", "CSD", 2}, Technology{"Gprs", "GPRS", 2},
                    Technology{"Edge", "EDGE", 2}, Technology{"Umts", "UMTS", 3},
                    Technology{"Hsdpa", "HSDPA", 3}, Technology{"Hsupa", "HSUPA", 3},
                    Technology{"Hspa", "HSPA", 3}, Technology{"HspaPlus", "HSPA+", 3},
                    Technology{"Cdma", "CDMA", 3}, Technology{"Lte", "LTE", 4},
                    Technology{"Endc", "ENDC", 5}, Technology{"FiveG", "5G", 5},
                    Technology{"SmallLetters", "hspa+", 3}, Technology{"MixedLetters", "lTe", 4},
                    Technology{"SmallG", "5g", 5}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Unknown, GetGeneration,
    testing::Values(Technology{"FourG", "4G", -1}, Technology{"Empty", "", -1},
                    Technology{"Longer", "LTE-A", -1}, Technology{"Shorter", "LT", -1},
                    Technology{"SpaceBefore", " LTE", -1}, Technology{"SpaceBehind", "LTE ", -1},
                    Technology{"LongerByThePlus", "HSPA++", -1}, Technology{"Gsm", "GSM", -1},
                    Technology{"HighBytes", "\xcc\xd4\xc5", -1}, Technology{"Null", nullptr, -1}),
    support::CaseName());

}  // namespace
