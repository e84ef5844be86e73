#include "support/small_stack.h"

#include <stdexcept>

#include <pthread.h>

namespace support {
namespace {

constexpr std::size_t kStackSize = std::size_t{128} * 1024;

void* call(void* action) {
  (*static_cast<const std::function<void()>*>(action))();
  return nullptr;
}

}  // namespace

void run_on_small_stack(const std::function<void()>& action) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  int error = pthread_attr_setstacksize(&attributes, kStackSize);
  pthread_t thread;
  std::function<void()> copy = action;
  if (error == 0) error = pthread_create(&thread, &attributes, call, &copy);
  pthread_attr_destroy(&attributes);
  if (error != 0) throw std::runtime_error("cannot start a thread with a small stack");
  pthread_join(thread, nullptr);
}

}  // namespace support
