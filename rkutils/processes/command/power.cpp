// The device restarted and switched off.

#include <rkutils/command.h>
#include <rkutils/internal/monotonic_clock.h>
#include <rkutils/internal/postponed_cancellation.h>

#include <cstdio>

#include <sys/reboot.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using rkutils::internal::pause_us;
using rkutils::internal::PostponedCancellation;

// What differs between the two.
struct Ending {
  const char* skip_marker;
  const char* skip_message;
  const char* script;
  int request;  // to the kernel
};

constexpr Ending kReboot = {"/nvstatus/skip-reboot", "skipping reboot",
                            "/usr/local/sbin/system-reboot", RB_AUTOBOOT};
constexpr Ending kPowerOff = {"/nvstatus/skip-poweroff", "skipping poweroff",
                              "/usr/local/sbin/system-poweroff", RB_POWER_OFF};

void run_script(const char* script, int first, int second) {
  constexpr int kHeadStartUs = 100000;
  char command[511];
  std::snprintf(command, sizeof command, "%s %d %d", script, first, second);
  run_command(command, 1);
  pause_us(kHeadStartUs);
}

void end_system(const Ending& ending, int first, int second) {
  const PostponedCancellation postponed;
  if (::access(ending.skip_marker, R_OK) == 0) {
    ::syslog(LOG_ERR, "%s", ending.skip_message);
  } else if (::access(ending.script, X_OK) == 0) {
    run_script(ending.script, first, second);
  } else {
    ::reboot(ending.request);
  }
}

}  // namespace

void system_reboot(int first, int second) { end_system(kReboot, first, second); }

void system_poweroff(int first, int second) { end_system(kPowerOff, first, second); }
