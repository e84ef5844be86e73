// What new and delete do in this program and in the library, watched.
//
// The program's own operators take the place of the C++ runtime's, and of the sanitizer's where
// there is one: they allocate with malloc(), so that support::FailingAllocation reaches them
// everywhere. A delete that does not fit its new ends the program.
#ifndef TESTS_SUPPORT_LANGUAGE_ALLOCATION_H
#define TESTS_SUPPORT_LANGUAGE_ALLOCATION_H

#include <cstddef>
#include <vector>

namespace language_allocation {

struct Request {
  bool array;  // new[]
  std::size_t size;

  friend bool operator==(const Request& a, const Request& b) {
    return a.array == b.array && a.size == b.size;
  }
};

// What this thread allocates and frees with them, from construction on. One at a time.
class Watch {
 public:
  Watch();
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  // What was asked for, failed requests too: the first eight, in order. No more are added from then
  // on.
  [[nodiscard]] std::vector<Request> requests() const;

  // The number of allocations that are not freed, less those of before that are.
  [[nodiscard]] long unfreed() const;
};

}  // namespace language_allocation

#endif
