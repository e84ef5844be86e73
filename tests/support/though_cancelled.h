// Threads that are cancelled while they are at something.
#ifndef TESTS_SUPPORT_THOUGH_CANCELLED_H
#define TESTS_SUPPORT_THOUGH_CANCELLED_H

#include <functional>

namespace support {

// Calls `action` on a thread that was cancelled just before. Whether the action came to its end
// and the request still stood then.
bool finishes_though_cancelled(const std::function<void()>& action);

}  // namespace support

#endif
