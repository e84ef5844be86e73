#include <rkutils/hash_table.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

// The entries. Their layout is asserted in the constructors, which may name these types.

struct INStringHashTable::Node {
  Node(const char* text, void* new_value) : key(copy(text)), value(new_value), next(nullptr) {}
  ~Node() { delete[] key; }
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;

  [[nodiscard]] bool has(const char* text) const noexcept { return std::strcmp(key, text) == 0; }

  const char* const key;
  void* const value;
  Node* next;

 private:
  static const char* copy(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    return static_cast<const char*>(std::memcpy(new char[size], text, size));
  }
};

struct INUInt32HashTable::Node {
  Node(std::uint32_t number, void* new_value) noexcept
      : key(number), value(new_value), next(nullptr) {}

  [[nodiscard]] bool has(std::uint32_t number) const noexcept { return key == number; }

  const std::uint32_t key;
  void* const value;
  Node* next;
};

namespace {

// Where three fields are that follow each other, and the size of the whole.
struct Layout {
  std::size_t first;
  std::size_t second;
  std::size_t third;
  std::size_t size;
};

constexpr bool operator==(const Layout& a, const Layout& b) {
  return a.first == b.first && a.second == b.second && a.third == b.third && a.size == b.size;
}

constexpr std::size_t kWord = sizeof(void*);
constexpr Layout kNodeLayout = {0, kWord, 2 * kWord, 3 * kWord};  // 12 bytes on the target
constexpr Layout kTableLayout = {0, kWord, kWord + 4, kWord + 8};

std::uint32_t bucket_count_for(unsigned long size) {
  // About as many pointers as an array can hold on a 32-bit host.
  constexpr std::uint32_t kMostBuckets = 0x1FFFFFFE;
  std::uint32_t count = 2;
  while (count < size) {
    count *= 2;
    if (count > kMostBuckets) throw std::bad_array_new_length();
  }
  return count;
}

std::uint32_t add_byte(std::uint32_t hash, unsigned char byte) noexcept {
  return hash ^ byte ^ (hash << 5U);
}

// Each byte is added to the hash before it as add_byte() does. What that does to the hash before is
// the shifting alone, and done twice it is h ^ (h << 10), four times h ^ (h << 20), the rest
// cancels out. So four bytes are put together first, and the hash waits once for all of them.
std::uint32_t hash_of(const char* key) noexcept {
  const auto* bytes = reinterpret_cast<const unsigned char*>(key);
  std::uint32_t hash = 0;
  for (; bytes[0] != '\0' && bytes[1] != '\0' && bytes[2] != '\0' && bytes[3] != '\0'; bytes += 4) {
    const std::uint32_t first = add_byte(bytes[0], bytes[1]);
    const std::uint32_t second = add_byte(bytes[2], bytes[3]);
    hash ^= (hash << 20U) ^ first ^ (first << 10U) ^ second;
  }
  for (; *bytes != '\0'; ++bytes) hash = add_byte(hash, *bytes);
  return hash;
}

// What follows is the same for both tables: a node has a next one, a value, and tells whether it
// has a key. `Node` is always deduced, for the tables keep its name to themselves.

// The link to the first node with the key, or else the null link that ends the chain.
template <typename Node, typename Key>
Node** find_link(Node** link, Key key) noexcept {
  for (Node* node = *link; node != nullptr && !node->has(key); node = *link) link = &node->next;
  return link;
}

template <typename Node, typename Key>
bool find_value(const Node* node, Key key, void** value) noexcept {
  for (; node != nullptr; node = node->next) {
    if (!node->has(key)) continue;
    *value = node->value;
    return true;
  }
  return false;
}

template <typename Node>
void append(Node** link, std::unique_ptr<Node> node) noexcept {
  while (*link != nullptr) link = &(*link)->next;
  *link = node.release();
}

template <typename Node, typename Key>
bool remove_first(Node** chain, Key key) noexcept {
  Node** const link = find_link(chain, key);
  const std::unique_ptr<Node> node(*link);
  if (node == nullptr) return false;
  *link = node->next;
  return true;
}

// Calls `action` with each node of a chain. The next node is known by then, so the action may free
// the node, or what its value points to.
template <typename Node, typename Action>
void for_each_node(Node* node, Action action) {
  while (node != nullptr) {
    Node* const next = node->next;
    action(node);
    node = next;
  }
}

// The buckets of a table, for what goes through all of them.
template <typename Node>
class Buckets {
 public:
  Buckets(Node** first, std::uint32_t count) noexcept : begin_(first), end_(first + count) {}

  void clear() const noexcept {
    for (Node** bucket = begin_; bucket != end_; ++bucket) {
      for_each_node(*bucket, [](Node* node) { delete node; });
      *bucket = nullptr;
    }
  }

  unsigned long first_values(unsigned long n, void** out) const noexcept {
    unsigned long written = 0;
    for (Node** bucket = begin_; bucket != end_ && written < n; ++bucket) {
      for (const Node* node = *bucket; node != nullptr && written < n; node = node->next) {
        out[written++] = node->value;
      }
    }
    return written;
  }

  void pass_values(void (*fn)(void*)) const {
    for (Node** bucket = begin_; bucket != end_; ++bucket) {
      for_each_node(*bucket, [fn](const Node* node) { fn(node->value); });
    }
  }

  [[nodiscard]] unsigned long node_count() const noexcept {
    unsigned long count = 0;
    for (Node** bucket = begin_; bucket != end_; ++bucket) count += length(*bucket);
    return count;
  }

  [[nodiscard]] unsigned long longest_chain() const noexcept {
    unsigned long longest = 0;
    for (Node** bucket = begin_; bucket != end_; ++bucket) {
      longest = std::max(longest, length(*bucket));
    }
    return longest;
  }

 private:
  static unsigned long length(const Node* chain) noexcept {
    unsigned long nodes = 0;
    for (; chain != nullptr; chain = chain->next) ++nodes;
    return nodes;
  }

  Node** begin_;
  Node** end_;
};

}  // namespace

INStringHashTable::INStringHashTable(unsigned long size)
    : buckets_(nullptr), bucket_count_(bucket_count_for(size)), mask_(bucket_count_ - 1) {
  using Table = INStringHashTable;
  static_assert(Layout{offsetof(Node, key), offsetof(Node, value), offsetof(Node, next),
                       sizeof(Node)} == kNodeLayout);
  static_assert(Layout{offsetof(Table, buckets_), offsetof(Table, bucket_count_),
                       offsetof(Table, mask_), sizeof(Table)} == kTableLayout);
  buckets_ = new Node*[bucket_count_]();
}

INStringHashTable::~INStringHashTable() {
  removeAllEntries();
  delete[] buckets_;
}

bool INStringHashTable::addEntry(const char* key, void* value) {
  if (key == nullptr) return false;
  append(&buckets_[hash_of(key) & mask_], std::make_unique<Node>(key, value));
  return true;
}

bool INStringHashTable::getValueFromKey(const char* key, void** value) const noexcept {
  return key != nullptr && find_value(buckets_[hash_of(key) & mask_], key, value);
}

bool INStringHashTable::removeEntry(const char* key) noexcept {
  return key != nullptr && remove_first(&buckets_[hash_of(key) & mask_], key);
}

void INStringHashTable::removeAllEntries() noexcept { Buckets(buckets_, bucket_count_).clear(); }

unsigned long INStringHashTable::getFirstNPointers(unsigned long n, void** out) const noexcept {
  return Buckets(buckets_, bucket_count_).first_values(n, out);
}

void INStringHashTable::passAllPointers(void (*fn)(void*)) const {
  Buckets(buckets_, bucket_count_).pass_values(fn);
}

unsigned long INStringHashTable::getNumberOfKeys() const noexcept {
  return Buckets(buckets_, bucket_count_).node_count();
}

unsigned long INStringHashTable::getLongestChain() const noexcept {
  return Buckets(buckets_, bucket_count_).longest_chain();
}

INUInt32HashTable::INUInt32HashTable(unsigned long size, HashFunctionType /*function*/)
    : buckets_(nullptr), bucket_count_(bucket_count_for(size)), mask_(bucket_count_ - 1) {
  using Table = INUInt32HashTable;
  static_assert(Layout{offsetof(Node, key), offsetof(Node, value), offsetof(Node, next),
                       sizeof(Node)} == kNodeLayout);
  static_assert(Layout{offsetof(Table, buckets_), offsetof(Table, bucket_count_),
                       offsetof(Table, mask_), sizeof(Table)} == kTableLayout);
  buckets_ = new Node*[bucket_count_]();
}

INUInt32HashTable::~INUInt32HashTable() {
  removeAllEntries();
  delete[] buckets_;
}

bool INUInt32HashTable::addEntry(unsigned long key, void* value) {
  const auto number = static_cast<std::uint32_t>(key);
  append(&buckets_[number & mask_], std::make_unique<Node>(number, value));
  return true;
}

bool INUInt32HashTable::getValueFromKey(unsigned long key, void** value) const noexcept {
  const auto number = static_cast<std::uint32_t>(key);
  return find_value(buckets_[number & mask_], number, value);
}

bool INUInt32HashTable::removeEntry(unsigned long key) noexcept {
  const auto number = static_cast<std::uint32_t>(key);
  return remove_first(&buckets_[number & mask_], number);
}

void INUInt32HashTable::removeAllEntries() noexcept { Buckets(buckets_, bucket_count_).clear(); }

unsigned long INUInt32HashTable::getFirstNPointers(unsigned long n, void** out) const noexcept {
  return Buckets(buckets_, bucket_count_).first_values(n, out);
}

void INUInt32HashTable::passAllPointers(void (*fn)(void*)) const {
  Buckets(buckets_, bucket_count_).pass_values(fn);
}

unsigned long INUInt32HashTable::getNumberOfKeys() const noexcept {
  return Buckets(buckets_, bucket_count_).node_count();
}

unsigned long INUInt32HashTable::getLongestChain() const noexcept {
  return Buckets(buckets_, bucket_count_).longest_chain();
}
