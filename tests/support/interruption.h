// Signals that interrupt system calls.
#ifndef TESTS_SUPPORT_INTERRUPTION_H
#define TESTS_SUPPORT_INTERRUPTION_H

#include <csignal>
#include <thread>

namespace support {

// Interrupts threads in what they wait for: with a signal whose handler ends it with EINTR.
class Interruption {
 public:
  Interruption();
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  // Gives the thread a moment to come to its wait, and returns when the handler has run in it.
  static void send(std::thread& thread);

 private:
  struct sigaction before_ = {};
};

}  // namespace support

#endif
