#include <rkutils/configuration/cfread/slots.h>
#include <rkutils/configuration/cfread/table.h>
#include <rkutils/configuration/cfread/text_copy.h>
#include <rkutils/configuration/cfread/value_number.h>
#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/text_hash.h>
#include <rkutils/memory.h>

#include <cstdlib>
#include <cstring>

#include <syslog.h>

namespace rkutils::cfread {
namespace {

using internal::PostponedCancellation;

std::int32_t find_free_or_exit(Slots slots) {
  const std::int32_t slot = slots.find_free();
  if (slot == Slots::kNone) {
    const PostponedCancellation postponed;
    ::syslog(LOG_EMERG, "cfread: unable to get a free index");
    std::exit(EXIT_FAILURE);
  }
  return slot;
}

cfread_entry* report_no_memory(const cfread_table& table, const char* key) {
  const PostponedCancellation postponed;
  ::syslog(LOG_ERR, "cfread: unable to add entry '%s' in %s", key,
           table.filename != nullptr ? table.filename : "");
  return nullptr;
}

}  // namespace

void FreeEntry::operator()(cfread_entry* entry) const noexcept {
  std::free(entry->key);
  std::free(entry->value);
  std::free(entry);
}

cfread_entry* find_entry(cfread_table& table, const char* key) noexcept {
  const std::int32_t slot = Slots(table).find(key, internal::hash_text(key));
  return slot != Slots::kNone ? table.entries[slot] : nullptr;
}

cfread_entry* set_entry(cfread_table& table, const char* key, const char* value,
                        UniqueEntry& lost) noexcept {
  Slots slots(table);
  const std::uint32_t hash = internal::hash_text(key);
  UniqueEntry replaced;  // lives on until its texts are copied
  const std::int32_t old_slot = slots.find(key, hash);
  if (old_slot != Slots::kNone) replaced.reset(slots.take(old_slot));
  const std::int32_t slot = find_free_or_exit(slots);

  UniqueEntry entry(static_cast<cfread_entry*>(zalloc(sizeof(cfread_entry))));
  if (entry == nullptr) return report_no_memory(table, key);
  entry->key = copy_text(key, std::strlen(key));
  entry->value = copy_text(value, std::strlen(value));
  if (entry->key == nullptr || entry->value == nullptr) {
    // Kept for programs that count on it: the record, whose number is 0 yet, is taken out of the
    // table although it is not in there. So slot 0 loses its entry.
    lost.reset(slots.take(static_cast<std::int32_t>(entry->index)));
    return report_no_memory(table, key);
  }
  entry->int_value = number_of_value(entry->value);
  entry->index = static_cast<std::uint32_t>(slot);
  slots.put(slot, entry.get(), hash);
  return entry.release();
}

void free_entries(cfread_table& table) noexcept {
  Slots slots(table);
  const std::int32_t size = slots.size_in_memory();
  for (std::int32_t slot = 0; slot < size; ++slot) UniqueEntry(table.entries[slot]);
  slots.release();
}

}  // namespace rkutils::cfread
