// Copies of texts for programs to free().
#ifndef RKUTILS_CONFIGURATION_CFREAD_TEXT_COPY_H
#define RKUTILS_CONFIGURATION_CFREAD_TEXT_COPY_H

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace rkutils::cfread {

// The first `length` bytes of `text` and a NUL, in memory of their own; NULL when there is none.
[[nodiscard]] inline char* copy_text(const char* text, std::size_t length) noexcept {
  auto* const copy = static_cast<char*>(std::malloc(length + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

}  // namespace rkutils::cfread

#endif
