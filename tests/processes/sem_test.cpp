// Named locks by plain functions.

#include <rkutils/semaphore.h>

#include <cerrno>
#include <new>
#include <string>

#include <gmock/gmock.h>

#include "lock_fixture.h"
#include "support/allocation_faults.h"

namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr const char* kName = "/sem-test";

class Sem : public LockTest {
 protected:
  // Has another process die that holds the lock.
  static void die_holding() {
    Fellow owner([](Fellow& test) {
      test.tell(sem_lock(sem_create(kName)));
      test.hear();
    });
    EXPECT_EQ(owner.hear(), 0);
    owner.kill();
  }

  // What locking, unlocking and locking once more give after the death of an owner.
  void expect_after_death(const sem_options* options, int again) {
    sem_handle* const handle = sem_create_with_options(kName, options);
    EXPECT_THAT(log_.take(), ElementsAre(debug("created recursive semaphore \"/sem-test\"")));
    die_holding();
    EXPECT_EQ(sem_lock(handle), EOWNERDEAD);
    EXPECT_EQ(sem_unlock(handle), 0);
    EXPECT_EQ(sem_lock(handle), again);
    EXPECT_EQ(sem_unlock(handle), again == 0 ? 0 : EPERM);
    sem_release(handle);
  }
};

TEST_F(Sem, LocksTriesAndUnlocks) {
  sem_handle* const handle = sem_create(kName);
  ASSERT_NE(handle, nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(debug("created recursive semaphore \"/sem-test\"")));
  EXPECT_EQ(sem_lock(handle), 0);
  EXPECT_EQ(sem_trylock(handle), 0);
  Fellow other([](Fellow& test) { test.tell(sem_trylock(sem_create(kName))); });
  EXPECT_EQ(other.hear(), EBUSY);
  EXPECT_EQ(sem_unlock(handle), 0);
  EXPECT_EQ(sem_unlock(handle), 0);
  EXPECT_EQ(sem_unlock(handle), EPERM);
  EXPECT_TRUE(other.ends());
  sem_release(handle);
}

TEST_F(Sem, IsTheLockOfTheClass) {
  sem_handle* const handle = sem_create(kName);
  CRecursiveSemaphore lock(kName);
  EXPECT_EQ(sem_lock(handle), 0);
  EXPECT_EQ(lock.unlock(), 0);
  sem_release(handle);
  EXPECT_THAT(log_.take(), SizeIs(1));
}

TEST_F(Sem, HandlesNullEverywhere) {
  EXPECT_EQ(sem_lock(nullptr), -1);
  EXPECT_EQ(sem_trylock(nullptr), -1);
  EXPECT_EQ(sem_unlock(nullptr), -1);
  sem_release(nullptr);
  semopt_set_consistent_mode_automatic(nullptr);
  semopt_set_consistent_mode_manual(nullptr);
  semopts_release(nullptr);
}

TEST_F(Sem, HandlesAHandleWithoutAnObject) {
  CRecursiveSemaphore* none = nullptr;
  auto* const handle = reinterpret_cast<sem_handle*>(&none);
  EXPECT_EQ(sem_lock(handle), -1);
  EXPECT_EQ(sem_trylock(handle), -1);
  EXPECT_EQ(sem_unlock(handle), -1);
  auto* const holder = static_cast<CRecursiveSemaphore**>(::operator new(sizeof(void*)));
  *holder = none;
  sem_release(reinterpret_cast<sem_handle*>(holder));
}

TEST_F(Sem, IsNotCreatedWithoutANameOrOptions) {
  sem_options* const options = sem_options_create();
  EXPECT_EQ(sem_create(nullptr), nullptr);
  EXPECT_EQ(sem_create_with_options(nullptr, options), nullptr);
  EXPECT_EQ(sem_create_with_options(kName, nullptr), nullptr);
  semopts_release(options);
}

TEST_F(Sem, GivesMinus1WhereTheLockCannotBeHad) {
  sem_handle* const handle = sem_create("/a/b");
  ASSERT_NE(handle, nullptr);
  EXPECT_THAT(log_.take(), SizeIs(1));
  EXPECT_EQ(sem_lock(handle), -1);
  EXPECT_EQ(sem_trylock(handle), -1);
  EXPECT_EQ(sem_unlock(handle), -1);
  sem_release(handle);
}

TEST_F(Sem, IsAutomaticByItself) {
  const CRecursiveSemaphore::CSemaphoreOptions automatic;
  sem_options* const options = sem_options_create();
  EXPECT_EQ(*reinterpret_cast<const char*>(options), *reinterpret_cast<const char*>(&automatic));
  expect_after_death(options, 0);
  semopts_release(options);
}

TEST_F(Sem, IsManualByOptions) {
  sem_options* const options = sem_options_create();
  semopt_set_consistent_mode_manual(options);
  expect_after_death(options, ENOTRECOVERABLE);
  semopts_release(options);
}

TEST_F(Sem, IsAutomaticByOptionsAgain) {
  sem_options* const options = sem_options_create();
  semopt_set_consistent_mode_manual(options);
  semopt_set_consistent_mode_automatic(options);
  expect_after_death(options, 0);
  semopts_release(options);
}

TEST_F(Sem, IsAutomaticWithoutOptions) {
  sem_handle* const handle = sem_create(kName);
  die_holding();
  EXPECT_EQ(sem_trylock(handle), EOWNERDEAD);
  EXPECT_EQ(sem_unlock(handle), 0);
  EXPECT_EQ(sem_trylock(handle), 0);
  EXPECT_EQ(sem_unlock(handle), 0);
  sem_release(handle);
  EXPECT_THAT(log_.take(), SizeIs(1));
}

TEST_F(Sem, KeepsNothingOfItsOptions) {
  sem_options* const options = sem_options_create();
  semopt_set_consistent_mode_manual(options);
  sem_handle* const handle = sem_create_with_options(kName, options);
  semopts_release(options);
  die_holding();
  EXPECT_EQ(sem_lock(handle), EOWNERDEAD);
  EXPECT_EQ(sem_unlock(handle), 0);
  EXPECT_EQ(sem_lock(handle), ENOTRECOVERABLE);
  sem_release(handle);
  EXPECT_THAT(log_.take(), SizeIs(1));
}

// ---- Memory ----

TEST_F(Sem, IsNullWithoutMemoryAndLeavesNone) {
  sem_release(sem_create(kName));
  const std::string name = "/" + std::string(100, 'x');
  const long before = support::unfreed_count();
  unsigned long failures = 0;
  for (bool happened = true; happened;) {
    sem_handle* handle = nullptr;
    {
      const support::FailingAllocation failing(failures + 1);
      handle = sem_create(name.c_str());
      happened = failing.happened();
    }
    if (happened) {
      EXPECT_EQ(handle, nullptr) << failures;
      ++failures;
    } else {
      EXPECT_EQ(sem_lock(handle), 0);
      EXPECT_EQ(sem_unlock(handle), 0);
    }
    sem_release(handle);
  }
  EXPECT_GE(failures, 5U) << "handle, object, what is behind it, name and guard";
  EXPECT_EQ(support::unfreed_count(), before);
  log_.take();
}

TEST_F(Sem, HasNoOptionsWithoutMemory) {
  const support::FailingAllocation failing(1);
  EXPECT_EQ(sem_options_create(), nullptr);
  EXPECT_TRUE(failing.happened());
}

}  // namespace
