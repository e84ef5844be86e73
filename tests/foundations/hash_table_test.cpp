#include <rkutils/hash_table.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundations/hash_table_model.h"
#include "support/allocation_faults.h"
#include "support/case_name.h"
#include "support/language_allocation.h"
#include "support/small_stack.h"

namespace {

using language_allocation::Request;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// Values are addresses in here; nobody looks at what is there.
std::array<char, 10000> places;
void* place(std::size_t index) { return &places.at(index); }

template <typename Table>
std::vector<void*> all_values(const Table& table) {
  std::vector<void*> values(table.getNumberOfKeys());
  EXPECT_EQ(table.getFirstNPointers(values.size(), values.data()), values.size());
  return values;
}

// The value that the key leads to, or NULL.
template <typename Table, typename Key>
void* value_of(const Table& table, Key key) {
  void* value = nullptr;
  return table.getValueFromKey(key, &value) ? value : nullptr;
}

// What passAllPointers() passes, in its order.
std::vector<void*> passed;
void keep(void* value) { passed.push_back(value); }

template <typename Table>
std::vector<void*> passed_values(const Table& table) {
  passed.clear();
  table.passAllPointers(keep);
  return std::exchange(passed, {});
}

// ---- What the tables are ----

static_assert(HASH_FUNCTION_IDENTITY == 0);
static_assert(std::is_enum_v<HashFunctionType> && std::is_convertible_v<HashFunctionType, int>);

// A pointer and two 32-bit numbers, which stay where they are.
template <typename Table>
struct Layout {
  static_assert(sizeof(Table) == sizeof(void*) + 8);
  static_assert(alignof(Table) == alignof(void*));
  static_assert(std::is_standard_layout_v<Table> && !std::is_polymorphic_v<Table>);
  static_assert(!std::is_copy_constructible_v<Table> && !std::is_copy_assignable_v<Table>);
  static_assert(!std::is_move_constructible_v<Table> && !std::is_move_assignable_v<Table>);
};
template struct Layout<INStringHashTable>;
template struct Layout<INUInt32HashTable>;

template <typename Table, typename Key>
struct Signatures {
  template <auto Member, typename Expected>
  static constexpr bool kAre = std::is_same_v<decltype(Member), Expected>;

  static_assert(std::is_constructible_v<Table, unsigned long>);
  static_assert(kAre<&Table::addEntry, bool (Table::*)(Key, void*)>);
  static_assert(kAre<&Table::getValueFromKey, bool (Table::*)(Key, void**) const noexcept>);
  static_assert(kAre<&Table::removeEntry, bool (Table::*)(Key) noexcept>);
  static_assert(kAre<&Table::removeAllEntries, void (Table::*)() noexcept>);
  static_assert(kAre<&Table::getFirstNPointers,
                     unsigned long (Table::*)(unsigned long, void**) const noexcept>);
  static_assert(kAre<&Table::passAllPointers, void (Table::*)(void (*)(void*)) const>);
  static_assert(kAre<&Table::getNumberOfKeys, unsigned long (Table::*)() const noexcept>);
  static_assert(kAre<&Table::getLongestChain, unsigned long (Table::*)() const noexcept>);
};
template struct Signatures<INStringHashTable, const char*>;
template struct Signatures<INUInt32HashTable, unsigned long>;
static_assert(std::is_constructible_v<INUInt32HashTable, unsigned long, HashFunctionType>);

// ---- What both do alike ----

// A text of two bytes with that hash, which has up to 13 bits.
std::string text_of_hash(unsigned hash) {
  for (unsigned first = 1; first <= UCHAR_MAX; ++first) {
    const unsigned second = hash ^ first ^ (first << 5U);
    if (second < 1 || second > UCHAR_MAX) continue;
    return {static_cast<char>(first), static_cast<char>(second)};
  }
  throw std::out_of_range("no two bytes have this hash");
}

// Makes keys for either table. In a table of 128 buckets, those of key() stand in buckets of their
// own, in their order; those of crowded_key() share the third.
struct TextKeys {
  using Table = INStringHashTable;
  static std::string key(unsigned n) { return text_of_hash(n); }
  static std::string crowded_key(unsigned n) { return text_of_hash(2 + 128 * n); }
  static const char* pass(const std::string& key) { return key.c_str(); }
};

struct NumberKeys {
  using Table = INUInt32HashTable;
  static unsigned long key(unsigned n) { return n; }
  static unsigned long crowded_key(unsigned n) { return 2 + 128UL * n; }
  static unsigned long pass(unsigned long key) { return key; }
};

template <typename Keys>
class HashTable : public testing::Test {
 protected:
  using Table = typename Keys::Table;

  template <typename Key>
  bool add(const Key& key, std::size_t value) {
    return table_.addEntry(Keys::pass(key), place(value));
  }
  template <typename Key>
  bool remove(const Key& key) {
    return table_.removeEntry(Keys::pass(key));
  }
  template <typename Key>
  void* value(const Key& key) {
    return value_of(table_, Keys::pass(key));
  }

  Table table_{100};
};

struct KeyNames {
  template <typename Keys>
  static std::string GetName(int /*index*/) {
    return std::is_base_of_v<TextKeys, Keys> ? "OfTexts" : "OfNumbers";
  }
};

using BothTables = testing::Types<TextKeys, NumberKeys>;
TYPED_TEST_SUITE(HashTable, BothTables, KeyNames);

TYPED_TEST(HashTable, IsEmptyAtFirst) {
  EXPECT_EQ(this->table_.getNumberOfKeys(), 0U);
  EXPECT_EQ(this->table_.getLongestChain(), 0U);
  EXPECT_THAT(passed_values(this->table_), IsEmpty());
  void* untouched = place(9);
  EXPECT_EQ(this->table_.getFirstNPointers(1, &untouched), 0U);
  EXPECT_EQ(untouched, place(9));
}

TYPED_TEST(HashTable, FindsWhatWasAdded) {
  EXPECT_TRUE(this->add(TypeParam::key(1), 1));
  EXPECT_TRUE(this->add(TypeParam::key(2), 2));
  EXPECT_EQ(this->value(TypeParam::key(1)), place(1));
  EXPECT_EQ(this->value(TypeParam::key(2)), place(2));
  EXPECT_EQ(this->table_.getNumberOfKeys(), 2U);
  EXPECT_EQ(this->table_.getLongestChain(), 1U);
}

TYPED_TEST(HashTable, FindsEachOfAChain) {
  for (unsigned n = 0; n < 4; ++n) EXPECT_TRUE(this->add(TypeParam::crowded_key(n), n));
  ASSERT_EQ(this->table_.getLongestChain(), 4U);
  for (unsigned n = 0; n < 4; ++n) EXPECT_EQ(this->value(TypeParam::crowded_key(n)), place(n));
}

TYPED_TEST(HashTable, LeavesTheOutputAloneWhenTheKeyIsAbsent) {
  this->add(TypeParam::crowded_key(0), 0);
  const auto absent = TypeParam::key(7);
  const auto absent_of_the_chain = TypeParam::crowded_key(1);
  void* value = place(9);
  EXPECT_FALSE(this->table_.getValueFromKey(TypeParam::pass(absent), &value));
  EXPECT_FALSE(this->table_.getValueFromKey(TypeParam::pass(absent_of_the_chain), &value));
  EXPECT_EQ(value, place(9));
}

TYPED_TEST(HashTable, KeepsNullAndEqualValues) {
  const auto null = TypeParam::key(1);
  EXPECT_TRUE(this->table_.addEntry(TypeParam::pass(null), nullptr));
  EXPECT_TRUE(this->add(TypeParam::key(2), 2));
  EXPECT_TRUE(this->add(TypeParam::key(3), 2));
  void* value = place(9);
  EXPECT_TRUE(this->table_.getValueFromKey(TypeParam::pass(null), &value));
  EXPECT_EQ(value, nullptr);
  EXPECT_THAT(passed_values(this->table_), ElementsAre(nullptr, place(2), place(2)));
}

TYPED_TEST(HashTable, ShowsTheOldestOfEqualKeysUntilItIsRemoved) {
  const auto key = TypeParam::key(5);
  EXPECT_TRUE(this->add(key, 1));
  EXPECT_TRUE(this->add(key, 2));
  EXPECT_EQ(this->table_.getNumberOfKeys(), 2U);
  EXPECT_EQ(this->value(key), place(1));
  EXPECT_TRUE(this->remove(key));
  EXPECT_EQ(this->value(key), place(2));
  EXPECT_TRUE(this->remove(key));
  EXPECT_EQ(this->value(key), nullptr);
  EXPECT_FALSE(this->remove(key));
  EXPECT_EQ(this->table_.getNumberOfKeys(), 0U);
}

TYPED_TEST(HashTable, PutsWhatIsAddedAgainAtTheChainsEnd) {
  for (unsigned n = 0; n < 3; ++n) this->add(TypeParam::crowded_key(n), n);
  EXPECT_TRUE(this->remove(TypeParam::crowded_key(0)));
  EXPECT_TRUE(this->add(TypeParam::crowded_key(0), 3));
  EXPECT_THAT(all_values(this->table_), ElementsAre(place(1), place(2), place(3)));
}

TYPED_TEST(HashTable, RemovesFromAnywhereInAChain) {
  for (unsigned removed = 0; removed < 3; ++removed) {
    SCOPED_TRACE(removed);
    this->table_.removeAllEntries();
    std::vector<void*> rest;
    for (unsigned n = 0; n < 3; ++n) {
      this->add(TypeParam::crowded_key(n), n);
      if (n != removed) rest.push_back(place(n));
    }
    EXPECT_TRUE(this->remove(TypeParam::crowded_key(removed)));
    EXPECT_THAT(all_values(this->table_), ElementsAreArray(rest));
    EXPECT_TRUE(this->add(TypeParam::crowded_key(3), 3));  // the chain's end is where it should be
    rest.push_back(place(3));
    EXPECT_THAT(all_values(this->table_), ElementsAreArray(rest));
  }
}

TYPED_TEST(HashTable, RemovingAnAbsentKeyChangesNothing) {
  for (unsigned n = 0; n < 3; ++n) this->add(TypeParam::crowded_key(n), n);
  EXPECT_FALSE(this->remove(TypeParam::crowded_key(3)));
  EXPECT_FALSE(this->remove(TypeParam::key(7)));
  EXPECT_THAT(all_values(this->table_), ElementsAre(place(0), place(1), place(2)));
}

TYPED_TEST(HashTable, WithAllEntriesRemovedTakesNewOnesInAsManyBuckets) {
  this->table_.removeAllEntries();
  for (unsigned n = 0; n < 50; ++n) this->add(TypeParam::key(n), n);
  for (unsigned n = 0; n < 3; ++n) this->add(TypeParam::crowded_key(n), n);
  this->table_.removeAllEntries();
  EXPECT_EQ(this->table_.getNumberOfKeys(), 0U);
  EXPECT_EQ(this->table_.getLongestChain(), 0U);
  EXPECT_EQ(this->value(TypeParam::key(5)), nullptr);
  for (unsigned n = 0; n < 50; ++n) this->add(TypeParam::key(n), n);
  EXPECT_EQ(this->table_.getNumberOfKeys(), 50U);
  EXPECT_EQ(this->table_.getLongestChain(), 1U);
}

TYPED_TEST(HashTable, GivesValuesByBucketAndAge) {
  this->add(TypeParam::key(40), 40);
  this->add(TypeParam::crowded_key(1), 11);
  this->add(TypeParam::crowded_key(0), 10);
  this->add(TypeParam::key(30), 30);
  this->add(TypeParam::crowded_key(1), 12);
  const std::vector<void*> expected = {place(11), place(10), place(12), place(30), place(40)};
  EXPECT_EQ(all_values(this->table_), expected);
  EXPECT_EQ(passed_values(this->table_), expected);
}

TYPED_TEST(HashTable, GivesNoMoreValuesThanAskedFor) {
  for (unsigned n = 0; n < 3; ++n) this->add(TypeParam::crowded_key(n), n);
  for (unsigned n = 3; n < 5; ++n) this->add(TypeParam::key(n + 20), n);
  for (unsigned long n = 0; n <= 7; ++n) {
    SCOPED_TRACE(n);
    const unsigned long expected = std::min(n, 5UL);
    std::vector<void*> out(8, place(9));
    EXPECT_EQ(this->table_.getFirstNPointers(n, out.data()), expected);
    for (std::size_t i = 0; i < out.size(); ++i) {
      EXPECT_EQ(out[i], i < expected ? place(i) : place(9)) << i;
    }
  }
}

TYPED_TEST(HashTable, TakesAnyNumberOfValuesToGive) {
  this->add(TypeParam::key(1), 1);
  EXPECT_EQ(this->table_.getFirstNPointers(0, nullptr), 0U);
  void* out = nullptr;
  EXPECT_EQ(this->table_.getFirstNPointers(ULONG_MAX, &out), 1U);
  EXPECT_EQ(out, place(1));
}

TYPED_TEST(HashTable, LetsTheCalledFunctionFreeTheValues) {
  for (unsigned n = 0; n < 3; ++n) {
    const auto key = TypeParam::crowded_key(n);
    this->table_.addEntry(TypeParam::pass(key), std::make_unique<int>(0).release());
  }
  const language_allocation::Watch watch;
  this->table_.passAllPointers([](void* value) { delete static_cast<int*>(value); });
  EXPECT_EQ(watch.unfreed(), -3);
  EXPECT_EQ(this->table_.getNumberOfKeys(), 3U);
}

TYPED_TEST(HashTable, LetsAnExceptionOfTheCalledFunctionOut) {
  for (unsigned n = 0; n < 3; ++n) this->add(TypeParam::crowded_key(n), n);
  passed.clear();
  const auto refuse_second = [](void* value) {
    keep(value);
    if (value == place(1)) throw std::runtime_error("enough");
  };
  EXPECT_THROW(this->table_.passAllPointers(refuse_second), std::runtime_error);
  EXPECT_THAT(std::exchange(passed, {}), ElementsAre(place(0), place(1)));
  EXPECT_THAT(all_values(this->table_), ElementsAre(place(0), place(1), place(2)));
}

TYPED_TEST(HashTable, FreesAllThatItAllocated) {
  const language_allocation::Watch watch;
  {
    typename TypeParam::Table table(4);
    for (unsigned round = 0; round < 2; ++round) {
      for (unsigned n = 0; n < 50; ++n) {
        const auto key = TypeParam::key(n);
        table.addEntry(TypeParam::pass(key), place(n));
      }
      const long full = watch.unfreed();
      const auto key = TypeParam::key(7);
      EXPECT_TRUE(table.removeEntry(TypeParam::pass(key)));
      EXPECT_LT(watch.unfreed(), full);
      if (round == 0) {
        table.removeAllEntries();
        EXPECT_EQ(watch.unfreed(), 1);  // the buckets
      }
    }
  }
  EXPECT_EQ(watch.unfreed(), 0);
}

TYPED_TEST(HashTable, WalksLongChainsOnASmallStack) {
  support::run_on_small_stack([] {
    constexpr unsigned kEntries = 5000;
    typename TypeParam::Table table(2);
    const auto key = TypeParam::key(0);
    for (unsigned n = 0; n < kEntries; ++n) table.addEntry(TypeParam::pass(key), place(n));
    EXPECT_EQ(table.getLongestChain(), kEntries);
    EXPECT_EQ(table.getNumberOfKeys(), kEntries);
    EXPECT_EQ(all_values(table).back(), place(kEntries - 1));
    table.removeAllEntries();
    for (unsigned n = 0; n < kEntries; ++n) table.addEntry(TypeParam::pass(key), place(n));
  });
}

// ---- Buckets ----

struct Size {
  const char* name;
  unsigned long size;
  unsigned long buckets;
};

class HashTableSize : public testing::TestWithParam<Size> {};

TEST_P(HashTableSize, BecomesAPowerOfTwo) {
  const auto [name, size, buckets] = GetParam();
  INUInt32HashTable table(size, HASH_FUNCTION_IDENTITY);
  for (unsigned long key = 0; key < buckets; ++key) table.addEntry(key, place(key));
  EXPECT_EQ(table.getLongestChain(), 1U);
  table.addEntry(buckets, place(buckets));  // the first one again
  EXPECT_EQ(table.getLongestChain(), 2U);
  std::array<void*, 2> first = {};
  EXPECT_EQ(table.getFirstNPointers(2, first.data()), 2U);
  EXPECT_THAT(first, ElementsAre(place(0), place(buckets)));
}

TEST_P(HashTableSize, IsTheSameForBothTables) {
  const Request expected = {true, GetParam().buckets * sizeof(void*)};
  {
    const language_allocation::Watch watch;
    const INStringHashTable table(GetParam().size);
    EXPECT_THAT(watch.requests(), ElementsAre(expected));
  }
  {
    const language_allocation::Watch watch;
    const INUInt32HashTable table(GetParam().size);
    EXPECT_THAT(watch.requests(), ElementsAre(expected));
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, HashTableSize,
                         testing::Values(Size{"0", 0, 2}, Size{"1", 1, 2}, Size{"2", 2, 2},
                                         Size{"3", 3, 4}, Size{"4", 4, 4}, Size{"5", 5, 8},
                                         Size{"8", 8, 8}, Size{"9", 9, 16}, Size{"64", 64, 64},
                                         Size{"65", 65, 128}, Size{"100", 100, 128},
                                         Size{"1023", 1023, 1024}, Size{"1024", 1024, 1024},
                                         Size{"1025", 1025, 2048}),
                         support::CaseName());

constexpr unsigned long kMostBuckets = 1UL << 28U;  // the next power is above 536870910

// What making a table of that size comes to.
template <typename Table>
std::string outcome(unsigned long size) {
  try {
    const Table table(size);
    return "made";
  } catch (const std::bad_array_new_length&) {
    return "refused";
  } catch (const std::bad_alloc&) {
    return "no memory";
  }
}

TEST(HashTableSizeLimit, IsTheSameOnEveryHost) {
  for (const unsigned long size :
       {kMostBuckets + 1, 536870910UL, 536870911UL, 536870912UL, 0x7FFFFFFFUL, 0x80000000UL,
        0x80000001UL, 0xFFFFFFFFUL, ULONG_MAX / 2, ULONG_MAX / 2 + 2, ULONG_MAX}) {
    SCOPED_TRACE(size);
    const language_allocation::Watch watch;
    EXPECT_EQ(outcome<INStringHashTable>(size), "refused");
    EXPECT_EQ(outcome<INUInt32HashTable>(size), "refused");
    EXPECT_EQ(watch.unfreed(), 0);
    EXPECT_THAT(watch.requests(), IsEmpty());
  }
}

TEST(HashTableSizeLimit, CountsAllBitsOfTheSize) {
  constexpr auto kSize = static_cast<unsigned long>(0x100000004ULL);
  const char* const expected = kSize == 4 ? "made" : "refused";  // a long may have no more bits
  EXPECT_EQ(outcome<INStringHashTable>(kSize), expected);
  EXPECT_EQ(outcome<INUInt32HashTable>(kSize), expected);
}

TEST(HashTableSizeLimit, IsAskedForInFull) {
  for (const unsigned long size : {kMostBuckets, kMostBuckets / 2 + 1}) {
    SCOPED_TRACE(size);
    const Request expected = {true, kMostBuckets * sizeof(void*)};
    {
      const language_allocation::Watch watch;
      const support::FailingAllocation no_memory(1);
      EXPECT_EQ(outcome<INStringHashTable>(size), "no memory");
      EXPECT_THAT(watch.requests(), ElementsAre(expected));
    }
    {
      const language_allocation::Watch watch;
      const support::FailingAllocation no_memory(1);
      EXPECT_EQ(outcome<INUInt32HashTable>(size), "no memory");
      EXPECT_THAT(watch.requests(), ElementsAre(expected));
    }
  }
}

// ---- Memory ----

TEST(HashTableMemory, OfATextIsThreeWordsAndTheText) {
  INStringHashTable table(4);
  {
    const language_allocation::Watch watch;
    table.addEntry("abc", place(0));
    EXPECT_THAT(watch.requests(),
                testing::UnorderedElementsAre(Request{false, 3 * sizeof(void*)}, Request{true, 4}));
  }
  {
    const language_allocation::Watch watch;
    table.addEntry("", place(0));
    EXPECT_THAT(watch.requests(),
                testing::UnorderedElementsAre(Request{false, 3 * sizeof(void*)}, Request{true, 1}));
  }
}

TEST(HashTableMemory, OfANumberIsThreeWords) {
  INUInt32HashTable table(4);
  const language_allocation::Watch watch;
  table.addEntry(1, place(0));
  EXPECT_THAT(watch.requests(), ElementsAre(Request{false, 3 * sizeof(void*)}));
}

TEST(HashTableMemory, OfATextGoesWithItsEntry) {
  INStringHashTable table(4);
  const language_allocation::Watch watch;
  table.addEntry("abc", place(0));
  EXPECT_EQ(watch.unfreed(), 2);
  EXPECT_TRUE(table.removeEntry("abc"));
  EXPECT_EQ(watch.unfreed(), 0);
}

TEST(HashTableMemory, IsNotNeededToLookUpAndRemove) {
  INStringHashTable texts(4);
  INUInt32HashTable numbers(4);
  texts.addEntry("abc", place(0));
  numbers.addEntry(1, place(0));
  const unsigned long before = support::allocation_count();
  std::array<void*, 1> out = {};
  for (const char* key : {"abc", "x"}) {
    texts.getValueFromKey(key, out.data());
    texts.removeEntry(key);
  }
  for (const unsigned long key : {1UL, 2UL}) {
    numbers.getValueFromKey(key, out.data());
    numbers.removeEntry(key);
  }
  texts.removeAllEntries();
  numbers.removeAllEntries();
  EXPECT_EQ(texts.getFirstNPointers(1, out.data()) + texts.getNumberOfKeys(), 0U);
  EXPECT_EQ(numbers.getFirstNPointers(1, out.data()) + numbers.getLongestChain(), 0U);
  EXPECT_EQ(support::allocation_count(), before);
}

template <typename Table, typename Key>
void expect_unchanged_without_memory(Table& table, Key key, unsigned long allocations) {
  table.addEntry(key, place(0));
  for (unsigned long nth = 1; nth <= allocations; ++nth) {
    SCOPED_TRACE(nth);
    const language_allocation::Watch watch;
    {
      const support::FailingAllocation no_memory(nth);
      EXPECT_THROW(table.addEntry(key, place(1)), std::bad_alloc);
      EXPECT_TRUE(no_memory.happened());
    }
    EXPECT_EQ(watch.unfreed(), 0);
    EXPECT_THAT(all_values(table), ElementsAre(place(0)));
  }
  EXPECT_TRUE(table.addEntry(key, place(1)));
  EXPECT_THAT(all_values(table), ElementsAre(place(0), place(1)));
}

TEST(HashTableMemory, ThatIsMissingLeavesTheTableOfTextsAsItWas) {
  INStringHashTable table(4);
  expect_unchanged_without_memory(table, "abc", 2);
}

TEST(HashTableMemory, ThatIsMissingLeavesTheTableOfNumbersAsItWas) {
  INUInt32HashTable table(4);
  expect_unchanged_without_memory(table, 5UL, 1);
}

// ---- Keys ----

TEST(StringHashTable, CopiesItsKeys) {
  INStringHashTable table(16);
  std::string key = "lan.address";
  table.addEntry(key.c_str(), place(1));
  key = "wan.address";
  EXPECT_EQ(value_of(table, "lan.address"), place(1));
  EXPECT_EQ(value_of(table, key.c_str()), nullptr);
}

TEST(StringHashTable, ComparesTextsByteByByte) {
  INStringHashTable table(2);
  table.addEntry("Name", place(1));
  table.addEntry("name ", place(2));
  table.addEntry("nam", place(3));
  table.addEntry("names", place(4));
  EXPECT_EQ(value_of(table, "name"), nullptr);
  table.addEntry("name", place(5));
  EXPECT_EQ(value_of(table, "name"), place(5));
}

TEST(StringHashTable, TellsTextsOfEqualHashApart) {
  INStringHashTable table(65536);
  table.addEntry("a2", place(1));
  table.addEntry("bQ", place(2));
  ASSERT_EQ(table.getLongestChain(), 2U);
  EXPECT_EQ(value_of(table, "a2"), place(1));
  EXPECT_EQ(value_of(table, "bQ"), place(2));
  EXPECT_TRUE(table.removeEntry("bQ"));
  EXPECT_EQ(value_of(table, "a2"), place(1));
}

TEST(StringHashTable, TakesTheEmptyTextAsAKey) {
  INStringHashTable table(4);
  EXPECT_FALSE(table.removeEntry(""));
  EXPECT_TRUE(table.addEntry("", place(1)));
  EXPECT_EQ(value_of(table, ""), place(1));
  EXPECT_TRUE(table.removeEntry(""));
  EXPECT_EQ(value_of(table, ""), nullptr);
}

TEST(StringHashTable, HasNoNullKey) {
  INStringHashTable table(4);
  table.addEntry("", place(1));  // where a NULL taken for the empty text would be
  EXPECT_FALSE(table.addEntry(nullptr, place(2)));
  void* value = place(9);
  EXPECT_FALSE(table.getValueFromKey(nullptr, &value));
  EXPECT_EQ(value, place(9));
  EXPECT_FALSE(table.removeEntry(nullptr));
  EXPECT_THAT(all_values(table), ElementsAre(place(1)));
}

TEST(StringHashTable, TakesLongKeys) {
  INStringHashTable table(4);
  const std::string key(100000, 'x');
  table.addEntry((key + "1").c_str(), place(1));
  table.addEntry((key + "2").c_str(), place(2));
  EXPECT_EQ(value_of(table, (key + "2").c_str()), place(2));
  EXPECT_EQ(value_of(table, key.c_str()), nullptr);
}

// One text in each bucket: whatever is added goes behind one of them and so shows its bucket.
constexpr unsigned kFilledBuckets = 8192;

void fill(INStringHashTable& table) {
  for (unsigned bucket = 0; bucket < kFilledBuckets; ++bucket) {
    table.addEntry(text_of_hash(bucket).c_str(), place(bucket));
  }
}

TEST(StringHashTableBuckets, HoldTheTextsWhoseHashIsTheirNumber) {
  INStringHashTable table(kFilledBuckets);
  fill(table);
  const std::vector<void*> values = all_values(table);
  ASSERT_EQ(values.size(), kFilledBuckets);
  for (unsigned bucket = 0; bucket < kFilledBuckets; ++bucket) {
    ASSERT_EQ(values[bucket], place(bucket));
  }
  EXPECT_EQ(table.getLongestChain(), 1U);
}

struct Hash {
  const char* name;
  std::string key;
  std::size_t bucket;
};

class StringHashTableHash : public testing::TestWithParam<Hash> {};

TEST_P(StringHashTableHash, ChoosesTheBucket) {
  INStringHashTable table(kFilledBuckets);
  fill(table);
  table.addEntry(GetParam().key.c_str(), place(kFilledBuckets));
  const std::vector<void*> values = all_values(table);
  ASSERT_EQ(values.at(GetParam().bucket), place(GetParam().bucket));
  EXPECT_EQ(values.at(GetParam().bucket + 1), place(kFilledBuckets));
}

INSTANTIATE_TEST_SUITE_P(Cases, StringHashTableHash,
                         testing::Values(Hash{"Empty", "", 0}, Hash{"OneByte", "a", 97},
                                         Hash{"Low", "\x01", 1}, Hash{"High", "\xff", 255},
                                         Hash{"TwoHigh", "\xff\xfe", 8161},
                                         Hash{"HighInTheMiddle",
                                              "a\x80"
                                              "b",
                                              5251},
                                         Hash{"TwoBytes", "ab", 3107},
                                         Hash{"OtherOrder", "ba", 3139},
                                         Hash{"Key", "interface.1.address", 3394},
                                         Hash{"Long", std::string(1000, 'x'), 0}),
                         support::CaseName());

TEST(UInt32HashTable, PutsKeysThatDifferInUpperBitsIntoOneChain) {
  INUInt32HashTable table(4, HASH_FUNCTION_IDENTITY);
  for (const unsigned long key : {1UL, 5UL, 9UL}) table.addEntry(key, place(key));
  EXPECT_EQ(table.getLongestChain(), 3U);
  EXPECT_THAT(all_values(table), ElementsAre(place(1), place(5), place(9)));
  for (const unsigned long key : {1UL, 5UL, 9UL}) EXPECT_EQ(value_of(table, key), place(key));
}

TEST(UInt32HashTable, TakesTheSmallestAndTheLargestKey) {
  INUInt32HashTable table(4);
  table.addEntry(0xFFFFFFFFUL, place(1));
  table.addEntry(0, place(2));
  EXPECT_EQ(value_of(table, 0xFFFFFFFFUL), place(1));
  EXPECT_EQ(value_of(table, 0UL), place(2));
  EXPECT_THAT(all_values(table), ElementsAre(place(2), place(1)));
}

TEST(UInt32HashTable, TakesKeysModulo32Bits) {
  constexpr auto kFive = static_cast<unsigned long>(0x700000005ULL);
  INUInt32HashTable table(4);
  table.addEntry(kFive, place(1));
  table.addEntry(5, place(2));
  EXPECT_EQ(value_of(table, 5UL), place(1));
  EXPECT_EQ(value_of(table, kFive), place(1));
  EXPECT_TRUE(table.removeEntry(kFive));
  EXPECT_EQ(value_of(table, kFive), place(2));
  EXPECT_TRUE(table.removeEntry(kFive));
  EXPECT_FALSE(table.removeEntry(5));
}

TEST(UInt32HashTable, IgnoresTheHashFunction) {
  for (const int function : {1, -1, INT_MAX}) {
    INUInt32HashTable table(4, static_cast<HashFunctionType>(function));
    for (const unsigned long key : {9UL, 2UL, 5UL}) table.addEntry(key, place(key));
    EXPECT_EQ(table.getLongestChain(), 2U);
    EXPECT_THAT(all_values(table), ElementsAre(place(9), place(5), place(2)));
  }
}

// ---- Any calls in any order ----

using Random = std::mt19937;

unsigned random_below(unsigned bound, Random& random) {
  return std::uniform_int_distribution<unsigned>(0, bound - 1)(random);
}

struct RandomTexts : TextKeys {
  static std::string random_key(Random& random) {
    std::string key(random_below(12, random), ' ');
    for (char& character : key) character = static_cast<char>(1 + random_below(255, random));
    return key;
  }
};

struct RandomNumbers : NumberKeys {
  static unsigned long random_key(Random& random) {
    if (random_below(2, random) == 0) return random_below(64, random);
    return std::uniform_int_distribution<unsigned long>()(random);
  }
};

template <typename Keys>
class HashTableModel : public testing::Test {
 protected:
  using Key = decltype(Keys::random_key(std::declval<Random&>()));

  // Does `calls` random ones on a table and on the model, and compares what can be seen.
  static void compare(unsigned long size, std::size_t buckets, unsigned calls) {
    Random random(static_cast<Random::result_type>(size));
    std::vector<Key> keys;
    while (keys.size() < 200) keys.push_back(Keys::random_key(random));
    typename Keys::Table table(size);
    hash_table_model::Model<Key> model(buckets);
    for (unsigned call = 0; call < calls; ++call) {
      const Key& key = keys[random_below(static_cast<unsigned>(keys.size()), random)];
      const unsigned choice = random_below(5000, random);
      if (choice == 0) {
        table.removeAllEntries();
        model.clear();
      } else if (choice < 1600) {
        void* const value = place(call % places.size());
        ASSERT_TRUE(table.addEntry(Keys::pass(key), value));
        model.add(key, value);
      } else if (choice < 3200) {
        ASSERT_EQ(table.removeEntry(Keys::pass(key)), model.remove(key)) << call;
      } else {
        ASSERT_EQ(value_of(table, Keys::pass(key)), model.find(key)) << call;
      }
      if (call % 256 == 0) {
        ASSERT_NO_FATAL_FAILURE(compare_all(table, model)) << call;
      }
    }
    compare_all(table, model);
  }

 private:
  static void compare_all(const typename Keys::Table& table,
                          const hash_table_model::Model<Key>& model) {
    const std::vector<void*> expected = model.values();
    ASSERT_EQ(table.getNumberOfKeys(), expected.size());
    ASSERT_EQ(table.getLongestChain(), model.longest());
    ASSERT_EQ(all_values(table), expected);
    ASSERT_EQ(passed_values(table), expected);
    const std::vector<void*> half(
        expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(expected.size() / 2));
    std::vector<void*> first(half.size());
    ASSERT_EQ(table.getFirstNPointers(first.size(), first.data()), first.size());
    ASSERT_EQ(first, half);
  }
};

using BothRandomKeys = testing::Types<RandomTexts, RandomNumbers>;
TYPED_TEST_SUITE(HashTableModel, BothRandomKeys, KeyNames);

TYPED_TEST(HashTableModel, OfTwoBuckets) { this->compare(0, 2, 60000); }
TYPED_TEST(HashTableModel, OfFourBuckets) { this->compare(3, 4, 60000); }
TYPED_TEST(HashTableModel, Of64Buckets) { this->compare(50, 64, 80000); }
TYPED_TEST(HashTableModel, Of128Buckets) { this->compare(65, 128, 80000); }
TYPED_TEST(HashTableModel, Of4096Buckets) { this->compare(4096, 4096, 40000); }

}  // namespace
