// The persistent log: its file, and who may change it.

#include <rkutils/dwlog.h>
#include <rkutils/foundations/file/line_source.h>
#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/hardware/log/buffered_file.h>
#include <rkutils/hardware/log/entries.h>
#include <rkutils/hardware/log/semaphore.h>
#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/file_turn.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/scope_guard.h>
#include <rkutils/internal/unique_fd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using rkutils::file::LineSource;
using rkutils::file::open_at;
using rkutils::internal::ErrnoRestorer;
using rkutils::internal::FileTurn;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::ScopeGuard;
using rkutils::internal::UniqueFd;
using rkutils::log::BufferedFile;
using rkutils::log::CutLines;
using rkutils::log::EntryHead;
using rkutils::log::kPieceLength;
using rkutils::log::Semaphore;

constexpr const char* kFolder = "/var/log";
constexpr const char* kLog = "/var/log/dwlog";
constexpr const char* kTemporary = "/var/log/dwlog.tmp";
constexpr mode_t kMode = 0664;
constexpr std::size_t kSmallestBuffer = 257;

// How long one waits for those who change the log before. Longer than a queue of them takes, unless
// the medium is very slow, but not for ever: one of them may be stopped, in a debugger perhaps.
constexpr int kTurnTimeoutMs = 10000;

int fail(const char* what) noexcept {
  rkutils::log::report(what);
  return -1;
}

// The turn of one who changes the log, which the semaphore alone does not keep others from. Where
// there is no folder to take turns by, the log cannot be changed either, and that fails by itself.
class ChangersTurn {
 public:
  ChangersTurn() noexcept : turn_(kFolder, kTurnTimeoutMs) {}

  // False where it is somebody else's; errno tells why.
  [[nodiscard]] bool lock(const Semaphore& semaphore) const noexcept {
    if (turn_.has_file() && turn_.error() != 0) {
      errno = turn_.error();
      return false;
    }
    return semaphore.lock();
  }

  [[nodiscard]] int error() const noexcept { return turn_.error(); }

 private:
  const FileTurn turn_;
};

// Without waiting for somebody at the other end, where the log is a FIFO: those who come after would
// wait, too.
UniqueFd open_log(int flags) noexcept { return open_at(AT_FDCWD, kLog, flags | O_NONBLOCK); }

// A new file under that name, whatever was there: a rest of an addition that was not finished, or a
// link that somebody has laid.
UniqueFd create_temporary() noexcept {
  constexpr int kNew = O_WRONLY | O_CREAT | O_EXCL;
  UniqueFd file = open_at(AT_FDCWD, kTemporary, kNew, kMode);
  if (file || errno != EEXIST) return file;
  ::unlink(kTemporary);
  return open_at(AT_FDCWD, kTemporary, kNew, kMode);
}

// Whatever the umask. A file system without modes of its own has another; that is no failure.
void set_mode(int file) noexcept { static_cast<void>(::fchmod(file, kMode)); }

bool write_log(BufferedFile& file, const EntryHead& head, const char* message, UniqueFd old) {
  if (!file.add(head.text()) || !file.add(message) || !file.add("\n")) return false;
  if (old) {
    LineSource lines(std::move(old), kPieceLength);
    const auto add = [&file](std::string_view text) { return file.add(text); };
    if (!rkutils::log::keep_newest(lines, add)) return false;
  }
  return file.commit();
}

// Returns what failed, with its cause in errno, or NULL. The old log is there until the new one is
// complete, on the medium too.
const char* add_entry(int code, const char* message, int turn_error) noexcept {
  EntryHead head;
  if (const char* const failed = head.render(code, std::time(nullptr))) return failed;

  if (turn_error != 0) {
    errno = turn_error;
    return "open";
  }
  UniqueFd temporary = create_temporary();
  if (!temporary) return "open";
  ScopeGuard remove_temporary([] {
    const ErrnoRestorer keep_errno;
    ::unlink(kTemporary);
  });
  UniqueFd old = open_log(O_RDONLY);
  if (!old && errno != ENOENT) return "open";  // its entries would be lost

  set_mode(temporary.get());
  BufferedFile file(std::move(temporary));
  if (!write_log(file, head, message, std::move(old))) return "write";
  if (!file.close()) return "close";
  if (std::rename(kTemporary, kLog) != 0) return "rename";
  remove_temporary.dismiss();
  return nullptr;
}

}  // namespace

int dwlog(int code, const char* message) {
  if (message == nullptr || *message == '\0') return -1;
  const PostponedCancellation postponed;
  const ChangersTurn turn;
  Semaphore semaphore;
  if (!semaphore.obtain()) return -1;
  if (!turn.lock(semaphore)) return fail("lock sem");
  // The semaphore stays locked then: who comes next frees it.
  if (const char* const failed = add_entry(code, message, turn.error())) return fail(failed);
  return semaphore.unlock() ? 0 : fail("semop");
}

int dwlog_read(char* buffer, size_t size) {
  if (buffer == nullptr || size < kSmallestBuffer) return -1;
  const PostponedCancellation postponed;
  Semaphore semaphore;
  if (!semaphore.obtain()) return -1;
  if (!semaphore.lock()) return fail("semop");
  CutLines text(buffer, size);
  if (UniqueFd log = open_log(O_RDONLY)) {
    LineSource lines(std::move(log), kPieceLength);
    while (!text.is_full()) {
      const char* const piece = lines.next();
      if (piece == nullptr) break;
      text.add(rkutils::log::text_of(piece));
    }
  }
  return semaphore.unlock() ? 0 : fail("semop");
}

int dwlog_clear(void) {
  const PostponedCancellation postponed;
  const ChangersTurn turn;
  Semaphore semaphore;
  if (!semaphore.obtain()) return -1;
  if (!turn.lock(semaphore)) return fail("semop");
  if (const UniqueFd log = open_log(O_WRONLY | O_CREAT | O_TRUNC)) {
    set_mode(log.get());
  }
  return semaphore.unlock() ? 0 : fail("unlock sem");
}
