// The compression functions of the digests: what a block of the message does to the state.
#ifndef RKUTILS_DIGESTS_HASH_CONTEXT_TRANSFORMS_H
#define RKUTILS_DIGESTS_HASH_CONTEXT_TRANSFORMS_H

#include <rkutils/digests/hash_context/words.h>

#include <cstddef>

namespace rkutils::digests {

constexpr std::size_t kBlockSize = 64;

// How many turns of a round's loop compilers lay out one behind the other: all, so that what
// changes from step to step becomes constant; or one where they are to save space.
#ifdef __OPTIMIZE_SIZE__
constexpr int kUnrolled = 1;
#else
constexpr int kUnrolled = 20;
#endif

// Takes `count` blocks, one behind the other, at any alignment, into the state. No block, no
// effect.
using Transform = void(Word* state, const unsigned char* blocks, std::size_t count);

// MD5 (RFC 1321), with a state of four words.
Transform md5_transform;

// SHA-1 (FIPS 180-1), with a state of five.
Transform sha1_transform;

}  // namespace rkutils::digests

#endif
