// The formatting engine.

#include <rkutils/text.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "foundations/rows.h"
#include "support/comparison.h"

namespace bench::foundations {
namespace {

using benchmark::State;

constexpr std::size_t kLongLength = std::size_t{64} * 1024;
constexpr std::size_t kWindow = 128;
constexpr std::size_t kSkip = kLongLength / 2;

const std::string& long_text() {
  static const std::string text(kLongLength, 'x');
  return text;
}

// A value that the compiler cannot compute with.
template <typename Value>
Value hidden(Value value) {
  asm volatile("" : "+r"(value));
  return value;
}

void add_strings() {
  compare("length of strings",
          [](State& state) {
            for (auto _ : state) {
              benchmark::DoNotOptimize(
                  strlenf("%s.%s.%s", hidden("interface"), hidden("wwan0"), hidden("address")));
            }
          },
          {peer("fmt::formatted_size", 0.5, [](State& state) {
            for (auto _ : state) {
              benchmark::DoNotOptimize(fmt::formatted_size("{}.{}.{}", hidden("interface"),
                                                           hidden("wwan0"), hidden("address")));
            }
          })});
}

void add_integers() {
  compare("length of integers",
          [](State& state) {
            for (auto _ : state) {
              benchmark::DoNotOptimize(strlenf("%d %u %ld %d", hidden(-71), hidden(86400U),
                                               hidden(1234567890L), hidden(7)));
            }
          },
          {peer("fmt::formatted_size", 0.5, [](State& state) {
            for (auto _ : state) {
              benchmark::DoNotOptimize(fmt::formatted_size(
                  "{} {} {} {}", hidden(-71), hidden(86400U), hidden(1234567890L), hidden(7)));
            }
          })});
}

void add_mixed() {
  compare("length of a mixed text",
          [](State& state) {
            for (auto _ : state) {
              benchmark::DoNotOptimize(strlenf("%-10s|%8d|0x%08x|%c|%s: %u of %lu", hidden("wwan0"),
                                               hidden(-71), hidden(0x1A2D401U), hidden('A'),
                                               hidden("bytes sent"), hidden(4096U),
                                               hidden(1234567890UL)));
            }
          },
          {peer("fmt::formatted_size", 0.4, [](State& state) {
            for (auto _ : state) {
              benchmark::DoNotOptimize(
                  fmt::formatted_size("{:<10}|{:8}|0x{:08x}|{}|{}: {} of {}", hidden("wwan0"),
                                      hidden(-71), hidden(0x1A2D401U), hidden('A'),
                                      hidden("bytes sent"), hidden(4096U), hidden(1234567890UL)));
            }
          })});
}

void add_long_text() {
  compare("length of a 64 KiB %s",
          [](State& state) {
            const char* const text = long_text().c_str();
            for (auto _ : state) benchmark::DoNotOptimize(strlenf("%s", hidden(text)));
          },
          {peer("fmt::formatted_size", 0.35,
                [](State& state) {
                  const char* const text = long_text().c_str();
                  for (auto _ : state) {
                    benchmark::DoNotOptimize(fmt::formatted_size("{}", hidden(text)));
                  }
                }),
           floor("strlen", 1.15, [](State& state) {
             const char* const text = long_text().c_str();
             for (auto _ : state) benchmark::DoNotOptimize(std::strlen(hidden(text)));
           })});
}

// The peer's window is the text's beginning, the only one that it can write at once.
void add_window() {
  compare("a 128-byte window of a 64 KiB %s",
          [](State& state) {
            const char* const text = long_text().c_str();
            std::array<char, kWindow + 1> window;
            for (auto _ : state) {
              snxprintf(window.data(), kSkip, window.size(), "%s", hidden(text));
              benchmark::DoNotOptimize(window.data());
            }
          },
          {peer("fmt::format_to_n", 0.3,
                [](State& state) {
                  const char* const text = long_text().c_str();
                  std::array<char, kWindow + 1> window;
                  for (auto _ : state) {
                    *fmt::format_to_n(window.data(), kWindow, "{}", hidden(text)).out = '\0';
                    benchmark::DoNotOptimize(window.data());
                  }
                }),
           floor("strlen and memcpy", 1.2, [](State& state) {
             const char* const text = long_text().c_str();
             std::array<char, kWindow + 1> window;
             for (auto _ : state) {
               const char* const whole = hidden(text);
               const std::size_t length = std::strlen(whole);
               const std::size_t skipped = std::min(kSkip, length);
               const std::size_t shown = std::min(length - skipped, kWindow);
               std::memcpy(window.data(), whole + skipped, shown);
               window[shown] = '\0';
               benchmark::DoNotOptimize(window.data());
             }
           })});
}

}  // namespace

void add_format_rows() {
  add_strings();
  add_integers();
  add_mixed();
  add_long_text();
  add_window();
}

}  // namespace bench::foundations
