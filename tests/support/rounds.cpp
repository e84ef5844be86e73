#include "support/rounds.h"

#include <algorithm>
#include <cstdlib>

namespace support {

int rounds(int many) {
  const char* const fewer = std::getenv("RKUTILS_FEWER_ROUNDS");
  if (fewer == nullptr) return many;
  return std::max(1, many / std::max(1, std::atoi(fewer)));
}

}  // namespace support
