// Forgetting what is secret.
#ifndef RKUTILS_DIGESTS_WIPE_H
#define RKUTILS_DIGESTS_WIPE_H

#include <string.h>

namespace rkutils::digests {

// Overwrites variables with zeros, also at the end of their lives, where compilers drop other ways
// to do it.
template <typename... Variables>
void wipe(Variables&... variables) noexcept {
  (::explicit_bzero(&variables, sizeof variables), ...);
}

}  // namespace rkutils::digests

#endif
