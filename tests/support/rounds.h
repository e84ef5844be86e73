// How often tests repeat themselves.
#ifndef TESTS_SUPPORT_ROUNDS_H
#define TESTS_SUPPORT_ROUNDS_H

namespace support {

// For tests of random cases, or of what another thread does meanwhile: `many`, where the environment
// has RKUTILS_FEWER_ROUNDS=N an Nth of that, and at least 1. The emulated board sets it, for it is
// some fifty times slower than the machine that builds.
int rounds(int many);

// For tests that go through everything of a kind: how far it is from one that is tried to the next,
// 1 or N.
int stride();

}  // namespace support

#endif
