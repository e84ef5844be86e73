// Stands before the C library's allocator, and before the sanitizer's where there is one.
//
// The program's malloc(), calloc(), realloc() and free() take the place of the others, for the
// shared libraries too. Where the memory then comes from depends on how the program is made:
//   - with AddressSanitizer and ThreadSanitizer the real functions have names of their own;
//   - linked dynamically, they are the next ones in the order of the libraries;
//   - linked statically, they are no longer in the program: aligned_alloc() allocates from the same
//     heap, and its free() has a second name in both C libraries. (The GNU C library's archive
//     needs the linker's --allow-multiple-definition for that, for it has all in one object.)

#include "support/allocation_faults.h"

#include <rkutils/export.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include <dlfcn.h>
#include <malloc.h>
#include <sys/auxv.h>

#include "support/sanitizers.h"

#define SANITIZED (HAS_ADDRESS_SANITIZER || HAS_THREAD_SANITIZER)

#if SANITIZED
extern "C" {
void* __interceptor_malloc(std::size_t size);
void* __interceptor_calloc(std::size_t count, std::size_t size);
void* __interceptor_realloc(void* memory, std::size_t size);
void __interceptor_free(void* memory);
}
#else
extern "C" [[gnu::weak]] void __libc_free(void* memory);
#endif

namespace {

constexpr std::size_t kMostRecorded = 16;

thread_local unsigned long allocations = 0;
thread_local long unfreed = 0;
thread_local unsigned long failing = 0;  // the number of the allocation that fails
thread_local bool recording = false;
thread_local std::size_t recorded_count = 0;
thread_local std::size_t recorded[kMostRecorded];

// While the C library is inside calloc() or realloc(): musl's call malloc(), which is no allocation
// of the caller's then.
thread_local bool inside = false;

// What the allocator's first callers reach, before the sanitizer is ready to check anything.
#define UNCHECKED __attribute__((no_sanitize("address", "undefined", "thread")))

// Counts an allocation; true when it is to fail.
UNCHECKED bool fails_now(std::size_t size) noexcept {
  if (inside) return false;
  ++allocations;
  if (recording && recorded_count < kMostRecorded) recorded[recorded_count++] = size;
  if (allocations != failing) return false;
  errno = ENOMEM;
  return true;
}

// Counts a block that the program gets, if it does.
UNCHECKED void* handed_out(void* memory) noexcept {
  if (!inside && memory != nullptr) ++unfreed;
  return memory;
}

template <typename Action>
UNCHECKED void* call_inside(Action action) noexcept {
  const bool before = inside;
  inside = true;
  void* const memory = action();
  inside = before;
  return memory;
}

// The function of this name in the next library.
template <typename Function>
Function* next(std::atomic<Function*>& cached, const char* name) noexcept {
  Function* function = cached.load(std::memory_order_relaxed);
  if (function == nullptr) {
    function = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
    cached.store(function, std::memory_order_relaxed);
  }
  return function;
}

#if SANITIZED

void* real_malloc(std::size_t size) noexcept { return __interceptor_malloc(size); }

void* real_calloc(std::size_t count, std::size_t size) noexcept {
  return __interceptor_calloc(count, size);
}

void* real_realloc(void* memory, std::size_t size) noexcept {
  return __interceptor_realloc(memory, size);
}

UNCHECKED void real_free(void* memory) noexcept { __interceptor_free(memory); }

#else

using Malloc = void*(std::size_t);
using Calloc = void*(std::size_t, std::size_t);
using Realloc = void*(void*, std::size_t);
using Free = void(void*);

// Whether there is a dynamic linker, and so a next library.
bool is_dynamic() noexcept { return ::getauxval(AT_BASE) != 0; }

std::atomic<Malloc*> next_malloc = nullptr;
std::atomic<Calloc*> next_calloc = nullptr;
std::atomic<Realloc*> next_realloc = nullptr;
std::atomic<Free*> next_free = nullptr;

// Looks for all of them in time. The first to be called by the GNU C library's dlerror() would have
// it forget, in its middle, the failure that it tells of, and free that twice.
__attribute__((constructor)) void find_all() {
  if (!is_dynamic()) return;
  next(next_malloc, "malloc");
  next(next_calloc, "calloc");
  next(next_realloc, "realloc");
  next(next_free, "free");
}

// malloc() of a statically linked program.
void* allocate(std::size_t size) noexcept {
  if (size > PTRDIFF_MAX) {
    errno = ENOMEM;
    return nullptr;
  }
  return ::aligned_alloc(alignof(std::max_align_t), size);
}

void* real_malloc(std::size_t size) noexcept {
  return is_dynamic() ? next(next_malloc, "malloc")(size) : allocate(size);
}

void* real_calloc(std::size_t count, std::size_t size) noexcept {
  if (is_dynamic()) return next(next_calloc, "calloc")(count, size);
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes)) bytes = SIZE_MAX;
  void* const memory = allocate(bytes);
  return memory == nullptr ? nullptr : std::memset(memory, 0, bytes);
}

void* real_realloc(void* memory, std::size_t size) noexcept {
  if (is_dynamic()) return next(next_realloc, "realloc")(memory, size);
  void* const moved = allocate(size);
  if (memory == nullptr || moved == nullptr) return moved;
  std::memcpy(moved, memory, std::min(size, ::malloc_usable_size(memory)));
  __libc_free(memory);
  return moved;
}

void real_free(void* memory) noexcept {
  if (is_dynamic()) {
    next(next_free, "free")(memory);
  } else {
    __libc_free(memory);
  }
}

#endif

}  // namespace

// Visible to the shared libraries, which are to call these too. C libraries differ in whether they
// declare these functions noexcept, and name the parameters with reserved names.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

RK_API void* malloc(std::size_t size) noexcept(noexcept(std::malloc(size))) {
  return fails_now(size) ? nullptr : handed_out(real_malloc(size));
}

UNCHECKED RK_API void free(void* memory) noexcept(noexcept(std::free(memory))) {
  if (!inside && memory != nullptr) --unfreed;
  real_free(memory);
}

RK_API void* calloc(std::size_t count,
                    std::size_t size) noexcept(noexcept(std::calloc(count, size))) {
  if (fails_now(count * size)) return nullptr;
  return handed_out(call_inside([=] { return real_calloc(count, size); }));
}

RK_API void* realloc(void* memory,
                     std::size_t size) noexcept(noexcept(std::realloc(memory, size))) {
  if (fails_now(size)) return nullptr;
  void* const moved = call_inside([=] { return real_realloc(memory, size); });
  return memory == nullptr ? handed_out(moved) : moved;
}

#if SANITIZED
// The sanitizer's does not call malloc().
RK_API char* strdup(const char* text) noexcept(noexcept(::strdup(text))) {
  const std::size_t size = std::strlen(text) + 1;
  void* const copy = ::malloc(size);
  return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, size));
}
#endif

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

// The language's operators call malloc(), but for those of the sanitizer. Its delete still takes
// only what its new has made, so that one has to be called. A program that has operators of its own
// keeps them. ThreadSanitizer is part of the program, and has no next one.
#if HAS_ADDRESS_SANITIZER

namespace {

constexpr bool kLongSizes = sizeof(std::size_t) == sizeof(std::uint64_t);

using New = void*(std::size_t);
using NothrowNew = void*(std::size_t, const std::nothrow_t&);

}  // namespace

[[gnu::weak]] void* operator new(std::size_t size) {
  static std::atomic<New*> function = nullptr;
  if (fails_now(size)) throw std::bad_alloc();
  return next(function, kLongSizes ? "_Znwm" : "_Znwj")(size);
}

[[gnu::weak]] void* operator new[](std::size_t size) {
  static std::atomic<New*> function = nullptr;
  if (fails_now(size)) throw std::bad_alloc();
  return next(function, kLongSizes ? "_Znam" : "_Znaj")(size);
}

[[gnu::weak]] void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept {
  static std::atomic<NothrowNew*> function = nullptr;
  if (fails_now(size)) return nullptr;
  return next(function, kLongSizes ? "_ZnwmRKSt9nothrow_t" : "_ZnwjRKSt9nothrow_t")(size, tag);
}

[[gnu::weak]] void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  static std::atomic<NothrowNew*> function = nullptr;
  if (fails_now(size)) return nullptr;
  return next(function, kLongSizes ? "_ZnamRKSt9nothrow_t" : "_ZnajRKSt9nothrow_t")(size, tag);
}

#endif

namespace support {

unsigned long allocation_count() { return allocations; }

long unfreed_count() { return unfreed; }

FailingAllocation::FailingAllocation(unsigned long nth) { failing = allocations + nth; }

FailingAllocation::~FailingAllocation() { failing = 0; }

bool FailingAllocation::happened() const { return allocations >= failing; }

RecordedAllocations::RecordedAllocations() {
  recorded_count = 0;
  recording = true;
}

RecordedAllocations::~RecordedAllocations() { recording = false; }

std::vector<std::size_t> RecordedAllocations::sizes() const {
  recording = false;
  return {recorded, recorded + recorded_count};
}

}  // namespace support
