// The lines of /proc/mounts.
#ifndef RKUTILS_HARDWARE_STORAGE_MOUNT_LINE_H
#define RKUTILS_HARDWARE_STORAGE_MOUNT_LINE_H

#include <optional>
#include <string_view>

namespace rkutils::storage {

// Where the line says that "/dev/" and `partition` is mounted, as the kernel writes it; nothing for
// a line about something else.
[[nodiscard]] std::optional<std::string_view> mount_point_in(std::string_view line,
                                                             std::string_view partition) noexcept;

}  // namespace rkutils::storage

#endif
