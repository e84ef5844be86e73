// Maintenance in progress.

#include <rkutils/systeminfo.h>

#include <algorithm>
#include <iterator>

#include <unistd.h>

namespace {

// Texts of one length rather than pointers, which the dynamic linker would have to relocate.
constexpr char kMarkers[][32] = {
    "/tmp/progress/swupdate", "/tmp/progress/bdupdate",        "/tmp/progress/fwupdate",
    "/tmp/progress/config",   "/tmp/progress/switch-software", "/tmp/progress/switch-config",
    "/tmp/progress/sshkeys",
};

}  // namespace

int in_maintenance(void) {
  const bool any = std::any_of(std::begin(kMarkers), std::end(kMarkers),
                               [](const char* marker) { return ::access(marker, R_OK) == 0; });
  return any ? 1 : 0;
}
