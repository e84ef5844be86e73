// Counting inputs and outputs.

#include <rkutils/hardware/dio/count.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "dio_fixture.h"
#include "support/allocation_faults.h"
#include "support/failing_calls.h"
#include "support/for_nobody.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"
#include "support/without_override.h"

namespace {

namespace fs = std::filesystem;

using support::DioOperation;
using testing::ElementsAre;

constexpr uint32_t kUntouched = 12345;
const DioOperation kScan = {"opendir", ".", ""};

class DioCount : public DioTest {};

TEST_F(DioCount, CountsInputsAndOutputs) {
  EXPECT_EQ(counted(dio_count), 5U);
  EXPECT_EQ(counted(dio_roCount), 3U);
  EXPECT_EQ(counted(dio_rwCount), 2U);
}

TEST_F(DioCount, LooksAnewEachTime) {
  EXPECT_EQ(inputs(), 3U);
  driver().add("din4");
  driver().command("remove dout1");
  EXPECT_EQ(inputs(), 4U);
  EXPECT_EQ(outputs(), 1U);
  EXPECT_EQ(counted(dio_count), 5U);
}

TEST_F(DioCount, ScansForInputsAndForOutputsWhicheverAreAskedFor) {
  for (const auto count : {dio_count, dio_roCount, dio_rwCount}) {
    counted(count);
    EXPECT_THAT(driver().take_operations(), ElementsAre(kScan, kScan));
  }
}

TEST_F(DioCount, RefusesNullWithoutAskingTheDriver) {
  for (const auto count : {dio_count, dio_roCount, dio_rwCount}) {
    errno = 0;
    EXPECT_EQ(count(nullptr), DIO_ERR_IO);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_THAT(driver().take_operations(), ElementsAre());
}

TEST_F(DioCount, OfAFailedScanIsThatOfTheLastTime) {
  EXPECT_EQ(counted(dio_count), 5U);
  driver().add("din4");
  driver().add("dout3");
  for (const auto& [count, last] :
       {std::pair(&dio_count, 5U), {dio_roCount, 3U}, {dio_rwCount, 2U}}) {
    driver().take_operations();
    driver().fail("opendir", ".", EACCES);
    errno = 0;
    EXPECT_EQ(counted(count), last);
    EXPECT_EQ(errno, EACCES);
    EXPECT_THAT(log_.take(), ElementsAre(failed("scandir", kDriver, EACCES)));
    // The outputs are not scanned for any more.
    EXPECT_THAT(driver().take_operations(), ElementsAre(DioOperation{"opendir", ".", "", EACCES}));
  }
  EXPECT_EQ(counted(dio_count), 7U);
}

TEST_F(DioCount, OfInputsIsNewWhenTheScanForOutputsFails) {
  EXPECT_EQ(counted(dio_count), 5U);
  driver().add("din4");
  driver().add("dout3");
  driver().fail("opendir", ".", EPERM, 1);
  errno = 0;
  EXPECT_EQ(counted(dio_count), 6U);
  EXPECT_EQ(errno, EPERM);
  EXPECT_THAT(log_.take(), ElementsAre(failed("scandir", kDriver, EPERM)));
}

TEST_F(DioCount, OfAFolderThatCannotBeListedIsThatOfTheLastTime) {
  EXPECT_EQ(counted(dio_count), 5U);
  driver().add("din4");
  driver().fail("readdir", ".", EIO);
  errno = 0;
  EXPECT_EQ(inputs(), 3U);
  EXPECT_EQ(errno, EIO);
  EXPECT_THAT(log_.take(), ElementsAre(failed("scandir", kDriver, EIO)));
  // What was seen of it before does not count.
  driver().fail("readdir", ".", EIO, 1);
  EXPECT_EQ(inputs(), 3U);
  EXPECT_THAT(log_.take(), ElementsAre(failed("scandir", kDriver, EIO)));
  EXPECT_EQ(inputs(), 4U);
}

TEST_F(DioCount, IsZeroForAFolderThatHasGone) {
  EXPECT_EQ(counted(dio_count), 5U);
  driver().fail("opendir", ".", ENOENT);
  EXPECT_EQ(counted(dio_count), 2U) << "the outputs, which are scanned for all the same";
  driver().fail("opendir", ".", ENOENT, 1);
  EXPECT_EQ(counted(dio_count), 3U);
}

TEST_F(DioCount, GoesOnAfterASignal) {
  driver().fail("opendir", ".", EINTR, 0, 2);
  driver().fail("readdir", ".", EINTR, 0, 2);
  EXPECT_EQ(counted(dio_count), 5U);
  driver().fail("readdir", ".", EINTR, 3);
  EXPECT_EQ(counted(dio_count), 5U);
}

TEST_F(DioCount, LeavesOutWhatCannotBeLookedAt) {
  driver().fail("look", "din2", EIO, 0, 1000);
  EXPECT_EQ(inputs(), 2U);
  EXPECT_EQ(outputs(), 2U);
}

TEST_F(DioCount, FailsWithADriverThatIsGone) {
  EXPECT_EQ(counted(dio_count), 5U);
  driver().kill();
  EXPECT_EQ(counted(dio_count), 5U);
  EXPECT_THAT(log_.take(), ElementsAre(failed("scandir", kDriver, ENOTCONN)));
}

TEST_F(DioCount, WorksOnASmallStack) {
  uint32_t count = 0;
  support::run_on_small_stack([&] { count = counted(dio_count); });
  EXPECT_EQ(count, 5U);
}

TEST_F(DioCount, FinishesThoughCancelled) {
  for (const auto& [count, expected] :
       {std::pair(&dio_count, 5U), {dio_roCount, 3U}, {dio_rwCount, 2U}}) {
    uint32_t number = kUntouched;
    EXPECT_TRUE(support::finishes_though_cancelled([&, call = count] { call(&number); }));
    EXPECT_EQ(number, expected);
  }
  driver().fail("opendir", ".", EIO);
  EXPECT_TRUE(support::finishes_though_cancelled([] { inputs(); }));
  EXPECT_THAT(log_.take(), ElementsAre(failed("scandir", kDriver, EIO)));
}

class DioCountFolders : public DioFolderTest {};

TEST_F(DioCountFolders, IsZeroWithoutADriver) {
  EXPECT_EQ(counted(dio_count), 0U);
  EXPECT_EQ(inputs(), 0U);
  EXPECT_EQ(outputs(), 0U);
}

TEST_F(DioCountFolders, IsZeroForAnEmptyFolder) {
  make_folder("");
  EXPECT_EQ(counted(dio_count), 0U);
}

TEST_F(DioCountFolders, ForgetsTheLastCountWithTheDriver) {
  make_folder("din1");
  make_folder("dout1");
  EXPECT_EQ(counted(dio_count), 2U);
  fs::remove_all(kDriver);
  EXPECT_EQ(counted(dio_count), 0U);
}

TEST_F(DioCountFolders, FailsForAFileInTheDriversPlace) {
  make_folder("din1");
  EXPECT_EQ(counted(dio_count), 1U);
  fs::remove_all(kDriver);
  sys_.put("devices/halcyonix", "");
  EXPECT_EQ(counted(dio_count), 1U);
  EXPECT_THAT(log_.take(), ElementsAre(failed("scandir", kDriver, ENOTDIR)));
}

TEST_F(DioCountFolders, FailsWithoutADescriptor) {
  make_folder("din1");
  EXPECT_EQ(inputs(), 1U);
  make_folder("din2");
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(inputs(), 1U);
  }
  EXPECT_THAT(log_.take(), ElementsAre(failed("scandir", kDriver, EMFILE)));
}

TEST_F(DioCountFolders, FailsWithoutMemory) {
  make_folder("din1");
  EXPECT_EQ(inputs(), 1U);
  make_folder("din2");
  uint32_t count = kUntouched;
  int error = 0;
  {
    const support::FailingAllocation first(1);
    EXPECT_EQ(dio_roCount(&count), DIO_OK);
    error = errno;
    EXPECT_TRUE(first.happened());
  }
  EXPECT_EQ(count, 1U);
  EXPECT_EQ(error, ENOMEM);
  EXPECT_THAT(log_.take(), ElementsAre(failed("scandir", kDriver, ENOMEM)));
}

TEST_F(DioCountFolders, HasDescriptorsForNoOtherProgram) {
  make_folder("din1");
  EXPECT_THAT(support::descriptor_flags_at(support::SystemCall::kList, [] { counted(dio_count); }),
              testing::AllOf(testing::SizeIs(testing::Ge(2U)), testing::Each(FD_CLOEXEC)));
}

TEST_F(DioCountFolders, CountsOneOrTwoDigitsBehindTheName) {
  for (const char* name : {"0", "00", "1", "01", "9", "10", "99"}) {
    make_folder(std::string("din") + name);
    make_folder(std::string("dout") + name);
  }
  EXPECT_EQ(inputs(), 7U);
  EXPECT_EQ(outputs(), 7U);
}

TEST_F(DioCountFolders, CountsNoOtherNames) {
  make_folder("din1");
  make_folder("dout1");
  for (const char* name :
       {"din",    "din7x",   "din123", "dinA",    "dinA1", "din1A", "din-1",  "din 1",
        "din1 ",  "din1.",   "din:",   "Din1",    "xdin1", "di1",   "dn1",    "dout",
        "dout7x", "dout123", "doutA",  "dout1A",  "dou1",  "Dout1", "xdout1", "dint1",
        "do1",    "d1",      "1",      "din\xB2", "value", "power"}) {
    make_folder(name);
  }
  EXPECT_EQ(inputs(), 1U);
  EXPECT_EQ(outputs(), 1U);
}

TEST_F(DioCountFolders, CountsFoldersAlone) {
  put("din1", "a file");
  ::chmod(sys_.at("devices/halcyonix/din1").c_str(), 0777);
  ::mkfifo(sys_.at("devices/halcyonix/din2").c_str(), 0777);
  fs::create_symlink("nowhere", sys_.at("devices/halcyonix/din3"));
  EXPECT_EQ(inputs(), 0U);
  make_folder("elsewhere");
  fs::create_symlink("elsewhere", sys_.at("devices/halcyonix/din4"));
  EXPECT_EQ(inputs(), 1U) << "a link to a folder";
}

TEST_F(DioCountFolders, CountsWhatMayBeListedAndEntered) {
  make_folder("din1");
  make_folder("din2");
  for (const auto& [mode, expected] : {std::pair(0500, 2U), {0400, 1U}, {0100, 1U}, {0200, 1U}}) {
    ASSERT_EQ(::chmod(sys_.at("devices/halcyonix/din2").c_str(), static_cast<mode_t>(mode)), 0);
    uint32_t count = kUntouched;
    support::run_without_override([&] { count = inputs(); });
    EXPECT_EQ(count, expected) << std::oct << mode;
  }
}

TEST_F(DioCountFolders, CountsByTheRightsOfTheRealUser) {
  make_folder("din1");
  make_folder("din2");
  ::chmod(sys_.at("devices/halcyonix/din2").c_str(), 0700);
  uint32_t count = kUntouched;
  support::run_for_nobody([&] { count = inputs(); });
  EXPECT_EQ(count, 1U);
  EXPECT_EQ(inputs(), 2U);
}

TEST_F(DioCountFolders, OfTwoDirectionsCanDiffer) {
  make_folder("dout1");
  make_folder("dout2");
  EXPECT_EQ(inputs(), 0U);
  EXPECT_EQ(outputs(), 2U);
  EXPECT_EQ(counted(dio_count), 2U);
}

using DioCountWithABrokenLog = DioBrokenLogTest;

TEST_F(DioCountWithABrokenLog, TellsWhyTheScanFailed) {
  sys_.put("devices/halcyonix", "a file");
  EXPECT_EQ(error_after([] { counted(dio_count); }), ENOTDIR);
}

TEST(DioDirentDeathTest, IsAsserted) {
  EXPECT_EXIT(static_cast<void>(rkutils::dio::dio_isDioDirent(nullptr, "din", 3)),
              testing::KilledBySignal(SIGABRT),
              assertion("entry != NULL", "rkutils/dio", "dio_isDioDirent"));
}

}  // namespace
