#include "support/language_allocation.h"

#include <rkutils/export.h>

#include <array>
#include <cstdlib>
#include <new>

namespace {

// Stands before each block.
struct alignas(std::max_align_t) Header {
  bool array;
};

thread_local std::array<language_allocation::Request, 8> asked;
thread_local std::size_t asked_count = 0;
thread_local bool watched = false;
thread_local long live = 0;

void* allocate(std::size_t size, bool array) noexcept {
  if (watched && asked_count < asked.size()) asked[asked_count++] = {array, size};
  void* const block = std::malloc(sizeof(Header) + size);
  if (block == nullptr) return nullptr;
  ++live;
  return new (block) Header{array} + 1;
}

void* allocate_or_throw(std::size_t size, bool array) {
  void* const memory = allocate(size, array);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void release(void* memory, bool array) noexcept {
  if (memory == nullptr) return;
  Header* const header = static_cast<Header*>(memory) - 1;
  if (header->array != array) std::abort();
  --live;
  std::free(header);
}

}  // namespace

void* operator new(std::size_t size) { return allocate_or_throw(size, false); }
void* operator new[](std::size_t size) { return allocate_or_throw(size, true); }
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(size, false);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocate(size, true);
}
void operator delete(void* memory) noexcept { release(memory, false); }
void operator delete[](void* memory) noexcept { release(memory, true); }
// clang does not count these among the language's own, which the C++ library is to find.
RK_API void operator delete(void* memory, std::size_t /*size*/) noexcept { release(memory, false); }
RK_API void operator delete[](void* memory, std::size_t /*size*/) noexcept {
  release(memory, true);
}
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
  release(memory, false);
}
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept {
  release(memory, true);
}

namespace language_allocation {

Watch::Watch() {
  asked_count = 0;
  live = 0;
  watched = true;
}

Watch::~Watch() { watched = false; }

std::vector<Request> Watch::requests() const {
  watched = false;
  return {asked.begin(), asked.begin() + static_cast<std::ptrdiff_t>(asked_count)};
}

long Watch::unfreed() const { return live; }

}  // namespace language_allocation
