// Locks that nobody else wants, and finding one that is there.

#include <rkutils/semaphore.h>

#include <boost/interprocess/sync/named_recursive_mutex.hpp>
#include <string>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include "processes/rows.h"
#include "support/comparison.h"
#include "support/put_file.h"

namespace bench::processes {
namespace {

using benchmark::State;

constexpr const char* kName = "/lock-bench";
constexpr const char* kPath = "/tmp/lock-bench";
constexpr const char* kLibrary = "/usr/lib/librkutils.so.1.0.0";

// ---- Named locks ----

void lock_named(State& state) {
  CRecursiveSemaphore lock(kName);
  for (auto _ : state) {
    if (lock.lock() != 0 || lock.unlock() != 0) state.SkipWithError("not locked");
  }
}

void lock_boost(State& state) {
  boost::interprocess::named_recursive_mutex mutex(boost::interprocess::open_or_create,
                                                   "lock-bench-boost");
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}

// A mutex of the same kind.
void lock_mutex(State& state) {
  void* const memory = ::mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto* const mutex = static_cast<pthread_mutex_t*>(memory);
  pthread_mutexattr_t attributes;
  ::pthread_mutexattr_init(&attributes);
  ::pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  ::pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  ::pthread_mutex_init(mutex, &attributes);
  for (auto _ : state) {
    if (::pthread_mutex_lock(mutex) != 0 || ::pthread_mutex_unlock(mutex) != 0) {
      state.SkipWithError("not locked");
    }
  }
  ::munmap(memory, sizeof(pthread_mutex_t));
}

// ---- Semaphores ----

int make_set(State& state) {
  support::put(kPath, "");
  CSemaphore semaphore(kPath, 1);
  if (semaphore.init() != 0) state.SkipWithError("no set");
  return ::semget(::ftok(kPath, 1), 0, 0);
}

bool change(int set, short by, short flags) {
  sembuf operation = {0, by, flags};
  return ::semop(set, &operation, 1) == 0;
}

void lock_semaphore(State& state) {
  make_set(state);
  CSemaphore semaphore(kPath, 1);
  semaphore.init();
  for (auto _ : state) {
    if (semaphore.lock() != 0 || semaphore.unlock() != 0) state.SkipWithError("not locked");
  }
}

void lock_file(State& state) {
  support::put(kPath, "");
  const int file = ::open(kPath, O_RDONLY | O_CLOEXEC);
  for (auto _ : state) {
    if (::flock(file, LOCK_EX) != 0 || ::flock(file, LOCK_UN) != 0) {
      state.SkipWithError("not locked");
    }
  }
  ::close(file);
}

void lock_by_calls(State& state) {
  const int set = make_set(state);
  for (auto _ : state) {
    if (!change(set, -1, SEM_UNDO) || !change(set, 1, SEM_UNDO)) {
      state.SkipWithError("not locked");
    }
  }
}

// ---- Finding a named lock ----

void open_named(State& state) {
  const std::string name = kName;
  const CRecursiveSemaphore first(name);
  for (auto _ : state) {
    CRecursiveSemaphore lock(name);
    benchmark::DoNotOptimize(lock);
  }
}

void open_posix(State& state) {
  ::sem_close(::sem_open("/lock-bench-posix", O_CREAT, 0600, 1U));
  for (auto _ : state) {
    sem_t* const semaphore = ::sem_open("/lock-bench-posix", 0);
    if (semaphore == SEM_FAILED) return state.SkipWithError("not opened");
    ::sem_close(semaphore);
  }
}

// With the looks at the guard's value and at the object that keep a dead creator from locking all
// others out.
void open_by_calls(State& state) {
  const CRecursiveSemaphore first(kName);
  for (auto _ : state) {
    const key_t key = ::ftok(kLibrary, 1);
    int set = ::semget(key, 1, IPC_CREAT | IPC_EXCL | 0600);
    if (set == -1) set = ::semget(key, 1, IPC_CREAT | 0600);
    if (::semctl(set, 0, GETVAL) != 1) state.SkipWithError("not free");
    change(set, -1, SEM_UNDO);
    const int object = ::shm_open(kName, O_RDWR, 0);
    char bytes[sizeof(pthread_mutex_t) + 1];
    const ssize_t size = ::pread(object, bytes, sizeof bytes, 0);
    void* const memory =
        ::mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE, MAP_SHARED, object, 0);
    ::close(object);
    change(set, 1, SEM_UNDO);
    if (size != sizeof(pthread_mutex_t) || memory == MAP_FAILED) state.SkipWithError("not mapped");
    ::munmap(memory, sizeof(pthread_mutex_t));
  }
}

}  // namespace

void add_lock_rows() {
  compare("CRecursiveSemaphore lock and unlock, free", lock_named,
          {peer("boost named_recursive_mutex", 1.45, lock_boost),
           floor("bare robust mutex", 1.1, lock_mutex)});
  compare("CSemaphore lock and unlock", lock_semaphore,
          {peer("flock", 1.15, lock_file), floor("two semops", 1.1, lock_by_calls)});
  compare("open a named lock that exists", open_named,
          {peer("sem_open", 1.4, open_posix), floor("its system calls", 1.1, open_by_calls)});
}

}  // namespace bench::processes
