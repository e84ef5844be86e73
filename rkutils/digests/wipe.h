// Forgetting what is secret.
#ifndef RKUTILS_DIGESTS_WIPE_H
#define RKUTILS_DIGESTS_WIPE_H

#include <cstring>

namespace rkutils::digests {

// Overwrites a variable with zeros, also at the end of its life, where compilers drop other ways to
// do it: they must assume that the empty instruction reads the variable. It is what
// explicit_bzero() does, without the call, of which a short message would see six.
template <typename Variable>
void wipe(Variable& variable) noexcept {
  std::memset(&variable, 0, sizeof variable);
  __asm__ volatile("" : : "r"(&variable) : "memory");
}

}  // namespace rkutils::digests

#endif
