#include "support/without_override.h"

#include <cerrno>
#include <string>
#include <system_error>
#include <thread>

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace support {
namespace {

void check(bool done, const std::string& step) {
  if (!done) throw std::system_error(errno, std::generic_category(), step);
}

}  // namespace

void run_without_override(const std::function<void()>& action) {
  // Capabilities are a thread's own, as long as it is not the C library that changes them.
  std::thread thread([&] {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
    check(::syscall(SYS_capget, &header, sets) == 0, "capget");
    for (const unsigned capability : {unsigned{CAP_DAC_OVERRIDE}, unsigned{CAP_DAC_READ_SEARCH}}) {
      sets[CAP_TO_INDEX(capability)].effective &= ~CAP_TO_MASK(capability);
      sets[CAP_TO_INDEX(capability)].permitted &= ~CAP_TO_MASK(capability);
    }
    check(::syscall(SYS_capset, &header, sets) == 0, "capset");
    action();
  });
  thread.join();
}

}  // namespace support
