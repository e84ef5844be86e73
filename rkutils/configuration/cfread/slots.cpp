#include <rkutils/configuration/cfread/slot_growth.h>
#include <rkutils/configuration/cfread/slots.h>
#include <rkutils/memory.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace rkutils::cfread {
namespace {

// What the index knows of a slot.
struct Link {
  std::uint32_t hash;  // of the key in the slot
  std::uint32_t next;  // the next slot of its bucket, as a bucket's
};

// The block of memory that begins before the first slot. It has room for more slots than the table
// has, see SlotNumbers: `capacity` pointers, as many links, and as many buckets. A bucket holds the
// number of its first slot plus one; 0 ends it.
struct Block {
  std::uint32_t capacity;      // a power of two
  std::uint32_t end;           // no slot from here on is or was linked
  std::uint32_t no_gap_below;  // all slots below this one are in use
  std::int32_t count;          // the table's, as the last call left it

  cfread_entry** entries() { return reinterpret_cast<cfread_entry**>(this + 1); }
  Link* links() { return reinterpret_cast<Link*>(entries() + capacity); }
  std::uint32_t* buckets() { return reinterpret_cast<std::uint32_t*>(links() + capacity); }
  std::uint32_t& bucket(std::uint32_t hash) { return buckets()[hash & (capacity - 1)]; }

  static Block* make(std::uint32_t capacity) {
    constexpr std::size_t kPerSlot = sizeof(cfread_entry*) + sizeof(Link) + sizeof(std::uint32_t);
    const std::uint64_t size = sizeof(Block) + std::uint64_t{capacity} * kPerSlot;
    if (size > PTRDIFF_MAX) return nullptr;
    auto* const block = static_cast<Block*>(zalloc(static_cast<std::size_t>(size)));
    if (block != nullptr) block->capacity = capacity;
    return block;
  }
};
static_assert(sizeof(Block) % alignof(cfread_entry*) == 0);
static_assert(alignof(cfread_entry*) % alignof(Link) == 0);

// Of a table that has slots.
Block& block_of(const cfread_table& table) {
  return *(reinterpret_cast<Block*>(table.entries) - 1);
}

void link_slot(Block& block, std::uint32_t slot, std::uint32_t hash) {
  std::uint32_t& first = block.bucket(hash);
  block.links()[slot] = {hash, first};
  first = slot + 1;
}

// Does nothing where the slot is not linked.
void unlink_slot(Block& block, std::uint32_t slot) {
  Link* const links = block.links();
  std::uint32_t* number = &block.bucket(links[slot].hash);
  while (*number != 0 && *number != slot + 1) number = &links[*number - 1].next;
  if (*number != 0) *number = links[slot].next;
}

// The first free slot of those from `from` to before `size`, or `size`.
std::uint32_t first_gap(Block& block, std::uint32_t from, std::uint32_t size) {
  cfread_entry** const slots = block.entries();
  cfread_entry** const gap = std::find(slots + std::min(from, size), slots + size, nullptr);
  return static_cast<std::uint32_t>(gap - slots);
}

// Of a block whose slots are all in use.
void copy_slots(Block& from, Block& to) {
  to.end = from.end;
  to.no_gap_below = from.capacity;
  std::copy(from.entries(), from.entries() + from.capacity, to.entries());
  for (std::uint32_t slot = 0; slot < from.end; ++slot) {
    link_slot(to, slot, from.links()[slot].hash);
  }
}

}  // namespace

std::int32_t Slots::find(const char* key, std::uint32_t hash) const noexcept {
  if (table_.entries == nullptr) return kNone;
  Block& block = block_of(table_);
  const Link* link = nullptr;
  for (std::uint32_t number = block.bucket(hash); number != 0; number = link->next) {
    link = &block.links()[number - 1];
    if (link->hash != hash) continue;
    const cfread_entry* const entry = table_.entries[number - 1];
    if (entry != nullptr && std::strcmp(entry->key, key) == 0) {
      return static_cast<std::int32_t>(number - 1);
    }
  }
  return kNone;
}

std::int32_t Slots::find_free() noexcept {
  if (table_.entries == nullptr && !add_slots()) return kNone;
  if (Block& block = block_of(table_); table_.count != block.count) {
    // A program may have emptied slots on its own account.
    block.count = table_.count;
    block.no_gap_below = 0;
  }
  for (;;) {
    Block& block = block_of(table_);
    const auto size = static_cast<std::uint32_t>(size_in_memory());
    std::uint32_t slot = first_gap(block, block.no_gap_below, size);
    // Once more before all are copied: a program may have emptied one without counting it.
    if (slot == size && size == block.capacity) slot = first_gap(block, 0, size);
    block.no_gap_below = slot;
    if (slot < size) return static_cast<std::int32_t>(slot);
    if (!add_slots()) return kNone;
  }
}

void Slots::put(std::int32_t slot, cfread_entry* entry, std::uint32_t hash) noexcept {
  Block& block = block_of(table_);
  const auto number = static_cast<std::uint32_t>(slot);
  // Still linked where a program has emptied it on its own account.
  if (number < block.end) unlink_slot(block, number);
  link_slot(block, number, hash);
  table_.entries[slot] = entry;
  block.end = std::max(block.end, number + 1);
  block.count = ++table_.count;
}

cfread_entry* Slots::take(std::int32_t slot) noexcept {
  Block& block = block_of(table_);
  const auto number = static_cast<std::uint32_t>(slot);
  cfread_entry* const entry = table_.entries[slot];
  unlink_slot(block, number);
  table_.entries[slot] = nullptr;
  block.no_gap_below = std::min(block.no_gap_below, number);
  // Told from a change by a program, which stays to be seen.
  --table_.count;
  --block.count;
  return entry;
}

bool Slots::add_slots() noexcept {
  Block* const block = table_.entries != nullptr ? &block_of(table_) : nullptr;
  const std::uint32_t capacity = block != nullptr ? block->capacity : 0;
  const SlotNumbers more = with_more_slots({size_in_memory(), capacity});
  if (more == kNoMoreSlots) return false;
  if (more.capacity != capacity) {
    Block* const larger = Block::make(more.capacity);
    if (larger == nullptr) return false;
    if (block != nullptr) copy_slots(*block, *larger);
    larger->count = table_.count;
    table_.entries = larger->entries();
    std::free(block);
  }
  table_.size = more.size;
  return true;
}

std::int32_t Slots::size_in_memory() const noexcept {
  if (table_.entries == nullptr || table_.size < 0) return 0;
  const std::uint32_t capacity = block_of(table_).capacity;
  return static_cast<std::int32_t>(std::min(static_cast<std::uint32_t>(table_.size), capacity));
}

void Slots::release() noexcept {
  if (table_.entries != nullptr) std::free(&block_of(table_));
  table_.entries = nullptr;
  table_.size = 0;
}

}  // namespace rkutils::cfread
