#include "support/at_once.h"

#include <atomic>
#include <thread>
#include <vector>

namespace support {

void at_once(int threads, const std::function<void(int)>& action) {
  // Not a lock, which would say that what the threads do next happens in some order.
  std::atomic<int> missing = threads;
  std::vector<std::thread> running;
  running.reserve(static_cast<std::size_t>(threads));
  for (int thread = 0; thread < threads; ++thread) {
    running.emplace_back([&missing, &action, thread] {
      missing.fetch_sub(1, std::memory_order_relaxed);
      while (missing.load(std::memory_order_relaxed) > 0) std::this_thread::yield();
      action(thread);
    });
  }
  for (std::thread& each : running) each.join();
}

}  // namespace support
