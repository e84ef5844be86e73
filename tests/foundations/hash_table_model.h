// The hash tables once more, as they are described.
#ifndef TESTS_FOUNDATIONS_HASH_TABLE_MODEL_H
#define TESTS_FOUNDATIONS_HASH_TABLE_MODEL_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace hash_table_model {

inline std::uint32_t hash_of(unsigned long key) { return static_cast<std::uint32_t>(key); }

inline std::uint32_t hash_of(const std::string& key) {
  std::uint32_t hash = 0;
  for (const char character : key) {
    hash = hash ^ static_cast<unsigned char>(character) ^ (hash << 5U);
  }
  return hash;
}

inline bool are_equal(unsigned long a, unsigned long b) { return hash_of(a) == hash_of(b); }
inline bool are_equal(const std::string& a, const std::string& b) { return a == b; }

// A table as it is described: chains of entries in the order in which they were added.
template <typename Key>
class Model {
 public:
  explicit Model(std::size_t buckets) : chains_(buckets) {}

  void add(const Key& key, void* value) { chain(key).emplace_back(key, value); }

  // The value of the oldest entry, NULL where there is none.
  [[nodiscard]] void* find(const Key& key) {
    const auto entry = oldest(key);
    return entry == chain(key).end() ? nullptr : entry->second;
  }

  bool remove(const Key& key) {
    const auto entry = oldest(key);
    if (entry == chain(key).end()) return false;
    chain(key).erase(entry);
    return true;
  }

  void clear() {
    for (auto& chain : chains_) chain.clear();
  }

  [[nodiscard]] std::vector<void*> values() const {
    std::vector<void*> values;
    for (const auto& chain : chains_) {
      for (const auto& entry : chain) values.push_back(entry.second);
    }
    return values;
  }

  [[nodiscard]] std::size_t longest() const {
    std::size_t longest = 0;
    for (const auto& chain : chains_) longest = std::max(longest, chain.size());
    return longest;
  }

 private:
  using Chain = std::vector<std::pair<Key, void*>>;

  Chain& chain(const Key& key) { return chains_.at(hash_of(key) % chains_.size()); }

  typename Chain::iterator oldest(const Key& key) {
    return std::find_if(chain(key).begin(), chain(key).end(),
                        [&key](const auto& entry) { return are_equal(entry.first, key); });
  }

  std::vector<Chain> chains_;
};

}  // namespace hash_table_model

#endif
