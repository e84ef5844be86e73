// Locks: semaphore sets, named locks, folders.

#include <rkutils/semaphore.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include "families.h"
#include "folder.h"
#include "support/put_file.h"
#include "support/stopped_clock.h"

namespace faults {
namespace {

constexpr const char* kFile = "/tmp/faults/lock";
constexpr int kProject = 7;

void check(bool done, const char* step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

int set_of(const char* path, int project) { return ::semget(::ftok(path, project), 0, 0); }

// ---- Semaphore sets ----

// A semaphore of which there is no set yet.
struct NewSet {
  ~NewSet() { ::semctl(set_of(kFile, kProject), 0, IPC_RMID); }
  NewSet() { support::put(kFile, ""); }
  NewSet(const NewSet&) = delete;
  NewSet& operator=(const NewSet&) = delete;

  // What the set is like.
  [[nodiscard]] static std::string after() {
    const int set = set_of(kFile, kProject);
    if (set < 0) return "no set";
    switch (::semctl(set, 0, GETVAL)) {
      case 0:
        return "locked";
      case 1:
        return "free";
      default:
        return "odd";
    }
  }

  const Folder folder{"/tmp/faults"};
  support::StoppedClock clock;  // its waits are over at once
  CSemaphore semaphore{kFile, kProject};
};

// One that is made when the function is called.
struct NoSemaphore {
  static std::string after() { return {}; }

  const std::string path = kFile;
  std::optional<CSemaphore> semaphore;
};

// One that there is a set of, which is free.
struct FreeSet : NewSet {
  FreeSet() { check(semaphore.init() == 0, "init"); }
};

struct LockedSet : FreeSet {
  LockedSet() { check(semaphore.lock() == 0, "lock"); }
};

// ---- Named locks ----

constexpr const char* kNewName = "/new";
constexpr const char* kKnownName = "/known";
constexpr const char* kNewObject = "/dev/shm/new";
constexpr const char* kLibrary = "/usr/lib/librkutils.so.1.0.0";

int guard_set() { return set_of(kLibrary, 1); }

// A lock that is known, and with it the guard of all creations.
class KnownLocks {
 public:
  KnownLocks() { const CRecursiveSemaphore known(kKnownName); }
  ~KnownLocks() {
    ::semctl(guard_set(), 0, IPC_RMID);
    std::filesystem::remove("/dev/shm/known");
  }
  KnownLocks(const KnownLocks&) = delete;
  KnownLocks& operator=(const KnownLocks&) = delete;
};

Scenario with_known_locks(Scenario of) {
  of.surroundings = [] { return std::make_shared<KnownLocks>(); };
  return of;
}

// A lock by its name.
struct NamedLock {
  explicit NamedLock(const char* name_) : name(name_) {}
  ~NamedLock() {
    ::semctl(guard_set(), 0, SETVAL, 1);
    std::filesystem::remove(kNewObject);
  }
  NamedLock(const NamedLock&) = delete;
  NamedLock& operator=(const NamedLock&) = delete;

  // Whether it is of use.
  [[nodiscard]] std::string after() {
    const int result = lock ? lock->trylock() : -1;
    if (result == 0) lock->unlock();
    return std::to_string(result);
  }

  const std::string name;
  std::optional<CRecursiveSemaphore> lock;
};

std::string with_shared_memory(const std::string& text) {
  return text + (std::filesystem::exists(kNewObject) ? "" : ", no shared memory");
}

// One that has not been made yet.
struct NewLock : NamedLock {
  NewLock() : NamedLock(kNewName) {}

  [[nodiscard]] std::string after() { return with_shared_memory(NamedLock::after()); }
};

struct KnownLock : NamedLock {
  KnownLock() : NamedLock(kKnownName) {}
};

// The same for programs without classes.
struct NewHandle : NamedLock {
  NewHandle() : NamedLock(kNewName) {}
  ~NewHandle() { sem_release(handle); }
  NewHandle(const NewHandle&) = delete;
  NewHandle& operator=(const NewHandle&) = delete;

  [[nodiscard]] std::string after() const {
    const int result = sem_trylock(handle);
    if (result == 0) sem_unlock(handle);
    return with_shared_memory(std::to_string(result));
  }

  sem_handle* handle = nullptr;
};

struct Options {
  ~Options() { semopts_release(options); }
  Options() = default;
  Options(const Options&) = delete;
  Options& operator=(const Options&) = delete;

  static std::string after() { return {}; }

  sem_options* options = nullptr;
};

// ---- Lock folders ----

constexpr const char* kPlace = "/tmp/faults/place";

struct Place {
  [[nodiscard]] std::string after() const {
    return folder.contents() == "empty" ? "released" : "locked";
  }

  const Folder folder{"/tmp/faults"};
  support::StoppedClock clock;
};

struct LockedPlace : Place {
  LockedPlace() { std::filesystem::create_directory(kPlace); }
};

template <typename State>
Scenario creation(std::string name) {
  return with_known_locks(scenario<State>(std::move(name), [](State& it) {
    it.lock.emplace(it.name);
    return Word{"made"};
  }));
}

}  // namespace

Scenarios locks() {
  return {
      scenario<NoSemaphore>("CSemaphore::CSemaphore",
                            [](NoSemaphore& it) {
                              it.semaphore.emplace(it.path, kProject);
                              return Word{"made"};
                            }),
      scenario<NewSet>("CSemaphore::init", [](NewSet& it) { return it.semaphore.init(); }),
      scenario<FreeSet>("CSemaphore::init once more",
                        [](FreeSet& it) { return it.semaphore.init(); }),
      scenario<FreeSet>("CSemaphore::lock", [](FreeSet& it) { return it.semaphore.lock(); }),
      scenario<LockedSet>("CSemaphore::unlock",
                          [](LockedSet& it) { return it.semaphore.unlock(); }),
      creation<NewLock>("CRecursiveSemaphore::CRecursiveSemaphore"),
      creation<KnownLock>("CRecursiveSemaphore::CRecursiveSemaphore of a known lock"),
      with_known_locks(scenario<NewHandle>("sem_create",
                                           [](NewHandle& it) {
                                             it.handle = sem_create(kNewName);
                                             return made(it.handle);
                                           })),
      scenario<Options>("sem_options_create",
                        [](Options& it) {
                          it.options = sem_options_create();
                          return made(it.options);
                        }),
      scenario<Place>("acquire_lock", [](Place&) { return acquire_lock(kPlace, 2); }),
      scenario<LockedPlace>("release_lock", [](LockedPlace&) { return release_lock(kPlace); }),
  };
}

}  // namespace faults
