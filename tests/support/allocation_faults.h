// Allocations counted, recorded and made to fail.
//
// An allocation is a call of malloc(), calloc() or realloc(), in the program or in a library, and
// of new, which calls malloc() or counts like it. Calls inside of the C library count where its
// linking lets them. With ThreadSanitizer, new does not count.
#ifndef TESTS_SUPPORT_ALLOCATION_FAULTS_H
#define TESTS_SUPPORT_ALLOCATION_FAULTS_H

#include <cstddef>
#include <vector>

namespace support {

// The number of allocations that this thread has made.
unsigned long allocation_count();

// How many blocks of malloc(), calloc() and realloc() this thread has allocated and not yet freed,
// less those that it freed for others: of use as a difference, over calls that take what they free
// from these three.
long unfreed_count();

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

// The allocations of this thread from construction on. One at a time.
class RecordedAllocations {
 public:
  RecordedAllocations();
  ~RecordedAllocations();
  RecordedAllocations(const RecordedAllocations&) = delete;
  RecordedAllocations& operator=(const RecordedAllocations&) = delete;

  // The sizes that were asked for: the first sixteen, in order. Ends the recording.
  [[nodiscard]] std::vector<std::size_t> sizes() const;
};

}  // namespace support

#endif
