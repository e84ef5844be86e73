#include <rkutils/internal/text_hash.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using rkutils::internal::hash_text;

std::string letters(std::size_t length) {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('a' + i % 26);
  return text;
}

TEST(HashText, IsTheSameForTheSameTextWhereverItLies) {
  for (std::size_t length = 0; length < 40; ++length) {
    const std::uint32_t hash = hash_text(letters(length).c_str());
    for (std::size_t offset = 1; offset < 9; ++offset) {
      // On the heap with nothing behind its NUL, where a byte too far is seen.
      const std::string text = std::string(offset, '#') + letters(length);
      const std::vector<char> bytes(text.c_str(), text.c_str() + text.size() + 1);
      EXPECT_EQ(hash_text(bytes.data() + offset), hash) << length << " at " << offset;
    }
  }
}

TEST(HashText, DependsOnEveryByteAndOnTheLength) {
  for (std::size_t length = 1; length < 40; ++length) {
    const std::string text = letters(length);
    std::set<std::uint32_t> hashes = {hash_text(text.c_str()), hash_text((text + "x").c_str())};
    for (std::size_t i = 0; i < length; ++i) {
      std::string other = text;
      other[i] = '\x80';
      hashes.insert(hash_text(other.c_str()));
    }
    EXPECT_EQ(hashes.size(), length + 2) << length;
  }
}

// As keys often are: alike but for a number.
TEST(HashText, SpreadsKeysOverTheBucketsOfAnIndex) {
  constexpr int kKeys = 10000;
  constexpr std::uint32_t kBuckets = 16384;
  for (const char* pattern :
       {"%", "interface.%.address", "%.a", "wwan%", "a.long.prefix.of.key.%"}) {
    std::map<std::uint32_t, int> low;
    std::map<std::uint32_t, int> high;
    for (int i = 0; i < kKeys; ++i) {
      std::string key = pattern;
      key.replace(key.find('%'), 1, std::to_string(i));
      const std::uint32_t hash = hash_text(key.c_str());
      ++low[hash % kBuckets];
      ++high[hash >> 18U];
    }
    // Chance alone would leave about 7500 buckets in use.
    EXPECT_GT(low.size(), 7000U) << pattern;
    EXPECT_GT(high.size(), 7000U) << pattern;
  }
}

}  // namespace
