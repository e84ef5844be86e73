/*
 * Hash tables from a text or a number to a pointer.
 *
 *     INStringHashTable leases(64);
 *     void* known = nullptr;
 *     if (!leases.getValueFromKey(host, &known)) leases.addEntry(host, new Lease(address));
 *     syslog(LOG_INFO, "%lu leases", leases.getNumberOfKeys());
 *     leases.passAllPointers(delete_lease);  // the table goes by itself, the leases do not
 *
 * The two tables differ in their keys alone. A key's bucket is its hash masked with the number of
 * buckets less one; each bucket is a chain in the order in which its entries were added. The number
 * of buckets is chosen once and never grows: choose it for the entries that are expected, for
 * lookups walk the chains.
 *
 * Equal keys. Adding does not look whether the key is there already. Entries with equal keys stand
 * side by side; lookup and removal take the oldest of them, so that removing it brings the next to
 * light. Who wants one entry for a key asks getValueFromKey() first.
 *
 * Ownership. A table owns its entries and its copies of text keys. Values are the caller's: what
 * they point to is never read, changed or freed, and they may be NULL. A table cannot be copied.
 *
 * Failures. The constructors and addEntry() throw std::bad_alloc when there is no memory; nothing
 * else here throws, but for what a function of the caller's throws. Nothing is logged, nothing
 * blocks.
 *
 * Threads and signals: nothing is locked; a table is for one thread at a time. Members that are
 * const write nothing to it. Not for signal handlers.
 */
#ifndef RKUTILS_HASH_TABLE_H
#define RKUTILS_HASH_TABLE_H

#include <rkutils/export.h>

#include <cstdint>

/* How a number becomes its hash. There is one way, the number itself; other values mean it too. */
enum HashFunctionType : int { HASH_FUNCTION_IDENTITY = 0 };

/*
 * A table whose keys are texts. They are copied and compared byte by byte. A key may be empty; a
 * NULL key is never there and cannot be added.
 */
class RK_API INStringHashTable {
 public:
  /*
   * Makes an empty table with as many buckets as the smallest power of two that is not below
   * `size`, and at least 2.
   *
   * Throws std::bad_array_new_length when that is more than 536870910 buckets, that is, for a
   * `size` above 268435456, on a 64-bit host too: a size is refused everywhere or nowhere.
   * std::bad_alloc without memory.
   */
  explicit INStringHashTable(unsigned long size);

  /* Frees the entries, the copies of the keys and the buckets; not the values. Not virtual. */
  ~INStringHashTable();

  INStringHashTable(const INStringHashTable&) = delete;
  INStringHashTable& operator=(const INStringHashTable&) = delete;

  /*
   * Adds an entry at the end of its chain, whether or not there is one with an equal key. The text
   * of `key` is copied.
   *
   * Returns true; false, with nothing added, for a NULL `key`. Throws std::bad_alloc without
   * memory; the table is as before then.
   */
  bool addEntry(const char* key, void* value);

  /*
   * Finds the oldest entry with that key.
   *
   * Returns true and stores its value in `*value`; `value` must not be NULL. False, with `*value`
   * untouched, when there is none, or `key` is NULL.
   */
  bool getValueFromKey(const char* key, void** value) const noexcept;

  /*
   * Removes the oldest entry with that key, and frees the entry and its copy of the key. The next
   * oldest one with an equal key is found from then on.
   *
   * Returns true; false, with nothing changed, when there is none, or `key` is NULL.
   */
  bool removeEntry(const char* key) noexcept;

  /* Removes all entries. The buckets stay, as many as before. */
  void removeAllEntries() noexcept;

  /*
   * Copies the values of the first `n` entries, or of all when there are fewer, to the array `out`
   * of `n` pointers, which may be NULL when `n` is 0: buckets from the first to the last, each from
   * its oldest entry to its newest. What is behind them in `out` is untouched.
   *
   * Returns the number of values copied.
   */
  unsigned long getFirstNPointers(unsigned long n, void** out) const noexcept;

  /*
   * Calls `fn`, which must not be NULL, with the value of every entry, in the order of
   * getFirstNPointers(). It may free the value; it must not change or destroy the table, whose
   * entries still hold the pointer afterwards. An exception of `fn` ends the calls and comes out.
   */
  void passAllPointers(void (*fn)(void*)) const;

  /*
   * The number of entries; equal keys count each. No count is kept: this walks the whole table and
   * is meant for diagnostics.
   */
  unsigned long getNumberOfKeys() const noexcept;

  /*
   * The number of entries in the longest chain, 0 for an empty table: far above entries divided by
   * buckets when the hash does not suit the keys. Walks the whole table.
   */
  unsigned long getLongestChain() const noexcept;

 private:
  struct Node;

  Node** buckets_;
  std::uint32_t bucket_count_;
  std::uint32_t mask_;
};

/*
 * A table whose keys are 32-bit numbers. They arrive as unsigned long, and where that has more bits
 * the upper ones do not count: 5 and 5 + 2^32 are the same key. A number is its own hash: numbers
 * that are equal modulo the number of buckets share a chain.
 */
class RK_API INUInt32HashTable {
 public:
  /*
   * Makes an empty table with as many buckets as INStringHashTable of that `size`, and throws as it
   * does. `function` may be any value and is ignored: programs pass it, but a number is always
   * its own hash.
   */
  explicit INUInt32HashTable(unsigned long size,
                             HashFunctionType function = HASH_FUNCTION_IDENTITY);

  /* Frees the entries and the buckets; not the values. Not virtual. */
  ~INUInt32HashTable();

  INUInt32HashTable(const INUInt32HashTable&) = delete;
  INUInt32HashTable& operator=(const INUInt32HashTable&) = delete;

  /*
   * Adds an entry at the end of its chain, whether or not there is one with an equal key.
   *
   * Returns true. Throws std::bad_alloc without memory; the table is as before then.
   */
  bool addEntry(unsigned long key, void* value);

  /*
   * Finds the oldest entry with that key.
   *
   * Returns true and stores its value in `*value`; `value` must not be NULL. False, with `*value`
   * untouched, when there is none.
   */
  bool getValueFromKey(unsigned long key, void** value) const noexcept;

  /*
   * Removes and frees the oldest entry with that key. The next oldest one with an equal key is
   * found from then on.
   *
   * Returns true; false, with nothing changed, when there is none.
   */
  bool removeEntry(unsigned long key) noexcept;

  /* As the members of the same names of INStringHashTable. */
  void removeAllEntries() noexcept;
  unsigned long getFirstNPointers(unsigned long n, void** out) const noexcept;
  void passAllPointers(void (*fn)(void*)) const;
  unsigned long getNumberOfKeys() const noexcept;
  unsigned long getLongestChain() const noexcept;

 private:
  struct Node;

  Node** buckets_;
  std::uint32_t bucket_count_;
  std::uint32_t mask_;
};

#endif
