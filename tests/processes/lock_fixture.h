// What the tests of locks share: other processes to exclude, semaphore sets as the kernel has them,
// and a look at what is left behind.
#ifndef TESTS_PROCESSES_LOCK_FIXTURE_H
#define TESTS_PROCESSES_LOCK_FIXTURE_H

#include <rkutils/internal/unique_fd.h>

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/types.h>

#include "support/syslog_collector.h"

// A process beside this one. The two tell each other numbers.
class Fellow {
 public:
  // Calls `life` in a forked process, which then ends. There, the argument leads back here.
  explicit Fellow(const std::function<void(Fellow&)>& life);
  // As kill().
  ~Fellow();
  Fellow(const Fellow&) = delete;
  Fellow& operator=(const Fellow&) = delete;

  void tell(int number);
  // Waits for a number. Throws when the other has ended.
  int hear();

  // Ends it, as a crash does, if it still lives.
  void kill();
  // Waits until it ends by itself; returns whether it did as it should.
  bool ends();

 private:
  pid_t process_ = -1;
  rkutils::internal::UniqueFd line_;
};

// At the end every message must have been taken from the log, and no descriptor may be left.
// Semaphore sets and shared memory objects are removed, before and after.
class LockTest : public testing::Test {
 protected:
  LockTest();
  ~LockTest() override;
  void TearDown() override;

  support::SyslogCollector log_;

 private:
  std::map<int, std::string> descriptors_before_;
};

// ---- What is in the router's tables ----

// The numbers of all semaphore sets ("sem") or segments of shared memory ("shm").
std::vector<int> numbers_of(const std::string& table);
// Removes all semaphore sets and shared memory objects: what a test leaves is nobody else's.
void remove_locks();

// ---- Semaphore sets ----

// The set of a file and a number, or -1.
int set_of(const std::string& pathname, int project);
// That of the guard of named locks.
int guard_set();
// Makes a set as a process does that is killed before its next step.
int leave_new_set(const std::string& pathname, int project);
int value_of(int set);
void set_value(int set, int value);
// As a program with a lock of its own does it.
bool add_to(int set, int change);
// Returns when so many wait for it to become greater.
void wait_for_waiting(int set, int count);

constexpr const char* kLibrary = "/usr/lib/librkutils.so.1.0.0";

// ---- Exclusion ----

// What many increment who exclude each other, in memory that processes share.
class Contended {
 public:
  Contended();
  ~Contended();
  Contended(const Contended&) = delete;
  Contended& operator=(const Contended&) = delete;

  // Not to be done by two at a time.
  void increment();

  [[nodiscard]] int count() const { return shared_->count; }
  // How often it was done by two at a time.
  [[nodiscard]] int collisions() const { return shared_->collisions; }

 private:
  struct Shared {
    std::atomic<int> inside;
    std::atomic<int> collisions;
    std::atomic<int> count;
  };
  Shared* shared_;
};

// Messages in the log.
support::LogLine err(std::string text);
support::LogLine debug(std::string text);

#endif
