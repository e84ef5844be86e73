// String.

#include <rkutils/string.h>

#include <QByteArray>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <absl/strings/ascii.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <malloc.h>

#include "foundations/rows.h"
#include "support/comparison.h"

namespace bench::foundations {
namespace {

using benchmark::State;

constexpr std::size_t kTextLength = 4096;
constexpr const char* kTwentyCharacters = "192.0.2.17:5060;udp;";

// 4 KiB of words.
const std::string& long_text() {
  static const std::string text = [] {
    constexpr const char* kWords[] = {"the",   "router", "reads",  "its", "Settings",
                                      "when",  "it",     "Starts", "and", "Then",
                                      "waits", "for",    "a",      "link"};
    std::mt19937 random(1);
    std::string words;
    while (words.size() < kTextLength) {
      words += kWords[random() % std::size(kWords)];
      words += ' ';
    }
    words.resize(kTextLength);
    return words;
  }();
  return text;
}

constexpr const char* kNeedle = "netmask";

// The same, with the needle at its end.
const std::string& text_with_needle() {
  static const std::string text =
      long_text().substr(0, kTextLength - std::strlen(kNeedle)) + kNeedle;
  return text;
}

// ---- Copying and appending ----

void add_copy() {
  compare("copy of a String",
          [](State& state) {
            const String text(kTwentyCharacters);
            for (auto _ : state) {
              const String copy(text);
              benchmark::DoNotOptimize(copy);
            }
          },
          {peer("g_ref_string_acquire", 0.3,
                [](State& state) {
                  GRefString* const text = g_ref_string_new(kTwentyCharacters);
                  for (auto _ : state) {
                    GRefString* const copy = g_ref_string_acquire(text);
                    benchmark::DoNotOptimize(copy);
                    g_ref_string_release(copy);
                  }
                  g_ref_string_release(text);
                }),
           floor("a plain counter", 2, [](State& state) {
             auto* const counter = static_cast<int*>(std::malloc(sizeof(int)));
             *counter = 1;
             for (auto _ : state) {
               ++*counter;
               int* const copy = counter;
               benchmark::DoNotOptimize(copy);
               if (--*copy == 0) std::free(copy);
             }
             std::free(counter);
           })});
}

// A text as a String has it, one block behind a pointer, that grows by the same rule.
struct Block {
  std::int32_t count;
  std::int32_t capacity;
  std::int32_t length;
  char chars[1];
};

Block* grow(Block* block, std::int32_t length) {
  const std::int32_t capacity =
      length < 128 ? ((length + 8) & ~15) + 7 : ((length - 64) & ~63) + 127;
  auto* const grown = static_cast<Block*>(
      std::realloc(block, offsetof(Block, chars) + static_cast<std::size_t>(capacity) + 1));
  grown->capacity = capacity;
  return grown;
}

void append(Block*& text, char character) {
  Block* block = text;
  const std::int32_t length = block->length;
  if (length == block->capacity) block = text = grow(block, length + 1);
  block->chars[length] = character;
  block->chars[length + 1] = '\0';
  block->length = length + 1;
}

// As a shared library's function is called.
void (*volatile append_by_pointer)(Block*&, char) = append;

void add_appends() {
  constexpr int kAppends = 100000;
  compare("100,000 single-character appends",
          [](State& state) {
            for (auto _ : state) {
              String text;
              for (int i = 0; i < kAppends; ++i) text += 'x';
              benchmark::DoNotOptimize(text.c_str());
            }
          },
          {peer("std::string", 4,
                [](State& state) {
                  for (auto _ : state) {
                    std::string text;
                    for (int i = 0; i < kAppends; ++i) text += 'x';
                    benchmark::DoNotOptimize(text.c_str());
                  }
                }),
           floor("the growth rule's moves", 1.2, [](State& state) {
             for (auto _ : state) {
               Block* text = grow(nullptr, 0);
               text->length = 0;
               for (int i = 0; i < kAppends; ++i) {
                 append_by_pointer(text, 'x');
               }
               benchmark::DoNotOptimize(&text->chars);
               std::free(text);
             }
           })});
}

template <typename Text>
void concatenate(State& state) {
  const Text section("interface.wwan0");
  const Text dot(".statistics.");
  const Text name("received_bytes");
  for (auto _ : state) {
    const Text key = section + dot + name;
    benchmark::DoNotOptimize(key.c_str());
  }
}

void add_concatenation() {
  compare("concatenate three", concatenate<String>,
          {peer("std::string", 1.0, concatenate<std::string>)});
}

// ---- Searching ----

void add_index_of() {
  compare("indexOf in 4 KiB",
          [](State& state) {
            const String text(text_with_needle().c_str());
            const String needle(kNeedle);
            for (auto _ : state) benchmark::DoNotOptimize(text.indexOf(needle));
          },
          {peer("memmem", 0.3,
                [](State& state) {
                  const std::string& text = text_with_needle();
                  const std::string needle(kNeedle);
                  for (auto _ : state) {
                    benchmark::DoNotOptimize(
                        ::memmem(text.data(), text.size(), needle.data(), needle.size()));
                  }
                }),
           floor("strstr", 1.1, [](State& state) {
             const char* const text = text_with_needle().c_str();
             const std::string needle(kNeedle);
             for (auto _ : state) benchmark::DoNotOptimize(std::strstr(text, needle.c_str()));
           })});
}

[[gnu::noipa]] const char* last_with_prefix(const char* text, std::size_t length,
                                            const char* needle, std::size_t needle_length) {
  for (const char* at = text + length - needle_length; at >= text; --at) {
    if (std::strncmp(at, needle, needle_length) == 0) return at;
  }
  return nullptr;
}

void add_last_index_of() {
  compare("lastIndexOf, absent, in 4 KiB",
          [](State& state) {
            const String text(long_text().c_str());
            const String needle(kNeedle);
            for (auto _ : state) benchmark::DoNotOptimize(text.lastIndexOf(needle));
          },
          {peer("QByteArray::lastIndexOf", 0.5,
                [](State& state) {
                  const QByteArray text(long_text().c_str());
                  const QByteArray needle(kNeedle);
                  for (auto _ : state) benchmark::DoNotOptimize(text.lastIndexOf(needle));
                }),
           floor("a comparison at each start", 1.1, [](State& state) {
             const std::string& text = long_text();
             const std::string needle(kNeedle);
             for (auto _ : state) {
               benchmark::DoNotOptimize(
                   last_with_prefix(text.data(), text.size(), needle.data(), needle.size()));
             }
           })});
}

void add_index_of_ignore_case() {
  compare("indexOfIgnoreCase in 4 KiB",
          [](State& state) {
            const String text(text_with_needle().c_str());
            const String needle("NetMask");
            for (auto _ : state) benchmark::DoNotOptimize(text.indexOfIgnoreCase(needle));
          },
          {peer("strcasestr", 1.0, [](State& state) {
            const char* const text = text_with_needle().c_str();
            const std::string needle("NetMask");
            for (auto _ : state) benchmark::DoNotOptimize(::strcasestr(text, needle.c_str()));
          })});
}

// ---- Changing ----

// Eight characters at once: a byte's top bit tells here whether it is a capital letter.
void lower_words(char* text, std::size_t length) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  constexpr std::uint64_t kTops = 0x80 * kOnes;
  for (std::size_t at = 0; at + sizeof(std::uint64_t) <= length; at += sizeof(std::uint64_t)) {
    std::uint64_t word;
    std::memcpy(&word, text + at, sizeof word);
    const std::uint64_t low = word & ~kTops;
    const std::uint64_t from_a = low + (0x80 - 'A') * kOnes;
    const std::uint64_t behind_z = low + (0x80 - 'Z' - 1) * kOnes;
    const std::uint64_t capital = from_a & ~behind_z & ~word & kTops;
    word |= capital >> 2U;
    std::memcpy(text + at, &word, sizeof word);
  }
}

void add_to_lower_case() {
  compare("toLowerCase, 4 KiB",
          [](State& state) {
            String text(long_text().c_str());
            for (auto _ : state) benchmark::DoNotOptimize(text.toLowerCase().c_str());
          },
          {peer("absl::AsciiStrToLower", 0.25,
                [](State& state) {
                  std::string text = long_text();
                  for (auto _ : state) {
                    absl::AsciiStrToLower(&text);
                    benchmark::DoNotOptimize(text.data());
                  }
                }),
           floor("a word at a time", 1.2, [](State& state) {
             std::string text = long_text();
             for (auto _ : state) {
               lower_words(text.data(), text.size());
               benchmark::DoNotOptimize(text.data());
               benchmark::ClobberMemory();
             }
           })});
}

// ---- Formatting ----

struct Values {
  const char* name = "wwan0";
  int signal = -71;
  unsigned cell = 0x1A2D401;
  const char* network = "LTE";
  unsigned long uptime = 86400;
};

constexpr const char kFormat[] = "%s: %d dBm, cell %08X, %s, up %lu s";

void add_format() {
  compare("format of a short mixed text",
          [](State& state) {
            Values values;
            String text;
            for (auto _ : state) {
              benchmark::DoNotOptimize(&values);
              text.format(kFormat, values.name, values.signal, values.cell, values.network,
                          values.uptime);
              benchmark::DoNotOptimize(text.c_str());
            }
          },
          {peer("g_string_printf", 1.0,
                [](State& state) {
                  Values values;
                  GString* const text = g_string_new("");
                  for (auto _ : state) {
                    benchmark::DoNotOptimize(&values);
                    g_string_printf(text, kFormat, values.name, values.signal, values.cell,
                                    values.network, values.uptime);
                    benchmark::DoNotOptimize(text->str);
                  }
                  g_string_free(text, TRUE);
                }),
           floor("one vsnprintf", 1.3, [](State& state) {
             Values values;
             char text[128];
             for (auto _ : state) {
               benchmark::DoNotOptimize(&values);
               std::snprintf(text, sizeof text, kFormat, values.name, values.signal, values.cell,
                             values.network, values.uptime);
               benchmark::DoNotOptimize(&text);
             }
           })});
}

// ---- Memory ----

std::size_t heap_in_use() { return ::mallinfo2().uordblks; }

// What an object takes, itself and on the heap, when there are many. `make` makes one.
template <typename Text, typename Make>
void measure_memory(State& state, Make make) {
  constexpr std::size_t kObjects = 10000;
  for (auto _ : state) {
    // Before counting, so that what the heap gives then is the texts' alone.
    std::vector<std::optional<Text>> texts(kObjects);
    const std::size_t before = heap_in_use();
    for (std::optional<Text>& text : texts) make(text);
    report_bytes(state, static_cast<double>(heap_in_use() - before) / kObjects + sizeof(Text));
  }
}

template <typename Text>
void memory_of_text(State& state) {
  measure_memory<Text>(state, [](std::optional<Text>& place) { place.emplace(kTwentyCharacters); });
}

template <typename Text>
void memory_of_copy(State& state) {
  const Text text(kTwentyCharacters);
  measure_memory<Text>(state, [&](std::optional<Text>& place) { place.emplace(text); });
}

void add_memory() {
  compare("memory of a 20-character String", memory_of_text<String>,
          {peer("std::string", 0.9, memory_of_text<std::string>)});
  compare("memory of a copy of it", memory_of_copy<String>,
          {peer("std::string", 0.125, memory_of_copy<std::string>)});
}

}  // namespace

void add_string_rows() {
  add_copy();
  add_appends();
  add_concatenation();
  add_index_of();
  add_last_index_of();
  add_index_of_ignore_case();
  add_to_lower_case();
  add_format();
  add_memory();
}

}  // namespace bench::foundations
