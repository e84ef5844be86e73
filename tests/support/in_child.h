// Running something in a process of its own.
#ifndef TESTS_SUPPORT_IN_CHILD_H
#define TESTS_SUPPORT_IN_CHILD_H

#include <functional>
#include <string>

namespace support {

// Calls `action` in a forked child and returns what it returned: for functions that remember
// something for the life of a process. The child is a copy of this process with this thread alone;
// checks that fail in there are not seen here. Throws when the child ends in another way.
std::string in_child(const std::function<std::string()>& action);

// How a child has ended, as waitpid(2) tells, and what the action returned when it came to that.
struct ChildEnd {
  int status;
  std::string result;
};

// The same for an action that may end the child by itself.
ChildEnd end_of_child(const std::function<std::string()>& action);

}  // namespace support

#endif
