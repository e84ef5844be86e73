// Keys made of a caller's pattern and a number.
#ifndef RKUTILS_CONFIGURATION_INDEXED_KEY_H
#define RKUTILS_CONFIGURATION_INDEXED_KEY_H

#include <rkutils/string.h>

#include <climits>
#include <optional>

namespace rkutils::configuration {

// The key that String::format() makes of the pattern and the index; nothing when it would have more
// than `most` characters. It is not made to find that out: a width in the pattern may ask for
// gigabytes. The shared empty text is not touched, so that threads may do this at the same time.
std::optional<String> indexed_key(String const& pattern, unsigned long index, int most = INT_MAX);

}  // namespace rkutils::configuration

#endif
