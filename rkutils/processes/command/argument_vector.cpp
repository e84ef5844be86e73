// Command lines split into argument vectors.

#include <rkutils/command.h>
#include <rkutils/memory.h>
#include <rkutils/processes/command/words.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

using rkutils::processes::CommandWords;

constexpr int kSlots = 255;

struct VectorFreer {
  void operator()(char** vector) const noexcept { freeargv(vector); }
};
using Vector = std::unique_ptr<char*[], VectorFreer>;

Vector make_vector() { return Vector(static_cast<char**>(zalloc(kSlots * sizeof(char*)))); }

// Most slots are unused, and are passed over so many at a time.
constexpr int kGroup = 15;
static_assert(kSlots % kGroup == 0);

bool is_unused(char* const* group) {
  std::uintptr_t bits = 0;
  for (int i = 0; i < kGroup; ++i) bits |= reinterpret_cast<std::uintptr_t>(group[i]);
  return bits == 0;
}

// Zero-filled memory. The GNU C library has small blocks at hand for malloc() but not for calloc(),
// which gets large ones from the kernel with zeros that nothing has to write.
char* allocate(std::size_t size) {
  constexpr std::size_t kSmall = 1024;
  if (size > kSmall) return static_cast<char*>(zalloc(size));
  void* const memory = std::malloc(size);
  return memory == nullptr ? nullptr : static_cast<char*>(std::memset(memory, 0, size));
}

// Each word has room for the whole line: callers have come to write into it.
char* copy_word(std::string_view word, std::size_t size) {
  char* const copy = allocate(size);
  if (copy != nullptr) std::memcpy(copy, word.data(), word.size());
  return copy;
}

}  // namespace

int makeargv(const char* input, char*** argv, int* argc) {
  if (input == nullptr || argv == nullptr || argc == nullptr) return -1;
  Vector vector = make_vector();
  if (!vector) return -1;

  const std::size_t word_size = std::strlen(input) + 1;
  CommandWords words(input);
  CommandWords::Found found = words.next();
  int count = 0;
  for (; found == CommandWords::Found::kWord; found = words.next()) {
    if (count == kSlots) return -1;
    char* const word = copy_word(words.word(), word_size);
    if (word == nullptr) return -1;
    vector[static_cast<std::size_t>(count++)] = word;
  }
  if (found == CommandWords::Found::kUnclosedQuote) return -1;
  *argv = vector.release();
  *argc = count;
  return 0;
}

void freeargv(char** argv) {
  if (argv == nullptr) return;
  for (char** group = argv; group != argv + kSlots; group += kGroup) {
    if (is_unused(group)) continue;
    for (int i = 0; i < kGroup; ++i) std::free(group[i]);
  }
  std::free(argv);
}
