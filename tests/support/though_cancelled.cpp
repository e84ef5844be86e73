#include "support/though_cancelled.h"

#include <system_error>

#include <pthread.h>

// The leak checker's, in programs that have it.
extern "C" {
[[gnu::weak]] void __lsan_disable();
[[gnu::weak]] void __lsan_enable();
}

namespace support {
namespace {

// For its first cancellation the C library loads a library, and keeps what it allocates for that
// where the leak checker does not look.
void cancel_self() {
  if (__lsan_disable != nullptr) __lsan_disable();
  ::pthread_cancel(::pthread_self());
  if (__lsan_enable != nullptr) __lsan_enable();
}

// What a cancelled thread has to do.
struct CancelledCall {
  const std::function<void()>& action;
  bool finished;
};

void* call_though_cancelled(void* data) {
  CancelledCall& call = *static_cast<CancelledCall*>(data);
  cancel_self();
  call.action();
  call.finished = true;
  ::pthread_testcancel();
  return nullptr;
}

}  // namespace

bool finishes_though_cancelled(const std::function<void()>& action) {
  CancelledCall call = {action, false};
  pthread_t thread = {};
  const int error = ::pthread_create(&thread, nullptr, call_though_cancelled, &call);
  if (error != 0) throw std::system_error(error, std::generic_category(), "pthread_create");
  void* result = nullptr;
  ::pthread_join(thread, &result);
  return call.finished && result == PTHREAD_CANCELED;
}

}  // namespace support
