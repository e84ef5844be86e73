// Named locks: robust, recursive mutexes in POSIX shared memory.

#include <rkutils/internal/errno_restorer.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/uninterrupted.h>
#include <rkutils/internal/unique_fd.h>
#include <rkutils/processes/lock/library_file.h>
#include <rkutils/semaphore.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using rkutils::internal::ErrnoRestorer;
using rkutils::internal::PostponedCancellation;
using rkutils::internal::uninterrupted;
using rkutils::internal::UniqueFd;

// A shared memory object holds a mutex and nothing else.
constexpr std::size_t kObjectSize = sizeof(pthread_mutex_t);
#if UINTPTR_MAX == UINT32_MAX
static_assert(kObjectSize == 24, "programs built before know objects of this size");
#endif

// What an object has been found to be.
enum class Content {
  kNone,  // nobody has made a mutex of it, or not come to its end
  kMutex,
  kOther,
};

// By reading: a page that is missing on a full file system would be deadly to look at in memory.
Content content_of(int object) noexcept {
  unsigned char bytes[kObjectSize + 1];
  const ssize_t size =
      uninterrupted([object, &bytes] { return ::pread(object, bytes, sizeof bytes, 0); });
  if (size == 0) return Content::kNone;
  if (size != static_cast<ssize_t>(kObjectSize)) {
    if (size > 0) errno = EINVAL;
    return Content::kOther;
  }
  const bool is_zero =
      std::all_of(bytes, bytes + size, [](unsigned char byte) { return byte == 0; });
  return is_zero ? Content::kNone : Content::kMutex;
}

UniqueFd open_object(const std::string& name) noexcept {
  constexpr mode_t kOwnerOnly = 0600;
  if (name.find('\0') != std::string::npos) {
    errno = EINVAL;
    return UniqueFd();
  }
  const auto open = [&name](int flags, mode_t mode) {
    return uninterrupted([=, &name] { return ::shm_open(name.c_str(), flags, mode); });
  };
  UniqueFd object(open(O_RDWR, 0));
  if (!object) object.reset(open(O_RDWR | O_CREAT, kOwnerOnly));
  return object;
}

// Keeps errno.
void remove_object(const std::string& name) noexcept {
  const ErrnoRestorer keep_errno;
  ::shm_unlink(name.c_str());
}

// Gives it its size, and its memory too: a full file system must not show only when somebody writes
// to the mutex, for that would be a signal and the end of the process.
bool take_memory(int object) noexcept {
  static constexpr unsigned char kZeros[kObjectSize] = {};
  if (uninterrupted([object] { return ::ftruncate(object, kObjectSize); }) != 0) return false;
  return uninterrupted([object] { return ::pwrite(object, kZeros, kObjectSize, 0); }) ==
         static_cast<ssize_t>(kObjectSize);
}

// Logs a failure with the reason, which is errno.
void log_failure(const char* failure) noexcept {
  const ErrnoRestorer keep_errno;
  ::syslog(LOG_ERR, "recursive-semaphore: %s - errno=%s", failure, std::strerror(errno));
}

constexpr const char* kNotOpened = "unable to open shared memory";

}  // namespace

// The mutex as this process has it mapped, and the guard of its creation.
class CRecursiveSemaphore::private_impl {
 public:
  // NULL without memory; without a mutex where that cannot be had for another reason.
  static private_impl* create(const std::string& name, const CSemaphoreOptions& options) noexcept;

  explicit private_impl(const CSemaphoreOptions& options)
      : guard_(SEM_PATHNAME, SEM_PROJ_ID), options_(options) {}
  ~private_impl() {
    // The mapping of a mutex that could not be made stays, which is kept for compatibility.
    if (mutex_ != nullptr) ::munmap(mapping_, kObjectSize);
  }
  private_impl(const private_impl&) = delete;
  private_impl& operator=(const private_impl&) = delete;

  using Operation = int(pthread_mutex_t*);

  // What an operation on the mutex gives; -1 where there is none.
  static int call(const private_impl* impl, Operation* operation) noexcept {
    return impl == nullptr || impl->mutex_ == nullptr ? -1 : operation(impl->mutex_);
  }

  // The same for an operation that takes the lock.
  static int take(const private_impl* impl, Operation* operation) noexcept {
    const int result = call(impl, operation);
    if (result == EOWNERDEAD) impl->inherit();
    return result;
  }

 private:
  // All creations, of whatever name, take turns by the semaphore of this file and number.
  static constexpr const char* SEM_PATHNAME = rkutils::processes::kLibraryFile;
  static constexpr int SEM_PROJ_ID = 1;

  static int init_mutextattrs(pthread_mutexattr_t* attributes) noexcept;

  void open(const std::string& name) noexcept;
  void map(const std::string& name) noexcept;
  bool make_mutex(const std::string& name) const noexcept;
  void inherit() const noexcept;

  void* mapping_ = MAP_FAILED;
  pthread_mutex_t* mutex_ = nullptr;
  CSemaphore guard_;
  CSemaphoreOptions options_;
};

auto CRecursiveSemaphore::private_impl::create(const std::string& name,
                                               const CSemaphoreOptions& options) noexcept
    -> private_impl* {
  try {
    auto impl = std::make_unique<private_impl>(options);
    if (impl->guard_.pathname_.empty()) return nullptr;
    impl->open(name);
    return impl.release();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void CRecursiveSemaphore::private_impl::open(const std::string& name) noexcept {
  const PostponedCancellation postponed;
  if (guard_.init() != 0) {
    ::syslog(LOG_ERR, "recursive-semaphore: unable to init guarding semaphore");
  } else if (guard_.lock() != 0) {
    ::syslog(LOG_ERR, "recursive-semaphore: unable to lock guarding semaphore");
  } else {
    map(name);
    guard_.unlock();
  }
}

void CRecursiveSemaphore::private_impl::map(const std::string& name) noexcept {
  UniqueFd object = open_object(name);
  if (!object) return log_failure(kNotOpened);

  const Content content = content_of(object.get());
  if (content == Content::kNone && !take_memory(object.get())) {
    log_failure("unable to ftruncate shared memory");
    remove_object(name);
    return log_failure(kNotOpened);
  }
  if (content != Content::kOther) {
    mapping_ = ::mmap(nullptr, kObjectSize, PROT_READ | PROT_WRITE, MAP_SHARED, object.get(), 0);
  }
  if (mapping_ == MAP_FAILED) return log_failure("mmap failed");
  mutex_ = static_cast<pthread_mutex_t*>(mapping_);
  if (content == Content::kNone && !make_mutex(name)) mutex_ = nullptr;
}

bool CRecursiveSemaphore::private_impl::make_mutex(const std::string& name) const noexcept {
  pthread_mutexattr_t attributes;
  if (init_mutextattrs(&attributes) != 0) return false;
  errno = ::pthread_mutex_init(mutex_, &attributes);
  if (errno != 0) {
    log_failure("unable to initialize mutex");
    return false;
  }
  ::syslog(LOG_DEBUG, "created recursive semaphore \"%s\"", name.c_str());
  return true;
}

int CRecursiveSemaphore::private_impl::init_mutextattrs(pthread_mutexattr_t* attributes) noexcept {
  if (::pthread_mutexattr_init(attributes) != 0) {
    ::syslog(LOG_ERR, "recursive-semaphore: unable initialize attributes");
    return -1;
  }
  if (::pthread_mutexattr_setrobust(attributes, PTHREAD_MUTEX_ROBUST) != 0) {
    ::syslog(LOG_ERR, "recursive semaphore: unable to set attribute \"robust\"");
    return -1;
  }
  if (::pthread_mutexattr_setpshared(attributes, PTHREAD_PROCESS_SHARED) != 0 ||
      ::pthread_mutexattr_settype(attributes, PTHREAD_MUTEX_RECURSIVE) != 0) {
    ::syslog(LOG_ERR, "recursive-semaphore: unable to set attribute \"recursive\"");
    return -1;
  }
  return 0;
}

void CRecursiveSemaphore::private_impl::inherit() const noexcept {
  if (options_.GetConsistentMode() != CSemaphoreOptions::CONSISTENT_MODE_AUTOMATIC) return;
  const PostponedCancellation postponed;
  errno = ::pthread_mutex_consistent(mutex_);
  if (errno != 0) log_failure("make consistent failed");
}

CRecursiveSemaphore::CRecursiveSemaphore(std::string const& name)
    : CRecursiveSemaphore(name, CSemaphoreOptions()) {}

CRecursiveSemaphore::CRecursiveSemaphore(std::string const& name, CSemaphoreOptions const& options)
    : impl_(private_impl::create(name, options)) {}

CRecursiveSemaphore::~CRecursiveSemaphore() { delete impl_; }

int CRecursiveSemaphore::lock() { return private_impl::take(impl_, ::pthread_mutex_lock); }

int CRecursiveSemaphore::trylock() { return private_impl::take(impl_, ::pthread_mutex_trylock); }

int CRecursiveSemaphore::unlock() { return private_impl::call(impl_, ::pthread_mutex_unlock); }

int CRecursiveSemaphore::makeConsistent() {
  return private_impl::call(impl_, ::pthread_mutex_consistent);
}
