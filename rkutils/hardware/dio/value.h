// Values of inputs and outputs, read.
#ifndef RKUTILS_HARDWARE_DIO_VALUE_H
#define RKUTILS_HARDWARE_DIO_VALUE_H

#include <rkutils/hardware/dio/driver_file.h>

namespace rkutils::dio {

// Reads the value that a file holds into `on`; see dio_roValue(). Named as its assertion "on !=
// NULL" names it.
unsigned dio_value(const DriverPath& path, unsigned char* on) noexcept;

}  // namespace rkutils::dio

#endif
