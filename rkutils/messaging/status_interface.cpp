#include <rkutils/foundations/file/system_calls.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/status_interface.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/event_struct.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

// The header of bufferevent_new() does not say by itself that this is a C function.
extern "C" {
#include <event2/bufferevent_compat.h>
}

using rkutils::file::open_at;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::UniqueFd;

namespace {

// How many bytes values are read in at a time, and messages delivered.
constexpr std::size_t kPieceLength = 99;

// No file has a name with a NUL in it: the system would use the part before.
bool has_nul(String const& text) noexcept {
  return std::strlen(text.c_str()) != static_cast<std::size_t>(text.length());
}

// ---- Folders ----

// NULL for a base that does not exist. As texts they are there when the library is loaded; Strings
// would need a constructor for that, and interfaces on several threads would share their counts.
const char* root_of(BasePath base) noexcept {
  switch (base) {
    case BASEPATH_STATUS:
      return "/tmp/status";
    case BASEPATH_NVSTATUS:
      return "/nvstatus";
    case BASEPATH_PROC:
      return "/proc";
  }
  return nullptr;
}

void report_setup(const char* folder) {
  ::syslog(LOG_ERR, "Could not setup status interface for %s!", folder);
}

bool make_folder(String const& folder) {
  constexpr mode_t kMode = 0777;
  if (::mkdir(folder.c_str(), kMode) == 0 || errno == EEXIST) return true;
  ::syslog(LOG_ERR, "Could not create directory %s. Errno:%d!", folder.c_str(), errno);
  report_setup(folder.c_str());
  return false;
}

// The folder at an absolute path and all above it.
bool make_folders(String const& path) {
  String folder;
  for (const char* next = path.c_str(); *(next += std::strspn(next, "/")) != '\0';) {
    const std::size_t length = std::strcspn(next, "/");
    folder += '/';
    folder.concat(next, static_cast<long>(length));
    if (!make_folder(folder)) return false;
    next += length;
  }
  return true;
}

// ---- FIFOs ----

// libevent takes its default base for a bufferevent, and does not check that there is one. It tells
// by an event that was assigned to none.
bool has_event_base() noexcept {
  event probe;
  if (::event_assign(&probe, nullptr, -1, 0, nullptr, nullptr) != 0) return false;
  const bool found = ::event_get_base(&probe) != nullptr;
  ::event_debug_unassign(&probe);
  return found;
}

bufferevent_data_cb read_callback_of(bufferevent* event) noexcept {
  bufferevent_data_cb callback = nullptr;
  ::bufferevent_getcb(event, &callback, nullptr, nullptr, nullptr);
  return callback;
}

// Ends it with immediate effect, also from its own callback. Freeing alone would not: as long as
// something refers to the bufferevent, libevent would watch a descriptor whose number may soon be
// another FIFO's, and would not notice that one.
struct FreeEvent {
  void operator()(bufferevent* event) const noexcept {
    if (!has_event_base()) return;  // it went with all that libevent would need to free this
    ::bufferevent_setcb(event, nullptr, nullptr, nullptr, nullptr);
    ::bufferevent_disable(event, EV_READ | EV_WRITE);
    ::bufferevent_free(event);
  }
};
using UniqueEvent = std::unique_ptr<bufferevent, FreeEvent>;

// NULL without a base or memory.
UniqueEvent read_into(StatusFifoObserver* observer, UniqueFd const& fifo) noexcept {
  if (!has_event_base()) return nullptr;
  UniqueEvent event(::bufferevent_new(fifo.get(), StatusInterface::STATUS_FIFO_READ_EVENT, nullptr,
                                      nullptr, observer));
  if (event && ::bufferevent_enable(event.get(), EV_READ) != 0) return nullptr;
  return event;
}

// Keeps a bufferevent's memory from being freed while the object lives.
class KeptEvent {
 public:
  explicit KeptEvent(bufferevent* event) noexcept : event_(event) { ::bufferevent_incref(event_); }
  ~KeptEvent() { ::bufferevent_decref(event_); }
  KeptEvent(const KeptEvent&) = delete;
  KeptEvent& operator=(const KeptEvent&) = delete;

 private:
  bufferevent* const event_;
};

// The callers are libevent's C functions, which no exception may pass.
void deliver(StatusFifoObserver& observer, bufferevent* event, const char* bytes,
             std::size_t count) noexcept {
  try {
    observer.onStatusFifoRead(event, bytes, count);
  } catch (...) {
    // It is the observer's affair, and the bytes count as read.
  }
}

}  // namespace

struct StatusInterface::Fifo {
  explicit Fifo(String const& name) noexcept : path(name) {}
  ~Fifo() { close(); }
  Fifo(const Fifo&) = delete;
  Fifo& operator=(const Fifo&) = delete;

  [[nodiscard]] unsigned long handle() const noexcept {
    return reinterpret_cast<std::uintptr_t>(event.get());
  }

  void close() noexcept {
    event.reset();  // before its descriptor
    descriptor.reset();
  }

  UniqueEvent event;
  UniqueFd descriptor;
  Fifo* next = nullptr;
  const String path;
};

StatusFifoObserver::~StatusFifoObserver() = default;

StatusInterface::StatusInterface() : fifos_(nullptr) {
  static_assert(offsetof(Fifo, event) == 0);
  static_assert(offsetof(Fifo, descriptor) == sizeof(void*));
  static_assert(offsetof(Fifo, next) == 2 * sizeof(void*));
  static_assert(offsetof(Fifo, path) == 3 * sizeof(void*));
}

StatusInterface::~StatusInterface() { cleanup(); }

// The path of an item; for one that names no file the empty path, with which every call fails.
String StatusInterface::path_of(String const& item) const {
  return has_nul(item) ? String() : path_ + item;
}

bool StatusInterface::setup(BasePath base, String const& name) {
  const PostponedCancellation postponed;
  const char* const root = root_of(base);
  if (root == nullptr || has_nul(name)) {
    report_setup("");
    return false;
  }
  path_ = root + name;
  return make_folders(path_);
}

bool StatusInterface::setStatus(String const& item, String const& value) {
  constexpr mode_t kMode = 0644;
  const PostponedCancellation postponed;
  const UniqueFd file =
      open_at(AT_FDCWD, path_of(item).c_str(), O_WRONLY | O_CREAT | O_TRUNC, kMode);
  return file &&
         rkutils::file::write_some(file.get(), value.c_str(),
                                   static_cast<std::size_t>(value.length())) == value.length();
}

bool StatusInterface::getStatus(String const& item, String& value) const {
  const PostponedCancellation postponed;
  const UniqueFd file = rkutils::file::open_to_read(path_of(item).c_str());
  value = String();  // not before: it may be the item
  if (!file) return false;
  String content;
  char piece[kPieceLength + 1];
  ssize_t count = 0;
  while ((count = rkutils::file::read_some(file.get(), piece, kPieceLength)) > 0) {
    piece[count] = '\0';
    content += piece;
  }
  if (count < 0) return false;
  value = content;
  return true;
}

bool StatusInterface::setLink(String const& item, String const& target) {
  if (has_nul(target)) return false;
  const String path = path_of(item);
  ::unlink(path.c_str());
  return target.length() == 0 || ::symlink(target.c_str(), path.c_str()) == 0;
}

unsigned long StatusInterface::setupIpcRxFifo(String const& item, StatusFifoObserver* observer) {
  constexpr mode_t kMode = 0666;
  if (observer == nullptr) return 0;
  const PostponedCancellation postponed;
  const String path = path_of(item);
  std::unique_ptr<Fifo> fifo(new (std::nothrow) Fifo(path));
  if (!fifo) return 0;
  ::unlink(path.c_str());
  if (::mkfifo(path.c_str(), kMode) != 0) return 0;
  // For writing too, so that the FIFO does not come to its end when a sender closes it.
  fifo->descriptor = open_at(AT_FDCWD, path.c_str(), O_RDWR | O_NONBLOCK);
  if (!fifo->descriptor) return 0;
  fifo->event = read_into(observer, fifo->descriptor);
  if (!fifo->event) return 0;
  fifo->next = fifos_;
  fifos_ = fifo.release();
  return fifos_->handle();
}

void StatusInterface::deleteIpcRxFifo(unsigned long handle) {
  const PostponedCancellation postponed;
  Fifo** link = &fifos_;
  while (*link != nullptr && (*link)->handle() != handle) link = &(*link)->next;
  if (*link == nullptr) return;
  const std::unique_ptr<Fifo> fifo(*link);
  *link = fifo->next;
  fifo->close();
  ::unlink(fifo->path.c_str());
}

void StatusInterface::cleanup() {
  while (fifos_ != nullptr) deleteIpcRxFifo(fifos_->handle());
}

// The observer may delete the FIFO, and destroy the interface and itself, so nothing of these is
// touched behind its call. The bufferevent is kept, and without its callback it has been deleted.
void StatusInterface::STATUS_FIFO_READ_EVENT(bufferevent* event, void* observer) {
  const PostponedCancellation postponed;
  const KeptEvent kept(event);
  const bufferevent_data_cb callback = read_callback_of(event);
  do {
    char piece[kPieceLength + 1];
    const std::size_t count = ::bufferevent_read(event, piece, kPieceLength);
    if (count == 0 || count > kPieceLength) return;
    piece[count] = '\0';
    deliver(*static_cast<StatusFifoObserver*>(observer), event, piece, count);
  } while (read_callback_of(event) == callback);
}
