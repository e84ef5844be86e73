#include <rkutils/configuration/cfread/slots.h>
#include <rkutils/memory.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace rkutils::cfread {
namespace {

constexpr std::int32_t kStep = 64;

// What the index knows of a slot.
struct Link {
  std::uint32_t hash;  // of the key in the slot
  std::uint32_t next;  // the next slot of its bucket, as a bucket's
};

// The block of memory that begins before the first slot. It has room for more slots than the table
// has, so that the steps of 64 do not copy it each time: `capacity` pointers, as many links, and as
// many buckets. A bucket holds the number of its first slot plus one; 0 ends it.
struct Block {
  std::uint32_t capacity;  // a power of two
  std::uint32_t end;       // no slot from here on is or was in use

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

void copy_slots(Block& from, Block& to) {
  to.end = from.end;
  for (std::uint32_t slot = 0; slot < from.end; ++slot) {
    if (from.entries()[slot] == nullptr) continue;
    to.entries()[slot] = from.entries()[slot];
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
  std::int32_t slot = 0;
  if (table_.entries != nullptr) {
    const Block& block = block_of(table_);
    slot = static_cast<std::int32_t>(block.end);
    // As a rule there are no gaps. Where there are some, the count is lower than that.
    if (table_.count != slot) {
      cfread_entry** const end = table_.entries + slot;
      slot = static_cast<std::int32_t>(std::find(table_.entries, end, nullptr) - table_.entries);
    }
  }
  return slot < table_.size || add_slots() ? slot : kNone;
}

void Slots::put(std::int32_t slot, cfread_entry* entry, std::uint32_t hash) noexcept {
  Block& block = block_of(table_);
  const auto number = static_cast<std::uint32_t>(slot);
  // Still linked where a program has emptied it on its own account.
  if (number < block.end) unlink_slot(block, number);
  link_slot(block, number, hash);
  table_.entries[slot] = entry;
  block.end = std::max(block.end, number + 1);
}

cfread_entry* Slots::take(std::int32_t slot) noexcept {
  cfread_entry* const entry = table_.entries[slot];
  unlink_slot(block_of(table_), static_cast<std::uint32_t>(slot));
  table_.entries[slot] = nullptr;
  return entry;
}

bool Slots::add_slots() noexcept {
  if (table_.entries == nullptr) {
    Block* const block = Block::make(kStep);
    if (block == nullptr) return false;
    table_.entries = block->entries();
    table_.size = kStep;
    return true;
  }
  if (table_.size > INT32_MAX - kStep) return false;
  Block& block = block_of(table_);
  if (static_cast<std::uint32_t>(table_.size) == block.capacity) {
    Block* const larger = Block::make(block.capacity * 2);
    if (larger == nullptr) return false;
    copy_slots(block, *larger);
    table_.entries = larger->entries();
    std::free(&block);
  }
  table_.size += kStep;
  return true;
}

void Slots::release() noexcept {
  if (table_.entries != nullptr) std::free(&block_of(table_));
  table_.entries = nullptr;
  table_.size = 0;
}

}  // namespace rkutils::cfread
