#include <rkutils/hardware/log/semaphore.h>
#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/internal/uninterrupted.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include <sys/ipc.h>
#include <sys/sem.h>

namespace rkutils::log {
namespace {

using internal::Deadline;
using internal::uninterrupted;

constexpr int kNone = -1;

// A file that every system has; only its inode matters.
constexpr const char* kKeyFile = "/etc/fstab";
constexpr int kKeyNumber = 'E';

constexpr int kEverybody = 0666;

// Nobody who lives holds it for so long, unless the medium is slow; then waiting is no use either.
constexpr int kPatienceMs = 1000;

bool make_free(int id) noexcept {
  // What semctl() takes has no name that all C libraries know.
  union {
    int value;
    semid_ds* state;
  } argument = {};
  argument.value = 1;
  return ::semctl(id, 0, SETVAL, argument) == 0;
}

// Waits for up to kPatienceMs to take it; EAGAIN when that is over.
bool take(int id) noexcept {
  constexpr std::int64_t kUsPerSecond = 1000000;
  const Deadline patience(kPatienceMs);
  return uninterrupted([id, &patience] {
           const std::int64_t left_us = patience.remaining_us();
           const std::timespec left = {static_cast<std::time_t>(left_us / kUsPerSecond),
                                       static_cast<long>(left_us % kUsPerSecond * 1000)};
           sembuf operation = {0, -1, 0};
           return ::semtimedop(id, &operation, 1, &left);
         }) == 0;
}

}  // namespace

bool Semaphore::obtain() noexcept {
  const key_t key = ::ftok(kKeyFile, kKeyNumber);
  if (key == kNone) {
    report("ftok");
    return false;
  }
  int id = ::semget(key, 1, IPC_CREAT | kEverybody);
  if (id == kNone) {
    report("semget");
    id = ::semget(key, 1, 0);
    if (id == kNone) {
      report("semget");
      return false;
    }
  }
  if (!make_free(id)) {
    report("semctl");
    return false;
  }
  id_ = id;
  return true;
}

bool Semaphore::lock() const noexcept {
  while (!take(id_)) {
    if (errno != EAGAIN || !make_free(id_)) return false;
  }
  return true;
}

bool Semaphore::unlock() const noexcept {
  sembuf operation = {0, 1, 0};
  return uninterrupted([this, &operation] { return ::semop(id_, &operation, 1); }) == 0;
}

void report(const char* what) noexcept {
  const internal::ErrnoRestorer keep_errno;
  std::perror(what);
}

}  // namespace rkutils::log
