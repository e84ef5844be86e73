#include "support/failing_mutex.h"

#include <rkutils/export.h>

#include <utility>

#include <dlfcn.h>
#include <pthread.h>

namespace support {
namespace {

thread_local const FailingMutexFunction* failing = nullptr;

// What the test has the function return, or what the C library's returns.
template <typename... Arguments>
int call(MutexFunction function, const char* name, Arguments... arguments) {
  if (failing != nullptr && failing->is(function)) return failing->call();
  using Function = int(Arguments...);
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name))(arguments...);
}

}  // namespace

FailingMutexFunction::FailingMutexFunction(MutexFunction function, std::function<int()> instead)
    : function_(function), instead_(std::move(instead)) {
  failing = this;
}

FailingMutexFunction::~FailingMutexFunction() { failing = nullptr; }

}  // namespace support

// Stand before the C library's. C libraries differ in whether they declare these as not throwing.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

using support::MutexFunction;

RK_API int pthread_mutexattr_init(pthread_mutexattr_t* attributes) noexcept(
    noexcept(::pthread_mutexattr_init(attributes))) {
  return support::call(MutexFunction::kInitAttributes, "pthread_mutexattr_init", attributes);
}

RK_API int pthread_mutexattr_setrobust(pthread_mutexattr_t* attributes, int robust) noexcept(
    noexcept(::pthread_mutexattr_setrobust(attributes, robust))) {
  return support::call(MutexFunction::kSetRobust, "pthread_mutexattr_setrobust", attributes,
                       robust);
}

RK_API int pthread_mutexattr_setpshared(pthread_mutexattr_t* attributes, int shared) noexcept(
    noexcept(::pthread_mutexattr_setpshared(attributes, shared))) {
  return support::call(MutexFunction::kSetShared, "pthread_mutexattr_setpshared", attributes,
                       shared);
}

RK_API int pthread_mutexattr_settype(pthread_mutexattr_t* attributes, int type) noexcept(
    noexcept(::pthread_mutexattr_settype(attributes, type))) {
  return support::call(MutexFunction::kSetType, "pthread_mutexattr_settype", attributes, type);
}

RK_API int pthread_mutex_init(
    pthread_mutex_t* mutex,
    const pthread_mutexattr_t* attributes) noexcept(noexcept(::pthread_mutex_init(mutex,
                                                                                  attributes))) {
  return support::call(MutexFunction::kInit, "pthread_mutex_init", mutex, attributes);
}

RK_API int pthread_mutex_consistent(pthread_mutex_t* mutex) noexcept(
    noexcept(::pthread_mutex_consistent(mutex))) {
  return support::call(MutexFunction::kMakeConsistent, "pthread_mutex_consistent", mutex);
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
