// How the slots of a table become more.
#ifndef RKUTILS_CONFIGURATION_CFREAD_SLOT_GROWTH_H
#define RKUTILS_CONFIGURATION_CFREAD_SLOT_GROWTH_H

#include <cstdint>

namespace rkutils::cfread {

// Programs know that slots come in this number.
inline constexpr std::int32_t kSlotStep = 64;

// The slots that a table has, and those that its memory has room for: a power of two, so that the
// steps do not copy the slots each time, or 0 where it has none yet.
struct SlotNumbers {
  std::int32_t size;
  std::uint32_t capacity;
};

constexpr bool operator==(SlotNumbers a, SlotNumbers b) {
  return a.size == b.size && a.capacity == b.capacity;
}

// No slots can be added.
inline constexpr SlotNumbers kNoMoreSlots = {0, 0};

// The numbers after one step more. The size is a multiple of the step and not above the capacity.
constexpr SlotNumbers with_more_slots(SlotNumbers now) {
  if (now.size > INT32_MAX - kSlotStep) return kNoMoreSlots;
  const std::int32_t size = now.size + kSlotStep;
  if (now.capacity == 0) return {size, static_cast<std::uint32_t>(kSlotStep)};
  const bool fits = static_cast<std::uint32_t>(size) <= now.capacity;
  return {size, fits ? now.capacity : now.capacity * 2};
}

}  // namespace rkutils::cfread

#endif
