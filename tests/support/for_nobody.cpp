#include "support/for_nobody.h"

#include <cerrno>
#include <system_error>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

namespace support {

void run_for_nobody(const std::function<void()>& action) {
  // Users are a thread's own, as long as it is not the C library that changes them.
#ifdef SYS_setresuid32
  constexpr long kSetresuid = SYS_setresuid32;
#else
  constexpr long kSetresuid = SYS_setresuid;
#endif
  constexpr uid_t kNobody = 65534;
  std::thread thread([&] {
    if (::syscall(kSetresuid, kNobody, uid_t{0}, uid_t{0}) != 0) {
      throw std::system_error(errno, std::generic_category(), "setresuid");
    }
    action();
  });
  thread.join();
}

}  // namespace support
