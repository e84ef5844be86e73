// Running something as a user whom file modes bind.
#ifndef TESTS_SUPPORT_WITHOUT_OVERRIDE_H
#define TESTS_SUPPORT_WITHOUT_OVERRIDE_H

#include <functional>

namespace support {

// Calls `action` on a thread without root's right to pass over file modes, and returns when it has
// ended.
void run_without_override(const std::function<void()>& action);

}  // namespace support

#endif
