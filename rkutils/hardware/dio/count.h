// What counts as an input or output.
#ifndef RKUTILS_HARDWARE_DIO_COUNT_H
#define RKUTILS_HARDWARE_DIO_COUNT_H

#include <cstddef>

#include <dirent.h>

namespace rkutils::dio {

// Whether an entry of the driver's folder is one: a folder named `prefix` and one or two digits,
// which may be listed and entered. Named as its assertion "entry != NULL" names it.
[[nodiscard]] bool dio_isDioDirent(const dirent* entry, const char* prefix,
                                   std::size_t prefix_length) noexcept;

}  // namespace rkutils::dio

#endif
