// Running something on a thread with the target's small stack.
#ifndef TESTS_SUPPORT_SMALL_STACK_H
#define TESTS_SUPPORT_SMALL_STACK_H

#include <functional>

namespace support {

// Calls `action` on a thread of its own with a stack of 128 KiB, the size that a thread has on the
// target unless it asks for another, and returns when it has ended.
void run_on_small_stack(const std::function<void()>& action);

}  // namespace support

#endif
