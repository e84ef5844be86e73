#include <rkutils/configuration/indexed_key.h>
#include <rkutils/text.h>

// The pattern is a format that arrives as a String. Nothing checks it but its author.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace rkutils::configuration {

std::optional<String> indexed_key(String const& pattern, unsigned long index, int most) {
  const int length = strlenf(pattern.c_str(), index);
  if (length < 0 || length > most) return std::nullopt;
  std::optional<String> key(std::in_place, "", length);  // with a buffer of its own
  if (length > 0) key->format(pattern.c_str(), index);   // else it would take the shared one
  return key;
}

}  // namespace rkutils::configuration
