#include "support/without_privileges.h"

#include <array>
#include <cerrno>
#include <system_error>
#include <thread>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace support {

void run_without_privileges(const std::function<void()>& action) {
  // The system call is for the calling thread alone.
  std::thread([&] {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    const std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none = {};
    if (::syscall(SYS_capset, &header, none.data()) != 0) {
      throw std::system_error(errno, std::generic_category(), "capset");
    }
    action();
  }).join();
}

}  // namespace support
