// Locks that are semaphores of System V.

#include <rkutils/internal/file_turn.h>
#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/uninterrupted.h>
#include <rkutils/processes/lock/library_file.h>
#include <rkutils/semaphore.h>

#include <cerrno>
#include <new>
#include <optional>
#include <string>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <syslog.h>

namespace {

using rkutils::internal::Deadline;
using rkutils::internal::FileTurn;
using rkutils::internal::pause_us;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::uninterrupted;
using rkutils::processes::kLibraryFile;

constexpr int kNone = -1;
constexpr int kOwnerOnly = 0600;
// In microseconds after its creation a set is free, unless its creator is dead or starved.
constexpr int kPatienceMs = 100;
constexpr int kPauseUs = 1000;
// Whoever has the turn needs as little, unless somebody locks the file for other reasons.
constexpr int kTurnMs = 1000;

key_t key_of(const std::string& pathname, int project_id) noexcept {
  constexpr unsigned kCounting = 0xFF;  // of the bits; 0 is undefined
  if ((static_cast<unsigned>(project_id) & kCounting) == 0 ||
      pathname.find('\0') != std::string::npos) {
    errno = EINVAL;
    return kNone;
  }
  errno = 0;
  return ::ftok(pathname.c_str(), project_id);
}

// Adds `change` to the value as soon as it does not get below 0 by that.
bool change_value(int id, short change, short flags) noexcept {
  sembuf operation = {0, change, flags};
  return uninterrupted([id, &operation] { return ::semop(id, &operation, 1); }) == 0;
}

// Whether it is as the kernel makes sets: not free, and never operated on. Nothing, with errno, when
// the kernel does not tell.
std::optional<bool> is_new(int id) noexcept {
  const int value = ::semctl(id, 0, GETVAL);
  if (value == kNone) return std::nullopt;
  if (value != 0) return false;
  semid_ds state = {};
  // What semctl() takes has no name that all C libraries know.
  union {
    int value;
    semid_ds* state;
  } argument = {};
  argument.state = &state;
  if (::semctl(id, 0, IPC_STAT, argument) != 0) return std::nullopt;
  return state.sem_otime == 0;
}

// Whether it still is when its creator should have freed it. Nothing likewise.
std::optional<bool> stays_new(int id) noexcept {
  const Deadline patience(kPatienceMs);
  for (;;) {
    const std::optional<bool> still_new = is_new(id);
    if (!still_new.value_or(false) || patience.remaining_us() == 0) return still_new;
    pause_us(kPauseUs);
  }
}

// Logs a failure, which it returns. A thread that is cancelled would end in syslog().
int fail(const char* failure) noexcept {
  const PostponedCancellation postponed;
  ::syslog(LOG_ERR, "%s", failure);
  return -1;
}

int fail(const char* failure, int error) noexcept {
  const PostponedCancellation postponed;
  ::syslog(LOG_ERR, "%s errno=%i", failure, error);
  return -1;
}

int fail_to_obtain(int error) noexcept {
  return fail("CSemaphore::init() - unable to obtain semaphore-set -", error);
}

}  // namespace

CSemaphore::CSemaphore(std::string const& pathname, int projectId)
    : project_id_(projectId), key_(kNone), id_(kNone) {
  try {
    pathname_ = pathname;
  } catch (const std::bad_alloc&) {
    pathname_.clear();  // which is logged, and fails in init()
  }
  if (pathname_.empty()) fail("CSemaphore - constructed with empty pathname!");
  if (project_id_ == 0) fail("CSemaphore - constructed with invalid projectID!");
}

CSemaphore::~CSemaphore() = default;

int CSemaphore::init() {
  const PostponedCancellation postponed;
  key_ = key_of(pathname_, project_id_);
  if (key_ == kNone) {
    ::syslog(LOG_ERR, "CSemaphore::init() - ftok failed (errno=%i) for file %s", errno,
             pathname_.c_str());
    return -1;
  }

  errno = 0;
  int id = ::semget(key_, 1, IPC_CREAT | IPC_EXCL | kOwnerOnly);
  const bool joins = id == kNone && errno == EEXIST;
  if (joins) id = ::semget(key_, 1, IPC_CREAT | kOwnerOnly);
  if (id == kNone) return fail_to_obtain(errno);

  // It is freed once, whoever else comes to it: others who have waited in vain for its creator, or
  // that creator, after all. The turn is by the library's file, for the caller's is left alone: the
  // program may have locks on it that end when it is closed here, or may not be able to open it.
  const std::optional<bool> may_be_new = joins ? stays_new(id) : true;
  if (!may_be_new) return fail_to_obtain(errno);
  if (*may_be_new) {
    const FileTurn turn(kLibraryFile, kTurnMs);
    const std::optional<bool> still_new = is_new(id);
    if (!still_new) return fail_to_obtain(errno);
    if (*still_new) {
      if (joins && turn.error() != 0) return fail_to_obtain(turn.error());
      if (!change_value(id, 1, 0)) {
        return fail("CSemaphore::init() - semop() failed - unable to initialize semaphore -",
                    errno);
      }
    }
  }
  id_ = id;
  return 0;
}

// Programs call these as they are declared, not const.
// NOLINTBEGIN(readability-make-member-function-const)
int CSemaphore::lock() {
  if (id_ == kNone) return fail("CSemaphore::lock() - invalid semId!");
  return change_value(id_, -1, SEM_UNDO) ? 0 : fail("CSemaphore::lock() - semop failed,", errno);
}

int CSemaphore::unlock() {
  if (id_ == kNone) return fail("CSemaphore::unlock() - invalid semId!");
  return change_value(id_, 1, SEM_UNDO) ? 0 : fail("CSemaphore::unlock() - semop() failed", errno);
}
// NOLINTEND(readability-make-member-function-const)
