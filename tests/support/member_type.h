// What the members of a class are.
#ifndef TESTS_SUPPORT_MEMBER_TYPE_H
#define TESTS_SUPPORT_MEMBER_TYPE_H

#include <type_traits>

namespace support {

// Whether a pointer to a member, &Class::member, has this type: the member is there, not
// overloaded, and takes and returns just that.
template <auto Member, typename Expected>
constexpr bool kIs = std::is_same_v<decltype(Member), Expected>;

}  // namespace support

#endif
