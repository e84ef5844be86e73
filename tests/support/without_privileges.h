// Running something as an ordinary user's program may.
#ifndef TESTS_SUPPORT_WITHOUT_PRIVILEGES_H
#define TESTS_SUPPORT_WITHOUT_PRIVILEGES_H

#include <functional>

namespace support {

// Calls `action` on a thread that has no capabilities (capabilities(7)), and returns when it has
// ended.
void run_without_privileges(const std::function<void()>& action);

}  // namespace support

#endif
