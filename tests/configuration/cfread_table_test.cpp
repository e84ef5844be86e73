// cfread_find_entry() and cfread_set_entry()

#include <rkutils/cfread.h>
#include <rkutils/internal/text_hash.h>
#include <rkutils/memory.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "cfread_fixture.h"
#include "support/allocation_faults.h"
#include "support/rounds.h"
#include "support/though_cancelled.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CfreadTable : public CfreadTest {
 protected:
  CfreadTable() : table_(open_table(file("a.conf", ""))) {}

  cfread_entry* find(const std::string& key) { return cfread_find_entry(table(), key.c_str()); }
  cfread_entry* set(const std::string& key, const std::string& value) {
    return cfread_set_entry(table(), key.c_str(), value.c_str());
  }
  // With the nth allocation failing, which must come up.
  cfread_entry* set_without_memory(unsigned long nth, const std::string& key,
                                   const std::string& value) {
    const support::FailingAllocation failing(nth);
    cfread_entry* const entry = set(key, value);
    EXPECT_TRUE(failing.happened());
    return entry;
  }
  [[nodiscard]] cfread_table* table() const { return table_.get(); }
  [[nodiscard]] support::LogLine unable_to_add(const std::string& key) const {
    return err("cfread: unable to add entry '" + key + "' in " + at("a.conf"));
  }

  // The keys in the slots from 0 up to the last that is in use, "" for a free one.
  [[nodiscard]] std::vector<std::string> keys_by_slot() const {
    std::vector<std::string> keys;
    for (int slot = 0; slot < table_->size; ++slot) {
      const cfread_entry* const entry = table_->entries[slot];
      keys.emplace_back(entry != nullptr ? entry->key : "");
      if (entry != nullptr) {
        EXPECT_EQ(entry->index, static_cast<std::uint32_t>(slot));
      }
    }
    while (!keys.empty() && keys.back().empty()) keys.pop_back();
    return keys;
  }

 private:
  Table table_;
};

void free_entry(cfread_entry* entry) {
  std::free(entry->key);
  std::free(entry->value);
  std::free(entry);
}

using CfreadSetEntry = CfreadTable;
using CfreadFindEntry = CfreadTable;

TEST_F(CfreadSetEntry, AddsAnEntryAndReturnsIt) {
  cfread_entry* const entry = set("mtu", "1430");
  ASSERT_NE(entry, nullptr);
  EXPECT_STREQ(entry->key, "mtu");
  EXPECT_STREQ(entry->value, "1430");
  EXPECT_EQ(entry->int_value, 1430);
  EXPECT_EQ(entry->index, 0U);
  EXPECT_EQ(table()->count, 1);
  EXPECT_EQ(table()->size, 64);
  EXPECT_EQ(table()->entries[0], entry);
  EXPECT_EQ(find("mtu"), entry);
}

TEST_F(CfreadSetEntry, CopiesKeyAndValue) {
  std::string key = "mtu";
  std::string value = "1430";
  const cfread_entry* const entry = cfread_set_entry(table(), key.data(), value.data());
  key[0] = value[0] = '?';
  EXPECT_STREQ(entry->key, "mtu");
  EXPECT_STREQ(entry->value, "1430");
}

TEST_F(CfreadSetEntry, TakesNullForAnEmptyValue) {
  const cfread_entry* const entry = cfread_set_entry(table(), "key", nullptr);
  ASSERT_NE(entry, nullptr);
  EXPECT_STREQ(entry->value, "");
  EXPECT_EQ(entry->int_value, -1);
}

TEST_F(CfreadSetEntry, TakesTextsThatNoFileCouldHold) {
  const std::string key(5000, '=');
  const std::string value = " \n\xff" + std::string(5000, 'v');
  const cfread_entry* const entry = set(key, value);
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(entry->key, key);
  EXPECT_EQ(entry->value, value);
  EXPECT_EQ(find(key), entry);
}

TEST_F(CfreadSetEntry, RefusesAMissingTableOrKey) {
  EXPECT_EQ(cfread_set_entry(nullptr, "key", "value"), nullptr);
  EXPECT_EQ(cfread_set_entry(table(), nullptr, "value"), nullptr);
  EXPECT_EQ(set("", "value"), nullptr);
  EXPECT_EQ(table()->count, 0);
  EXPECT_EQ(table()->entries, nullptr);
}

TEST_F(CfreadSetEntry, ReplacesAnEntryInItsSlot) {
  set("a", "1");
  set("b", "2");
  set("c", "3");
  const cfread_entry* const entry = set("b", "true");
  EXPECT_EQ(table()->count, 3);
  EXPECT_THAT(keys_by_slot(), ElementsAre("a", "b", "c"));
  EXPECT_EQ(find("b"), entry);
  EXPECT_STREQ(entry->value, "true");
  EXPECT_EQ(entry->int_value, 1);
}

TEST_F(CfreadSetEntry, TakesKeyAndValueFromTheEntryThatItReplaces) {
  const cfread_entry* entry = set("key", "value");
  entry = cfread_set_entry(table(), entry->key, entry->value + 2);
  ASSERT_NE(entry, nullptr);
  EXPECT_STREQ(entry->key, "key");
  EXPECT_STREQ(entry->value, "lue");
  entry = cfread_set_entry(table(), entry->key, entry->key);
  ASSERT_NE(entry, nullptr);
  EXPECT_STREQ(entry->key, "key");
  EXPECT_STREQ(entry->value, "key");
  EXPECT_EQ(table()->count, 1);
}

TEST_F(CfreadSetEntry, NamesAKeyOfTheReplacedEntryWhenThereIsNoMemory) {
  const cfread_entry* const entry = set("key", "value");
  {
    const support::FailingAllocation failing(1);
    EXPECT_EQ(cfread_set_entry(table(), entry->key, "x"), nullptr);
  }
  EXPECT_THAT(log_.take(), ElementsAre(unable_to_add("key")));
}

TEST_F(CfreadSetEntry, Adds64SlotsWhenAllAreTaken) {
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(table()->size, (i + 63) / 64 * 64) << i;
    const cfread_entry* const entry = set("key" + std::to_string(i), "v");
    ASSERT_EQ(entry->index, static_cast<std::uint32_t>(i));
    ASSERT_EQ(table()->entries[i], entry);
    for (int slot = i + 1; slot < table()->size; ++slot) {
      ASSERT_EQ(table()->entries[slot], nullptr) << i;
    }
  }
  EXPECT_EQ(table()->size, 320);
  EXPECT_EQ(table()->count, 300);
}

TEST_F(CfreadSetEntry, KeepsEntriesWhereTheyAreWhenSlotsAreAdded) {
  const cfread_entry* const first = set("first", "1");
  for (int i = 0; i < 1000; ++i) set("key" + std::to_string(i), "v");
  EXPECT_EQ(find("first"), first);
  EXPECT_EQ(table()->entries[0], first);
}

TEST_F(CfreadSetEntry, WithoutMemoryForTheRecordLogsAndAddsNothing) {
  set("a", "1");
  EXPECT_EQ(set_without_memory(1, "b", "2"), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(unable_to_add("b")));
  EXPECT_EQ(table()->count, 1);
  EXPECT_THAT(keys_by_slot(), ElementsAre("a"));
  EXPECT_EQ(find("b"), nullptr);
}

TEST_F(CfreadSetEntry, WithoutMemoryForTheRecordHasLostTheReplacedEntry) {
  set("a", "1");
  set("b", "2");
  EXPECT_EQ(set_without_memory(1, "a", "3"), nullptr);
  EXPECT_THAT(log_.take(), ElementsAre(unable_to_add("a")));
  EXPECT_EQ(table()->count, 1);
  EXPECT_THAT(keys_by_slot(), ElementsAre("", "b"));
  EXPECT_EQ(find("a"), nullptr);
}

TEST_F(CfreadSetEntry, FailsThoughCancelled) {
  set("a", "1");
  EXPECT_TRUE(support::finishes_though_cancelled(
      [&] { EXPECT_EQ(set_without_memory(1, "b", "2"), nullptr); }));
  EXPECT_THAT(log_.take(), ElementsAre(unable_to_add("b")));
  EXPECT_THAT(keys_by_slot(), ElementsAre("a"));
}

TEST_F(CfreadSetEntry, EndsTheProcessThoughCancelled) {
  EXPECT_EQ(exit_status_of([&] {
              support::finishes_though_cancelled([&] {
                const support::FailingAllocation failing(1);
                set("a", "1");
              });
            }),
            EXIT_FAILURE);
  EXPECT_THAT(log_.take(), ElementsAre(emergency("cfread: unable to get a free index")));
}

// Allocation 2 is the key's copy, 3 the value's.
class CfreadSetEntryWithoutCopy : public CfreadTable,
                                  public testing::WithParamInterface<unsigned long> {
 protected:
  void fail_to_set(const std::string& key) {
    // In a new table the slots come first.
    const unsigned long nth = GetParam() + (table()->entries == nullptr ? 1 : 0);
    EXPECT_EQ(set_without_memory(nth, key, "new"), nullptr);
    EXPECT_THAT(log_.take(), ElementsAre(unable_to_add(key)));
  }
};

INSTANTIATE_TEST_SUITE_P(KeyAndValue, CfreadSetEntryWithoutCopy, testing::Values(2, 3),
                         testing::PrintToStringParamName());

TEST_P(CfreadSetEntryWithoutCopy, EmptiesSlot0WithoutFreeingItsEntry) {
  cfread_entry* const first = set("a", "1");
  set("b", "2");
  set("c", "3");
  fail_to_set("d");
  EXPECT_THAT(keys_by_slot(), ElementsAre("", "b", "c"));
  EXPECT_EQ(table()->count, 2);
  EXPECT_EQ(find("a"), nullptr);
  EXPECT_EQ(find("d"), nullptr);
  // The program's own now.
  EXPECT_STREQ(first->key, "a");
  EXPECT_STREQ(first->value, "1");
  free_entry(first);
}

TEST_P(CfreadSetEntryWithoutCopy, LeavesSlot0ToTheNextEntry) {
  cfread_entry* const first = set("a", "1");
  set("b", "2");
  fail_to_set("c");
  set("d", "4");
  EXPECT_THAT(keys_by_slot(), ElementsAre("d", "b"));
  EXPECT_EQ(table()->count, 2);
  set("a", "5");
  EXPECT_THAT(keys_by_slot(), ElementsAre("d", "b", "a"));
  EXPECT_STREQ(find("a")->value, "5");
  free_entry(first);
}

TEST_P(CfreadSetEntryWithoutCopy, LosesTheReplacedEntryAndThatOfSlot0) {
  cfread_entry* const first = set("a", "1");
  set("b", "2");
  set("c", "3");
  fail_to_set("c");
  EXPECT_THAT(keys_by_slot(), ElementsAre("", "b"));
  EXPECT_EQ(table()->count, 1);
  free_entry(first);
}

TEST_P(CfreadSetEntryWithoutCopy, LosesTheReplacedEntryOfSlot0AndCountsTwice) {
  set("a", "1");
  set("b", "2");
  set("c", "3");
  fail_to_set("a");
  EXPECT_THAT(keys_by_slot(), ElementsAre("", "b", "c"));
  EXPECT_EQ(table()->count, 1);
}

TEST_P(CfreadSetEntryWithoutCopy, CountsBelow0InAnEmptyTable) {
  fail_to_set("a");
  EXPECT_EQ(table()->count, -1);
  EXPECT_THAT(keys_by_slot(), IsEmpty());
  EXPECT_EQ(table()->size, 64);
}

TEST_P(CfreadSetEntryWithoutCopy, LeavesSlotsToBeFoundLowestFirstWhateverTheCount) {
  // Slot 0 is emptied twice, so that the count is one too low from then on.
  cfread_entry* const first = set("a", "1");
  for (const char* key : {"b", "c", "d"}) set(key, "1");
  fail_to_set("x");
  fail_to_set("x");
  fail_to_set("c");
  EXPECT_THAT(keys_by_slot(), ElementsAre("", "b", "", "d"));
  EXPECT_EQ(table()->count, 0);
  for (const char* key : {"e", "f", "g", "h"}) set(key, "1");
  EXPECT_THAT(keys_by_slot(), ElementsAre("e", "b", "f", "d", "g", "h"));
  EXPECT_EQ(table()->count, 4);
  free_entry(first);
}

TEST_F(CfreadSetEntry, EndsTheProcessWithoutMemoryForTheFirstSlots) {
  EXPECT_EQ(exit_status_of([&] { set_without_memory(1, "a", "1"); }), 1);
  EXPECT_THAT(log_.take(), ElementsAre(emergency("cfread: unable to get a free index")));
}

std::string exit_mark;

TEST_F(CfreadSetEntry, LetsTheProcessCleanUpWhenItEndsIt) {
  exit_mark = at("cleaned-up");
  EXPECT_EQ(exit_status_of([&] {
              std::atexit([] { put(exit_mark, ""); });
              set_without_memory(1, "a", "1");
            }),
            1);
  EXPECT_TRUE(exists(exit_mark));
  EXPECT_THAT(log_.take(), ElementsAre(emergency("cfread: unable to get a free index")));
}

TEST_F(CfreadSetEntry, EndsTheProcessWithoutMemoryForMoreSlots) {
  for (int i = 0; i < 64; ++i) set("key" + std::to_string(i), "v");
  EXPECT_EQ(exit_status_of([&] { set_without_memory(1, "a", "1"); }), 1);
  EXPECT_THAT(log_.take(), ElementsAre(emergency("cfread: unable to get a free index")));
  // A replaced entry leaves its slot.
  EXPECT_EQ(exit_status_of([&] { set_without_memory(1, "key5", "1"); }), kDidNotExit);
  EXPECT_THAT(log_.take(), ElementsAre(unable_to_add("key5")));
}

TEST_F(CfreadFindEntry, ComparesWholeKeysWithCase) {
  set("key", "1");
  set("Key", "2");
  set("key2", "3");
  EXPECT_STREQ(find("key")->value, "1");
  EXPECT_STREQ(find("Key")->value, "2");
  EXPECT_STREQ(find("key2")->value, "3");
  EXPECT_EQ(find("ke"), nullptr);
  EXPECT_EQ(find("KEY"), nullptr);
  EXPECT_EQ(find("key "), nullptr);
}

TEST_F(CfreadFindEntry, WithoutATableOrAKeyFindsNothing) {
  set("key", "1");
  EXPECT_EQ(cfread_find_entry(nullptr, "key"), nullptr);
  EXPECT_EQ(cfread_find_entry(table(), nullptr), nullptr);
  EXPECT_EQ(find(""), nullptr);
}

TEST_F(CfreadFindEntry, FindsNothingInATableWithoutEntries) { EXPECT_EQ(find("key"), nullptr); }

std::pair<std::string, std::string> keys_of_the_same_hash() {
  std::unordered_map<std::uint32_t, std::string> keys;
  for (int number = 0;; ++number) {
    const std::string key = "key" + std::to_string(number);
    const auto [other, is_new] = keys.emplace(rkutils::internal::hash_text(key.c_str()), key);
    if (!is_new) return {other->second, key};
  }
}

TEST_F(CfreadFindEntry, TellsKeysOfTheSameHashApart) {
  const auto [one, other] = keys_of_the_same_hash();
  set(one, "1");
  EXPECT_EQ(find(other), nullptr);
  set(other, "2");
  EXPECT_STREQ(find(one)->value, "1");
  EXPECT_STREQ(find(other)->value, "2");
  set(one, "3");
  EXPECT_STREQ(find(one)->value, "3");
  EXPECT_STREQ(find(other)->value, "2");
  EXPECT_EQ(table()->count, 2);
}

// What a program must not do, but some may: it costs them the entry and nothing else.
TEST_F(CfreadTable, BearsASlotThatAProgramHasEmptied) {
  for (const char* key : {"a", "b", "c"}) set(key, "1");
  free_entry(table()->entries[1]);
  table()->entries[1] = nullptr;
  --table()->count;
  EXPECT_EQ(find("b"), nullptr);
  set("d", "1");
  EXPECT_THAT(keys_by_slot(), ElementsAre("a", "d", "c"));
  EXPECT_EQ(find("b"), nullptr);
  set("b", "2");
  EXPECT_THAT(keys_by_slot(), ElementsAre("a", "d", "c", "b"));
  EXPECT_STREQ(find("b")->value, "2");
}

TEST_F(CfreadTable, FindsAllOthersWhenProgramsEmptySlots) {
  for (int i = 0; i < 64; ++i) set("key" + std::to_string(i), "1");
  for (int slot = 63; slot >= 0; --slot) {
    free_entry(table()->entries[slot]);
    table()->entries[slot] = nullptr;
    --table()->count;
    set("new" + std::to_string(slot), "1");
    for (const std::string& key : keys_by_slot()) ASSERT_NE(find(key), nullptr) << key;
  }
  EXPECT_EQ(table()->size, 64);
}

TEST_F(CfreadTable, FillsASlotThatAProgramHasEmptiedWithoutCountingItBeforeItsMemoryGrows) {
  for (int i = 0; i < 63; ++i) set("key" + std::to_string(i), "1");
  free_entry(table()->entries[5]);
  table()->entries[5] = nullptr;
  EXPECT_EQ(set("a", "1")->index, 63U);
  EXPECT_EQ(set("b", "1")->index, 5U);
  EXPECT_EQ(table()->size, 64);
  EXPECT_EQ(set("c", "1")->index, 64U);
  EXPECT_EQ(table()->size, 128);
  EXPECT_EQ(find("key5"), nullptr);
  for (const std::string& key : keys_by_slot()) EXPECT_NE(find(key), nullptr) << key;
}

TEST_F(CfreadTable, SeesAProgramsCountThoughTheSameCallReplacesAnEntry) {
  for (const char* key : {"a", "b", "c", "d"}) set(key, "1");
  free_entry(table()->entries[1]);
  table()->entries[1] = nullptr;
  --table()->count;
  set("c", "2");
  EXPECT_THAT(keys_by_slot(), ElementsAre("a", "c", "", "d"));
  set("e", "1");
  EXPECT_THAT(keys_by_slot(), ElementsAre("a", "c", "e", "d"));
}

cfread_entry* make_entry(const char* key) {
  auto* const entry = static_cast<cfread_entry*>(std::calloc(1, sizeof(cfread_entry)));
  entry->key = ::strdup(key);
  entry->value = ::strdup("");
  return entry;
}

TEST_F(CfreadTable, LeavesEntriesThatAProgramHasPutIntoSlotsAndFreesThem) {
  set("a", "1");
  // With and without counting it.
  table()->entries[1] = make_entry("b");
  table()->entries[1]->index = 1;
  ++table()->count;
  table()->entries[3] = make_entry("d");
  table()->entries[3]->index = 3;
  set("c", "1");
  set("e", "1");
  EXPECT_THAT(keys_by_slot(), ElementsAre("a", "b", "c", "d", "e"));
  EXPECT_EQ(find("b"), nullptr);
  for (int i = 5; i < 65; ++i) set("key" + std::to_string(i), "1");
  EXPECT_EQ(table()->size, 128);
  EXPECT_STREQ(table()->entries[1]->key, "b");
  EXPECT_STREQ(table()->entries[3]->key, "d");
  for (const char* key : {"a", "c", "e", "key5", "key64"}) EXPECT_NE(find(key), nullptr) << key;
}

TEST_F(CfreadTable, FindsAnEntryThatAProgramHasPutInPlaceOfOneWithTheSameKey) {
  free_entry(set("a", "1"));
  table()->entries[0] = make_entry("a");
  EXPECT_EQ(find("a"), table()->entries[0]);
  set("a", "2");
  EXPECT_THAT(keys_by_slot(), ElementsAre("a"));
  EXPECT_STREQ(find("a")->value, "2");
}

TEST_F(CfreadTable, NeverOverwritesAnEntryWhateverAProgramMakesOfTheCount) {
  for (const int count : {-7, 0, 3, 1000}) {
    table()->count = count;
    const std::string key = "key" + std::to_string(count);
    ASSERT_NE(set(key, "1"), nullptr);
    EXPECT_EQ(table()->count, count + 1);
  }
  EXPECT_THAT(keys_by_slot(), ElementsAre("key-7", "key0", "key3", "key1000"));
}

TEST_F(CfreadTable, ReadsNoSlotBeyondItsMemoryWhateverAProgramMakesOfTheSize) {
  for (int i = 0; i < 64; ++i) set("key" + std::to_string(i), "1");
  table()->size = 1000000;
  EXPECT_EQ(set("a", "1")->index, 64U);
  EXPECT_EQ(table()->size, 128);
  EXPECT_NE(find("key63"), nullptr);
  table()->size = 1000000;  // when it is closed
}

TEST_F(CfreadTable, FillsNoSlotThatIsInUseWhereAProgramHasLoweredTheSize) {
  for (int i = 0; i < 70; ++i) set("key" + std::to_string(i), "1");
  for (const int size : {64, 0, -64}) {
    table()->size = size;
    ASSERT_NE(set("size" + std::to_string(size), "1"), nullptr);
    EXPECT_EQ(table()->size, 128) << size;
  }
  EXPECT_EQ(find("size-64")->index, 72U);
}

TEST_F(CfreadTable, KeepsTheSlotsOfManyEntriesWhenAllAreReplaced) {
  const int entries = std::max(5000, support::rounds(50000));
  const auto key = [](int number) { return "key" + std::to_string(number); };
  for (const char* const value : {"1", "2"}) {
    for (int i = 0; i < entries; ++i) {
      ASSERT_EQ(set(key(i), value)->index, static_cast<unsigned>(i));
    }
  }
  EXPECT_EQ(table()->count, entries);
  for (int i = 0; i < entries; ++i) ASSERT_STREQ(find(key(i))->value, "2");
}

TEST(CfreadTableOfAProgram, TakesEntriesWhenItIsAllZero) {
  support::SyslogCollector log;
  auto* const table = static_cast<cfread_table*>(zalloc(sizeof(cfread_table)));
  const Table owner(table);
  EXPECT_EQ(cfread_find_entry(table, "key"), nullptr);
  EXPECT_STREQ(cfread_set_entry(table, "key", "value")->value, "value");
  {
    const support::FailingAllocation failing(1);
    EXPECT_EQ(cfread_set_entry(table, "key", "value"), nullptr);
  }
  EXPECT_THAT(log.take(), ElementsAre(err("cfread: unable to add entry 'key' in ")));
}

// The table as it is described: slots scanned from 0.
class SimpleTable {
 public:
  struct Entry {
    std::string key;
    std::string value;
  };

  std::optional<std::size_t> find(const std::string& key) const {
    for (std::size_t slot = 0; slot < slots_.size(); ++slot) {
      if (slots_[slot] && slots_[slot]->key == key) return slot;
    }
    return std::nullopt;
  }

  // `failing` is the allocation that fails: 0 none, 1 the record, 2 or 3 a copy.
  void set(const std::string& key, const std::string& value, unsigned long failing) {
    if (const auto slot = find(key)) {
      slots_[*slot].reset();
      --count;
    }
    std::size_t slot = 0;
    while (slot < slots_.size() && slots_[slot]) ++slot;
    if (slot == slots_.size()) slots_.resize(slots_.size() + 64);
    if (failing == 0) {
      slots_[slot] = Entry{key, value};
      ++count;
    } else if (failing > 1) {
      slots_[0].reset();
      --count;
    }
  }

  // Whether the next new entry needs more slots.
  [[nodiscard]] bool full() const {
    return std::all_of(slots_.begin(), slots_.end(), [](const auto& slot) { return !!slot; });
  }
  [[nodiscard]] const std::vector<std::optional<Entry>>& slots() const { return slots_; }

  int count = 0;

 private:
  std::vector<std::optional<Entry>> slots_;
};

class CfreadTableModel : public CfreadTable {
 protected:
  void expect_same(const SimpleTable& model) {
    ASSERT_EQ(table()->count, model.count);
    ASSERT_EQ(static_cast<std::size_t>(table()->size), model.slots().size());
    for (std::size_t slot = 0; slot < model.slots().size(); ++slot) {
      const cfread_entry* const entry = table()->entries[slot];
      const auto& expected = model.slots()[slot];
      ASSERT_EQ(entry != nullptr, expected.has_value()) << slot;
      if (entry == nullptr) continue;
      ASSERT_EQ(entry->key, expected->key);
      ASSERT_EQ(entry->value, expected->value);
      ASSERT_EQ(entry->index, slot);
      ASSERT_EQ(find(expected->key), entry);
    }
  }
};

TEST_F(CfreadTableModel, DoesWhatScanningTheSlotsDoes) {
  std::mt19937 random(20260104);
  SimpleTable model;
  std::vector<cfread_entry*> lost;
  for (unsigned step = 0; step < 8000; ++step) {
    const std::string key = "key" + std::to_string(random() % (step / 10 + 5));
    const std::string value = std::to_string(random() % 1000);
    const unsigned long failing = !model.full() && random() % 50 == 0 ? 1 + random() % 3 : 0;
    cfread_entry* const first = table()->size > 0 ? table()->entries[0] : nullptr;
    const bool first_is_replaced = first != nullptr && first->key == key;
    if (failing == 0) {
      ASSERT_NE(set(key, value), nullptr);
    } else {
      ASSERT_EQ(set_without_memory(failing, key, value), nullptr);
      if (failing > 1 && first != nullptr && !first_is_replaced) lost.push_back(first);
    }
    model.set(key, value, failing);
    ASSERT_EQ(find(key) != nullptr, failing == 0);
    if (step % 500 == 0) expect_same(model);
  }
  expect_same(model);
  EXPECT_GT(model.slots().size(), 500U);
  for (cfread_entry* const entry : lost) free_entry(entry);
  EXPECT_FALSE(lost.empty());
  log_.take();  // the messages of the failures, which other tests look at
}

}  // namespace
