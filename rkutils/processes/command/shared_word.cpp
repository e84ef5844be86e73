#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/processes/command/shared_word.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <syslog.h>

namespace rkutils::processes {
namespace {

constexpr int kNoSegment = -1;
constexpr int kAttempts = 10;
constexpr int kPauseUs = 100000;

void log_failure() noexcept {
  const int error = errno;
  ::syslog(LOG_ERR, "Shared memory allocation failed: %s (%d)", std::strerror(error), error);
}

int try_to_create(key_t key) noexcept {
  constexpr int kOwnerOnly = 0600;
  return ::shmget(key, sizeof(std::int32_t), IPC_CREAT | IPC_EXCL | kOwnerOnly);
}

bool is_dead(pid_t process) noexcept {
  // 0 stands for one of another namespace, which may live.
  return process > 0 && ::kill(process, 0) != 0 && errno == ESRCH;
}

// Removes the segment if its creator was killed before it could. By its number, not its key: what
// others have created under this key since then is not touched.
bool remove_orphan(key_t key) noexcept {
  const int segment = ::shmget(key, 0, 0);
  shmid_ds state = {};
  if (segment < 0 || ::shmctl(segment, IPC_STAT, &state) != 0) return false;
  if (state.shm_nattch != 0 || !is_dead(state.shm_cpid)) return false;
  return ::shmctl(segment, IPC_RMID, nullptr) == 0;
}

int create_segment(key_t key) noexcept {
  for (int attempt = 1; attempt <= kAttempts; ++attempt) {
    const int segment = try_to_create(key);
    if (segment >= 0) return segment;
    if (errno != EEXIST) {
      log_failure();
      return kNoSegment;
    }
    ::syslog(LOG_INFO, "Shared memory temporary not available (try %d/%d)", attempt, kAttempts);
    internal::pause_us(kPauseUs);
  }
  return remove_orphan(key) ? try_to_create(key) : kNoSegment;
}

}  // namespace

SharedWord::~SharedWord() {
  if (word_ != nullptr) ::shmdt(word_);
  remove();
}

bool SharedWord::create() noexcept {
  constexpr int kProject = 52;
  const key_t key = ::ftok(".", kProject);
  if (key == -1) {
    log_failure();
    return false;
  }
  segment_ = create_segment(key);
  return segment_ != kNone && attach();
}

bool SharedWord::attach() noexcept {
  void* const memory = ::shmat(segment_, nullptr, 0);
  // The address that it gives on failure, which has no name everywhere.
  if (reinterpret_cast<std::intptr_t>(memory) == -1) {
    log_failure();
    return false;
  }
  word_ = static_cast<std::int32_t*>(memory);
  return true;
}

void SharedWord::remove() noexcept {
  if (segment_ != kNone) ::shmctl(segment_, IPC_RMID, nullptr);
  segment_ = kNone;
}

void SharedWord::keep_from_children() noexcept { ::madvise(word_, sizeof *word_, MADV_DONTFORK); }

}  // namespace rkutils::processes
