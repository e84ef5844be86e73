// Locks that are semaphores of System V.

#include <rkutils/semaphore.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lock_fixture.h"
#include "support/allocation_faults.h"
#include "support/failing_calls.h"
#include "support/interruption.h"
#include "support/member_type.h"
#include "support/put_file.h"
#include "support/rounds.h"
#include "support/stopped_clock.h"
#include "support/though_cancelled.h"
#include "support/virtual_slot.h"
#include "support/without_override.h"

namespace {

using rkutils::internal::UniqueFd;
using support::run_with_failing_calls;
using support::StoppedClock;
using support::SystemCall;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kPath = "/tmp/semaphore-test";
constexpr int kProject = 7;

using Fields = std::array<int, 3>;  // number, key, set

static_assert(std::has_virtual_destructor_v<CSemaphore>);
static_assert(!std::is_copy_constructible_v<CSemaphore> && !std::is_copy_assignable_v<CSemaphore>);
static_assert(support::kIs<&CSemaphore::init, int (CSemaphore::*)()>);
static_assert(support::kIs<&CSemaphore::lock, int (CSemaphore::*)()>);
static_assert(support::kIs<&CSemaphore::unlock, int (CSemaphore::*)()>);

class Semaphore : public LockTest {
 protected:
  Semaphore() { support::put(kPath, "text"); }
  ~Semaphore() override { ::unlink(kPath); }

  static int set() { return set_of(kPath, kProject); }

  // One of those that exclude each other.
  static std::unique_ptr<CSemaphore> joined() {
    auto semaphore = std::make_unique<CSemaphore>(kPath, kProject);
    EXPECT_EQ(semaphore->init(), 0);
    return semaphore;
  }

  static Fields fields_of(const CSemaphore& semaphore) {
    Fields fields = {};
    std::memcpy(fields.data(),
                reinterpret_cast<const char*>(&semaphore) + sizeof(void*) + sizeof(std::string),
                sizeof fields);
    return fields;
  }
};

// ---- Construction ----

TEST_F(Semaphore, HasNoVirtualMembersButItsDestructor) {
  EXPECT_GT(support::virtual_slot(&CSemaphore::init), 100U);
  EXPECT_GT(support::virtual_slot(&CSemaphore::lock), 100U);
  EXPECT_GT(support::virtual_slot(&CSemaphore::unlock), 100U);
}

TEST_F(Semaphore, HasPathNumberKeyAndSetInThisOrder) {
  CSemaphore semaphore(kPath, kProject);
  EXPECT_EQ(fields_of(semaphore), (Fields{kProject, -1, -1}));
  std::string pathname;
  const auto* const text = reinterpret_cast<const std::string*>(
      reinterpret_cast<const char*>(&semaphore) + sizeof(void*));
  EXPECT_EQ(*text, kPath);
  EXPECT_EQ(semaphore.init(), 0);
  EXPECT_EQ(fields_of(semaphore), (Fields{kProject, ::ftok(kPath, kProject), set()}));
}

TEST_F(Semaphore, LooksForNothingYet) {
  const CSemaphore semaphore(kPath, kProject);
  EXPECT_EQ(set(), -1);
}

TEST_F(Semaphore, ComplainsAboutAnEmptyPath) {
  const CSemaphore semaphore("", kProject);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore - constructed with empty pathname!")));
}

TEST_F(Semaphore, ComplainsAboutTheNumber0) {
  const CSemaphore semaphore(kPath, 0);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore - constructed with invalid projectID!")));
}

TEST_F(Semaphore, ComplainsAboutBoth) {
  const CSemaphore semaphore("", 0);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore - constructed with empty pathname!"),
                                       err("CSemaphore - constructed with invalid projectID!")));
}

TEST_F(Semaphore, HasNoPathWithoutMemoryForIt) {
  const std::string pathname(200, 'x');
  std::unique_ptr<CSemaphore> semaphore;
  {
    const support::FailingAllocation second(2);  // the first is the object's own
    semaphore = std::make_unique<CSemaphore>(pathname, kProject);
    EXPECT_TRUE(second.happened());
  }
  EXPECT_EQ(semaphore->init(), -1);
  EXPECT_THAT(log_.take(),
              ElementsAre(err("CSemaphore - constructed with empty pathname!"),
                          err("CSemaphore::init() - ftok failed (errno=2) for file ")));
}

// ---- init() ----

using SemaphoreInit = Semaphore;

TEST_F(SemaphoreInit, MakesAFreeSetOfOneForItsOwnerAlone) {
  const mode_t mask = ::umask(0);
  CSemaphore semaphore(kPath, kProject);
  EXPECT_EQ(semaphore.init(), 0);
  ::umask(mask);
  semid_ds state = {};
  ASSERT_EQ(::semctl(set(), 0, IPC_STAT, &state), 0);
  EXPECT_EQ(state.sem_nsems, 1U);
  EXPECT_EQ(state.sem_perm.mode & 0777U, 0600U);
  EXPECT_NE(state.sem_otime, 0);
  EXPECT_EQ(value_of(set()), 1);
}

// It would be taken back when the process that made it ends.
TEST_F(SemaphoreInit, FreesItForGood) {
  EXPECT_TRUE(Fellow([](Fellow&) { joined(); }).ends());
  EXPECT_EQ(value_of(set()), 1);
}

TEST_F(SemaphoreInit, JoinsASetAsItIs) {
  const auto first = joined();
  EXPECT_EQ(first->lock(), 0);
  const auto second = joined();
  EXPECT_EQ(value_of(set()), 0);
  EXPECT_EQ(fields_of(*first), fields_of(*second));
  EXPECT_EQ(first->unlock(), 0);
  const auto third = joined();
  EXPECT_EQ(value_of(set()), 1);
}

TEST_F(SemaphoreInit, MayBeRepeated) {
  const auto semaphore = joined();
  EXPECT_EQ(semaphore->init(), 0);
  EXPECT_EQ(value_of(set()), 1);
}

TEST_F(SemaphoreInit, LeavesTheSetToOthersInTheEnd) {
  joined();
  EXPECT_EQ(value_of(set()), 1);
}

TEST_F(SemaphoreInit, FailsWithoutTheFile) {
  ::unlink(kPath);
  CSemaphore semaphore(kPath, kProject);
  EXPECT_EQ(semaphore.init(), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore::init() - ftok failed (errno=2) for file "
                                           "/tmp/semaphore-test")));
  EXPECT_EQ(fields_of(semaphore), (Fields{kProject, -1, -1}));
}

TEST_F(SemaphoreInit, FailsForNumbersThatCountAsZeroBeforeTheFileIsLookedAt) {
  for (const int project : {0, 256, -256, 1 << 30}) {
    for (const char* const path : {kPath, "/tmp/missing"}) {
      CSemaphore semaphore(path, project);
      EXPECT_EQ(semaphore.init(), -1);
      std::vector<support::LogLine> lines = log_.take();
      ASSERT_THAT(lines, SizeIs(project == 0 ? 2 : 1));
      EXPECT_EQ(lines.back(),
                err("CSemaphore::init() - ftok failed (errno=22) for file " + std::string(path)));
    }
  }
}

TEST_F(SemaphoreInit, CountsTheLowEightBitsOfTheNumber) {
  CSemaphore semaphore(kPath, 256 + kProject);
  EXPECT_EQ(semaphore.init(), 0);
  EXPECT_NE(set(), -1);
}

TEST_F(SemaphoreInit, FailsForAPathWithANul) {
  CSemaphore semaphore(std::string(kPath) + '\0' + "x", kProject);
  EXPECT_EQ(semaphore.init(), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore::init() - ftok failed (errno=22) for file "
                                           "/tmp/semaphore-test")));
}

support::LogLine unobtained(int error) {
  return err("CSemaphore::init() - unable to obtain semaphore-set - errno=" +
             std::to_string(error));
}

TEST_F(SemaphoreInit, FailsWhenThereCanBeNoMoreSets) {
  CSemaphore semaphore(kPath, kProject);
  run_with_failing_calls({{SystemCall::kGetSemaphores, ENOSPC}},
                         [&] { EXPECT_EQ(semaphore.init(), -1); });
  EXPECT_THAT(log_.take(), ElementsAre(unobtained(ENOSPC)));
  EXPECT_EQ(fields_of(semaphore), (Fields{kProject, ::ftok(kPath, kProject), -1}));
}

TEST_F(SemaphoreInit, FailsWhenTheSetCannotBeJoined) {
  joined();
  CSemaphore semaphore(kPath, kProject);
  run_with_failing_calls({{SystemCall::kGetSemaphores, ENOMEM, 1}},
                         [&] { EXPECT_EQ(semaphore.init(), -1); });
  EXPECT_THAT(log_.take(), ElementsAre(unobtained(ENOMEM)));
}

TEST_F(SemaphoreInit, FailsWhenTheKernelDoesNotTellTheSetsState) {
  CSemaphore semaphore(kPath, kProject);
  run_with_failing_calls({{SystemCall::kControlSemaphores, EIDRM}},
                         [&] { EXPECT_EQ(semaphore.init(), -1); });
  EXPECT_THAT(log_.take(), ElementsAre(unobtained(EIDRM)));
  // Otherwise it would wait for ever for a set that nobody has freed.
  EXPECT_EQ(semaphore.lock(), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore::lock() - invalid semId!")));
}

TEST_F(SemaphoreInit, FailsForAnotherUsersSet) {
  joined();
  Fellow nobody([](Fellow& test) {
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) return;
    CSemaphore semaphore(kPath, kProject);
    test.tell(semaphore.init());
  });
  EXPECT_EQ(nobody.hear(), -1);
  EXPECT_TRUE(nobody.ends());
  EXPECT_THAT(log_.take(), ElementsAre(unobtained(EACCES)));
}

TEST_F(SemaphoreInit, FailsWhenTheSetCannotBeFreedAndLeavesThatToTheNext) {
  CSemaphore semaphore(kPath, kProject);
  run_with_failing_calls({{SystemCall::kOperateSemaphores, ENOSPC}},
                         [&] { EXPECT_EQ(semaphore.init(), -1); });
  EXPECT_THAT(log_.take(),
              ElementsAre(err("CSemaphore::init() - semop() failed - unable to initialize "
                              "semaphore - errno=28")));
  // Otherwise it would wait for ever.
  EXPECT_EQ(semaphore.lock(), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore::lock() - invalid semId!")));
  joined();
  EXPECT_EQ(value_of(set()), 1);
}

TEST_F(SemaphoreInit, KeepsAnEarlierSetWhenItFails) {
  const auto semaphore = joined();
  ::unlink(kPath);
  EXPECT_EQ(semaphore->init(), -1);
  EXPECT_THAT(log_.take(), SizeIs(1));
  EXPECT_EQ(semaphore->lock(), 0);
  EXPECT_EQ(semaphore->unlock(), 0);
}

TEST_F(SemaphoreInit, GoesOnThroughSignals) {
  CSemaphore semaphore(kPath, kProject);
  run_with_failing_calls({{SystemCall::kOperateSemaphores, EINTR, 0, 2}},
                         [&] { EXPECT_EQ(semaphore.init(), 0); });
  EXPECT_EQ(value_of(set()), 1);
}

// ---- Sets that nobody has freed ----

using SemaphoreLeftNew = Semaphore;

// Pauses of a millisecond.
auto so_many(int pauses) { return AllOf(SizeIs(pauses), Each(1000)); }

TEST_F(SemaphoreLeftNew, IsFreedAfter100Milliseconds) {
  const int left = leave_new_set(kPath, kProject);
  StoppedClock clock;
  const auto semaphore = joined();
  EXPECT_THAT(clock.take_pauses_us(), so_many(100));
  EXPECT_EQ(set(), left);
  EXPECT_EQ(value_of(left), 1);
  EXPECT_EQ(semaphore->lock(), 0);
  EXPECT_EQ(semaphore->unlock(), 0);
}

TEST_F(SemaphoreLeftNew, IsWaitedForAsLongAsItsCreatorNeeds) {
  const int left = leave_new_set(kPath, kProject);
  StoppedClock clock;
  clock.at_pauses([left](int pause) {
    if (pause == 3) add_to(left, 1);
  });
  joined();
  EXPECT_THAT(clock.take_pauses_us(), so_many(3));
  EXPECT_EQ(value_of(left), 1);
}

TEST_F(SemaphoreLeftNew, IsFreedForGood) {
  leave_new_set(kPath, kProject);
  EXPECT_TRUE(Fellow([](Fellow&) { joined(); }).ends());
  EXPECT_EQ(value_of(set()), 1);
}

// Two who found it new at the same time: the other has its turn, and has freed and taken it.
TEST_F(SemaphoreLeftNew, IsFreedOnce) {
  const int left = leave_new_set(kPath, kProject);
  UniqueFd turn(::open(kLibrary, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(turn.get(), LOCK_SH), 0);  // no turn is shared
  StoppedClock clock;
  clock.at_pauses([&](int pause) {
    if (pause != 110) return;
    add_to(left, 1);
    add_to(left, -1);
    turn.reset();
  });
  joined();
  EXPECT_THAT(clock.take_pauses_us(), so_many(110));
  EXPECT_EQ(value_of(left), 0);
}

// The others have taken it for dead, and have freed and taken the set.
TEST_F(SemaphoreLeftNew, IsNotFreedOnceMoreByItsCreator) {
  UniqueFd turn(::open(kLibrary, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(turn.get(), LOCK_EX), 0);
  StoppedClock clock;
  clock.at_pauses([&](int pause) {
    if (pause != 50) return;
    add_to(set(), 1);
    add_to(set(), -1);
    turn.reset();
  });
  joined();
  EXPECT_THAT(clock.take_pauses_us(), so_many(50));
  EXPECT_EQ(value_of(set()), 0);
}

TEST_F(SemaphoreLeftNew, IsFreedByItsCreatorWhoeverElseLocksTheFile) {
  const UniqueFd file(::open(kLibrary, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(file.get(), LOCK_EX), 0);
  StoppedClock clock;
  joined();
  EXPECT_THAT(clock.take_pauses_us(), so_many(1000));
  EXPECT_EQ(value_of(set()), 1);
}

TEST_F(SemaphoreLeftNew, IsNotUsedWhileSomebodyElseLocksTheFile) {
  const int left = leave_new_set(kPath, kProject);
  const UniqueFd file(::open(kLibrary, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(file.get(), LOCK_EX), 0);
  StoppedClock clock;
  CSemaphore semaphore(kPath, kProject);
  EXPECT_EQ(semaphore.init(), -1);
  EXPECT_THAT(log_.take(), ElementsAre(unobtained(EAGAIN)));
  EXPECT_THAT(clock.take_pauses_us(), so_many(100 + 1000));
  EXPECT_EQ(value_of(left), 0);
}

TEST_F(SemaphoreLeftNew, IsFreedWhoeverLocksItsOwnFile) {
  const UniqueFd file(::open(kPath, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(file.get(), LOCK_EX), 0);
  StoppedClock clock;
  joined();
  EXPECT_THAT(clock.take_pauses_us(), IsEmpty());
  EXPECT_EQ(value_of(set()), 1);
}

// Locks of this kind end as soon as their process closes the file, by whatever descriptor.
TEST_F(SemaphoreLeftNew, IsFreedWithoutOpeningItsFile) {
  const UniqueFd file(::open(kPath, O_RDWR | O_CLOEXEC));
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  ASSERT_EQ(::fcntl(file.get(), F_SETLK, &whole), 0);
  leave_new_set(kPath, kProject);
  joined();
  ::semctl(set(), 0, IPC_RMID);
  joined();
  const pid_t owner = ::getpid();
  EXPECT_TRUE(Fellow([&](Fellow&) {
                struct flock found = {};
                found.l_type = F_WRLCK;
                const bool done = ::fcntl(file.get(), F_GETLK, &found) == 0;
                ::_exit(done && found.l_type == F_WRLCK && found.l_pid == owner ? 0 : 1);
              }).ends());
}

TEST_F(SemaphoreLeftNew, IsFreedAlsoWithAFileThatMayNotBeRead) {
  leave_new_set(kPath, kProject);
  ::chmod(kPath, 0);
  support::run_without_override([] { joined(); });
  EXPECT_EQ(value_of(set()), 1);
}

// Who has made the set can do without it.
TEST_F(SemaphoreLeftNew, IsFreedWithoutTheLibrarysFileByItsCreatorAlone) {
  const std::string away = std::string(kLibrary) + ".away";
  std::filesystem::rename(kLibrary, away);
  joined();
  EXPECT_EQ(value_of(set()), 1);
  ::semctl(set(), 0, IPC_RMID);
  leave_new_set(kPath, kProject);
  {
    CSemaphore semaphore(kPath, kProject);
    EXPECT_EQ(semaphore.init(), -1);
  }
  std::filesystem::rename(away, kLibrary);
  EXPECT_THAT(log_.take(), ElementsAre(unobtained(ENOENT)));
}

TEST_F(SemaphoreLeftNew, IsNotMistakenForOneThatIsInUse) {
  StoppedClock clock;
  const auto semaphore = joined();
  EXPECT_EQ(semaphore->lock(), 0);
  joined();
  EXPECT_THAT(clock.take_pauses_us(), IsEmpty());
  EXPECT_EQ(value_of(set()), 0);
}

TEST_F(SemaphoreLeftNew, IsNotMistakenForOneThatAToolHasSet) {
  const int set = leave_new_set(kPath, kProject);
  set_value(set, 1);
  StoppedClock clock;
  joined();
  EXPECT_THAT(clock.take_pauses_us(), IsEmpty());
  EXPECT_EQ(value_of(set), 1);
}

// It is gone by the time of joining, which makes it anew.
TEST_F(SemaphoreLeftNew, IsFreedWhereJoiningHasMadeIt) {
  StoppedClock clock;
  run_with_failing_calls({{SystemCall::kGetSemaphores, EEXIST, 0, 1}}, [] { joined(); });
  EXPECT_EQ(value_of(set()), 1);
}

TEST_F(SemaphoreLeftNew, IsFreedOnceByAllWhoJoinAtOnce) {
  const int left = leave_new_set(kPath, kProject);
  Contended contended;
  std::vector<std::unique_ptr<Fellow>> fellows;
  fellows.reserve(8);
  for (int i = 0; i < 8; ++i) {
    fellows.push_back(std::make_unique<Fellow>([&contended](Fellow&) {
      const auto semaphore = joined();
      if (semaphore->lock() != 0) ::_exit(1);
      contended.increment();
      semaphore->unlock();
    }));
  }
  for (const auto& fellow : fellows) EXPECT_TRUE(fellow->ends());
  EXPECT_EQ(contended.count(), 8);
  EXPECT_EQ(contended.collisions(), 0);
  EXPECT_EQ(value_of(left), 1);
}

TEST_F(SemaphoreLeftNew, IsWaitedForByACancelledThreadToo) {
  leave_new_set(kPath, kProject);
  EXPECT_TRUE(support::finishes_though_cancelled([] { joined(); }));
  EXPECT_EQ(value_of(set()), 1);
}

// ---- lock(), unlock() ----

using SemaphoreLock = Semaphore;

TEST_F(SemaphoreLock, FailsWithoutInit) {
  CSemaphore semaphore(kPath, kProject);
  EXPECT_EQ(semaphore.lock(), -1);
  EXPECT_EQ(semaphore.unlock(), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore::lock() - invalid semId!"),
                                       err("CSemaphore::unlock() - invalid semId!")));
}

// Logging is where the thread would end.
TEST_F(SemaphoreLock, FailsOnACancelledThreadToo) {
  int results = 0;
  EXPECT_TRUE(support::finishes_though_cancelled([&] {
    CSemaphore semaphore("", 0);
    results = semaphore.lock() + semaphore.unlock();
  }));
  EXPECT_EQ(results, -2);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore - constructed with empty pathname!"),
                                       err("CSemaphore - constructed with invalid projectID!"),
                                       err("CSemaphore::lock() - invalid semId!"),
                                       err("CSemaphore::unlock() - invalid semId!")));
}

TEST_F(SemaphoreLock, FailsOnACancelledThreadWithoutASetToo) {
  const auto semaphore = joined();
  ::semctl(set(), 0, IPC_RMID);
  EXPECT_TRUE(support::finishes_though_cancelled([&] { semaphore->lock(); }));
  EXPECT_TRUE(support::finishes_though_cancelled([&] { semaphore->unlock(); }));
  EXPECT_THAT(log_.take(), SizeIs(2));
}

TEST_F(SemaphoreLock, TakesAndUnlockGivesBack) {
  const auto semaphore = joined();
  EXPECT_EQ(semaphore->lock(), 0);
  EXPECT_EQ(value_of(set()), 0);
  EXPECT_EQ(semaphore->unlock(), 0);
  EXPECT_EQ(value_of(set()), 1);
}

// Waits in another thread, with an object of its own.
class Waiting {
 public:
  Waiting()
      : thread_([this] {
          CSemaphore semaphore(kPath, kProject);
          semaphore.init();
          result_ = semaphore.lock();
        }) {
    wait_for_waiting(set_of(kPath, kProject), 1);
  }
  ~Waiting() {
    if (thread_.joinable()) thread_.join();
  }
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

  std::thread& thread() { return thread_; }
  int result() {
    thread_.join();
    return result_;
  }

 private:
  int result_ = 1;
  std::thread thread_;
};

TEST_F(SemaphoreLock, WaitsForThreadsToo) {
  const auto semaphore = joined();
  EXPECT_EQ(semaphore->lock(), 0);
  Waiting waiting;
  EXPECT_EQ(semaphore->unlock(), 0);
  EXPECT_EQ(waiting.result(), 0);
  EXPECT_EQ(value_of(set()), 0);
}

TEST_F(SemaphoreLock, WaitsThroughSignals) {
  const support::Interruption interruption;
  const auto semaphore = joined();
  EXPECT_EQ(semaphore->lock(), 0);
  Waiting waiting;
  for (int i = 0; i < 3; ++i) support::Interruption::send(waiting.thread());
  EXPECT_EQ(semaphore->unlock(), 0);
  EXPECT_EQ(waiting.result(), 0);
}

TEST_F(SemaphoreLock, FailsWhenTheSetIsRemovedMeanwhile) {
  const auto semaphore = joined();
  EXPECT_EQ(semaphore->lock(), 0);
  Waiting waiting;
  ::semctl(set(), 0, IPC_RMID);
  EXPECT_EQ(waiting.result(), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore::lock() - semop failed, errno=43")));
}

TEST_F(SemaphoreLock, FailsWhenTheSetWasRemoved) {
  const auto semaphore = joined();
  ::semctl(set(), 0, IPC_RMID);
  EXPECT_EQ(semaphore->lock(), -1);
  EXPECT_EQ(semaphore->unlock(), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore::lock() - semop failed, errno=22"),
                                       err("CSemaphore::unlock() - semop() failed errno=22")));
}

TEST_F(SemaphoreLock, CannotBeUnlockedMoreOftenThanTheKernelCounts) {
  const auto semaphore = joined();
  set_value(set(), 32767);
  EXPECT_EQ(semaphore->unlock(), -1);
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore::unlock() - semop() failed errno=34")));
}

TEST_F(SemaphoreLock, UnlockGoesOnThroughSignals) {
  const auto semaphore = joined();
  EXPECT_EQ(semaphore->lock(), 0);
  run_with_failing_calls({{SystemCall::kOperateSemaphores, EINTR, 0, 2}},
                         [&] { EXPECT_EQ(semaphore->unlock(), 0); });
  EXPECT_EQ(value_of(set()), 1);
}

TEST_F(SemaphoreLock, HasOneMorePlaceForEachUnlockTooMany) {
  const auto semaphore = joined();
  EXPECT_EQ(semaphore->unlock(), 0);
  EXPECT_EQ(value_of(set()), 2);
  EXPECT_EQ(semaphore->lock(), 0);
  EXPECT_EQ(joined()->lock(), 0);
  EXPECT_EQ(value_of(set()), 0);
}

TEST_F(SemaphoreLock, StaysTakenWhenItsObjectIsDestroyed) {
  EXPECT_EQ(joined()->lock(), 0);
  EXPECT_EQ(value_of(set()), 0);
  EXPECT_EQ(joined()->unlock(), 0);
}

// ---- Other processes ----

using SemaphoreProcesses = Semaphore;

// Takes the lock, tells so and keeps it.
void take_and_keep(Fellow& test) {
  CSemaphore semaphore(kPath, kProject);
  semaphore.init();
  test.tell(semaphore.lock());
  test.hear();
}

TEST_F(SemaphoreProcesses, AreLetInWhenTheOwnerIsKilled) {
  const auto semaphore = joined();
  Fellow owner(take_and_keep);
  EXPECT_EQ(owner.hear(), 0);
  EXPECT_EQ(value_of(set()), 0);
  Waiting waiting;
  owner.kill();
  EXPECT_EQ(waiting.result(), 0);
}

TEST_F(SemaphoreProcesses, FreeTheLockWhenTheyEnd) {
  Fellow owner(take_and_keep);
  EXPECT_EQ(owner.hear(), 0);
  owner.tell(0);
  EXPECT_TRUE(owner.ends());
  EXPECT_EQ(value_of(set()), 1);
}

TEST_F(SemaphoreProcesses, InheritNoLock) {
  const auto semaphore = joined();
  EXPECT_EQ(semaphore->lock(), 0);
  EXPECT_TRUE(Fellow([](Fellow&) {}).ends());
  EXPECT_EQ(value_of(set()), 0);
  EXPECT_EQ(semaphore->unlock(), 0);
}

TEST_F(SemaphoreProcesses, MayUnlockForOthersWhichCountsTwiceInTheEnd) {
  Fellow owner(take_and_keep);
  EXPECT_EQ(owner.hear(), 0);
  EXPECT_EQ(joined()->unlock(), 0);
  EXPECT_EQ(value_of(set()), 1);
  owner.kill();
  EXPECT_EQ(value_of(set()), 2);
}

class SemaphoreExclusion : public Semaphore, public testing::WithParamInterface<int> {};

TEST_P(SemaphoreExclusion, HoldsAmongSoManyProcesses) {
  const int rounds = support::rounds(1000);
  Contended contended;
  std::vector<std::unique_ptr<Fellow>> fellows;
  fellows.reserve(static_cast<std::size_t>(GetParam()));
  for (int i = 0; i < GetParam(); ++i) {
    fellows.push_back(std::make_unique<Fellow>([&contended, rounds](Fellow&) {
      const auto semaphore = joined();
      for (int round = 0; round < rounds; ++round) {
        if (semaphore->lock() != 0) ::_exit(1);
        contended.increment();
        semaphore->unlock();
      }
    }));
  }
  for (const auto& fellow : fellows) EXPECT_TRUE(fellow->ends());
  EXPECT_EQ(contended.count(), GetParam() * rounds);
  EXPECT_EQ(contended.collisions(), 0);
  EXPECT_EQ(value_of(set()), 1);
}

INSTANTIATE_TEST_SUITE_P(Semaphore, SemaphoreExclusion, testing::Values(2, 8));

}  // namespace
