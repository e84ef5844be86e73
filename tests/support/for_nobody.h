// Running something as in a set-user-id program.
#ifndef TESTS_SUPPORT_FOR_NOBODY_H
#define TESTS_SUPPORT_FOR_NOBODY_H

#include <functional>

namespace support {

// Calls `action` on a thread whose real user is nobody and whose effective user is root, as in a
// set-user-id program, and returns when it has ended.
void run_for_nobody(const std::function<void()>& action);

}  // namespace support

#endif
