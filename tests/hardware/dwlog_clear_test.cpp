// Clearing the persistent log.

#include <cerrno>
#include <filesystem>
#include <string>

#include <sys/stat.h>

#include "dwlog_fixture.h"
#include "support/open_descriptors.h"
#include "support/put_file.h"
#include "support/small_stack.h"
#include "support/standard_output.h"
#include "support/though_cancelled.h"

namespace {

using support::SystemCall;

class DwlogClear : public DwlogTest {};

TEST_F(DwlogClear, LeavesAnEmptyFile) {
  ASSERT_EQ(dwlog(1, "text"), 0);
  EXPECT_EQ(result_of(dwlog_clear), kSilent);
  EXPECT_EQ(contents_of(kLog), "");
  EXPECT_EQ(mode_of(kLog), 0664U);
  EXPECT_EQ(log_value(), 1);

  std::string buffer(300, '#');
  EXPECT_EQ(dwlog_read(buffer.data(), buffer.size()), 0);
  EXPECT_EQ(buffer, std::string(300, '\0'));
}

TEST_F(DwlogClear, MakesAFileThatIsNotThere) {
  EXPECT_EQ(result_of(dwlog_clear), kSilent);
  EXPECT_EQ(contents_of(kLog), "");
}

TEST_F(DwlogClear, MakesTheModeWhateverTheUmask) {
  support::put(kLog, "old\n");
  ::chmod(kLog, 0600);
  EXPECT_EQ(dwlog_clear(), 0);
  EXPECT_EQ(mode_of(kLog), 0664U);
  std::filesystem::remove(kLog);
  const mode_t before = ::umask(0777);
  EXPECT_EQ(dwlog_clear(), 0);
  ::umask(before);
  EXPECT_EQ(mode_of(kLog), 0664U);
}

TEST_F(DwlogClear, EmptiesTheFileThatALinkLeadsTo) {
  support::put("/tmp/elsewhere", "old\n");
  std::filesystem::create_symlink("/tmp/elsewhere", kLog);
  EXPECT_EQ(result_of(dwlog_clear), kSilent);
  EXPECT_EQ(contents_of("/tmp/elsewhere"), "");
  EXPECT_EQ(mode_of("/tmp/elsewhere"), 0664U);
  EXPECT_TRUE(std::filesystem::is_symlink(kLog));
  std::filesystem::remove("/tmp/elsewhere");
}

TEST_F(DwlogClear, DoesNotReportALogThatCannotBeOpened) {
  std::filesystem::create_directory(kLog);
  EXPECT_EQ(result_of(dwlog_clear), kSilent);
  EXPECT_EQ(log_value(), 1);
  std::filesystem::remove(kLog);

  support::put(kLog, "old\n");
  Result result = {};
  result.messages = support::standard_error_of([&] {
    const support::NoMoreDescriptors none;
    result.value = dwlog_clear();
  });
  EXPECT_EQ(result, kSilent);
  EXPECT_EQ(contents_of(kLog), "old\n");

  std::filesystem::remove_all(kFolder);
  EXPECT_EQ(result_of(dwlog_clear), kSilent);
  EXPECT_EQ(log_value(), 1);
}

TEST_F(DwlogClear, WaitsForNobodyWhoReadsAFifo) {
  ASSERT_EQ(::mkfifo(kLog, 0600), 0);
  EXPECT_EQ(result_of(dwlog_clear), kSilent);
}

TEST_F(DwlogClear, DoesNotReportAModeThatCannotBeSet) {
  support::put(kLog, "old\n");
  EXPECT_EQ(result_though({{SystemCall::kChangeModeByDescriptor, EPERM}}, dwlog_clear), kSilent);
  EXPECT_EQ(contents_of(kLog), "");
}

TEST_F(DwlogClear, LeavesWhatIsLeftOfAnAddition) {
  support::put(kTemporary, "rest");
  EXPECT_EQ(dwlog_clear(), 0);
  EXPECT_EQ(contents_of(kTemporary), "rest");
  std::filesystem::remove(kTemporary);
}

TEST_F(DwlogClear, RepeatsWhatSignalsInterrupt) {
  support::put(kLog, "old\n");
  EXPECT_EQ(result_though(
                {{SystemCall::kOpen, EINTR, 1, 1}, {SystemCall::kOperateSemaphores, EINTR, 0, 1}},
                dwlog_clear),
            kSilent);
  EXPECT_EQ(contents_of(kLog), "");
}

TEST_F(DwlogClear, FinishesThoughCancelled) {
  support::put(kLog, "old\n");
  EXPECT_TRUE(support::finishes_though_cancelled(dwlog_clear));
  EXPECT_EQ(contents_of(kLog), "");
}

TEST_F(DwlogClear, FitsASmallStack) {
  support::run_on_small_stack([] { EXPECT_EQ(dwlog_clear(), 0); });
}

}  // namespace
