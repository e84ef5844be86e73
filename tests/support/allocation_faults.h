// Allocations counted and made to fail.
#ifndef TESTS_SUPPORT_ALLOCATION_FAULTS_H
#define TESTS_SUPPORT_ALLOCATION_FAULTS_H

namespace support {

// The number of allocations that this thread has made: malloc(), calloc() and realloc().
unsigned long allocation_count();

// Makes one allocation of this thread fail: the `nth` from now, counted from 1. Only one at a time.
// From destruction on none fails.
class FailingAllocation {
 public:
  explicit FailingAllocation(unsigned long nth);
  ~FailingAllocation();
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  // Whether it has come to that.
  [[nodiscard]] bool happened() const;
};

}  // namespace support

#endif
