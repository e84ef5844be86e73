// Named locks for programs without classes.

#include <rkutils/semaphore.h>

#include <memory>
#include <new>

namespace {

using Options = CRecursiveSemaphore::CSemaphoreOptions;

}  // namespace

struct sem_options {
  Options options;
};

struct sem_handle {
  sem_handle(const char* name, const Options& options)
      : semaphore(std::make_unique<CRecursiveSemaphore>(name, options)) {
    if (semaphore->impl_ == nullptr) throw std::bad_alloc();
  }

  std::unique_ptr<CRecursiveSemaphore> semaphore;
};

namespace {

int call(sem_handle* handle, int (CRecursiveSemaphore::*operation)()) {
  return handle == nullptr || !handle->semaphore ? -1 : (handle->semaphore.get()->*operation)();
}

void set_mode(sem_options* options, Options::eConsistentMode mode) {
  if (options != nullptr) options->options.SetConsistentMode(mode);
}

}  // namespace

sem_options* sem_options_create() { return new (std::nothrow) sem_options; }

void semopt_set_consistent_mode_automatic(sem_options* options) {
  set_mode(options, Options::CONSISTENT_MODE_AUTOMATIC);
}

void semopt_set_consistent_mode_manual(sem_options* options) {
  set_mode(options, Options::CONSISTENT_MODE_MANUAL);
}

void semopts_release(sem_options* options) { delete options; }

sem_handle* sem_create(const char* name) {
  const sem_options automatic;
  return sem_create_with_options(name, &automatic);
}

sem_handle* sem_create_with_options(const char* name, const sem_options* options) {
  if (name == nullptr || options == nullptr) return nullptr;
  try {
    return new sem_handle(name, options->options);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

int sem_lock(sem_handle* handle) { return call(handle, &CRecursiveSemaphore::lock); }

int sem_trylock(sem_handle* handle) { return call(handle, &CRecursiveSemaphore::trylock); }

int sem_unlock(sem_handle* handle) { return call(handle, &CRecursiveSemaphore::unlock); }

void sem_release(sem_handle* handle) { delete handle; }
