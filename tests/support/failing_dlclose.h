// Libraries that cannot be closed, as hardly ever happens, and with musl never.
#ifndef TESTS_SUPPORT_FAILING_DLCLOSE_H
#define TESTS_SUPPORT_FAILING_DLCLOSE_H

#include <functional>

namespace support {

// While it lives, calls of dlclose(3) from its thread call `instead` and give what it returns, doing
// nothing else. One at a time; failing_dlclose.cpp must be among the program's sources.
class FailingDlclose {
 public:
  explicit FailingDlclose(std::function<int(void* library)> instead);
  ~FailingDlclose();
  FailingDlclose(const FailingDlclose&) = delete;
  FailingDlclose& operator=(const FailingDlclose&) = delete;

  // For the function that stands before the C library's.
  [[nodiscard]] int call(void* library) const { return instead_(library); }

 private:
  std::function<int(void* library)> instead_;
};

}  // namespace support

#endif
