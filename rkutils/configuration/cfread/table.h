// The entries of a table.
#ifndef RKUTILS_CONFIGURATION_CFREAD_TABLE_H
#define RKUTILS_CONFIGURATION_CFREAD_TABLE_H

#include <rkutils/cfread.h>

#include <memory>

namespace rkutils::cfread {

struct FreeEntry {
  void operator()(cfread_entry* entry) const noexcept;
};
using UniqueEntry = std::unique_ptr<cfread_entry, FreeEntry>;

// The entry with this key, or NULL.
[[nodiscard]] cfread_entry* find_entry(cfread_table& table, const char* key) noexcept;

// Adds an entry, in place of one with the same key, and returns it. NULL, with a message, when
// there is no memory for it; `lost` then gets the entry of slot 0 if the table loses that. Ends the
// process when there is no memory for its slot. Key and value may lie in the entry that is
// replaced.
cfread_entry* set_entry(cfread_table& table, const char* key, const char* value,
                        UniqueEntry& lost) noexcept;

// Frees all entries and the slots.
void free_entries(cfread_table& table) noexcept;

}  // namespace rkutils::cfread

#endif
