// Sequences of calls on both hash tables, beside chains of the standard library.

#include <rkutils/hash_table.h>

#include <cstdint>
#include <string>
#include <vector>

#include "foundations/hash_table_model.h"
#include "target.h"

namespace {

using fuzz::expect_equal;
using fuzz::Input;

// Values are addresses in here; nobody looks at what is there.
char places[65536];

struct Texts {
  using Table = INStringHashTable;
  using Key = std::string;

  // Few and short ones, so that they come again.
  static Key take_key(Input& input) { return fuzz::Text(input.bytes(input.below(4))).c_str(); }
  static const char* pass(const Key& key) { return key.c_str(); }
};

struct Numbers {
  using Table = INUInt32HashTable;
  using Key = unsigned long;

  static Key take_key(Input& input) {
    return input.flag() ? input.byte() % 8U : input.number<unsigned long>();
  }
  static Key pass(Key key) { return key; }
};

std::vector<void*> passed;
void keep(void* value) { passed.push_back(value); }

template <typename Table, typename Key>
void compare_all(const Table& table, const hash_table_model::Model<Key>& model) {
  const std::vector<void*> expected = model.values();
  expect_equal(table.getNumberOfKeys(), expected.size(), "the number of entries");
  expect_equal(table.getLongestChain(), model.longest(), "the longest chain");
  passed.clear();
  table.passAllPointers(keep);
  fuzz::expect(passed == expected, "the values passed");
  for (const std::size_t room : {expected.size() / 2, expected.size()}) {
    std::vector<void*> first(room, places);
    expect_equal(table.getFirstNPointers(room, first.data()), room, "the values copied");
    fuzz::expect(std::equal(first.begin(), first.end(), expected.begin()), "the first values");
  }
}

template <typename Keys>
void run(Input& input) {
  const std::size_t size = input.below(70);
  std::size_t buckets = 2;
  while (buckets < size) buckets *= 2;
  typename Keys::Table table(size);
  hash_table_model::Model<typename Keys::Key> model(buckets);
  std::size_t calls = 0;
  while (!input.empty()) {
    const std::size_t call = input.below(16);
    const typename Keys::Key key = Keys::take_key(input);
    if (call == 0) {
      table.removeAllEntries();
      model.clear();
    } else if (call == 1) {
      compare_all(table, model);
    } else if (call < 8) {
      void* const value = &places[calls % sizeof places];
      fuzz::expect(table.addEntry(Keys::pass(key), value), "adding is true");
      model.add(key, value);
    } else if (call < 11) {
      expect_equal(table.removeEntry(Keys::pass(key)), model.remove(key), "whether it is removed");
    } else {
      void* value = nullptr;
      const bool found = table.getValueFromKey(Keys::pass(key), &value);
      fuzz::expect(value == model.find(key) && found == (value != nullptr), "the value found");
    }
    ++calls;
  }
  compare_all(table, model);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  if (input.flag()) {
    run<Texts>(input);
  } else {
    run<Numbers>(input);
  }
  return 0;
}
