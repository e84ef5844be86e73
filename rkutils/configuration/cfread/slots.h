// The slots of a table and, in the same block of memory, an index by key beside them.
#ifndef RKUTILS_CONFIGURATION_CFREAD_SLOTS_H
#define RKUTILS_CONFIGURATION_CFREAD_SLOTS_H

#include <rkutils/cfread.h>

#include <cstdint>

namespace rkutils::cfread {

// A view of a table's slots that keeps `entries`, `size`, `count` and the index in step; all state
// is in the table, where zero bytes are an empty table. The entries themselves are the caller's
// concern.
//
// The index gives what a scan of the slots from 0 upwards would give. It is made of slot numbers,
// so an entry whose slot a program has emptied on its own account is not found any more, and one
// that it has put into a slot itself is not found at all.
class Slots {
 public:
  explicit Slots(cfread_table& table) noexcept : table_(table) {}

  // Stands for no slot.
  static constexpr std::int32_t kNone = -1;

  // The slot of the entry with this key, or kNone. The hash is the key's, by internal::hash_text().
  [[nodiscard]] std::int32_t find(const char* key, std::uint32_t hash) const noexcept;

  // The lowest free slot, after adding slots where all are taken; kNone when that cannot be done.
  // A slot that a program has emptied is seen at once when it has counted it, otherwise before the
  // memory of the slots has to grow.
  [[nodiscard]] std::int32_t find_free() noexcept;

  // Puts an entry into a free slot and counts it.
  void put(std::int32_t slot, cfread_entry* entry, std::uint32_t hash) noexcept;

  // Empties a slot, counts one entry less and returns what was in it; NULL from an empty slot.
  cfread_entry* take(std::int32_t slot) noexcept;

  // `size`, or what there is memory for where a program has changed that.
  [[nodiscard]] std::int32_t size_in_memory() const noexcept;

  // Frees the memory of the slots, which must be empty.
  void release() noexcept;

 private:
  bool add_slots() noexcept;

  cfread_table& table_;
};

}  // namespace rkutils::cfread

#endif
