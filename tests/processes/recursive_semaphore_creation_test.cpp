// Named locks made and found.

#include <rkutils/semaphore.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lock_fixture.h"
#include "support/allocation_faults.h"
#include "support/failing_calls.h"
#include "support/failing_mutex.h"
#include "support/open_descriptors.h"
#include "support/put_file.h"
#include "support/though_cancelled.h"

namespace {

using support::FailingMutexFunction;
using support::LogLine;
using support::MutexFunction;
using support::run_with_failing_calls;
using support::SystemCall;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kName = "/creation-test";
constexpr const char* kFile = "/dev/shm/creation-test";

using Lock = CRecursiveSemaphore;

std::string text_of(int error) { return std::strerror(error); }

LogLine created(const std::string& name) {
  return debug("created recursive semaphore \"" + name + "\"");
}
LogLine not_opened(int error) {
  return err("recursive-semaphore: unable to open shared memory - errno=" + text_of(error));
}
LogLine not_truncated(int error) {
  return err("recursive-semaphore: unable to ftruncate shared memory - errno=" + text_of(error));
}
LogLine not_mapped(int error) {
  return err("recursive-semaphore: mmap failed - errno=" + text_of(error));
}

std::string content_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// How often the object is mapped here.
int mappings() {
  std::ifstream maps("/proc/self/maps");
  int count = 0;
  for (std::string line; std::getline(maps, line);) {
    if (line.find(kFile) != std::string::npos) ++count;
  }
  return count;
}

class Creation : public LockTest {
 protected:
  // Locks and unlocks.
  static void expect_usable(Lock& lock) {
    EXPECT_EQ(lock.lock(), 0);
    EXPECT_EQ(lock.trylock(), 0);
    EXPECT_EQ(lock.unlock(), 0);
    EXPECT_EQ(lock.unlock(), 0);
  }

  static void expect_unusable(Lock& lock) {
    EXPECT_EQ(lock.lock(), -1);
    EXPECT_EQ(lock.trylock(), -1);
    EXPECT_EQ(lock.unlock(), -1);
    EXPECT_EQ(lock.makeConsistent(), -1);
  }

  // Makes one that is to be usable.
  static void use() {
    Lock lock(kName);
    expect_usable(lock);
  }

  // Makes one that is not to be, in whatever circumstances.
  static void fail() {
    Lock lock(kName);
    expect_unusable(lock);
  }

  static void expect_free_guard() { EXPECT_EQ(value_of(guard_set()), 1); }

  void TearDown() override {
    expect_free_guard();
    LockTest::TearDown();
  }
};

// ---- New locks and those that are there ----

TEST_F(Creation, IsLogged) {
  use();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
}

TEST_F(Creation, MakesAnObjectOfAMutexForItsOwnerAlone) {
  const mode_t mask = ::umask(0);
  use();
  ::umask(mask);
  struct stat status = {};
  ASSERT_EQ(::stat(kFile, &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(static_cast<std::size_t>(status.st_size), sizeof(pthread_mutex_t));
  log_.take();
}

TEST_F(Creation, IsNotForALockThatIsThere) {
  use();
  log_.take();
  use();
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Creation, LeavesALockThatIsHeldAsItIs) {
  Lock lock(kName);
  EXPECT_EQ(lock.lock(), 0);
  const std::string before = content_of(kFile);
  { const Lock second(kName); }
  EXPECT_EQ(content_of(kFile), before);
  EXPECT_EQ(lock.unlock(), 0);
  log_.take();
}

TEST_F(Creation, IsSoThatOneOf32ProcessesAtOnceMakesTheLock) {
  constexpr int kProcesses = 32;
  Contended contended;
  std::vector<std::unique_ptr<Fellow>> fellows;
  fellows.reserve(kProcesses);
  for (int i = 0; i < kProcesses; ++i) {
    fellows.push_back(std::make_unique<Fellow>([&contended](Fellow& test) {
      test.hear();
      Lock lock(kName);
      for (int round = 0; round < 20; ++round) {
        if (lock.lock() != 0) ::_exit(1);
        contended.increment();
        lock.unlock();
      }
    }));
  }
  for (const auto& fellow : fellows) fellow->tell(0);
  for (const auto& fellow : fellows) EXPECT_TRUE(fellow->ends());
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
  EXPECT_EQ(contended.count(), kProcesses * 20);
  EXPECT_EQ(contended.collisions(), 0);
}

TEST_F(Creation, TakesNamesWithoutASlash) {
  Lock lock("creation-test");
  expect_usable(lock);
  EXPECT_THAT(log_.take(), ElementsAre(created("creation-test")));
  EXPECT_EQ(::access(kFile, F_OK), 0);
}

TEST_F(Creation, TakesNamesOf254CharactersBehindTheSlash) {
  const std::string name = "/" + std::string(254, 'x');
  Lock lock(name);
  expect_usable(lock);
  EXPECT_THAT(log_.take(), ElementsAre(created(name)));
}

TEST_F(Creation, IsFinishedByACancelledThread) {
  EXPECT_TRUE(support::finishes_though_cancelled([] { use(); }));
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
}

// The pieces that other programs may find in memory.
TEST_F(Creation, GivesMappingMutexGuardAndOptionsInThisOrder) {
  struct Impl {
    void* mapping;
    pthread_mutex_t* mutex;
    alignas(CSemaphore) char guard[sizeof(CSemaphore)];
    unsigned char automatic;
  };
  const auto look = [](const Lock& lock) {
    const Impl* impl = nullptr;
    std::memcpy(&impl, reinterpret_cast<const char*>(&lock) + sizeof(void*), sizeof(void*));
    return impl;
  };
  Lock::CSemaphoreOptions options;
  options.SetConsistentMode(Lock::CSemaphoreOptions::CONSISTENT_MODE_MANUAL);
  const Lock usable(kName, options);
  const Impl* const impl = look(usable);
  EXPECT_NE(impl->mapping, MAP_FAILED);
  EXPECT_EQ(static_cast<void*>(impl->mutex), impl->mapping);
  EXPECT_EQ(impl->automatic, 0);
  std::string path;
  int fields[3] = {};
  std::memcpy(fields, impl->guard + sizeof(void*) + sizeof(std::string), sizeof fields);
  EXPECT_THAT(fields, ElementsAre(1, ::ftok(kLibrary, 1), guard_set()));
  EXPECT_EQ(*reinterpret_cast<const std::string*>(impl->guard + sizeof(void*)), kLibrary);

  const Lock unusable("/a/b");
  EXPECT_EQ(look(unusable)->mapping, MAP_FAILED);
  EXPECT_EQ(look(unusable)->mutex, nullptr);
  EXPECT_EQ(look(unusable)->automatic, 1);
  log_.take();
}

// ---- The guard ----

TEST_F(Creation, WaitsForTheGuardBeforeAnythingElse) {
  CSemaphore guard(kLibrary, 1);
  ASSERT_EQ(guard.init(), 0);
  EXPECT_EQ(guard.lock(), 0);
  std::thread creator([] { use(); });
  wait_for_waiting(guard_set(), 1);
  EXPECT_NE(::access(kFile, F_OK), 0);
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_EQ(guard.unlock(), 0);
  creator.join();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
}

TEST_F(Creation, WaitsForTheGuardAlsoWithALockThatIsThere) {
  use();
  log_.take();
  CSemaphore guard(kLibrary, 1);
  ASSERT_EQ(guard.init(), 0);
  EXPECT_EQ(guard.lock(), 0);
  std::thread creator([] { use(); });
  wait_for_waiting(guard_set(), 1);
  std::filesystem::remove(kFile);  // which would not be noticed if it had been opened
  EXPECT_EQ(guard.unlock(), 0);
  creator.join();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
}

TEST_F(Creation, HasTheGuardWhileTheObjectIsMade) {
  use();  // for the guard's set
  std::filesystem::remove(kFile);
  log_.take();
  int at_size = -1;
  int at_mapping = -1;
  run_with_failing_calls(
      {{SystemCall::kTruncate, EINTR, 0, 1, [&] { at_size = value_of(guard_set()); }},
       {SystemCall::kMapFile, EAGAIN, 0, 1, [&] { at_mapping = value_of(guard_set()); }}},
      [] { fail(); });
  EXPECT_EQ(at_size, 0);
  EXPECT_EQ(at_mapping, 0);
  EXPECT_THAT(log_.take(), ElementsAre(not_mapped(EAGAIN)));
}

TEST_F(Creation, HasTheGuardWhileTheMutexIsMade) {
  int value = -1;
  {
    const FailingMutexFunction failing(MutexFunction::kInit, [&] {
      value = value_of(guard_set());
      return EAGAIN;
    });
    fail();
  }
  EXPECT_EQ(value, 0);
  log_.take();
}

TEST_F(Creation, FreesAGuardWhoseCreatorDied) {
  leave_new_set(kLibrary, 1);
  use();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
}

// Has a creator die of a crash: `crash` is to have it die in its creation.
void die_creating(const std::function<void(const std::function<void()>& create)>& crash) {
  Fellow creator([&](Fellow&) { crash([] { const Lock lock(kName); }); });
  EXPECT_FALSE(creator.ends());
}

[[noreturn]] void die() {
  ::raise(SIGKILL);
  std::abort();
}

TEST_F(Creation, IsDoneByTheNextWhereACreatorDiedBeforeTheObjectGotItsSize) {
  die_creating([](const std::function<void()>& create) {
    run_with_failing_calls({{SystemCall::kTruncate, EINTR, 0, 1, die}}, create);
  });
  EXPECT_EQ(std::filesystem::file_size(kFile), 0U);
  use();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
}

TEST_F(Creation, IsDoneByTheNextWhereACreatorDiedBeforeTheMutexWasMade) {
  die_creating([](const std::function<void()>& create) {
    const FailingMutexFunction failing(MutexFunction::kInit, []() -> int { die(); });
    create();
  });
  EXPECT_EQ(std::filesystem::file_size(kFile), sizeof(pthread_mutex_t));
  use();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
}

class NoGuard : public LockTest {};

TEST_F(NoGuard, FailsWithoutTheLibrarysFile) {
  const std::string away = std::string(kLibrary) + ".away";
  std::filesystem::rename(kLibrary, away);
  {
    Lock lock(kName);
    EXPECT_EQ(lock.lock(), -1);
    EXPECT_EQ(lock.trylock(), -1);
    EXPECT_EQ(lock.unlock(), -1);
    EXPECT_EQ(lock.makeConsistent(), -1);
  }
  std::filesystem::rename(away, kLibrary);
  EXPECT_THAT(log_.take(),
              ElementsAre(err("CSemaphore::init() - ftok failed (errno=2) for file "
                              "/usr/lib/librkutils.so.1.0.0"),
                          err("recursive-semaphore: unable to init guarding semaphore")));
  EXPECT_NE(::access(kFile, F_OK), 0);
}

TEST_F(NoGuard, FailsForOthersThanItsFirstUser) {
  { const Lock first(kName); }
  log_.take();
  Fellow nobody([](Fellow& test) {
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) return;
    Lock lock("/nobodys");
    test.tell(lock.lock());
  });
  EXPECT_EQ(nobody.hear(), -1);
  EXPECT_TRUE(nobody.ends());
  EXPECT_THAT(log_.take(),
              ElementsAre(err("CSemaphore::init() - unable to obtain semaphore-set - errno=13"),
                          err("recursive-semaphore: unable to init guarding semaphore")));
}

TEST_F(NoGuard, FailsWhenItCannotBeLocked) {
  { const Lock first(kName); }
  log_.take();
  std::filesystem::remove(kFile);
  run_with_failing_calls({{SystemCall::kOperateSemaphores, ENOSPC}}, [] {
    Lock lock(kName);
    EXPECT_EQ(lock.lock(), -1);
  });
  EXPECT_THAT(log_.take(),
              ElementsAre(err("CSemaphore::lock() - semop failed, errno=28"),
                          err("recursive-semaphore: unable to lock guarding semaphore")));
  EXPECT_NE(::access(kFile, F_OK), 0);
  EXPECT_EQ(value_of(guard_set()), 1);
}

TEST_F(NoGuard, IsNoFailureOnceTheLockIsThere) {
  { const Lock first(kName); }
  log_.take();
  run_with_failing_calls({{SystemCall::kOperateSemaphores, ENOSPC, 1}}, [] {
    Lock lock(kName);
    EXPECT_EQ(lock.lock(), 0);
    EXPECT_EQ(lock.unlock(), 0);
  });
  EXPECT_THAT(log_.take(), ElementsAre(err("CSemaphore::unlock() - semop() failed errno=28")));
  EXPECT_EQ(value_of(guard_set()), 0);
}

TEST_F(NoGuard, IsWhatAKilledCreatorLeavesUndone) {
  { const Lock first(kName); }
  log_.take();
  Fellow creator([](Fellow& test) {
    CSemaphore guard(kLibrary, 1);
    guard.init();
    test.tell(guard.lock());
    test.hear();
  });
  EXPECT_EQ(creator.hear(), 0);
  creator.kill();
  { const Lock lock("/another"); }
  EXPECT_THAT(log_.take(), ElementsAre(created("/another")));
}

// ---- Objects that cannot be opened ----

// C libraries differ in it.
int error_of_opening(const std::string& name) {
  EXPECT_EQ(::shm_open(name.c_str(), O_RDWR | O_CREAT, 0600), -1) << name;
  return errno;
}

TEST_F(Creation, FailsForNamesThatAreNone) {
  for (const std::string& name :
       {std::string(""), std::string("/"), std::string("/a/b"), "/" + std::string(300, 'x')}) {
    Lock lock(name);
    expect_unusable(lock);
    const int file = ::shm_open(name.c_str(), O_RDWR | O_CREAT, 0600);
    const int error = errno;
    EXPECT_EQ(file, -1) << name;
    EXPECT_THAT(log_.take(), ElementsAre(not_opened(error))) << name;
  }
}

TEST_F(Creation, FailsForANameWithANul) {
  Lock lock(std::string(kName) + '\0' + "x");
  expect_unusable(lock);
  EXPECT_THAT(log_.take(), ElementsAre(not_opened(EINVAL)));
  EXPECT_NE(::access(kFile, F_OK), 0);
}

TEST_F(Creation, FailsWithAFolderInTheWay) {
  ASSERT_EQ(::mkdir(kFile, 0700), 0);
  fail();
  EXPECT_THAT(log_.take(), ElementsAre(not_opened(error_of_opening(kName))));
}

TEST_F(Creation, FollowsNoLink) {
  support::put("/tmp/target", "");
  ASSERT_EQ(::symlink("/tmp/target", kFile), 0);
  fail();
  EXPECT_THAT(log_.take(), ElementsAre(not_opened(ELOOP)));
  EXPECT_EQ(std::filesystem::file_size("/tmp/target"), 0U);
  std::filesystem::remove("/tmp/target");
}

TEST_F(Creation, FailsForAnotherUsersObject) {
  Fellow nobody([](Fellow& test) {
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) return;
    const Lock first("/nobodys");  // and the guard is nobody's
    support::put(kFile, "");
    ::chmod(kFile, 0);
    Lock lock(kName);
    test.tell(lock.lock());
  });
  EXPECT_EQ(nobody.hear(), -1);
  EXPECT_TRUE(nobody.ends());
  EXPECT_THAT(log_.take(), ElementsAre(created("/nobodys"), not_opened(EACCES)));
}

TEST_F(Creation, FailsWithoutDescriptors) {
  { const Lock first("/another"); }
  log_.take();
  {
    const support::NoMoreDescriptors full;
    fail();
  }
  EXPECT_THAT(log_.take(), ElementsAre(not_opened(EMFILE)));
}

// ---- Objects that get no memory ----

TEST_F(Creation, FailsWhenTheObjectCannotGetItsSizeAndRemovesIt) {
  run_with_failing_calls({{SystemCall::kTruncate, EFBIG}}, [] { fail(); });
  EXPECT_THAT(log_.take(), ElementsAre(not_truncated(EFBIG), not_opened(EFBIG)));
  EXPECT_NE(::access(kFile, F_OK), 0);
}

TEST_F(Creation, TellsTwiceWhyTheObjectCannotGetItsSize) {
  const auto remove_it = [] { ::unlink(kFile); };  // so that removing it fails too
  run_with_failing_calls({{SystemCall::kTruncate, EFBIG, 0, 1, remove_it}}, [] { fail(); });
  EXPECT_THAT(log_.take(), ElementsAre(not_truncated(EFBIG), not_opened(EFBIG)));
}

TEST_F(Creation, GivesTheObjectItsSizeThroughSignals) {
  run_with_failing_calls({{SystemCall::kTruncate, EINTR, 0, 2}}, [] { use(); });
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
}

// Otherwise a signal would end the process as soon as it writes to the mutex.
TEST_F(Creation, FailsOnAFullFileSystem) {
  ASSERT_EQ(::mount("tmpfs", "/dev/shm", "tmpfs", 0, "size=4k,mode=1777"), 0);
  {
    std::ofstream file("/dev/shm/full");
    file << std::string(4096, 'x');
  }
  const std::vector<std::string> left = [] {
    fail();
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
      names.push_back(entry.path());
    }
    return names;
  }();
  ASSERT_EQ(::umount("/dev/shm"), 0);
  EXPECT_THAT(left, ElementsAre("/dev/shm/full"));
  EXPECT_THAT(log_.take(), ElementsAre(not_truncated(ENOSPC), not_opened(ENOSPC)));
}

TEST_F(Creation, FailsWhenTheObjectCannotBeMapped) {
  run_with_failing_calls({{SystemCall::kMapFile, ENOMEM}}, [] { fail(); });
  EXPECT_THAT(log_.take(), ElementsAre(not_mapped(ENOMEM)));
  // It is there, of its size and without a mutex, so it is a new one for the next.
  use();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
}

// ---- Objects that are there but no locks ----

TEST_F(Creation, MakesALockOfAnEmptyObject) {
  support::put(kFile, "");
  use();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
  use();
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Creation, MakesALockOfAnObjectOfZeros) {
  support::put(kFile, std::string(sizeof(pthread_mutex_t), '\0'));
  use();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
}

TEST_F(Creation, MakesALockOfAnObjectThatGotItsSizeOnly) {
  support::put(kFile, "");
  std::filesystem::resize_file(kFile, sizeof(pthread_mutex_t));
  use();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
}

TEST_F(Creation, LeavesAnObjectAloneWhoseLastByteIsNotZero) {
  const std::string content = std::string(sizeof(pthread_mutex_t) - 1, '\0') + '\1';
  support::put(kFile, content);
  { const Lock lock(kName); }
  EXPECT_EQ(content_of(kFile), content);
}

class OtherSize : public Creation, public testing::WithParamInterface<int> {};

TEST_P(OtherSize, IsNotUsedNorTouched) {
  for (const char byte : {'x', '\0'}) {
    const std::string content(
        static_cast<std::size_t>(static_cast<int>(sizeof(pthread_mutex_t)) + GetParam()), byte);
    support::put(kFile, content);
    fail();
    EXPECT_THAT(log_.take(), ElementsAre(not_mapped(EINVAL)));
    EXPECT_EQ(content_of(kFile), content);
  }
}

INSTANTIATE_TEST_SUITE_P(Creation, OtherSize, testing::Values(-1, 1, 10, 5000));

TEST_F(Creation, FailsForAnObjectOfOneByte) {
  support::put(kFile, "x");
  fail();
  EXPECT_THAT(log_.take(), ElementsAre(not_mapped(EINVAL)));
}

TEST_F(Creation, FailsForAPipe) {
  ASSERT_EQ(::mkfifo(kFile, 0600), 0);
  fail();
  EXPECT_THAT(log_.take(), ElementsAre(not_mapped(ESPIPE)));
}

// ---- Mutexes that cannot be made ----

using FailingStep = std::tuple<MutexFunction, const char*>;

class NoMutex : public Creation, public testing::WithParamInterface<FailingStep> {};

TEST_P(NoMutex, LeavesTheMappingAndAnObjectForTheNext) {
  const auto [function, message] = GetParam();
  const int before = mappings();
  {
    const FailingMutexFunction failing(function, [] {
      errno = 0;
      return ENOTSUP;
    });
    fail();
  }
  EXPECT_THAT(log_.take(), ElementsAre(err(message)));
  EXPECT_EQ(mappings(), before + 1);
  use();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
  EXPECT_EQ(mappings(), before + 1);
}

INSTANTIATE_TEST_SUITE_P(
    Creation, NoMutex,
    testing::Values(FailingStep(MutexFunction::kInitAttributes,
                                "recursive-semaphore: unable initialize attributes"),
                    FailingStep(MutexFunction::kSetRobust,
                                "recursive semaphore: unable to set attribute \"robust\""),
                    FailingStep(MutexFunction::kSetShared,
                                "recursive-semaphore: unable to set attribute \"recursive\""),
                    FailingStep(MutexFunction::kSetType,
                                "recursive-semaphore: unable to set attribute \"recursive\"")));

TEST_F(Creation, FailsWhenTheMutexCannotBeMade) {
  const int before = mappings();
  {
    const FailingMutexFunction failing(MutexFunction::kInit, [] {
      errno = 0;
      return ENOMEM;
    });
    fail();
  }
  EXPECT_THAT(log_.take(),
              ElementsAre(err("recursive-semaphore: unable to initialize mutex - errno=" +
                              text_of(ENOMEM))));
  EXPECT_EQ(mappings(), before + 1);
  use();
  EXPECT_THAT(log_.take(), ElementsAre(created(kName)));
  EXPECT_EQ(mappings(), before + 1);
}

TEST_F(Creation, IsUnmappedAtTheEnd) {
  const int before = mappings();
  {
    const Lock lock(kName);
    EXPECT_EQ(mappings(), before + 1);
  }
  EXPECT_EQ(mappings(), before);
  log_.take();
}

// ---- Memory ----

TEST_F(Creation, GivesAnUnusableLockWithoutMemoryAndThrowsNothing) {
  { const Lock first(kName); }
  const std::string name = kName;
  unsigned long nth = 1;
  for (bool happened = true; happened; ++nth) {
    std::optional<Lock> lock;
    {
      const support::FailingAllocation failing(nth);
      lock.emplace(name);
      happened = failing.happened();
    }
    if (happened) expect_unusable(*lock);
    if (!happened) expect_usable(*lock);
  }
  EXPECT_GE(nth, 3U);
  log_.take();
}

}  // namespace
