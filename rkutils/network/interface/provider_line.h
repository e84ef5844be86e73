// The lines that the provider database prints.
#ifndef RKUTILS_NETWORK_INTERFACE_PROVIDER_LINE_H
#define RKUTILS_NETWORK_INTERFACE_PROVIDER_LINE_H

#include <rkutils/foundations/text/prefix.h>
#include <rkutils/text.h>

#include <string_view>

namespace rkutils::network {

// The provider's name in a line "provider: NAME", without white space around it; NULL for other lines.
// Changes the line.
inline const char* provider_in(char* line) noexcept {
  constexpr std::string_view kLabel = "provider:";
  return text::begins_with(line, kLabel) ? stripwhite(line + kLabel.size()) : nullptr;
}

}  // namespace rkutils::network

#endif
