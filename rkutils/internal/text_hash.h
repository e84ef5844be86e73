// A hash of texts, for the indexes that the families keep.
#ifndef RKUTILS_INTERNAL_TEXT_HASH_H
#define RKUTILS_INTERNAL_TEXT_HASH_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace rkutils::internal {

namespace text_hash {

template <typename Word>
Word load(const char* bytes) noexcept {
  Word word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

inline std::uint64_t mix(std::uint64_t hash, std::uint64_t word) noexcept {
  constexpr std::uint64_t kOddFraction = 0x9E3779B97F4A7C15U;  // of the golden ratio
  const std::uint64_t product = (hash ^ word) * kOddFraction;
  return product ^ (product >> 32U);
}

}  // namespace text_hash

// Hashes the bytes before the NUL, eight at a time. All bits are of use. The values differ between
// hosts of different byte order, and are not for storing outside of a process.
[[nodiscard]] inline std::uint32_t hash_text(const char* text) noexcept {
  const std::size_t length = std::strlen(text);
  const char* const end = text + length;
  std::uint64_t hash = length;
  if (length >= 8) {
    for (; end - text > 8; text += 8)
      hash = text_hash::mix(hash, text_hash::load<std::uint64_t>(text));
    text = end - 8;  // some of these bytes a second time
    hash = text_hash::mix(hash, text_hash::load<std::uint64_t>(text));
  } else {
    std::uint64_t word = 0;
    for (; text != end; ++text) word = (word << 8U) | static_cast<unsigned char>(*text);
    hash = text_hash::mix(hash, word);
  }
  // Once more, for the last bytes to reach all bits.
  return static_cast<std::uint32_t>(text_hash::mix(hash, 0) >> 32U);
}

}  // namespace rkutils::internal

#endif
