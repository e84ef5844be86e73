// How those who use the persistent log take turns.

#include <rkutils/internal/unique_fd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>

#include "dwlog_fixture.h"
#include "support/case_name.h"
#include "support/in_child.h"
#include "support/put_file.h"
#include "support/stopped_clock.h"
#include "support/stopwatch.h"

namespace {

using rkutils::internal::UniqueFd;
using support::CallArguments;
using support::CaseName;
using support::StoppedClock;
using support::SystemCall;
using testing::ElementsAre;
using testing::Ge;

int add() { return dwlog(2, "new"); }

int read() {
  static char buffer[5000];
  return dwlog_read(buffer, sizeof buffer);
}

struct User {
  const char* name;
  int (*call)();
  const char* lock;  // the texts of failing to lock and to unlock
  const char* unlock;
  const char* done;  // the log when it was done
};

// All who use the semaphore. The log has an entry.
class DwlogSemaphore : public DwlogTest, public testing::WithParamInterface<User> {
 protected:
  DwlogSemaphore() { support::put(kLog, "old\n"); }

  static Result call() { return result_of(GetParam().call); }
  static Result call_though(const std::vector<support::FailingCall>& calls) {
    return result_though(calls, GetParam().call);
  }

  static void expect_old() { EXPECT_EQ(contents_of(kLog), "old\n"); }
  static void expect_done() { EXPECT_EQ(log_text(), GetParam().done); }
};

INSTANTIATE_TEST_SUITE_P(Of, DwlogSemaphore,
                         testing::Values(User{"Adding", add, "lock sem", "semop",
                                              "2: TIME new\nold\n"},
                                         User{"Reading", read, "semop", "semop", "old\n"},
                                         User{"Clearing", dwlog_clear, "semop", "unlock sem", ""}),
                         CaseName());

// ---- The set ----

TEST_P(DwlogSemaphore, IsMadeForEverybody) {
  ASSERT_EQ(log_set(), -1);
  const mode_t before = ::umask(0077);
  EXPECT_EQ(call(), kSilent);
  ::umask(before);
  ASSERT_NE(log_set(), -1);
  semid_ds state = {};
  union {
    int value;
    semid_ds* state;
  } argument = {};
  argument.state = &state;
  ASSERT_EQ(::semctl(log_set(), 0, IPC_STAT, argument), 0);
  EXPECT_EQ(state.sem_perm.mode & 0777U, 0666U);
  EXPECT_EQ(state.sem_nsems, 1U);
  EXPECT_EQ(log_value(), 1);
}

TEST_P(DwlogSemaphore, IsFreedByWhoComes) {
  ASSERT_EQ(call(), kSilent);
  const int set = log_set();
  for (const int value : {0, 1, 5}) {
    ASSERT_EQ(::semctl(set, 0, SETVAL, value), 0);
    EXPECT_EQ(call(), kSilent);
    EXPECT_EQ(log_value(), 1) << value;
  }
  EXPECT_EQ(log_set(), set);
}

// Nothing is undone when the process ends: what has the value 1 keeps it.
TEST_P(DwlogSemaphore, IsNotUndone) {
  support::in_child([] { return std::to_string(GetParam().call()); });
  EXPECT_EQ(log_value(), 1);
}

// Above all without SEM_UNDO: an addition that failed leaves it taken, also when its process ends.
TEST_P(DwlogSemaphore, IsTakenAndGivenBackWithoutFlags) {
  std::vector<std::array<int, 4>> operations;
  const auto look = [&operations](const CallArguments& arguments) -> std::optional<std::int64_t> {
    const sembuf& operation = *support::pointer_to<sembuf>(arguments[1]);
    operations.push_back(
        {static_cast<int>(arguments[2]), operation.sem_num, operation.sem_op, operation.sem_flg});
    return {};
  };
  EXPECT_EQ(call_though({{SystemCall::kOperateSemaphores, 0, 0, 0, {}, look}}), kSilent);
  using Operation = std::array<int, 4>;
  EXPECT_THAT(operations, ElementsAre(Operation{1, 0, -1, 0}, Operation{1, 0, 1, 0}));
}

TEST_P(DwlogSemaphore, IsTakenMeanwhile) {
  std::vector<int> values;
  const auto look = [&values](const CallArguments&) -> std::optional<std::int64_t> {
    values.push_back(log_value());
    return {};
  };
  EXPECT_EQ(call_though({{SystemCall::kOperateSemaphores, 0, 0, 0, {}, look}}), kSilent);
  EXPECT_EQ(values, (std::vector<int>{1, 0})) << "before taking it and before giving it back";
}

TEST_P(DwlogSemaphore, HasItsKeyFromAFile) {
  const std::string aside = std::string(kKeyFile) + ".aside";
  std::filesystem::rename(kKeyFile, aside);
  EXPECT_EQ(call(), failure("ftok", ENOENT));
  std::filesystem::rename(aside, kKeyFile);
  expect_old();
  EXPECT_EQ(call(), kSilent);
  expect_done();
}

TEST_P(DwlogSemaphore, CannotBeHad) {
  using Request = std::array<int, 2>;
  std::vector<Request> requests;
  const auto refuse = [&requests](const CallArguments& arguments) -> std::optional<std::int64_t> {
    requests.push_back({static_cast<int>(arguments[1]), static_cast<int>(arguments[2])});
    return -(requests.size() == 1 ? EACCES : ENOENT);
  };
  EXPECT_EQ(call_though({{SystemCall::kGetSemaphores, 0, 0, 0, {}, refuse}}),
            (Result{-1, message("semget", EACCES) + message("semget", ENOENT)}));
  EXPECT_THAT(requests, ElementsAre(Request{1, IPC_CREAT | 0666}, Request{1, 0}));
  expect_old();
}

TEST_P(DwlogSemaphore, IsFoundWhereItCannotBeMade) {
  ASSERT_EQ(call(), kSilent);
  support::put(kLog, "old\n");
  ASSERT_EQ(::semctl(log_set(), 0, SETVAL, 0), 0);
  EXPECT_EQ(call_though({{SystemCall::kGetSemaphores, EACCES, 0, 1}}),
            (Result{0, message("semget", EACCES)}));
  EXPECT_EQ(log_value(), 1);
  expect_done();
}

TEST_P(DwlogSemaphore, CannotBeFreed) {
  EXPECT_EQ(call_though({{SystemCall::kControlSemaphores, EACCES}}), failure("semctl", EACCES));
  expect_old();
}

TEST_P(DwlogSemaphore, CannotBeTaken) {
  EXPECT_EQ(call_though({{SystemCall::kOperateSemaphores, EIDRM, 0, 1}}),
            failure(GetParam().lock, EIDRM));
  expect_old();
  EXPECT_EQ(log_value(), 1);
}

TEST_P(DwlogSemaphore, CannotBeGivenBack) {
  EXPECT_EQ(call_though({{SystemCall::kOperateSemaphores, EIDRM, 1, 1}}),
            failure(GetParam().unlock, EIDRM));
  expect_done();
  EXPECT_EQ(log_value(), 0);
}

TEST_P(DwlogSemaphore, MayBeRemovedMeanwhile) {
  support::FailingCall removal = {SystemCall::kOperateSemaphores, 0};
  removal.decide = [](const CallArguments&) -> std::optional<std::int64_t> {
    remove_log_set();
    return {};
  };
  EXPECT_EQ(call_though({removal}), failure(GetParam().lock, EINVAL));
  expect_old();
  EXPECT_EQ(call(), kSilent);
}

// Who took it between being freed and being taken here, and died with it.
TEST_P(DwlogSemaphore, IsFreedAgainAfterASecond) {
  support::FailingCall thief = {SystemCall::kOperateSemaphores, 0};
  int calls = 0;
  thief.decide = [&calls](const CallArguments&) -> std::optional<std::int64_t> {
    if (++calls == 1) ::semctl(log_set(), 0, SETVAL, 0);
    return {};
  };
  const support::Stopwatch stopwatch;
  EXPECT_EQ(call_though({thief}), kSilent);
  EXPECT_THAT(stopwatch.elapsed(), Ge(std::chrono::milliseconds(999)));
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(log_value(), 1);
  expect_done();
}

TEST_P(DwlogSemaphore, CannotBeFreedAgain) {
  support::FailingCall thief = {SystemCall::kOperateSemaphores, EAGAIN};
  EXPECT_EQ(call_though({thief, {SystemCall::kControlSemaphores, EIDRM, 1}}),
            failure(GetParam().lock, EIDRM));
  expect_old();
}

// ---- The folder ----

class DwlogTurn : public DwlogSemaphore {};

INSTANTIATE_TEST_SUITE_P(Of, DwlogTurn,
                         testing::Values(User{"Adding", add, "lock sem", "semop",
                                              "2: TIME new\nold\n"},
                                         User{"Clearing", dwlog_clear, "semop", "unlock sem", ""}),
                         CaseName());

bool is_locked() {
  const UniqueFd folder(::open(kFolder, O_RDONLY | O_CLOEXEC));
  return ::flock(folder.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

TEST_P(DwlogTurn, IsHadFromBeginningToEnd) {
  std::vector<bool> locked;
  const auto look = [&locked](const CallArguments&) -> std::optional<std::int64_t> {
    locked.push_back(is_locked());
    return {};
  };
  EXPECT_EQ(call_though({{SystemCall::kGetSemaphores, 0, 0, 0, {}, look},
                         {SystemCall::kOperateSemaphores, 0, 0, 0, {}, look}}),
            kSilent);
  EXPECT_EQ(locked, (std::vector<bool>{true, true, true}));
  EXPECT_FALSE(is_locked());
}

TEST_P(DwlogTurn, IsWaitedForTenSeconds) {
  const UniqueFd folder(::open(kFolder, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(folder.get(), LOCK_EX), 0);
  StoppedClock clock;
  const timespec before = clock.now();
  EXPECT_EQ(call(), failure(GetParam().lock, EWOULDBLOCK));
  EXPECT_EQ(clock.now().tv_sec - before.tv_sec, 10);
  expect_old();

  ASSERT_EQ(::flock(folder.get(), LOCK_UN), 0);
  EXPECT_EQ(call(), kSilent);
  expect_done();
}

TEST_P(DwlogTurn, ComesWhenTheOtherOnesEnds) {
  UniqueFd folder(::open(kFolder, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(folder.get(), LOCK_EX), 0);
  StoppedClock clock;
  clock.at_pauses([&folder](int count) {
    if (count == 5) folder.reset();
  });
  EXPECT_EQ(call(), kSilent);
  EXPECT_EQ(clock.take_pauses_us(), std::vector<std::int64_t>(5, 1000));
  expect_done();
}

TEST_P(DwlogTurn, CannotBeHad) {
  EXPECT_EQ(call_though({{SystemCall::kLockFile, ENOLCK}}), failure(GetParam().lock, ENOLCK));
  expect_old();
  EXPECT_EQ(call(), kSilent);
}

TEST_F(DwlogTest, IsReadWhileOthersChangeIt) {
  support::put(kLog, "old\n");
  const UniqueFd folder(::open(kFolder, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(folder.get(), LOCK_EX), 0);
  const StoppedClock clock;
  EXPECT_EQ(result_of(read), kSilent);
}

}  // namespace
