// Where a block device hangs, as the text of its link in /sys/class/block tells.
#ifndef RKUTILS_HARDWARE_STORAGE_PLACE_H
#define RKUTILS_HARDWARE_STORAGE_PLACE_H

namespace rkutils::storage {

enum class Bus { kMtd, kMmc, kSata, kUsb, kOther };

[[nodiscard]] Bus bus_of(const char* link) noexcept;

// Whether one of a USB port's names is a part of the link's text, between slashes. `names` has one
// to a line, with colons for dots; its first 62 characters count.
[[nodiscard]] bool is_on_port(const char* link, const char* names) noexcept;

}  // namespace rkutils::storage

#endif
