// Measured real time.
#ifndef TESTS_SUPPORT_STOPWATCH_H
#define TESTS_SUPPORT_STOPWATCH_H

#include <chrono>

namespace support {

class Stopwatch {
 public:
  Stopwatch();

  // Since construction.
  [[nodiscard]] std::chrono::milliseconds elapsed() const;

 private:
  std::chrono::steady_clock::time_point started_;
};

}  // namespace support

#endif
