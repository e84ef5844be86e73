// Keys made of a caller's pattern and a number.
#ifndef RKUTILS_CONFIGURATION_INDEXED_KEY_H
#define RKUTILS_CONFIGURATION_INDEXED_KEY_H

#include <rkutils/string.h>

namespace rkutils::configuration {

// The key that String::format() makes of the pattern and the index.
String indexed_key(String const& pattern, unsigned long index);

// Its length, before it is made: a width in the pattern may ask for gigabytes. Negative above
// INT_MAX.
int indexed_key_length(String const& pattern, unsigned long index) noexcept;

}  // namespace rkutils::configuration

#endif
