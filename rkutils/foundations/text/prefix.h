// What texts begin with.
#ifndef RKUTILS_FOUNDATIONS_TEXT_PREFIX_H
#define RKUTILS_FOUNDATIONS_TEXT_PREFIX_H

#include <cstring>
#include <string_view>

namespace rkutils::text {

inline bool begins_with(const char* text, std::string_view prefix) noexcept {
  return std::strncmp(text, prefix.data(), prefix.size()) == 0;
}

}  // namespace rkutils::text

#endif
