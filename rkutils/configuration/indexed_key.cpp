#include <rkutils/configuration/indexed_key.h>
#include <rkutils/text.h>

// The pattern is a format that arrives as a String. Nothing checks it but its author.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace rkutils::configuration {

String indexed_key(String const& pattern, unsigned long index) {
  String key;
  key.format(pattern.c_str(), index);
  return key;
}

int indexed_key_length(String const& pattern, unsigned long index) noexcept {
  return strlenf(pattern.c_str(), index);
}

}  // namespace rkutils::configuration
