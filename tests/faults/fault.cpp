#include "fault.h"

#include <algorithm>
#include <stdexcept>

namespace faults {

std::size_t kind_named(std::string_view name) {
  const auto* const found = std::find_if(kKinds.begin(), kKinds.end(),
                                         [name](const Kind& kind) { return kind.name == name; });
  if (found == kKinds.end()) {
    throw std::out_of_range("no system call is known as " + std::string(name));
  }
  return static_cast<std::size_t>(found - kKinds.begin());
}

}  // namespace faults
