// What a fuzz target has in common with the others.
#ifndef FUZZ_TARGET_H
#define FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "support/choices.h"

// libFuzzer and replay.cpp call it with each input; it returns 0. What it remembers from one input to
// the next must not change what it finds.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

// ---- Verdicts

// Bytes as they are shown to people.
inline std::string shown(std::string_view bytes) {
  std::string text = "\"";
  for (const char byte : bytes) {
    char escaped[8];
    const bool plain = byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\';
    std::snprintf(escaped, sizeof escaped, plain ? "%c" : "\\x%02x",
                  static_cast<unsigned>(static_cast<unsigned char>(byte)));
    text += escaped;
  }
  return text + '"';
}

template <typename Number, std::enable_if_t<std::is_arithmetic_v<Number>, int> = 0>
std::string shown(Number number) {
  return std::to_string(number);
}

// Ends the program: the input has found something.
[[noreturn]] inline void fail(const std::string& reason) {
  std::fprintf(stderr, "%s\n", reason.c_str());
  std::abort();
}

inline void expect(bool holds, const char* what) {
  if (!holds) fail(std::string("not so: ") + what);
}

// Numbers, or texts; not two pointers.
template <typename Actual, typename Expected>
void expect_equal(const Actual& actual, const Expected& expected, const char* what) {
  if (actual == expected) return;
  fail(std::string(what) + " is " + shown(actual) + ", not " + shown(expected));
}

// ---- Inputs

// A text in memory of just its size, so that a sanitizer sees any byte read or written behind its NUL.
class Text {
 public:
  // The bytes up to the first NUL.
  explicit Text(std::string_view bytes) : bytes_(bytes.begin(), bytes.end()) {
    bytes_.resize(std::strlen(std::string(bytes).c_str()));
    bytes_.push_back('\0');
    bytes_.shrink_to_fit();
  }

  [[nodiscard]] char* data() { return bytes_.data(); }
  [[nodiscard]] const char* c_str() const { return bytes_.data(); }
  [[nodiscard]] std::size_t length() const { return bytes_.size() - 1; }
  [[nodiscard]] std::string_view view() const { return {bytes_.data(), length()}; }

 private:
  std::vector<char> bytes_;
};

// The bytes of an input, taken from its front. Behind its end all numbers are 0 and all texts empty.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

  [[nodiscard]] bool empty() const { return left_ == 0; }
  [[nodiscard]] std::size_t left() const { return left_; }

  std::uint8_t byte() {
    if (left_ == 0) return 0;
    --left_;
    return *data_++;
  }

  // A number of all values that its type has, the most significant byte first.
  template <typename Number>
  Number number() {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) value = value << 8U | byte();
    return static_cast<Number>(value);
  }

  // A number from 0 on that is less than `bound`, at most 65536.
  std::size_t below(std::size_t bound) {
    const std::size_t value = bound > 256 ? number<std::uint16_t>() : byte();
    return bound == 0 ? 0 : value % bound;
  }

  bool flag() { return (byte() & 1U) != 0; }

  // The next `count` bytes, or as many as there are.
  std::string bytes(std::size_t count) {
    if (count > left_) count = left_;
    std::string taken(reinterpret_cast<const char*>(data_), count);
    data_ += count;
    left_ -= count;
    return taken;
  }

  // A byte that tells how many, and so many bytes.
  std::string some_bytes() { return bytes(byte()); }

  std::string rest() { return bytes(left_); }

  // What stands before the next `separator`, which is taken too, or before the end.
  std::string until(char separator) {
    const void* const found = left_ == 0 ? nullptr : std::memchr(data_, separator, left_);
    if (found == nullptr) return rest();
    const auto length = static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - data_);
    std::string taken = bytes(length);
    byte();
    return taken;
  }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

// Choices that an input makes. When its bytes have ended, they go on with a fixed sequence, in which
// everything comes up: who waits for a choice does not wait in vain.
inline support::Choices choices_of(Input& input) {
  return [&input, state = std::uint32_t{1}](std::size_t bound) mutable -> std::size_t {
    if (!input.empty()) return input.below(bound);
    state = state * 1664525 + 1013904223;
    return (state >> 16U) % bound;
  };
}

}  // namespace fuzz

#endif
