// Doing the same on several threads at once.
#ifndef TESTS_SUPPORT_AT_ONCE_H
#define TESTS_SUPPORT_AT_ONCE_H

#include <functional>

namespace support {

// Calls `action` on so many threads, with 0, 1 and so on, and returns when all have ended. None begins
// before all are there. What an action throws ends the program.
void at_once(int threads, const std::function<void(int)>& action);

}  // namespace support

#endif
