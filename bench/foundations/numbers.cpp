// Numbers as text.

#include <rkutils/text.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "foundations/rows.h"
#include "support/comparison.h"

namespace bench::foundations {
namespace {

using benchmark::State;

constexpr std::size_t kCount = 1024;

// Numbers of either sign and of all lengths.
const std::array<std::int32_t, kCount>& numbers() {
  static const auto all = [] {
    std::array<std::int32_t, kCount> result = {};
    std::mt19937 random(1);
    for (std::int32_t& number : result) {
      number = static_cast<std::int32_t>(random()) >> (random() % 32);
    }
    return result;
  }();
  return all;
}

const std::array<std::string, kCount>& texts() {
  static const auto all = [] {
    std::array<std::string, kCount> result;
    for (std::size_t i = 0; i < kCount; ++i) result[i] = std::to_string(numbers()[i]);
    return result;
  }();
  return all;
}

// Goes round and round in one of the arrays.
class Index {
 public:
  std::size_t next() { return at_++ % kCount; }

 private:
  std::size_t at_ = 0;
};

void add_i32toa() {
  compare("i32toa, decimal",
          [](State& state) {
            const auto& values = numbers();
            Index index;
            char buffer[34];
            for (auto _ : state) benchmark::DoNotOptimize(i32toa(values[index.next()], buffer, 10));
          },
          {peer("fmt::format_int", 1.2, [](State& state) {
            const auto& values = numbers();
            Index index;
            for (auto _ : state) {
              fmt::format_int text(values[index.next()]);
              benchmark::DoNotOptimize(text.c_str());
            }
          })});
}

void add_value_of() {
  compare("valueOf32",
          [](State& state) {
            const auto& values = texts();
            Index index;
            for (auto _ : state) benchmark::DoNotOptimize(valueOf32(values[index.next()].c_str()));
          },
          {peer("std::from_chars", 1.0, [](State& state) {
            const auto& values = texts();
            Index index;
            for (auto _ : state) {
              const char* const text = values[index.next()].c_str();
              std::int32_t value = 0;
              std::from_chars(text, text + std::strlen(text), value);
              benchmark::DoNotOptimize(&value);
            }
          })});
}

void add_valid_value_of() {
  compare("validValueOf32",
          [](State& state) {
            const auto& values = texts();
            Index index;
            for (auto _ : state) {
              int ok = -1;
              benchmark::DoNotOptimize(validValueOf32(&ok, values[index.next()].c_str()));
              if (ok != 0) state.SkipWithError("refused");
            }
          },
          {peer("strtol and its end", 1.0, [](State& state) {
            const auto& values = texts();
            Index index;
            for (auto _ : state) {
              const char* const text = values[index.next()].c_str();
              char* end = nullptr;
              errno = 0;
              const long value = std::strtol(text, &end, 10);
              benchmark::DoNotOptimize(value);
              if (end == text || *end != '\0' || errno != 0) state.SkipWithError("refused");
            }
          })});
}

}  // namespace

void add_number_rows() {
  add_i32toa();
  add_value_of();
  add_valid_value_of();
}

}  // namespace bench::foundations
