// Configuration values as numbers.
#ifndef RKUTILS_CONFIGURATION_CFREAD_VALUE_NUMBER_H
#define RKUTILS_CONFIGURATION_CFREAD_VALUE_NUMBER_H

namespace rkutils::cfread {

// The number that an entry keeps beside its value, the same on every host: that of a decimal number
// with or without a sign whose magnitude is below that of the 32-bit limits, 1 for "true", 0 for
// "false" and for a sign alone, and -1 for anything else.
[[nodiscard]] long number_of_value(const char* value) noexcept;

}  // namespace rkutils::cfread

#endif
