// Named locks: whose they are, and what the death of an owner means.

#include <rkutils/semaphore.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <unistd.h>

#include "lock_fixture.h"
#include "support/failing_mutex.h"
#include "support/interruption.h"
#include "support/member_type.h"
#include "support/rounds.h"
#include "support/small_stack.h"
#include "support/though_cancelled.h"
#include "support/virtual_slot.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::SizeIs;

constexpr const char* kName = "/recursive-semaphore-test";

using Lock = CRecursiveSemaphore;
using Options = CRecursiveSemaphore::CSemaphoreOptions;

static_assert(std::has_virtual_destructor_v<Lock>);
static_assert(!std::is_copy_constructible_v<Lock> && !std::is_copy_assignable_v<Lock>);
static_assert(support::kIs<&Lock::lock, int (Lock::*)()>);
static_assert(support::kIs<&Lock::trylock, int (Lock::*)()>);
static_assert(support::kIs<&Lock::unlock, int (Lock::*)()>);
static_assert(support::kIs<&Lock::makeConsistent, int (Lock::*)()>);
static_assert(Options::CONSISTENT_MODE_AUTOMATIC == 0 && Options::CONSISTENT_MODE_MANUAL == 1);

Options manual() {
  Options options;
  options.SetConsistentMode(Options::CONSISTENT_MODE_MANUAL);
  return options;
}

class RecursiveSemaphore : public LockTest {
 protected:
  // With a new lock, so that its message has been logged.
  RecursiveSemaphore() : lock_(kName) { log_.take(); }

  // What another thread gets.
  template <typename Action>
  static int on_thread(Action action) {
    int result = 0;
    std::thread([&] { result = action(); }).join();
    return result;
  }

  // What another process gets, which ends then.
  static int elsewhere(const std::function<int(Lock&)>& action) {
    Fellow fellow([&](Fellow& test) {
      Lock lock(kName);
      test.tell(action(lock));
    });
    const int result = fellow.hear();
    EXPECT_TRUE(fellow.ends());
    return result;
  }

  static int trylock_elsewhere() {
    return elsewhere([](Lock& lock) { return lock.trylock(); });
  }

  // Has another process die that holds the lock, `depth` times.
  static void die_holding(int depth = 1) {
    Fellow owner([depth](Fellow& test) {
      Lock lock(kName);
      for (int i = 0; i < depth; ++i) test.tell(lock.lock());
      test.hear();
    });
    for (int i = 0; i < depth; ++i) EXPECT_EQ(owner.hear(), 0);
    owner.kill();
  }

  Lock lock_;
};

// ---- Options ----

TEST(RecursiveSemaphoreOptions, AreAByteThatIs1ForAutomatic) {
  static_assert(sizeof(Options) == 1);
  const auto byte = [](const Options& options) {
    unsigned char value = 7;
    std::memcpy(&value, &options, 1);
    return value;
  };
  Options options;
  EXPECT_EQ(byte(options), 1);
  EXPECT_EQ(options.GetConsistentMode(), Options::CONSISTENT_MODE_AUTOMATIC);
  options.SetConsistentMode(Options::CONSISTENT_MODE_MANUAL);
  EXPECT_EQ(byte(options), 0);
  EXPECT_EQ(options.GetConsistentMode(), Options::CONSISTENT_MODE_MANUAL);
  options.SetConsistentMode(Options::CONSISTENT_MODE_AUTOMATIC);
  EXPECT_EQ(byte(options), 1);
}

TEST_F(RecursiveSemaphore, HasNoVirtualMembersButItsDestructor) {
  EXPECT_GT(support::virtual_slot(&Lock::lock), 100U);
  EXPECT_GT(support::virtual_slot(&Lock::trylock), 100U);
  EXPECT_GT(support::virtual_slot(&Lock::unlock), 100U);
  EXPECT_GT(support::virtual_slot(&Lock::makeConsistent), 100U);
}

// ---- Holding ----

TEST_F(RecursiveSemaphore, ExcludesOtherProcesses) {
  EXPECT_EQ(lock_.lock(), 0);
  EXPECT_EQ(trylock_elsewhere(), EBUSY);
  EXPECT_EQ(lock_.unlock(), 0);
  EXPECT_EQ(elsewhere([](Lock& lock) { return lock.lock() + lock.unlock(); }), 0);
}

TEST_F(RecursiveSemaphore, ExcludesOtherThreads) {
  EXPECT_EQ(lock_.lock(), 0);
  EXPECT_EQ(on_thread([&] { return lock_.trylock(); }), EBUSY);
  EXPECT_EQ(lock_.unlock(), 0);
  EXPECT_EQ(on_thread([&] { return lock_.trylock() + lock_.unlock(); }), 0);
}

TEST_F(RecursiveSemaphore, IsLockedWithoutWaitingByTrylock) {
  EXPECT_EQ(lock_.trylock(), 0);
  EXPECT_EQ(trylock_elsewhere(), EBUSY);
  EXPECT_EQ(lock_.unlock(), 0);
}

TEST_F(RecursiveSemaphore, IsUnlockedAsOftenAsItWasLocked) {
  EXPECT_EQ(lock_.lock(), 0);
  EXPECT_EQ(lock_.lock(), 0);
  EXPECT_EQ(lock_.trylock(), 0);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(trylock_elsewhere(), EBUSY);
    EXPECT_EQ(lock_.unlock(), 0);
  }
  EXPECT_EQ(elsewhere([](Lock& lock) { return lock.trylock() + lock.unlock(); }), 0);
  EXPECT_EQ(lock_.unlock(), EPERM);
}

TEST_F(RecursiveSemaphore, MayBeLockedVeryOften) {
  const int depth = support::rounds(100000);
  for (int i = 0; i < depth; ++i) ASSERT_EQ(lock_.lock(), 0);
  for (int i = 0; i < depth; ++i) ASSERT_EQ(lock_.unlock(), 0);
  EXPECT_EQ(lock_.unlock(), EPERM);
}

TEST_F(RecursiveSemaphore, IsOneLockForAllObjectsOfItsName) {
  Lock second(kName);
  // On 32-bit x86 the GNU C library looks for a mutex that it gives up at the address where it was
  // locked, and for ever at another one.
#if defined(__GLIBC__) && defined(__i386__)
  Lock& last = lock_;
#else
  Lock& last = second;
#endif
  EXPECT_EQ(lock_.lock(), 0);
  EXPECT_EQ(second.lock(), 0);
  EXPECT_EQ(second.unlock(), 0);
  EXPECT_EQ(trylock_elsewhere(), EBUSY);
  EXPECT_EQ(last.unlock(), 0);
  EXPECT_EQ(lock_.unlock(), EPERM);
  EXPECT_EQ(second.unlock(), EPERM);
}

TEST_F(RecursiveSemaphore, IsAnotherLockForAnotherName) {
  Lock other("/another");
  EXPECT_THAT(log_.take(), SizeIs(1));
  EXPECT_EQ(lock_.lock(), 0);
  EXPECT_EQ(on_thread([&] { return other.trylock() + other.unlock(); }), 0);
  EXPECT_EQ(lock_.unlock(), 0);
}

TEST_F(RecursiveSemaphore, IsNotUnlockedByStrangers) {
  EXPECT_EQ(lock_.unlock(), EPERM);
  EXPECT_EQ(lock_.lock(), 0);
  EXPECT_EQ(on_thread([&] { return lock_.unlock(); }), EPERM);
  EXPECT_EQ(elsewhere([](Lock& lock) { return lock.unlock(); }), EPERM);
  EXPECT_EQ(trylock_elsewhere(), EBUSY);
  EXPECT_EQ(lock_.unlock(), 0);
}

TEST_F(RecursiveSemaphore, IsNotInheritedByAChild) {
  EXPECT_EQ(lock_.lock(), 0);
  Fellow child([this](Fellow& test) {
    test.tell(lock_.unlock());
    test.tell(lock_.trylock());
    test.tell(0);
    test.tell(lock_.lock());
    test.tell(lock_.unlock());
  });
  EXPECT_EQ(child.hear(), EPERM);
  EXPECT_EQ(child.hear(), EBUSY);
  EXPECT_EQ(child.hear(), 0);
  EXPECT_EQ(lock_.unlock(), 0);
  EXPECT_EQ(child.hear(), 0);
  EXPECT_EQ(child.hear(), 0);
  EXPECT_TRUE(child.ends());
}

TEST_F(RecursiveSemaphore, IsWaitedForThroughSignals) {
  const support::Interruption interruption;
  EXPECT_EQ(lock_.lock(), 0);
  int result = -2;
  std::thread thread([&] { result = lock_.lock() + lock_.unlock(); });
  for (int i = 0; i < 3; ++i) support::Interruption::send(thread);
  EXPECT_EQ(lock_.unlock(), 0);
  thread.join();
  EXPECT_EQ(result, 0);
}

TEST_F(RecursiveSemaphore, NeedsNoMoreStackThanAThreadHas) {
  int result = -2;
  support::run_on_small_stack([&] {
    Lock lock("/small");
    result = lock.lock() + lock.unlock();
  });
  EXPECT_EQ(result, 0);
  EXPECT_THAT(log_.take(), SizeIs(1));
}

// ---- An owner that died, in automatic mode ----

using RecursiveSemaphoreDeath = RecursiveSemaphore;

TEST_F(RecursiveSemaphoreDeath, IsToldToTheNextOwnerWhoHoldsTheLock) {
  die_holding();
  EXPECT_EQ(lock_.lock(), EOWNERDEAD);
  EXPECT_EQ(trylock_elsewhere(), EBUSY);
  EXPECT_EQ(lock_.unlock(), 0);
}

TEST_F(RecursiveSemaphoreDeath, IsToldByTrylockToo) {
  die_holding();
  EXPECT_EQ(lock_.trylock(), EOWNERDEAD);
  EXPECT_EQ(trylock_elsewhere(), EBUSY);
  EXPECT_EQ(lock_.unlock(), 0);
  EXPECT_EQ(lock_.trylock(), 0);
  EXPECT_EQ(lock_.unlock(), 0);
}

TEST_F(RecursiveSemaphoreDeath, IsToldOnce) {
  die_holding();
  EXPECT_EQ(lock_.lock(), EOWNERDEAD);
  EXPECT_EQ(lock_.unlock(), 0);
  EXPECT_EQ(lock_.lock(), 0);
  EXPECT_EQ(lock_.unlock(), 0);
  EXPECT_EQ(elsewhere([](Lock& lock) { return lock.lock() + lock.unlock(); }), 0);
}

TEST_F(RecursiveSemaphoreDeath, LeavesAnOwnerThatMayLockAgain) {
  die_holding();
  EXPECT_EQ(lock_.lock(), EOWNERDEAD);
  EXPECT_EQ(lock_.lock(), 0);
  EXPECT_EQ(lock_.unlock(), 0);
  EXPECT_EQ(trylock_elsewhere(), EBUSY);
  EXPECT_EQ(lock_.unlock(), 0);
  EXPECT_EQ(elsewhere([](Lock& lock) { return lock.trylock() + lock.unlock(); }), 0);
}

TEST_F(RecursiveSemaphoreDeath, EndsAllLocksOfTheDead) {
  die_holding(3);
  EXPECT_EQ(lock_.lock(), EOWNERDEAD);
  EXPECT_EQ(lock_.unlock(), 0);
  EXPECT_EQ(lock_.unlock(), EPERM);
}

TEST_F(RecursiveSemaphoreDeath, IsToldToThoseWhoWait) {
  Fellow owner([](Fellow& test) {
    Lock lock(kName);
    test.tell(lock.lock());
    test.hear();
  });
  EXPECT_EQ(owner.hear(), 0);
  Fellow waiting([](Fellow& test) {
    Lock lock(kName);
    test.tell(lock.trylock());
    test.tell(lock.lock());
    test.tell(lock.unlock());
  });
  EXPECT_EQ(waiting.hear(), EBUSY);
  owner.kill();
  EXPECT_EQ(waiting.hear(), EOWNERDEAD);
  EXPECT_EQ(waiting.hear(), 0);
  EXPECT_TRUE(waiting.ends());
  EXPECT_EQ(lock_.lock(), 0);
  EXPECT_EQ(lock_.unlock(), 0);
}

TEST_F(RecursiveSemaphoreDeath, IsAlsoTheEndOfAThread) {
  EXPECT_EQ(on_thread([&] { return lock_.lock(); }), 0);
  EXPECT_EQ(lock_.lock(), EOWNERDEAD);
  EXPECT_EQ(lock_.unlock(), 0);
}

TEST_F(RecursiveSemaphoreDeath, IsAlsoAnOrderlyEnd) {
  Fellow owner([](Fellow& test) {
    Lock lock(kName);
    test.tell(lock.lock());
    ::_exit(0);
  });
  EXPECT_EQ(owner.hear(), 0);
  EXPECT_TRUE(owner.ends());
  EXPECT_EQ(lock_.lock(), EOWNERDEAD);
  EXPECT_EQ(lock_.unlock(), 0);
}

TEST_F(RecursiveSemaphoreDeath, LeavesNothingToDeclareRepaired) {
  die_holding();
  EXPECT_EQ(lock_.lock(), EOWNERDEAD);
  EXPECT_EQ(lock_.makeConsistent(), EINVAL);
  EXPECT_EQ(lock_.unlock(), 0);
}

TEST_F(RecursiveSemaphoreDeath, LogsThatTheLockCannotBeMadeToWorkOn) {
  die_holding();
  {
    const support::FailingMutexFunction failing(support::MutexFunction::kMakeConsistent, [] {
      errno = 0;
      return EPERM;
    });
    EXPECT_EQ(lock_.lock(), EOWNERDEAD);
  }
  EXPECT_THAT(log_.take(), ElementsAre(err("recursive-semaphore: make consistent failed - errno=" +
                                           std::string(std::strerror(EPERM)))));
  EXPECT_EQ(lock_.makeConsistent(), 0);
  EXPECT_EQ(lock_.unlock(), 0);
}

TEST_F(RecursiveSemaphoreDeath, IsLoggedSoByACancelledThreadToo) {
  die_holding();
  EXPECT_TRUE(support::finishes_though_cancelled([&] {
    const support::FailingMutexFunction failing(support::MutexFunction::kMakeConsistent,
                                                [] { return EPERM; });
    EXPECT_EQ(lock_.lock(), EOWNERDEAD);
  }));
  EXPECT_THAT(log_.take(), SizeIs(1));
}

// ---- The same in manual mode ----

class RecursiveSemaphoreManual : public RecursiveSemaphore {
 protected:
  Lock manual_{kName, manual()};
};

TEST_F(RecursiveSemaphoreManual, LosesTheLockUnlessItIsDeclaredRepaired) {
  die_holding();
  EXPECT_EQ(manual_.lock(), EOWNERDEAD);
  EXPECT_EQ(trylock_elsewhere(), EBUSY);
  EXPECT_EQ(manual_.unlock(), 0);
  EXPECT_EQ(manual_.lock(), ENOTRECOVERABLE);
  EXPECT_THAT(manual_.makeConsistent(), AnyOf(EINVAL, EPERM)) << "C libraries differ";
  EXPECT_EQ(lock_.lock(), ENOTRECOVERABLE) << "automatic mode comes too late";
  EXPECT_EQ(elsewhere([](Lock& lock) { return lock.lock(); }), ENOTRECOVERABLE);
  EXPECT_EQ(lock_.unlock(), EPERM);
  // At last: the GNU C library's takes the mutex all the same.
  EXPECT_EQ(lock_.trylock(), ENOTRECOVERABLE);
}

TEST_F(RecursiveSemaphoreManual, WorksOnOnceItIsDeclaredRepaired) {
  die_holding();
  EXPECT_EQ(manual_.trylock(), EOWNERDEAD);
  EXPECT_EQ(manual_.makeConsistent(), 0);
  EXPECT_EQ(manual_.unlock(), 0);
  EXPECT_EQ(manual_.lock(), 0);
  EXPECT_EQ(manual_.unlock(), 0);
  EXPECT_EQ(elsewhere([](Lock& lock) { return lock.lock() + lock.unlock(); }), 0);
}

TEST_F(RecursiveSemaphoreManual, TellsTheNextWhenWhoRepairsDiesToo) {
  die_holding();
  Fellow second([](Fellow& test) {
    Lock lock(kName, manual());
    test.tell(lock.lock());
    test.hear();
  });
  EXPECT_EQ(second.hear(), EOWNERDEAD);
  second.kill();
  EXPECT_EQ(manual_.lock(), EOWNERDEAD);
  EXPECT_EQ(manual_.makeConsistent(), 0);
  EXPECT_EQ(manual_.unlock(), 0);
}

TEST_F(RecursiveSemaphoreManual, IsEachObjectsOwn) {
  die_holding();
  EXPECT_EQ(lock_.lock(), EOWNERDEAD);
  EXPECT_EQ(lock_.unlock(), 0);
  EXPECT_EQ(manual_.lock(), 0);
  EXPECT_EQ(manual_.unlock(), 0);
}

TEST_F(RecursiveSemaphoreManual, IsCopied) {
  Options options = manual();
  Lock lock(kName, options);
  options.SetConsistentMode(Options::CONSISTENT_MODE_AUTOMATIC);
  die_holding();
  EXPECT_EQ(lock.lock(), EOWNERDEAD);
  EXPECT_EQ(lock.makeConsistent(), 0);
  EXPECT_EQ(lock.unlock(), 0);
}

TEST_F(RecursiveSemaphoreManual, HasNothingToDeclareRepairedAtOtherTimes) {
  EXPECT_EQ(manual_.makeConsistent(), EINVAL);
  EXPECT_EQ(manual_.lock(), 0);
  EXPECT_EQ(manual_.makeConsistent(), EINVAL);
  EXPECT_EQ(manual_.unlock(), 0);
}

// ---- The object's end ----

using RecursiveSemaphoreEnd = RecursiveSemaphore;

TEST_F(RecursiveSemaphoreEnd, LeavesTheLock) {
  { const Lock second(kName); }
  EXPECT_EQ(::access("/dev/shm/recursive-semaphore-test", F_OK), 0);
  EXPECT_EQ(elsewhere([](Lock& lock) { return lock.lock() + lock.unlock(); }), 0);
}

// What the header warns of.
TEST_F(RecursiveSemaphoreEnd, LeavesTheLockForEverWithAnOwnerThatDestroyedItsObject) {
  Fellow owner([](Fellow& test) {
    auto lock = std::make_unique<Lock>(kName);
    const int result = lock->lock();
    lock.reset();
    test.tell(result);
  });
  EXPECT_EQ(owner.hear(), 0);
  EXPECT_TRUE(owner.ends());
  EXPECT_EQ(lock_.trylock(), EBUSY);
}

// ---- Many processes ----

class RecursiveSemaphoreExclusion : public LockTest, public testing::WithParamInterface<int> {};

TEST_P(RecursiveSemaphoreExclusion, HoldsAmongSoManyProcesses) {
  const int rounds = support::rounds(2000);
  Contended contended;
  std::vector<std::unique_ptr<Fellow>> fellows;
  fellows.reserve(static_cast<std::size_t>(GetParam()));
  for (int i = 0; i < GetParam(); ++i) {
    fellows.push_back(std::make_unique<Fellow>([&contended, rounds](Fellow&) {
      Lock lock(kName);
      for (int round = 0; round < rounds; ++round) {
        if (lock.lock() != 0) ::_exit(1);
        if (round % 2 == 0) lock.lock();
        contended.increment();
        if (round % 2 == 0) lock.unlock();
        lock.unlock();
      }
    }));
  }
  for (const auto& fellow : fellows) EXPECT_TRUE(fellow->ends());
  EXPECT_EQ(contended.count(), GetParam() * rounds);
  EXPECT_EQ(contended.collisions(), 0);
  EXPECT_THAT(log_.take(), SizeIs(1));
}

INSTANTIATE_TEST_SUITE_P(RecursiveSemaphore, RecursiveSemaphoreExclusion, testing::Values(2, 8));

// Wherever they are at that moment.
TEST_F(RecursiveSemaphoreDeath, AtAnyMomentLeavesALockThatWorks) {
  const int deaths = support::rounds(100);
  for (int death = 0; death < deaths; ++death) {
    Fellow fellow([](Fellow& test) {
      Lock lock(kName);
      test.tell(0);
      for (;;) {
        lock.lock();
        lock.unlock();
      }
    });
    fellow.hear();
    for (int i = 0; i < death % 10; ++i) {
      const int result = lock_.lock();
      ASSERT_TRUE(result == 0 || result == EOWNERDEAD) << result;
      ASSERT_EQ(lock_.unlock(), 0);
    }
    fellow.kill();
    const int result = lock_.lock();
    ASSERT_TRUE(result == 0 || result == EOWNERDEAD) << result;
    ASSERT_EQ(lock_.unlock(), 0);
  }
}

}  // namespace
