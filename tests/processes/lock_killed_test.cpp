// Locks whose users are killed, wherever they are: whoever comes next gets the lock, or what is said
// of its kind, and nothing is left beside the lock itself.

#include <rkutils/semaphore.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include "lock_fixture.h"
#include "support/case_name.h"
#include "support/put_file.h"
#include "support/rounds.h"
#include "support/stepped_process.h"
#include "support/stopped_clock.h"

namespace {

using support::SteppedProcess;
using support::StoppedClock;
using testing::Each;

constexpr const char* kName = "/killed-test";
constexpr const char* kFile = "/tmp/killed-test";
constexpr int kProject = 9;
constexpr const char* kFolder = "/tmp/killed-test-folder";

// Who has to wait longer than that hangs, and is ended by SIGALRM.
constexpr unsigned kPatienceS = 30;

constexpr int kGot = 0;
constexpr int kFailed = -1;  // EOWNERDEAD: got from a dead owner

// ---- What is done under the lock ----

// Only ever in the hands of one of those who live.
class Work {
 public:
  Work() {
    void* const memory =
        ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
    shared_ = new (memory) Shared();
  }
  ~Work() { ::munmap(shared_, sizeof(Shared)); }
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;

  // Not to be done by two at a time. The dead are no longer at it.
  void operator()() const {
    const pid_t process = ::getpid();
    shared_->hands = process;
    ::sched_yield();  // who is let in now would come
    if (shared_->hands != process) ++shared_->collisions;
    ++shared_->times;
  }

  [[nodiscard]] int times() const { return shared_->times; }
  // How often it was done by two at a time.
  [[nodiscard]] int collisions() const { return shared_->collisions; }

 private:
  struct Shared {
    std::atomic<pid_t> hands;
    std::atomic<int> collisions;
    std::atomic<int> times;
  };
  Shared* shared_;
};

// ---- Kinds of locks that the dead do not keep ----

// Makes or finds the lock, takes it so often, works and gives it back.
using Use = int(int times, const Work& work);

int use_semaphore(int times, const Work& work) {
  CSemaphore semaphore(kFile, kProject);
  if (semaphore.init() != 0) return kFailed;
  for (int i = 0; i < times; ++i) {
    if (semaphore.lock() != 0) return kFailed;
    work();
    if (semaphore.unlock() != 0) return kFailed;
  }
  return kGot;
}

template <typename Call>
int use_named(int times, const Work& work, Call call) {
  int outcome = kGot;
  for (int i = 0; i < times; ++i) {
    const int result = call.lock();
    if (result == EOWNERDEAD) outcome = EOWNERDEAD;
    if ((result != 0 && result != EOWNERDEAD) || call.lock() != 0) return kFailed;
    work();
    if (call.unlock() != 0 || call.unlock() != 0) return kFailed;
  }
  return outcome;
}

int use_class(int times, const Work& work) {
  struct Call {
    int lock() { return object.lock(); }
    int unlock() { return object.unlock(); }
    CRecursiveSemaphore& object;
  };
  CRecursiveSemaphore object(kName);
  return use_named(times, work, Call{object});
}

int use_handle(int times, const Work& work) {
  struct Call {
    int lock() const { return sem_lock(handle); }
    int unlock() const { return sem_unlock(handle); }
    sem_handle* handle;
  };
  sem_handle* const handle = sem_create(kName);
  const int outcome = use_named(times, work, Call{handle});
  sem_release(handle);
  return outcome;
}

// What is in the system: semaphore sets with their values, shared memory objects and segments.
struct Left {
  std::vector<int> values;
  std::vector<std::string> objects;
  std::size_t segments = 0;
};

bool operator==(const Left& a, const Left& b) {
  return a.values == b.values && a.objects == b.objects && a.segments == b.segments;
}

void PrintTo(const Left& left, std::ostream* out) {
  *out << left.segments << " segments, " << testing::PrintToString(left.values) << ", "
       << testing::PrintToString(left.objects);
}

Left left() {
  Left left;
  for (const int set : numbers_of("sem")) left.values.push_back(value_of(set));
  for (const auto& object : std::filesystem::directory_iterator("/dev/shm")) {
    left.objects.push_back(object.path().filename());
  }
  left.segments = numbers_of("shm").size();
  return left;
}

struct Kind {
  std::string name;
  Use* use;
  std::vector<std::string> objects;
};
void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

class LockKilled : public LockTest, public testing::WithParamInterface<Kind> {
 protected:
  LockKilled() { support::put(kFile, ""); }
  ~LockKilled() override { ::unlink(kFile); }

  [[nodiscard]] int use_once() const { return GetParam().use(1, work_); }

  // Another process that uses the lock now, and ends well if it gets it.
  [[nodiscard]] std::unique_ptr<Fellow> start_next() const {
    return std::make_unique<Fellow>([this](Fellow&) {
      ::alarm(kPatienceS);
      if (use_once() == kFailed) ::_exit(1);
    });
  }

  // One that loops until it is killed.
  [[nodiscard]] std::unique_ptr<Fellow> start_user() const {
    constexpr int kTimes = 5;  // on each of its objects
    return std::make_unique<Fellow>([this](Fellow&) {
      while (GetParam().use(kTimes, work_) != kFailed) continue;
      ::_exit(1);
    });
  }

  // Kills it while another process may wait for it: that one gets the lock, and so does one that
  // comes later, to whom nobody has died.
  void kill_and_expect_free(SteppedProcess& victim) const {
    const std::unique_ptr<Fellow> waiting = start_next();
    victim.kill();
    EXPECT_TRUE(waiting->ends());
    EXPECT_TRUE(start_next()->ends());
    ::alarm(kPatienceS);
    EXPECT_EQ(use_once(), kGot);
    ::alarm(0);
    expect_in_order();
  }

  // All is free and as it should be.
  void expect_in_order() const {
    EXPECT_EQ(left(), (Left{{1}, GetParam().objects, 0}));
    EXPECT_EQ(work_.collisions(), 0);
  }

  // Nothing but that a lock was made.
  void TearDown() override {
    EXPECT_THAT(log_.take(),
                Each(debug("created recursive semaphore \"" + std::string(kName) + "\"")));
    LockTest::TearDown();
  }

  const Work work_;
};

TEST_P(LockKilled, AtAnySystemCallOfItsFirstUse) {
  bool killed = true;
  for (int stop = 0; killed; ++stop) {
    SCOPED_TRACE("stop " + std::to_string(stop));
    remove_locks();
    SteppedProcess victim([this] { return use_once(); });
    killed = victim.go_on(stop);
    kill_and_expect_free(victim);
  }
}

TEST_P(LockKilled, AtAnySystemCallOfALaterUse) {
  ASSERT_EQ(use_once(), kGot);
  bool killed = true;
  for (int stop = 0; killed; ++stop) {
    SCOPED_TRACE("stop " + std::to_string(stop));
    SteppedProcess victim([this] { return use_once(); });
    killed = victim.go_on(stop);
    kill_and_expect_free(victim);
  }
}

// Between the system calls, too, where the machine can be stopped there: a named lock is taken and
// made without any.
TEST_P(LockKilled, SomewhereInItsFirstUse) {
  const bool has_instructions = SteppedProcess::has_instructions();
  int stops = 0;
  {
    SteppedProcess whole([this] { return use_once(); });
    while (whole.go_on()) ++stops;
    ASSERT_EQ(whole.status(), 0);
  }
  std::minstd_rand random(20);
  for (int i = support::rounds(100); i > 0; --i) {
    SCOPED_TRACE(i);
    remove_locks();
    SteppedProcess victim([this] { return use_once(); });
    const auto stop = static_cast<int>(random()) % stops;
    const auto instructions = static_cast<int>(random()) % 300;
    if (victim.go_on(stop) && has_instructions) victim.go_on_by_instructions(instructions);
    kill_and_expect_free(victim);
  }
}

TEST_P(LockKilled, AThousandTimesAmongOthers) {
  constexpr std::size_t kUsers = 4;
  constexpr int kLongestPauseUs = 1000;
  ASSERT_EQ(use_once(), kGot);
  std::vector<std::unique_ptr<Fellow>> users(kUsers);
  for (auto& user : users) user = start_user();
  std::minstd_rand random(4711);
  for (int kills = support::rounds(1000); kills > 0; --kills) {
    ::usleep(static_cast<useconds_t>(random() % kLongestPauseUs));
    auto& victim = users[random() % kUsers];
    victim->kill();
    ::alarm(kPatienceS);
    EXPECT_NE(use_once(), kFailed);
    ::alarm(0);
    victim = start_user();
  }
  const int times = work_.times();
  ::alarm(kPatienceS);
  while (work_.times() == times) ::sched_yield();  // they are still at it
  ::alarm(0);
  users.clear();
  EXPECT_NE(use_once(), kFailed);
  EXPECT_EQ(use_once(), kGot);
  expect_in_order();
}

INSTANTIATE_TEST_SUITE_P(Locks, LockKilled,
                         testing::Values(Kind{"CSemaphore", use_semaphore, {}},
                                         Kind{"CRecursiveSemaphore", use_class, {"killed-test"}},
                                         Kind{"sem", use_handle, {"killed-test"}}),
                         support::CaseName());

// ---- Between two instructions of a named lock ----

class NamedLockKilled : public LockTest {
 protected:
  NamedLockKilled() : lock_(kName) { log_.take(); }

  static bool got(int result) { return result == 0 || result == EOWNERDEAD; }

  // Locks and unlocks. That the work is done before and after shows how far it is.
  int use_between(const Work& work) {
    work();
    ::getppid();  // a stop
    if (!got(lock_.lock()) || lock_.unlock() != 0) return 1;
    work();
    return 0;
  }

  CRecursiveSemaphore lock_;
};

// Of a build with sanitizers, which has many, at some. In every second round somebody waits when it
// goes on, and has to be woken.
TEST_F(NamedLockKilled, AtAnyInstruction) {
  constexpr int kMostKills = 400;
  if (!SteppedProcess::has_instructions()) GTEST_SKIP() << "the machine has no single steps";
  int count = 0;
  {
    const Work work;
    SteppedProcess whole([&] { return use_between(work); });
    while (work.times() == 0) ASSERT_TRUE(whole.go_on());
    for (; work.times() == 1; ++count) ASSERT_TRUE(whole.go_on_by_instructions(1));
  }
  int deaths = 0;
  int kills = 0;
  for (int instruction = 0; instruction < count; instruction += 1 + count / kMostKills, ++kills) {
    SCOPED_TRACE("instruction " + std::to_string(instruction));
    const Work work;
    SteppedProcess victim([&] { return use_between(work); });
    while (work.times() == 0) ASSERT_TRUE(victim.go_on());
    ASSERT_TRUE(victim.go_on_by_instructions(instruction));
    Fellow waiting([this](Fellow& test) {
      ::alarm(kPatienceS);
      const int result = lock_.lock();
      lock_.unlock();
      test.tell(result);
    });
    if (kills % 2 == 1) {
      ::usleep(100);
      victim.go_on_by_instructions(kills % 50);
    }
    victim.kill();
    // The other one may have had it before the victim came to it.
    for (const int result : {waiting.hear(), lock_.trylock()}) {
      EXPECT_TRUE(got(result)) << result;
      if (result == EOWNERDEAD) ++deaths;
    }
    EXPECT_TRUE(waiting.ends());
    EXPECT_EQ(lock_.unlock(), 0);
    EXPECT_EQ(lock_.unlock(), EPERM);
  }
  EXPECT_GT(deaths, 0);
  EXPECT_LT(deaths, kills);
}

// ---- Lock directories, which the dead keep ----

class LockDirectoryKilled : public LockTest {
 protected:
  LockDirectoryKilled() { std::filesystem::remove_all(kFolder); }
  ~LockDirectoryKilled() override { std::filesystem::remove_all(kFolder); }

  static int use() { return acquire_lock(kFolder, 1) == 0 ? release_lock(kFolder) : 1; }

  // Either it is free, or it is held until somebody releases it. Tells which.
  static bool expect_left_in_order() {
    const bool is_held = std::filesystem::exists(kFolder);
    {
      StoppedClock clock;
      EXPECT_EQ(acquire_lock(kFolder, 3), is_held ? -1 : 0);
      EXPECT_EQ(clock.take_pauses_us().size(), is_held ? 3U : 0U);
    }
    EXPECT_TRUE(std::filesystem::is_empty(kFolder));
    EXPECT_EQ(release_lock(kFolder), 0);
    EXPECT_EQ(use(), 0);
    EXPECT_FALSE(std::filesystem::exists(kFolder));
    return is_held;
  }
};

TEST_F(LockDirectoryKilled, AtAnySystemCall) {
  int held = 0;
  int stops = 0;
  for (bool killed = true; killed; ++stops) {
    SCOPED_TRACE("stop " + std::to_string(stops));
    SteppedProcess victim(use);
    killed = victim.go_on(stops);
    victim.kill();
    if (expect_left_in_order()) ++held;
  }
  EXPECT_GT(held, 0);
  EXPECT_LT(held, stops);
}

TEST_F(LockDirectoryKilled, AThousandTimes) {
  std::minstd_rand random(31);
  for (int kills = support::rounds(1000); kills > 0; --kills) {
    Fellow user([](Fellow&) {
      while (use() == 0) continue;
      ::_exit(1);
    });
    ::usleep(static_cast<useconds_t>(random() % 500));
    user.kill();
    expect_left_in_order();
  }
}

}  // namespace
