// Adding entries to the persistent log.

#include <rkutils/export.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "dwlog_fixture.h"
#include "support/open_descriptors.h"
#include "support/put_file.h"
#include "support/small_stack.h"
#include "support/standard_output.h"
#include "support/though_cancelled.h"
#include "support/without_override.h"

namespace {

// Whether the functions at the end fail.
bool no_local_time = false;
bool no_time_text = false;

// The C library's function behind the one of this name here.
template <typename Function>
Function* next_of(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

using namespace std::string_literals;

using support::CallArguments;
using support::SystemCall;
using testing::ElementsAre;

class Dwlog : public DwlogTest {};

int add() { return dwlog(2, "new"); }

std::string minute_of(std::time_t time) {
  std::tm fields = {};
  ::localtime_r(&time, &fields);
  char text[32] = "";
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &fields);
  return text;
}

TEST_F(Dwlog, WritesCodeTimeAndText) {
  const std::string before = minute_of(std::time(nullptr));
  ASSERT_EQ(result_of([] { return dwlog(-5, "a text: %s"); }), kSilent);
  const std::string after = minute_of(std::time(nullptr));
  EXPECT_THAT(contents_of(kLog),
              testing::AnyOf("-5: " + before + " a text: %s\n", "-5: " + after + " a text: %s\n"));
}

TEST_F(Dwlog, PutsTheNewestFirst) {
  for (const char* text : {"one", "two", "three"}) ASSERT_EQ(dwlog(1, text), 0);
  EXPECT_EQ(log_text(), "1: TIME three\n1: TIME two\n1: TIME one\n");
}

TEST_F(Dwlog, WritesOnlyTheEntryWhereTheLogIsEmpty) {
  support::put(kLog, "");
  EXPECT_EQ(result_of(add), kSilent);
  EXPECT_EQ(log_text(), "2: TIME new\n");
}

TEST_F(Dwlog, KeepsThirtyThreeEntries) {
  for (int i = 1; i <= 33; ++i) ASSERT_EQ(dwlog(i, "text"), 0);
  const std::string all = log_text();
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 33);
  EXPECT_EQ(all.substr(all.size() - 13), "1: TIME text\n");

  ASSERT_EQ(dwlog(34, "text"), 0);
  EXPECT_EQ(log_text(), "34: TIME text\n" + all.substr(0, all.size() - 13));
}

TEST_F(Dwlog, DropsAllThatWasTooMuch) {
  support::put(kLog, old_entries(100, 1));
  ASSERT_EQ(add(), 0);
  EXPECT_EQ(contents_of(kLog).substr(contents_of(kLog).find('\n') + 1), old_entries(100, 69));
}

TEST_F(Dwlog, RefusesNoText) {
  support::put(kLog, "as it was");
  EXPECT_EQ(result_of([] { return dwlog(5, ""); }), (Result{-1, ""}));
  EXPECT_EQ(result_of([] { return dwlog(5, nullptr); }), (Result{-1, ""}));
  EXPECT_EQ(contents_of(kLog), "as it was");
  EXPECT_EQ(log_set(), -1) << "not even the semaphore is made";
}

TEST_F(Dwlog, EndsTheLastLine) {
  support::put(kLog, "no line feed");
  ASSERT_EQ(add(), 0);
  EXPECT_EQ(log_text(), "2: TIME new\nno line feed\n");
}

TEST_F(Dwlog, DropsEmptyLinesAndCountsThem) {
  support::put(kLog, "\n"s + "\0hidden\n"s + "seen\0hidden\n"s + old_entries(40, 1));
  ASSERT_EQ(add(), 0);
  EXPECT_EQ(log_text(), "2: TIME new\nseen\n" + without_times(old_entries(40, 12)));
}

TEST_F(Dwlog, DividesLongLines) {
  const std::string piece(1023, 'a');
  const std::string rest(10, 'b');
  support::put(kLog, piece + rest + "\n" + old_entries(40, 1));
  ASSERT_EQ(add(), 0);
  EXPECT_EQ(log_text(),
            "2: TIME new\n" + piece + "\n" + rest + "\n" + without_times(old_entries(40, 11)));
}

// Then the piece that is left of it is its line feed.
TEST_F(Dwlog, CountsALineThatFillsAPieceAsTwo) {
  support::put(kLog, std::string(1023, 'a') + "\n" + old_entries(40, 1));
  ASSERT_EQ(add(), 0);
  EXPECT_EQ(log_text(),
            "2: TIME new\n" + std::string(1023, 'a') + "\n" + without_times(old_entries(40, 11)));

  support::put(kLog, std::string(1022, 'a') + "\n" + old_entries(40, 1));
  ASSERT_EQ(add(), 0);
  EXPECT_EQ(log_text(),
            "2: TIME new\n" + std::string(1022, 'a') + "\n" + without_times(old_entries(40, 10)));
}

TEST_F(Dwlog, WritesTextsOfAnyLength) {
  const std::string head = "3: TIME ";
  for (const std::size_t length : {1000U, 1023U, 4071U, 4072U, 4073U, 4096U, 5000U, 100000U}) {
    const std::string text(length, 't');
    support::put(kLog, "old\n");
    ASSERT_EQ(dwlog(3, text.c_str()), 0);
    EXPECT_EQ(log_text(), head + text + "\nold\n") << length;
  }
}

TEST_F(Dwlog, DividesWhatItHasWrittenInOnePiece) {
  const std::string text(1100, 't');
  ASSERT_EQ(dwlog(3, text.c_str()), 0);
  ASSERT_EQ(add(), 0);
  const std::string all = log_text();
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 3);
  const std::size_t first = contents_of(kLog).find('\n') + 1;
  EXPECT_EQ(contents_of(kLog).find('\n', first), first + 1023);
}

TEST_F(Dwlog, WritesLineFeedsAsTheyAre) {
  ASSERT_EQ(dwlog(1, "one\ntwo\n"), 0);
  EXPECT_EQ(log_text(), "1: TIME one\ntwo\n\n");
}

TEST_F(Dwlog, KeepsAFullLogOfLongLines) {
  std::string old;
  for (int i = 0; i < 32; ++i) old += std::string(1000, static_cast<char>('A' + i)) + "\n";
  support::put(kLog, old + "dropped\n");
  ASSERT_EQ(add(), 0);
  EXPECT_EQ(log_text(), "2: TIME new\n" + old);
}

TEST_F(Dwlog, MakesTheModeWhateverTheUmask) {
  support::put(kLog, "old\n");
  ::chmod(kLog, 0600);
  for (const mode_t mask : {0000U, 0022U, 0777U}) {
    const mode_t before = ::umask(mask);
    EXPECT_EQ(add(), 0);
    ::umask(before);
    EXPECT_EQ(mode_of(kLog), 0664U);
  }
}

// ---- The temporary file ----

TEST_F(Dwlog, ReplacesWhatIsLeftOfAnAddition) {
  support::put(kTemporary, std::string(100000, 'x'));
  EXPECT_EQ(result_of(add), kSilent);
  EXPECT_EQ(log_text(), "2: TIME new\n");
}

TEST_F(Dwlog, FollowsNoLinkInThePlaceOfTheTemporaryFile) {
  support::put("/tmp/precious", "precious");
  for (const char* target : {"/tmp/precious", "/tmp/not-there"}) {
    std::filesystem::create_symlink(target, kTemporary);
    EXPECT_EQ(result_of(add), kSilent);
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(kLog)));
  }
  std::filesystem::create_hard_link("/tmp/precious", kTemporary);
  EXPECT_EQ(result_of(add), kSilent);
  EXPECT_EQ(contents_of("/tmp/precious"), "precious");
  EXPECT_FALSE(exists("/tmp/not-there"));
  EXPECT_EQ(log_text(), "2: TIME new\n2: TIME new\n2: TIME new\n");
  std::filesystem::remove("/tmp/precious");
}

TEST_F(Dwlog, ReplacesALinkInThePlaceOfTheLog) {
  support::put("/tmp/elsewhere", "old\n");
  std::filesystem::create_symlink("/tmp/elsewhere", kLog);
  EXPECT_EQ(result_of(add), kSilent);
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(kLog)));
  EXPECT_EQ(log_text(), "2: TIME new\nold\n");
  EXPECT_EQ(contents_of("/tmp/elsewhere"), "old\n");
  std::filesystem::remove("/tmp/elsewhere");
}

// At each step the log is the old one, or the new one on the medium.
TEST_F(Dwlog, IsOnTheMediumBeforeItReplacesTheOldOne) {
  support::put(kLog, "old\n");
  std::vector<std::string> steps;
  const auto look = [&steps](const char* step) {
    return [&steps, step](const CallArguments&) -> std::optional<std::int64_t> {
      const std::string temporary = exists(kTemporary) ? contents_of(kTemporary) : "none";
      steps.push_back(step + (": " + contents_of(kLog)) + without_times(temporary));
      EXPECT_EQ(mode_of(kTemporary), 0664U);
      return {};
    };
  };
  EXPECT_EQ(result_though({{SystemCall::kSynchronise, 0, 0, 0, {}, look("fsync")},
                           {SystemCall::kRename, 0, 0, 0, {}, look("rename")}},
                          add),
            kSilent);
  EXPECT_THAT(steps,
              ElementsAre("fsync: old\n2: TIME new\nold\n", "rename: old\n2: TIME new\nold\n"));
}

// Nobody writes to it.
TEST_F(Dwlog, ReplacesAFifoInThePlaceOfTheLog) {
  ASSERT_EQ(::mkfifo(kLog, 0600), 0);
  EXPECT_EQ(result_of(add), kSilent);
  EXPECT_EQ(log_text(), "2: TIME new\n");
}

// A program that another thread starts meanwhile gets none of them.
TEST_F(Dwlog, HasDescriptorsThatNoProgramInherits) {
  support::put(kLog, "old\n");
  std::vector<std::string> files;
  const auto look = [&files](const CallArguments&) -> std::optional<std::int64_t> {
    for (const auto& [descriptor, file] : support::open_descriptors()) {
      if (file.rfind(kFolder, 0) != 0) continue;
      files.push_back(file);
      EXPECT_EQ(::fcntl(descriptor, F_GETFD), FD_CLOEXEC) << file;
    }
    return {};
  };
  EXPECT_EQ(result_though({{SystemCall::kRead, 0, 0, 0, {}, look},
                           {SystemCall::kSynchronise, 0, 0, 0, {}, look}},
                          add),
            kSilent);
  EXPECT_THAT(files, testing::IsSupersetOf({kFolder, kLog, kTemporary}));
}

// ---- Failures ----

// A failure leaves the log, and the semaphore locked.
class DwlogFailure : public DwlogTest {
 protected:
  DwlogFailure() { support::put(kLog, "old\n"); }

  static void expect_old() {
    EXPECT_EQ(contents_of(kLog), "old\n");
    EXPECT_FALSE(exists(kTemporary));
    EXPECT_EQ(log_value(), 0);
    EXPECT_EQ(result_of(add), kSilent) << "frees the semaphore";
    EXPECT_EQ(log_value(), 1);
    EXPECT_EQ(log_text(), "2: TIME new\nold\n");
  }
};

TEST_F(DwlogFailure, ToTellTheTime) {
  no_local_time = true;
  EXPECT_EQ(result_of(add), failure("localtime", EOVERFLOW));
  no_local_time = false;
  expect_old();
}

TEST_F(DwlogFailure, ToWriteTheTime) {
  no_time_text = true;
  EXPECT_EQ(result_of(add), failure("strftime", ERANGE));
  no_time_text = false;
  expect_old();
}

TEST_F(DwlogFailure, ToOpenAFolderThatIsNotThere) {
  std::filesystem::remove_all(kFolder);
  EXPECT_EQ(result_of(add), failure("open", ENOENT));
  EXPECT_EQ(log_value(), 0);
}

TEST_F(DwlogFailure, ToOpenAFileAsTheFolder) {
  std::filesystem::remove_all(kFolder);
  support::put(kFolder, "");
  EXPECT_EQ(result_of(add), failure("open", ENOTDIR));
  std::filesystem::remove(kFolder);
}

TEST_F(DwlogFailure, ToReplaceAFolderByTheTemporaryFile) {
  std::filesystem::create_directory(kTemporary);
  EXPECT_EQ(result_of(add), failure("open", EEXIST));
  EXPECT_TRUE(std::filesystem::is_directory(kTemporary));
  std::filesystem::remove(kTemporary);
  expect_old();
}

TEST_F(DwlogFailure, ToOpenWithoutDescriptors) {
  for (unsigned spare = 0; spare < 3; ++spare) {
    Result result = {};
    const std::string messages = support::standard_error_of([&] {
      const support::NoMoreDescriptors none(spare);
      result.value = add();
    });
    EXPECT_EQ(result.value, -1);
    EXPECT_EQ(messages, message("open", EMFILE)) << spare;
  }
  expect_old();
}

TEST_F(DwlogFailure, ToReadALogThatIsThere) {
  ::chmod(kLog, 0);
  ::chmod(kFolder, 0777);
  EXPECT_EQ(result_of([] {
              int value = 0;
              support::run_without_override([&] { value = add(); });
              return value;
            }),
            failure("open", EACCES));
  expect_old();
}

TEST_F(DwlogFailure, ToWrite) {
  EXPECT_EQ(result_though({{SystemCall::kWrite, ENOSPC, 0, 1}}, add), failure("write", ENOSPC));
  expect_old();
}

TEST_F(DwlogFailure, ToWriteALaterPiece) {
  support::put(kLog, std::string(20000, 'x'));
  EXPECT_EQ(result_though({{SystemCall::kWrite, EDQUOT, 2, 1}}, add), failure("write", EDQUOT));
  EXPECT_EQ(contents_of(kLog), std::string(20000, 'x'));
  EXPECT_FALSE(exists(kTemporary));
}

TEST_F(DwlogFailure, ToWriteALongText) {
  EXPECT_EQ(result_though({{SystemCall::kWrite, ENOSPC, 1, 1}},
                          [] { return dwlog(1, std::string(5000, 'x').c_str()); }),
            failure("write", ENOSPC));
  expect_old();
}

TEST_F(DwlogFailure, ToBringTheNewLogToTheMedium) {
  EXPECT_EQ(result_though({{SystemCall::kSynchronise, EIO}}, add), failure("write", EIO));
  expect_old();
}

// The temporary file is closed, and that gives an error.
support::FailingCall failing_close(int error) {
  support::FailingCall call = {SystemCall::kClose, 0};
  call.decide = [error](const CallArguments& arguments) -> std::optional<std::int64_t> {
    const auto descriptor = static_cast<int>(arguments[0]);
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    std::error_code none;
    if (std::filesystem::read_symlink(link, none) != kTemporary) return {};
    ::close(descriptor);
    return -error;
  };
  return call;
}

TEST_F(DwlogFailure, ToClose) {
  EXPECT_EQ(result_though({failing_close(EIO)}, add), failure("close", EIO));
  expect_old();
}

TEST_F(DwlogFailure, ToCloseIsNoneWhereASignalInterruptsIt) {
  EXPECT_EQ(result_though({failing_close(EINTR)}, add), kSilent);
  EXPECT_EQ(log_text(), "2: TIME new\nold\n");
}

TEST_F(DwlogFailure, ToRename) {
  EXPECT_EQ(result_though({{SystemCall::kRename, EROFS}}, add), failure("rename", EROFS));
  expect_old();
}

TEST_F(DwlogFailure, ToReplaceAFolderByTheLog) {
  std::filesystem::remove(kLog);
  std::filesystem::create_directory(kLog);
  EXPECT_EQ(result_of(add), failure("rename", EISDIR));
  EXPECT_FALSE(exists(kTemporary));
  EXPECT_EQ(log_value(), 0);
}

// The mode is not worth losing an entry.
TEST_F(DwlogFailure, ToSetTheModeIsNone) {
  EXPECT_EQ(result_though({{SystemCall::kChangeModeByDescriptor, EPERM}}, add), kSilent);
  EXPECT_EQ(log_text(), "2: TIME new\nold\n");
}

TEST_F(DwlogFailure, LeavesErrno) {
  int error = 0;
  result_though({{SystemCall::kRename, EROFS}}, [&error] {
    const int value = add();
    error = errno;
    return value;
  });
  EXPECT_EQ(error, EROFS);
}

// ---- Threads and signals ----

TEST_F(Dwlog, RepeatsWhatSignalsInterrupt) {
  support::put(kLog, "old\n");
  EXPECT_EQ(result_though({{SystemCall::kWrite, EINTR, 0, 1},
                           {SystemCall::kRead, EINTR, 0, 1},
                           {SystemCall::kSynchronise, EINTR, 0, 1},
                           {SystemCall::kOpen, EINTR, 0, 1},
                           {SystemCall::kOperateSemaphores, EINTR, 0, 1}},
                          add),
            kSilent);
  EXPECT_EQ(result_though({{SystemCall::kOperateSemaphores, EINTR, 1, 1}}, add), kSilent);
  EXPECT_EQ(log_text(), "2: TIME new\n2: TIME new\nold\n");
}

TEST_F(Dwlog, FinishesThoughCancelled) {
  EXPECT_TRUE(support::finishes_though_cancelled(add));
  EXPECT_EQ(log_text(), "2: TIME new\n");
  EXPECT_EQ(log_value(), 1);
}

TEST_F(Dwlog, IsForSeveralThreadsAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kEntries = 8;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  std::atomic<int> failures = 0;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&failures, thread] {
      for (int i = 0; i < kEntries; ++i) {
        const std::string text = "number " + std::to_string(i);
        if (dwlog(thread, text.c_str()) != 0) ++failures;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);

  std::vector<std::string> expected;
  for (int thread = 0; thread < kThreads; ++thread) {
    for (int i = 0; i < kEntries; ++i) {
      expected.push_back(std::to_string(thread) + ": TIME number " + std::to_string(i));
    }
  }
  std::vector<std::string> lines;
  std::istringstream text(log_text());
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  EXPECT_THAT(lines, testing::UnorderedElementsAreArray(expected));
}

TEST_F(Dwlog, FitsASmallStack) {
  support::put(kLog, std::string(40000, 'x'));
  support::run_on_small_stack([] { EXPECT_EQ(add(), 0); });
}

}  // namespace

// Before the C library's.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" RK_API std::tm* localtime_r(const std::time_t* time, std::tm* fields) {
  if (!no_local_time) return next_of<decltype(localtime_r)>("localtime_r")(time, fields);
  errno = EOVERFLOW;
  return nullptr;
}

extern "C" RK_API std::size_t strftime(char* text, std::size_t size, const char* format,
                                       const std::tm* fields) {
  if (!no_time_text) return next_of<decltype(strftime)>("strftime")(text, size, format, fields);
  errno = ERANGE;
  return 0;
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
