// Words of 32 bits: turned, read from bytes, and written as bytes.
#ifndef RKUTILS_DIGESTS_HASH_CONTEXT_WORDS_H
#define RKUTILS_DIGESTS_HASH_CONTEXT_WORDS_H

#include <cstdint>

namespace rkutils::digests {

using Word = std::uint32_t;

// `count` is 1 to 31.
constexpr Word rotate_left(Word word, unsigned count) {
  return word << count | word >> (32 - count);
}

// At any alignment. Compilers know these forms, and make one instruction of each where there is
// one.
constexpr Word load_low_first(const unsigned char* bytes) {
  return Word{bytes[0]} | Word{bytes[1]} << 8 | Word{bytes[2]} << 16 | Word{bytes[3]} << 24;
}

constexpr Word load_high_first(const unsigned char* bytes) {
  return Word{bytes[0]} << 24 | Word{bytes[1]} << 16 | Word{bytes[2]} << 8 | Word{bytes[3]};
}

constexpr void store_low_first(Word word, unsigned char* bytes) {
  bytes[0] = static_cast<unsigned char>(word);
  bytes[1] = static_cast<unsigned char>(word >> 8);
  bytes[2] = static_cast<unsigned char>(word >> 16);
  bytes[3] = static_cast<unsigned char>(word >> 24);
}

constexpr void store_high_first(Word word, unsigned char* bytes) {
  bytes[0] = static_cast<unsigned char>(word >> 24);
  bytes[1] = static_cast<unsigned char>(word >> 16);
  bytes[2] = static_cast<unsigned char>(word >> 8);
  bytes[3] = static_cast<unsigned char>(word);
}

}  // namespace rkutils::digests

#endif
