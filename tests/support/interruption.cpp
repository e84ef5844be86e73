#include "support/interruption.h"

#include <atomic>
#include <cerrno>
#include <system_error>

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

namespace support {
namespace {

std::atomic<int> interruptions = 0;

}  // namespace

Interruption::Interruption() {
  struct sigaction action = {};
  action.sa_handler = [](int) { ++interruptions; };
  if (::sigaction(SIGUSR1, &action, &before_) != 0) {
    throw std::system_error(errno, std::generic_category(), "sigaction");
  }
}

Interruption::~Interruption() { ::sigaction(SIGUSR1, &before_, nullptr); }

void Interruption::send(std::thread& thread) {
  const int before = interruptions;
  ::usleep(20000);
  ::pthread_kill(thread.native_handle(), SIGUSR1);
  for (int waits = 0; interruptions == before && waits < 5000; ++waits) ::usleep(1000);
  EXPECT_NE(interruptions, before) << "the thread has ended";
}

}  // namespace support
