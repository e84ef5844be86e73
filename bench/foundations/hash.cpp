// Lookups in the hash tables. Every key is found, in random order; keys come as C strings.

#include <rkutils/hash_table.h>

#include <QHash>
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>

#include "foundations/rows.h"
#include "support/comparison.h"

namespace bench::foundations {
namespace {

using benchmark::State;

template <typename Key>
std::vector<Key> shuffled(std::vector<Key> keys) {
  std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
  return keys;
}

// Keys as a configuration has them.
std::vector<std::string> make_text_keys(std::size_t count) {
  constexpr const char* kSections[] = {"interface", "link",       "route",         "service.dhcp",
                                       "wwan",      "vpn.tunnel", "firewall.rule", "service.dns",
                                       "user",      "system.log"};
  constexpr const char* kNames[] = {"address", "netmask", "enable",  "gateway",     "name",
                                    "mode",    "timeout", "retries", "description", "priority"};
  std::vector<std::string> keys;
  for (std::size_t number = 0; keys.size() < count; ++number) {
    for (const char* section : kSections) {
      for (const char* name : kNames) {
        keys.push_back(std::string(section) + "." + std::to_string(number) + "." + name);
      }
    }
  }
  keys.resize(count);
  return keys;
}

// Numbers far apart, such as addresses.
std::vector<std::uint32_t> make_scattered_keys(std::size_t count) {
  std::mt19937 random(1);
  std::set<std::uint32_t> keys;
  while (keys.size() < count) keys.insert(static_cast<std::uint32_t>(random()));
  return {keys.begin(), keys.end()};
}

// Numbers in a row, such as identifiers.
std::vector<std::uint32_t> make_consecutive_keys(std::size_t count) {
  std::vector<std::uint32_t> keys(count);
  std::iota(keys.begin(), keys.end(), 1000U);
  return keys;
}

void* value_of(std::size_t number) {
  return reinterpret_cast<void*>(static_cast<std::uintptr_t>(number + 1));
}

// Fills a table and looks its keys up, round and round. `add` takes a table, a key and a value,
// `find` a table and a key.
template <typename Table, typename Key, typename Add, typename Find>
void look_up(State& state, Table& table, const std::vector<Key>& keys, Add add, Find find) {
  for (std::size_t i = 0; i < keys.size(); ++i) add(table, keys[i], value_of(i));
  const std::vector<Key> order = shuffled(keys);
  auto key = order.begin();
  for (auto _ : state) {
    void* const value = find(table, *key);
    benchmark::DoNotOptimize(value);
    if (value == nullptr) state.SkipWithError("a key is missing");
    if (++key == order.end()) key = order.begin();
  }
}

// ---- The floors: the same nodes in the same chains, found by a mask and a walk ----

struct TextNode {
  const char* key;
  void* value;
  TextNode* next;
};

struct NumberNode {
  std::uint32_t key;
  void* value;
  NumberNode* next;
};

std::uint32_t hash_of(const char* key) {
  std::uint32_t hash = 0;
  for (; *key != '\0'; ++key) hash ^= static_cast<unsigned char>(*key) ^ (hash << 5U);
  return hash;
}

std::uint32_t hash_of(std::uint32_t key) { return key; }

bool is_same(const char* a, const char* b) { return std::strcmp(a, b) == 0; }
bool is_same(std::uint32_t a, std::uint32_t b) { return a == b; }

const char* copy(const char* key) {
  const std::size_t size = std::strlen(key) + 1;
  return static_cast<const char*>(std::memcpy(new char[size], key, size));
}
std::uint32_t copy(std::uint32_t key) { return key; }

void destroy(const char* key) { delete[] key; }
void destroy(std::uint32_t /*key*/) {}

template <typename Node>
class Chains {
 public:
  using Key = decltype(Node::key);

  explicit Chains(std::size_t size) {
    std::size_t count = 2;
    while (count < size) count *= 2;
    buckets_ = std::make_unique<Node*[]>(count);
    mask_ = static_cast<std::uint32_t>(count - 1);
  }
  ~Chains() {
    for (std::size_t i = 0; i <= mask_; ++i) {
      while (Node* const node = buckets_[i]) {
        buckets_[i] = node->next;
        destroy(node->key);
        delete node;
      }
    }
  }
  Chains(const Chains&) = delete;
  Chains& operator=(const Chains&) = delete;

  void add(Key key, void* value) {
    Node** link = &buckets_[hash_of(key) & mask_];
    while (*link != nullptr) link = &(*link)->next;
    Node* const node = new Node{Key(), value, nullptr};
    node->key = copy(key);
    *link = node;
  }

  bool find(Key key, void** value) const {
    for (const Node* node = buckets_[hash_of(key) & mask_]; node != nullptr; node = node->next) {
      if (!is_same(node->key, key)) continue;
      *value = node->value;
      return true;
    }
    return false;
  }

 private:
  std::unique_ptr<Node*[]> buckets_;
  std::uint32_t mask_;
};

// As a shared library's function is called.
template <typename Node>
bool (Chains<Node>::*volatile find_by_pointer)(typename Chains<Node>::Key,
                                               void**) const = &Chains<Node>::find;

// ---- Texts ----

void find_text_ours(State& state, std::size_t count) {
  INStringHashTable table(count);
  look_up(
      state, table, make_text_keys(count),
      [](auto& t, const std::string& key, void* value) { t.addEntry(key.c_str(), value); },
      [](const auto& t, const std::string& key) {
        void* value = nullptr;
        t.getValueFromKey(key.c_str(), &value);
        return value;
      });
}

template <typename Map>
void find_text_in_map(State& state, std::size_t count) {
  Map table;
  look_up(
      state, table, make_text_keys(count),
      [](auto& t, const std::string& key, void* value) { t[key] = value; },
      [](const auto& t, const std::string& key) -> void* {
        const auto found = t.find(key.c_str());
        return found == t.end() ? nullptr : found->second;
      });
}

void find_text_floor(State& state, std::size_t count) {
  Chains<TextNode> table(count);
  look_up(
      state, table, make_text_keys(count),
      [](auto& t, const std::string& key, void* value) { t.add(key.c_str(), value); },
      [](const auto& t, const std::string& key) {
        void* value = nullptr;
        (t.*find_by_pointer<TextNode>)(key.c_str(), &value);
        return value;
      });
}

// ---- Numbers ----

void find_number_ours(State& state, const std::vector<std::uint32_t>& keys) {
  INUInt32HashTable table(keys.size());
  look_up(
      state, table, keys, [](auto& t, std::uint32_t key, void* value) { t.addEntry(key, value); },
      [](const auto& t, std::uint32_t key) {
        void* value = nullptr;
        t.getValueFromKey(key, &value);
        return value;
      });
}

void find_number_qhash(State& state, const std::vector<std::uint32_t>& keys) {
  QHash<std::uint32_t, void*> table;
  look_up(
      state, table, keys, [](auto& t, std::uint32_t key, void* value) { t.insert(key, value); },
      [](const auto& t, std::uint32_t key) { return t.value(key, nullptr); });
}

void find_number_flat(State& state, const std::vector<std::uint32_t>& keys) {
  absl::flat_hash_map<std::uint32_t, void*> table;
  look_up(
      state, table, keys, [](auto& t, std::uint32_t key, void* value) { t[key] = value; },
      [](const auto& t, std::uint32_t key) -> void* {
        const auto found = t.find(key);
        return found == t.end() ? nullptr : found->second;
      });
}

void find_number_floor(State& state, const std::vector<std::uint32_t>& keys) {
  Chains<NumberNode> table(keys.size());
  look_up(
      state, table, keys, [](auto& t, std::uint32_t key, void* value) { t.add(key, value); },
      [](const auto& t, std::uint32_t key) {
        void* value = nullptr;
        (t.*find_by_pointer<NumberNode>)(key, &value);
        return value;
      });
}

Body with(std::size_t count, void (*body)(State&, std::size_t)) {
  return [=](State& state) { body(state, count); };
}

Body with(const std::vector<std::uint32_t>& keys,
          void (*body)(State&, const std::vector<std::uint32_t>&)) {
  return [=](State& state) { body(state, keys); };
}

constexpr const char* kFlat = "absl::flat_hash_map";
constexpr const char* kWalk = "mask and walk";

}  // namespace

void add_hash_rows() {
  constexpr std::size_t kFew = 1000;
  constexpr std::size_t kMany = 100000;
  compare("lookup among 1,000 texts", with(kFew, find_text_ours),
          {peer(kFlat, 1.3, with(kFew, find_text_in_map<absl::flat_hash_map<std::string, void*>>)),
           peer("std::unordered_map", 0.5,
                with(kFew, find_text_in_map<std::unordered_map<std::string, void*>>)),
           floor(kWalk, 1.1, with(kFew, find_text_floor))});
  compare("lookup among 100,000 texts", with(kMany, find_text_ours),
          {peer(kFlat, 1.9, with(kMany, find_text_in_map<absl::flat_hash_map<std::string, void*>>)),
           peer("std::unordered_map", 0.5,
                with(kMany, find_text_in_map<std::unordered_map<std::string, void*>>)),
           floor(kWalk, 1.1, with(kMany, find_text_floor))});
  for (const auto& [kind, make_keys] :
       {std::pair("scattered", make_scattered_keys), {"consecutive", make_consecutive_keys}}) {
    const std::vector<std::uint32_t> few = make_keys(kFew);
    const std::vector<std::uint32_t> many = make_keys(kMany);
    compare(std::string("lookup among 1,000 ") + kind + " numbers", with(few, find_number_ours),
            {peer("QHash", 0.6, with(few, find_number_qhash)),
             floor(kWalk, 1.1, with(few, find_number_floor))});
    compare(std::string("lookup among 100,000 ") + kind + " numbers", with(many, find_number_ours),
            {peer(kFlat, 1.6, with(many, find_number_flat)),
             floor(kWalk, 1.1, with(many, find_number_floor))});
  }
}

}  // namespace bench::foundations
