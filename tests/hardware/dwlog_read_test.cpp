// Reading the persistent log.

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

using namespace std::string_literals;

using support::SystemCall;

class DwlogRead : public DwlogTest {
 protected:
  // A buffer of that size with the log, and a byte behind it.
  static std::string buffer_with_log(std::size_t size) {
    std::string buffer(size + 1, '#');
    EXPECT_EQ(result_of([&] { return dwlog_read(buffer.data(), size); }), kSilent);
    EXPECT_EQ(buffer.back(), '#');
    buffer.pop_back();
    return buffer;
  }

  static std::string text_read(std::size_t size = 5000) { return text_in(buffer_with_log(size)); }

  static std::string text_in(const std::string& buffer) {
    return buffer.substr(0, buffer.find('\0'));
  }
};

TEST_F(DwlogRead, GivesTheWholeLog) {
  ASSERT_EQ(dwlog(1, "one"), 0);
  ASSERT_EQ(dwlog(2, "two"), 0);
  EXPECT_EQ(without_times(text_read()), "2: TIME two\n1: TIME one\n");
  EXPECT_EQ(text_read(), contents_of(kLog));
}

TEST_F(DwlogRead, IsNotLimitedToWhatAdditionsKeep) {
  support::put(kLog, old_entries(100, 1));
  EXPECT_EQ(text_read(), old_entries(100, 1));
}

TEST_F(DwlogRead, GivesTheEmptyTextForNoLogAndAnEmptyOne) {
  EXPECT_EQ(buffer_with_log(300), std::string(300, '\0'));
  EXPECT_FALSE(exists(kLog));
  support::put(kLog, "");
  EXPECT_EQ(buffer_with_log(300), std::string(300, '\0'));
}

TEST_F(DwlogRead, FillsTheBufferWithNuls) {
  support::put(kLog, "text\n");
  EXPECT_EQ(buffer_with_log(257), "text\n" + std::string(252, '\0'));
}

TEST_F(DwlogRead, RefusesASmallBufferAndNone) {
  support::put(kLog, "text\n");
  std::string buffer(257, '#');
  EXPECT_EQ(result_of([&] { return dwlog_read(buffer.data(), 256); }), (Result{-1, ""}));
  EXPECT_EQ(result_of([&] { return dwlog_read(buffer.data(), 0); }), (Result{-1, ""}));
  EXPECT_EQ(result_of([&] { return dwlog_read(nullptr, 1000); }), (Result{-1, ""}));
  EXPECT_EQ(buffer, std::string(257, '#'));
  EXPECT_EQ(log_set(), -1);
  EXPECT_EQ(result_of([&] { return dwlog_read(buffer.data(), 257); }), kSilent);
}

TEST_F(DwlogRead, CutsTheTextTwoCharactersBeforeTheEnd) {
  std::string text;
  for (int i = 0; i < 50; ++i) text += std::to_string(10000000 + i) + "\n";
  support::put(kLog, text);
  for (std::size_t size = 257; size < 257 + 10; ++size) {
    EXPECT_EQ(buffer_with_log(size), text.substr(0, size - 2) + "\0\0"s) << size;
  }
  for (std::size_t size = text.size() - 2; size < text.size() + 4; ++size) {
    EXPECT_EQ(text_read(size), text.substr(0, size - 2)) << size;
  }
}

TEST_F(DwlogRead, CutsALineThatIsLongerThanTheBuffer) {
  support::put(kLog, std::string(900, 'x') + "\n" + old_entries(2, 1));
  EXPECT_EQ(text_read(257), std::string(255, 'x'));
}

TEST_F(DwlogRead, DividesLongLines) {
  support::put(kLog, std::string(1023, 'a') + std::string(1023, 'b') + "c\nlast");
  EXPECT_EQ(text_read(), std::string(1023, 'a') + "\n" + std::string(1023, 'b') + "\nc\nlast\n");
}

TEST_F(DwlogRead, GivesEmptyLinesToo) {
  support::put(kLog, "\n\none\n"s + "\0hidden\n"s + "two\0hidden\nthree"s);
  EXPECT_EQ(text_read(), "\n\none\n\ntwo\nthree\n");
}

TEST_F(DwlogRead, ReadsThroughALink) {
  support::put("/tmp/elsewhere", "old\n");
  std::filesystem::create_symlink("/tmp/elsewhere", kLog);
  EXPECT_EQ(text_read(), "old\n");
  std::filesystem::remove("/tmp/elsewhere");
}

TEST_F(DwlogRead, GivesTheEmptyTextForWhatCannotBeRead) {
  std::filesystem::create_directory(kLog);
  EXPECT_EQ(text_read(), "");
  std::filesystem::remove(kLog);

  support::put(kLog, "old\n");
  std::string buffer(300, '#');
  EXPECT_EQ(result_though({{SystemCall::kOpen, EACCES}},
                          [&] { return dwlog_read(buffer.data(), buffer.size()); }),
            kSilent);
  EXPECT_EQ(buffer, std::string(300, '\0'));
}

TEST_F(DwlogRead, GivesWhatWasReadBeforeAFailure) {
  support::put(kLog, old_entries(400, 1));
  std::string buffer(20000, '#');
  EXPECT_EQ(result_though({{SystemCall::kRead, EIO, 1}},
                          [&] { return dwlog_read(buffer.data(), buffer.size()); }),
            kSilent);
  const std::string text = text_in(buffer);
  EXPECT_EQ(text, old_entries(400, 1).substr(0, text.size()));
  EXPECT_EQ(text.back(), '\n');
}

// As of a log that is a device, in the worst case.
TEST_F(DwlogRead, EndsWithAFullBuffer) {
  std::filesystem::create_symlink("/dev/zero", kLog);
  EXPECT_EQ(text_read(300), std::string(298, '\n'));
}

TEST_F(DwlogRead, WaitsForNobodyWhoWritesAFifo) {
  ASSERT_EQ(::mkfifo(kLog, 0600), 0);
  EXPECT_EQ(text_read(), "");
}

TEST_F(DwlogRead, LeavesTheBufferWhereItHasNoSemaphore) {
  support::put(kLog, "old\n");
  std::string buffer(300, '#');
  const auto read = [&buffer] { return dwlog_read(buffer.data(), buffer.size()); };
  EXPECT_EQ(result_though({{SystemCall::kGetSemaphores, ENOSPC}}, read).value, -1);
  EXPECT_EQ(result_though({{SystemCall::kControlSemaphores, EACCES}}, read).value, -1);
  EXPECT_EQ(result_though({{SystemCall::kOperateSemaphores, EIDRM}}, read).value, -1);
  EXPECT_EQ(buffer, std::string(300, '#'));
  EXPECT_EQ(result_though({{SystemCall::kOperateSemaphores, EIDRM, 1}}, read).value, -1);
  EXPECT_STREQ(buffer.c_str(), "old\n") << "it is only given back too late";
}

TEST_F(DwlogRead, DoesWithoutTheFolder) {
  std::filesystem::remove_all(kFolder);
  EXPECT_EQ(text_read(), "");
  EXPECT_FALSE(exists(kFolder));
}

TEST_F(DwlogRead, ChangesNothing) {
  support::put(kLog, "one\n\n");
  ::chmod(kLog, 0600);
  EXPECT_EQ(text_read(), "one\n\n");
  EXPECT_EQ(contents_of(kLog), "one\n\n");
  EXPECT_EQ(mode_of(kLog), 0600U);
}

TEST_F(DwlogRead, RepeatsWhatSignalsInterrupt) {
  support::put(kLog, "old\n");
  std::string buffer(300, '#');
  EXPECT_EQ(result_though({{SystemCall::kOpen, EINTR, 0, 1},
                           {SystemCall::kRead, EINTR, 0, 1},
                           {SystemCall::kOperateSemaphores, EINTR, 0, 1}},
                          [&] { return dwlog_read(buffer.data(), buffer.size()); }),
            kSilent);
  EXPECT_STREQ(buffer.c_str(), "old\n");
}

TEST_F(DwlogRead, FinishesThoughCancelled) {
  support::put(kLog, "old\n");
  char buffer[300];
  EXPECT_TRUE(support::finishes_though_cancelled([&] { dwlog_read(buffer, sizeof buffer); }));
  EXPECT_STREQ(buffer, "old\n");
}

TEST_F(DwlogRead, FitsASmallStack) {
  support::put(kLog, std::string(40000, 'x'));
  support::run_on_small_stack([] {
    char buffer[300];
    EXPECT_EQ(dwlog_read(buffer, sizeof buffer), 0);
  });
}

}  // namespace
