// Where programs find the virtual members of a class.
#ifndef TESTS_SUPPORT_VIRTUAL_SLOT_H
#define TESTS_SUPPORT_VIRTUAL_SLOT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace support {

// The place of a virtual member in the table of its class, counted from 0; a virtual destructor has
// two. For a member that is not virtual, a number far above.
//
// As the C++ ABI has it: the first word of a pointer to a virtual member is its offset in the
// table, plus 1 on machines that mark it as virtual there.
template <typename Member>
std::size_t virtual_slot(Member member) {
  std::uintptr_t offset = 0;
  static_assert(sizeof member == 2 * sizeof offset);
  std::memcpy(&offset, &member, sizeof offset);
  return offset / sizeof(void*);
}

}  // namespace support

#endif
