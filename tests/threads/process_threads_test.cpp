// Commands, processes, locks and plug-ins of several threads at once.

#include <rkutils/command.h>
#include <rkutils/dynamic_module.h>
#include <rkutils/process_control.h>
#include <rkutils/semaphore.h>

#include <array>
#include <string>

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include "support/at_once.h"
#include "support/private_router.h"
#include "support/put_file.h"
#include "support/rounds.h"
#include "support/syslog_collector.h"

namespace {

using support::at_once;

constexpr int kThreads = 4;

TEST(ThreadsWithCommands, SplitTheirOwn) {
  at_once(kThreads, [](int thread) {
    const std::string command = "program '" + std::to_string(thread) + " a' b";
    for (int round = support::rounds(1000); round > 0; --round) {
      char** words = nullptr;
      int count = 0;
      ASSERT_EQ(makeargv(command.c_str(), &words, &count), 0);
      ASSERT_EQ(count, 3);
      ASSERT_EQ(words[1], std::to_string(thread) + " a");
      freeargv(words);
    }
  });
}

TEST(ThreadsWithCommands, RunTheirOwn) {
  at_once(kThreads, [](int thread) {
    const std::string number = std::to_string(thread);
    for (int round = support::rounds(20); round > 0; --round) {
      std::array<char, 16> output;
      ASSERT_EQ(eval_command(("echo " + number).c_str(), output.data(), output.size()), 2);
      ASSERT_EQ(output.data(), number + "\n");
      ASSERT_EQ(run_command(("exit " + number).c_str(), 0), thread);
    }
  });
}

TEST(ThreadsWithProcesses, LookAtThem) {
  at_once(kThreads, [](int) {
    ProcessControl processes;
    std::array<char, 64> caller;
    for (int round = support::rounds(100); round > 0; --round) {
      ASSERT_EQ(pid_alive(::getpid()), 1);
      ASSERT_EQ(get_parent_pid(::getpid()), ::getppid());
      ASSERT_EQ(get_caller(caller.data(), caller.size()), 0);
      processes.refresh(round % 2 == 0);
      ASSERT_NE(processes.getProcessEntryByPid(::getpid()), nullptr);
    }
  });
}

// ---- Locks ----

// Each lock guards a number, which would not come out right if it did not.
template <typename Lock, typename Unlock, typename Count>
void expect_exclusion(Lock lock, Unlock unlock, Count count) {
  const int rounds = support::rounds(1000);
  int counted = 0;
  at_once(kThreads, [&](int) {
    for (int round = 0; round < rounds; ++round) {
      ASSERT_EQ(lock(), 0);
      count(counted);
      ASSERT_EQ(unlock(), 0);
    }
  });
  EXPECT_EQ(counted, kThreads * rounds);
}

void count(int& counted) { ++counted; }

// What the kernel guards without the C library's knowing: ThreadSanitizer would see no order in it.
void count_unordered(int& counted) {
  const int before = __atomic_load_n(&counted, __ATOMIC_RELAXED);
  __atomic_store_n(&counted, before + 1, __ATOMIC_RELAXED);
}

class ThreadsWithLocks : public testing::Test {
 protected:
  ~ThreadsWithLocks() override { ::shm_unlink(kName); }

  static constexpr const char* kName = "/threads-with-locks";
  const support::SyslogCollector log_;
};

TEST_F(ThreadsWithLocks, ShareANamedOne) {
  CRecursiveSemaphore lock(kName);
  expect_exclusion([&] { return lock.lock(); }, [&] { return lock.unlock(); }, count);
}

TEST_F(ThreadsWithLocks, ShareAHandle) {
  sem_handle* const lock = sem_create(kName);
  expect_exclusion([&] { return sem_lock(lock); }, [&] { return sem_unlock(lock); }, count);
  sem_release(lock);
}

// Every thread makes one of the same name, and one of them makes the lock.
TEST_F(ThreadsWithLocks, MakeANamedOneAtOnce) {
  for (int round = support::rounds(50); round > 0; --round) {
    at_once(kThreads, [](int) {
      CRecursiveSemaphore lock(kName);
      EXPECT_EQ(lock.lock(), 0);
      EXPECT_EQ(lock.unlock(), 0);
    });
    ::shm_unlink(kName);
  }
}

TEST_F(ThreadsWithLocks, ShareASemaphore) {
  support::put("/tmp/semaphore", "");
  CSemaphore semaphore("/tmp/semaphore", 1);
  ASSERT_EQ(semaphore.init(), 0);
  expect_exclusion([&] { return semaphore.lock(); }, [&] { return semaphore.unlock(); },
                   count_unordered);
}

TEST_F(ThreadsWithLocks, TakeALockDirectory) {
  constexpr const char* kPath = "/tmp/threads-with-locks";
  std::array<int, kThreads> taken = {};
  at_once(kThreads, [&](int thread) {
    taken.at(static_cast<std::size_t>(thread)) = acquire_lock(kPath, 1) == 0 ? 1 : 0;
  });
  EXPECT_THAT(taken, testing::UnorderedElementsAre(0, 0, 0, 1));
  release_lock(kPath);
}

// ---- Plug-ins ----

TEST(ThreadsWithPlugIns, LoadOneInObjectsOfTheirOwn) {
  const support::SyslogCollector log;
  const std::string path = support::built_program("tests/processes/plug-in-bare.so");
  at_once(kThreads, [&path](int) {
    for (int round = support::rounds(50); round > 0; --round) {
      CDynamicModule plug_in(path);
      ASSERT_EQ(plug_in.load(nullptr), 0);
      ASSERT_EQ(plug_in.getClassFactory(), nullptr);
    }
  });
}

}  // namespace
