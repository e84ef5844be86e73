// Stands before the C library's allocator, and before the sanitizer's where there is one.

#include "support/allocation_faults.h"

#include <rkutils/export.h>

#include <cerrno>
#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define REAL(name) __interceptor_##name
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define REAL(name) __interceptor_##name
#endif
#endif
#ifndef REAL
#define REAL(name) __libc_##name
#endif

extern "C" {
void* REAL(malloc)(std::size_t size);
void* REAL(calloc)(std::size_t count, std::size_t size);
void* REAL(realloc)(void* memory, std::size_t size);
// Visible to the shared libraries, which are to call these too.
RK_API void* malloc(std::size_t size) noexcept;
RK_API void* calloc(std::size_t count, std::size_t size) noexcept;
RK_API void* realloc(void* memory, std::size_t size) noexcept;
}

namespace {

thread_local unsigned long allocations = 0;
thread_local unsigned long failing = 0;  // the number of the allocation that fails

// Counts an allocation; true when it is to fail.
bool fails_now() noexcept {
  ++allocations;
  if (allocations != failing) return false;
  errno = ENOMEM;
  return true;
}

}  // namespace

void* malloc(std::size_t size) noexcept { return fails_now() ? nullptr : REAL(malloc)(size); }

void* calloc(std::size_t count, std::size_t size) noexcept {
  return fails_now() ? nullptr : REAL(calloc)(count, size);
}

void* realloc(void* memory, std::size_t size) noexcept {
  return fails_now() ? nullptr : REAL(realloc)(memory, size);
}

namespace support {

unsigned long allocation_count() { return allocations; }

FailingAllocation::FailingAllocation(unsigned long nth) { failing = allocations + nth; }

FailingAllocation::~FailingAllocation() { failing = 0; }

bool FailingAllocation::happened() const { return allocations >= failing; }

}  // namespace support
