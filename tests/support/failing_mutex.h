// Functions for mutexes that fail, as the C library's hardly ever do.
#ifndef TESTS_SUPPORT_FAILING_MUTEX_H
#define TESTS_SUPPORT_FAILING_MUTEX_H

#include <functional>

namespace support {

enum class MutexFunction {
  kInitAttributes,  // pthread_mutexattr_init(3)
  kSetRobust,       // pthread_mutexattr_setrobust(3)
  kSetShared,       // pthread_mutexattr_setpshared(3)
  kSetType,         // pthread_mutexattr_settype(3)
  kInit,            // pthread_mutex_init(3)
  kMakeConsistent,  // pthread_mutex_consistent(3)
};

// While it lives, calls of this function from its thread call `instead` and give what it returns,
// doing nothing else. One at a time; failing_mutex.cpp must be among the program's sources.
class FailingMutexFunction {
 public:
  FailingMutexFunction(MutexFunction function, std::function<int()> instead);
  ~FailingMutexFunction();
  FailingMutexFunction(const FailingMutexFunction&) = delete;
  FailingMutexFunction& operator=(const FailingMutexFunction&) = delete;

  // For the functions that stand before the C library's.
  [[nodiscard]] bool is(MutexFunction function) const { return function == function_; }
  [[nodiscard]] int call() const { return instead_(); }

 private:
  MutexFunction function_;
  std::function<int()> instead_;
};

}  // namespace support

#endif
