#include "support/stopwatch.h"

namespace support {

Stopwatch::Stopwatch() : started_(std::chrono::steady_clock::now()) {}

std::chrono::milliseconds Stopwatch::elapsed() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               started_);
}

}  // namespace support
