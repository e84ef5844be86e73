// Words of 32 bits: turned, and read from bytes.
#ifndef RKUTILS_DIGESTS_HASH_CONTEXT_WORDS_H
#define RKUTILS_DIGESTS_HASH_CONTEXT_WORDS_H

#include <cstdint>

namespace rkutils::digests {

using Word = std::uint32_t;

// `count` is 1 to 31.
constexpr Word rotate_left(Word word, unsigned count) {
  return word << count | word >> (32 - count);
}

// At any alignment. Compilers know both forms, and make one instruction of them where there is one.
constexpr Word load_low_first(const unsigned char* bytes) {
  return Word{bytes[0]} | Word{bytes[1]} << 8 | Word{bytes[2]} << 16 | Word{bytes[3]} << 24;
}

constexpr Word load_high_first(const unsigned char* bytes) {
  return Word{bytes[0]} << 24 | Word{bytes[1]} << 16 | Word{bytes[2]} << 8 | Word{bytes[3]};
}

}  // namespace rkutils::digests

#endif
