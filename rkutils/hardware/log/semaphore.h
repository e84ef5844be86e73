// The semaphore that the log's users take turns by.
#ifndef RKUTILS_HARDWARE_LOG_SEMAPHORE_H
#define RKUTILS_HARDWARE_LOG_SEMAPHORE_H

namespace rkutils::log {

// A semaphore set of System V, which other programs know by its key. Who comes frees it, whoever
// has it: so nobody who died with it, or left without giving it back, keeps it for good. It
// therefore excludes no more than users who come and go one by one.
class Semaphore {
 public:
  // Finds or makes it, and frees it. False when that fails, which is reported on standard error.
  [[nodiscard]] bool obtain() noexcept;

  // Waits until it is free, and takes it. Who has it for long counts as dead: it is freed again.
  [[nodiscard]] bool lock() const noexcept;

  [[nodiscard]] bool unlock() const noexcept;

 private:
  int id_ = -1;
};

// Reports on standard error that `what` failed, with the cause that errno tells. Keeps errno.
void report(const char* what) noexcept;

}  // namespace rkutils::log

#endif
