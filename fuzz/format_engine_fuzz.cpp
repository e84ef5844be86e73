// The formatting engine: beside the C library's where the two are to agree, and any format at all, whose
// windows have to be parts of one text that is as long as was measured.

#include <rkutils/text.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "foundations/format_generator.h"
#include "target.h"

namespace {

using fuzz::expect;
using fuzz::expect_equal;
using fuzz::Input;

// Longer texts are not made whole.
constexpr std::size_t kLongest = 8192;

// Without the attribute by which a compiler checks the format, and volatile so that none looks through
// them.
int (*volatile c_library)(char*, std::size_t, const char*, ...) = std::snprintf;
int (*volatile measured)(const char*, ...) = strlenf;
int (*volatile windowed)(char*, std::size_t, std::size_t, const char*, ...) = snxprintf;

// The characters from `skip` on, in a buffer of `size` bytes.
template <typename... Values>
std::string window(std::size_t skip, std::size_t size, const char* format, Values... values) {
  std::vector<char> buffer(size, '#');
  const int stored = windowed(size == 0 ? nullptr : buffer.data(), skip, size, format, values...);
  expect(stored >= 0, "a window is made");
  if (size > 0) expect(buffer[static_cast<std::size_t>(stored)] == '\0', "a window ends");
  return {buffer.data(), static_cast<std::size_t>(stored)};
}

// What such a window shows of a text.
std::string part(const std::string& text, std::size_t skip, std::size_t size) {
  return text.substr(std::min(skip, text.size()), size > 0 ? size - 1 : 0);
}

void check_generated(Input& input) {
  format_generator::Generator generator(fuzz::choices_of(input));
  do {
    const format_generator::Format format = generator.next();
    const std::size_t skip = generator.below(50);
    const std::size_t size = generator.below(50);
    format_generator::with_values(format, [&](const char* text, auto... values) {
      std::array<char, 512> buffer;
      const int length = c_library(buffer.data(), buffer.size(), text, values...);
      expect(length >= 0 && static_cast<std::size_t>(length) < buffer.size(),
             "a text that is short");
      const std::string expected(buffer.data(), static_cast<std::size_t>(length));
      expect_equal(measured(text, values...), length, text);
      expect_equal(window(0, expected.size() + 1, text, values...), expected, text);
      expect_equal(window(skip, size, text, values...), part(expected, skip, size), text);
    });
  } while (!input.empty());
}

// What takes a value that an integer cannot be: these letters become others.
std::string without_pointers(std::string format) {
  for (char& byte : format) {
    if (byte == 's' || byte == 'n') byte = 'd';
  }
  return format;
}

// Values for so many conversions and widths are passed.
constexpr std::ptrdiff_t kValues = 12;

void check_any(Input& input) {
  const std::size_t skip = input.below(300);
  const std::size_t size = input.below(300);
  const auto a = input.number<long long>();
  const auto b = static_cast<long long>(input.number<std::int16_t>());
  const fuzz::Text format(without_pointers(input.rest()));
  const auto wants = [](char byte) { return byte == '%' || byte == '*'; };
  if (std::count_if(format.view().begin(), format.view().end(), wants) > kValues) return;

  const auto call = [&](auto function, auto... before) {
    return function(before..., format.c_str(), b, a, b, a, b, a, b, a, b, a, b, a);
  };
  errno = 0;
  const int length = call(static_cast<int (*)(const char*, ...)>(measured));
  if (length < 0) {
    expect_equal(errno, EOVERFLOW, "the reason for a refusal");
    return;
  }
  const auto make = [&](std::size_t from, std::size_t room) {
    std::vector<char> buffer(room, '#');
    const int stored =
        call(static_cast<int (*)(char*, std::size_t, std::size_t, const char*, ...)>(windowed),
             buffer.data(), from, room);
    expect(stored >= 0 && static_cast<std::size_t>(stored) < room, "a window is in its buffer");
    expect(buffer[static_cast<std::size_t>(stored)] == '\0', "a window has its NUL");
    return std::string(buffer.data(), static_cast<std::size_t>(stored));
  };
  if (static_cast<std::size_t>(length) > kLongest) {
    expect_equal(make(0, 100).size(), 99U, "a window of a long text");
    return;
  }
  const std::string text = make(0, static_cast<std::size_t>(length) + 1);
  expect_equal(text.size(), static_cast<std::size_t>(length), "the length");
  expect_equal(make(0, size + 1), part(text, 0, size + 1), "the beginning");
  expect_equal(make(skip, size + 1), part(text, skip, size + 1), "a window");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  if (input.flag()) {
    check_generated(input);
  } else {
    check_any(input);
  }
  return 0;
}
